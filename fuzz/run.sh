#!/usr/bin/env bash
# Builds the fuzz targets with clang (ASan + UBSan) and runs each for a while.
# Usage: fuzz/run.sh [SECONDS_EACH]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
scripts/setup.sh clang libclang-rt-14-dev
cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DTARNVALE_FUZZ=ON -DTARNVALE_TESTS=OFF \
  -DTARNVALE_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz --target gltf_fuzz material_fuzz
for target in gltf material; do
  corpus="build-fuzz/corpus-$target"
  mkdir -p "$corpus"
  ./build-fuzz/fuzz/${target}_fuzz -max_total_time="$seconds" -max_len=65536 "$corpus" "fuzz/seeds/$target"
done
