#!/usr/bin/env bash
# Builds the shared library of an earlier revision, for the depth view and
# binocular benchmarks to run beside this build:
#   bench/build_baseline.sh REF DIR
#   KVDSR_BASELINE_LIB=DIR/build/libkvDSR.so build/bench/bench_depthview
set -euo pipefail
ref=$1
dir=$2
root=$(cd "$(dirname "$0")/.." && pwd)
rm -rf "$dir/src"
mkdir -p "$dir/src"
git -C "$root" archive "$ref" | tar -x -C "$dir/src"
cmake -S "$dir/src" -B "$dir/build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DKVDSR_BUILD_TESTS=OFF \
  -DKVDSR_BUILD_TOOLS=OFF -DKVDSR_BUILD_EXAMPLES=OFF -DKVDSR_BUILD_BENCH=OFF >/dev/null
cmake --build "$dir/build" --target kvDSR -j"${JOBS:-2}"
echo "$dir/build/libkvDSR.so"
