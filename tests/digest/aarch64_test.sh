#!/usr/bin/env bash
# The same streams from a build for AArch64, under an emulator, as from this machine's.
# Usage: aarch64_test.sh SOURCE BUILD DIGEST few|all - `all` takes every setting and the core's tests, several minutes
set -euo pipefail

source=$1 build=$2 digest=$3 step=13 targets=(stream_digest)
run=(qemu-aarch64 -L /usr/aarch64-linux-gnu)
[ "$4" != all ] || { step=1 && targets+=(core_test); }

cmake -S "$source" -B "$build" -G Ninja --toolchain "$source/cmake/aarch64.cmake" \
    -DVELA_TOOLS=OFF -DVELA_BENCH=OFF -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 >"$build.log"
ninja -C "$build" --quiet vela_enc_mp1a "${targets[@]}"
"$(dirname -- "$0")/same.sh" "$digest" "$step" "${run[@]}" "$build/bin/stream_digest"
[ "$4" != all ] || "${run[@]}" "$build/bin/core_test" --gtest_brief=1
