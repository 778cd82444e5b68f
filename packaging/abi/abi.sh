#!/usr/bin/env bash
# The ABI of the library against the one on record: record layouts, enumerations, functions, virtual tables, exports.
# Usage: abi.sh SOURCE LIBRARY [record] - LIBRARY is vela_enc_mp1a_abi; `record` makes its ABI the one on record
set -euo pipefail

source=$1 library=$2 record=$1/packaging/abi/libvela_enc_mp1a.so.2.0.abi
if [ "${3-}" = record ]; then
    abidw --headers-dir "$source/include" --drop-private-types --no-corpus-path --no-comp-dir-path --no-show-locs \
        --out-file "$record" "$library"
    exit
fi
# What abidiff calls harmless includes an exchange of two virtual functions.
abidiff --harmless --no-show-locs "$record" "$library" || {
    echo "The binary interface is not the one on record. If it may change, ./dev abi records it." >&2
    exit 1
}
