#!/bin/sh
# hardening.sh READELF FILE...: checks that every file is built with the options of tarsio_harden().
# The files need debug information, which records the compiler's options.
set -u
readelf=$1
shift

status=0
fail() { echo "$file: $1"; status=1; }
has() { printf '%s\n' "$1" | grep -qE "$2"; }

for file in "$@"; do
  segments=$("$readelf" -hlW "$file") || exit 1
  dynamic=$("$readelf" -dW --dyn-syms "$file") || exit 1
  compilers=$("$readelf" --debug-dump=info --dwarf-depth=1 "$file" | grep 'DW_AT_producer.*C++')

  has "$segments" 'Type: +DYN' || fail "is not position-independent"
  has "$segments" 'GNU_STACK .* RW ' || fail "the stack may be executable"
  has "$segments" ' RWE ' && fail "a segment is both writable and executable"
  has "$segments" 'GNU_RELRO' || fail "relocated data stays writable"
  has "$dynamic" 'FLAGS.*NOW' || fail "symbols are not all bound at load time"
  has "$dynamic" ' __stack_chk_fail(@|$)' || fail "no stack protector"
  has "$dynamic" ' UND v?(f|s|sn)?printf(@|$)' && fail "formats without checks: _FORTIFY_SOURCE is off"
  has "$dynamic" ' UND (str(n)?(cpy|cat)|stpcpy|gets)(@|$)' && fail "calls unbounded copy functions"

  if has "$dynamic" '\(SONAME\)'; then
    "$readelf" -nW "$file" | grep -q 'x86 feature: IBT, SHSTK' || fail "not marked for IBT and SHSTK"
    has "$dynamic" '\((INIT|FINI)\)' && fail "an entry point lacks endbr64"
  fi

  [ -n "$compilers" ] || fail "no debug information"
  for option in -fstack-clash-protection -fcf-protection=full; do
    printf '%s\n' "$compilers" | grep -qv -e "$option" && fail "compiled without $option"
  done
done
exit "$status"
