# Writes and compresses `changelog`. Its date is SOURCE_DATE_EPOCH, if set.

set(ENV{LC_ALL} C)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${changelog}" "${source} (${version}) unstable; urgency=medium

  * See CHANGELOG.md for the changes.

 -- ${maintainer}  ${date}
")
execute_process(COMMAND gzip -9nf "${changelog}" COMMAND_ERROR_IS_FATAL ANY)
