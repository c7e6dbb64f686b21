set width 0
set confirm off
set disable-randomization off
break Stop
run
up
print empty
print drive
print share
print relative
print posix
print root
print cafe
print plain
print longer
print longShare
print none
print stopped
print shorter
print pair
print numbers
print texts
print closed
print *&busy
print *&down
