#!/usr/bin/env bash
# The same streams from a build for AArch64, under an emulator, as from this machine's.
# Usage: aarch64_test.sh SOURCE BUILD DIGEST few|all - `all` takes every setting and the core's tests, several minutes
set -euo pipefail

source=$1 build=$2 digest=$3 few=few targets=(stream_digest)
run=(qemu-aarch64 -L /usr/aarch64-linux-gnu)
[ "$4" != all ] || { few='' && targets+=(core_test); }

cmake -S "$source" -B "$build" -G Ninja --toolchain "$source/cmake/aarch64.cmake" \
    -DVELA_TOOLS=OFF -DVELA_BENCH=OFF -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 >"$build.log"
ninja -C "$build" --quiet vela_enc_mp1a "${targets[@]}"
diff <("$digest" ${few:+few}) <("${run[@]}" "$build/bin/stream_digest" ${few:+few})
[ "$4" != all ] || "${run[@]}" "$build/bin/core_test" --gtest_brief=1
