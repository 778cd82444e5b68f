#!/usr/bin/env bash
# The examples in other languages write the tool's bytes and stamps.
# Usage: examples_test.sh python3|rustc SOURCE BUILD
set -euo pipefail

language=$1 source=$2 build=$3 input=/usr/share/sounds/alsa/Front_Center.wav
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$build/bin/velaenc" --quiet --preset dvb --mode mono --bitrate 128 --timestamps "$work/list.csv" "$input" "$work/tool.mp2"
# Bytes, and seconds from ticks of 27 MHz.
awk -F , '{ printf "%d,%d,%.6f\n", $1, $3, $4 / 27e6 }' <(grep '^[0-9]' "$work/list.csv") >"$work/expected"
if [ "$language" = python3 ]; then
    run=(/usr/bin/python3 "$source/examples/python/encode.py" "$input" "$work/out.mp2" "$build/lib/libvela_enc_mp1a.so.2.0")
else
    rustc --edition 2021 -D warnings -L native="$build/lib" -o "$work/encode" "$source/examples/rust/encode.rs"
    run=(env LD_LIBRARY_PATH="$build/lib" "$work/encode" "$input" "$work/out.mp2")
fi
"${run[@]}" | diff "$work/expected" -
cmp "$work/out.mp2" "$work/tool.mp2"
