#!/usr/bin/env bash
# Builds the fuzz targets with clang (ASan + UBSan) and runs each for a while on
# a corpus that starts from its seeds. Prints per target the executions, the
# coverage and whether it ended clean.
# Usage: fuzz/run.sh [SECONDS_EACH] [TARGET...]; RUNS=N stops each after N
# executions (or the time, whichever comes first).
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
shift || true
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(gltf material sidecar modeldef attach template settings glb_edit partdata)
scripts/setup.sh clang libclang-rt-14-dev
cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DTARNVALE_FUZZ=ON -DTARNVALE_TESTS=OFF \
  -DTARNVALE_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz --target "${targets[@]/%/_fuzz}"
# The targets write small files many thousand times a second: on a memory file
# system, where the machine has one, the syncs cost nothing.
[ -d /dev/shm ] && [ -w /dev/shm ] && export TMPDIR=/dev/shm
failed=0
for target in "${targets[@]}"; do
  corpus="build-fuzz/corpus-$target"
  mkdir -p "$corpus" "build-fuzz/crashes-$target"
  log="build-fuzz/$target.log"
  if ./build-fuzz/fuzz/${target}_fuzz -max_total_time="$seconds" ${RUNS:+-runs=$RUNS} -max_len=65536 -timeout=20 -rss_limit_mb=2048 \
       -artifact_prefix="build-fuzz/crashes-$target/" -print_final_stats=1 "$corpus" "fuzz/seeds/$target" >"$log" 2>&1; then
    result=clean
  else
    result="FAILED (see $log)"
    failed=1
  fi
  runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || echo 0)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | grep -o '[0-9]*' || echo 0)
  printf '%-9s %10s executions  coverage %6s  %s\n' "$target" "$runs" "$cov" "$result"
done
exit $failed
