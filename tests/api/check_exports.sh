#!/bin/sh
# check_exports.sh LIBRARY NAME... - the library exports these names, nothing else, and needs no library
# but the C runtime's.
set -eu
library=$1
shift
exported=$(nm -D --defined-only "$library" | awk '{ print $NF }' | sort)
expected=$(printf '%s\n' "$@" | sort)
if [ "$exported" != "$expected" ]; then
    printf 'expected:\n%s\nexported:\n%s\n' "$expected" "$exported"
    exit 1
fi
soname=$(objdump -p "$library" | awk '$1 == "SONAME" { print $2 }')
[ "$soname" = libvela_enc_mp1a.so.2.0 ] || { echo "soname $soname"; exit 1; }
other=$(objdump -p "$library" | awk '$1 == "NEEDED" { print $2 }' | grep -Ev '^(libc\.so\.6|libm\.so\.6|ld-linux.*)$' || true)
[ -z "$other" ] || { echo "needs $other"; exit 1; }
