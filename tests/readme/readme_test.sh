#!/usr/bin/env bash
# Builds README.md's C program as a stranger would, against an installed copy found by pkg-config, and runs it.
# Usage: readme_test.sh SOURCE BUILD C_COMPILER
set -euo pipefail

source=$1 build=$2 compiler=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
die() {
    printf '%s\n' "$*" >&2
    exit 1
}

cmake --install "$build" --prefix "$work/prefix" >"$work/install.log"
PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name vela_enc_mp1a.pc)")
export PKG_CONFIG_PATH
read -ra flags < <(pkg-config --cflags --libs vela_enc_mp1a)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir vela_enc_mp1a)
export LD_LIBRARY_PATH

awk '/^```c$/ { on = 1; next } /^```$/ { on = 0 } on' "$source/README.md" >"$work/encode.c"
"$compiler" -std=c11 -Wall -Wextra -Wpedantic -Werror "$work/encode.c" -o "$work/encode" "${flags[@]}"

# Ten frames of 1152 stereo samples and a bit: eleven frames of 224000 * 1152 / 48000 / 8 = 672 bytes and 24 ms.
head -c $((10 * 1152 * 4 + 100)) "$build/lib/libvela_enc_mp1a.so.2.0" |
    "$work/encode" >"$work/out.mp2" 2>"$work/stamps"
size=$(stat -c %s "$work/out.mp2")
[ "$size" -eq $((11 * 672)) ] || die "$size bytes instead of 11 * 672"
for ((at = 0; at < size; at += 672)); do
    header=$(od -An -tx1 -j "$at" -N 4 "$work/out.mp2")
    [ "$header" = " ff fc b4 00" ] || die "the header at byte $at is$header"
done
[ "$(tail -n 1 "$work/stamps")" = "672 bytes up to 0.264 s" ] || die "stamps: $(cat "$work/stamps")"

# The installed tool finds the installed library by itself.
unset LD_LIBRARY_PATH
[ ! -e "$work/prefix/bin/velaenc" ] || "$work/prefix/bin/velaenc" --version
