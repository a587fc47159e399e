#!/usr/bin/env bash
# End to end, side by side: `tarnvale export` of a generated .glb against
# `assimp export` of the same file to .x (Debian's assimp-utils). Prints wall
# time and peak memory of each. Usage: bench/e2e.sh [TRIANGLES] [MATERIALS]
set -euo pipefail
cd "$(dirname "$0")/.."
triangles="${1:-1000000}"
materials="${2:-20}"
scripts/setup.sh assimp-utils time bc
cmake -S . -B build-bench -G Ninja -DTARNVALE_BENCH=ON -DTARNVALE_TESTS=OFF -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build-bench --target tarnvale make_grid_glb >/dev/null

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
./build-bench/bench/make_grid_glb "$work/grid.glb" "$triangles" "$materials" >/dev/null
glb_bytes=$(stat -c %s "$work/grid.glb")

measure() { # label, command...
  local label="$1"; shift
  /usr/bin/time -f "%e %M" -o "$work/time.txt" "$@" >/dev/null 2>&1 || true
  read -r seconds kib < "$work/time.txt"
  printf '%-10s %8.2f s %10.1f MB peak\n' "$label" "$seconds" "$(echo "$kib / 1024" | bc -l)"
  echo "$seconds $kib"
}

echo "scene: $triangles triangles over $materials materials, .glb of $((glb_bytes / 1048576)) MB"
t=$(measure tarnvale ./build-bench/bin/tarnvale export "$work/grid.glb" -o "$work/tarnvale.x" --yes --quiet | tee /dev/stderr | tail -1)
a=$(measure assimp assimp export "$work/grid.glb" "$work/assimp.x" | tee /dev/stderr | tail -1)
read -r ts tk <<<"$t"
read -r as ak <<<"$a"
echo "tarnvale is $(echo "$as / $ts" | bc -l | cut -c1-5)x faster; its peak memory is $(echo "$tk * 1024 / $glb_bytes" | bc -l | cut -c1-4)x the .glb"
echo "X file sizes: tarnvale $(stat -c %s "$work/tarnvale.x") bytes, assimp $(stat -c %s "$work/assimp.x") bytes"
