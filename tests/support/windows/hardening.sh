#!/bin/sh
# hardening.sh OBJDUMP FILE...: checks that every file is built with the options of tarsio_harden().
set -u
objdump=$1
shift

status=0
fail() { echo "$file: $1"; status=1; }
has() { printf '%s\n' "$1" | grep -qE "$2"; }

# The only permitted imports: the system, the C++ runtime and the library. The stack protector gets
# random numbers from ADVAPI32, and libcrypto reports fatal errors through it or USER32.
known='KERNEL32|ADVAPI32|SHELL32|USER32|msvcrt|libstdc\+\+-6|libgcc_s_seh-1|libwinpthread-1'
known="$known|tarsio-common"

for file in "$@"; do
  headers=$("$objdump" -p "$file") || exit 1
  sections=$("$objdump" -hw "$file") || exit 1
  symbols=$("$objdump" -t "$file") || exit 1

  for bit in DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT; do
    has "$headers" "^[[:space:]]+$bit\$" || fail "$bit is not set"
  done
  has "$sections" ' \.reloc ' || fail "no relocations"
  has "$sections" ' \.text .*READONLY.*CODE' || fail "no read-only code section"
  printf '%s\n' "$sections" | grep CODE | grep -qv READONLY && fail "a code section is writable"
  has "$symbols" ' __stack_chk_fail$' || fail "no stack protector"
  surplus=$(printf '%s\n' "$headers" | sed -n 's/^[[:space:]]*DLL Name: //p' | tr -d '\r' |
    grep -vixE "($known)\.dll")
  [ -z "$surplus" ] || fail "imports from $surplus"
done
exit "$status"
