#!/usr/bin/env bash
# The library has the functions of the interface's header and nothing else. Usage: exports_test.sh LIBRARY HEADER
set -euo pipefail

declared=$(grep -oE '\b(get_)?twolame_[A-Za-z0-9_]+\(' "$2" | tr -d '(' | sort -u)
# Those that its text mentions under the API mark, so that a word in a comment is no function.
[ "$(grep -c '^TL_API' "$2")" -eq "$(wc -l <<<"$declared")" ] || { echo "$2 is another interface" && exit 1; }
diff <(printf '%s\n' "$declared") <(nm -D --defined-only "$1" | awk '{ print $NF }' | sort)
grep -qF 'soname: [libtwolame.so.0]' <<<"$(readelf -dW "$1")"
needed=$(readelf -dW "$1" | grep NEEDED)
! grep -vE '\[(libvela_enc_mp1a\.so\.2\.0|libc\.so\.6|libm\.so\.6|ld-linux[^]]*)\]' <<<"$needed"
