#!/usr/bin/env bash
# End to end, side by side: `tarnvale export` of a generated .glb against
# `assimp export` of the same file to .x (Debian's assimp-utils), run in turn
# PAIRS times so that both see the same load, with the check and an export that
# makes 4 levels of detail. Prints the median wall time, the range and the peak
# memory of each, and the ratios of the medians.
# Usage: bench/e2e.sh [TRIANGLES] [MATERIALS] [NODES] [PAIRS]
set -euo pipefail
cd "$(dirname "$0")/.."
triangles="${1:-1000000}"
materials="${2:-20}"
nodes="${3:-50}"
pairs="${4:-7}"
scripts/setup.sh assimp-utils time
cmake -S . -B build-bench -G Ninja -DTARNVALE_BENCH=ON -DTARNVALE_TESTS=OFF -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build-bench --target tarnvale make_grid_glb >/dev/null

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
./build-bench/bench/make_grid_glb "$work/grid.glb" "$triangles" "$materials" "$nodes" animated >/dev/null
glb_bytes=$(stat -c %s "$work/grid.glb")
echo "scene: $triangles triangles, $materials materials, $nodes animated nodes; .glb of $((glb_bytes / 1048576)) MiB; $(nproc) cores"

# Two folders sharing one sidecar, so that both files carry the same GUID.
mkdir -p "$work/n" "$work/1"
./build-bench/bin/tarnvale export "$work/grid.glb" -o "$work/n/m.x" --yes --quiet --no-tool >/dev/null 2>&1
cp "$work/n/m.config" "$work/1/"
declare -A cmd=(
  [tarnvale]="./build-bench/bin/tarnvale export $work/grid.glb -o $work/n/m.x --yes --quiet"
  [tarnvale-1]="./build-bench/bin/tarnvale export $work/grid.glb -o $work/1/m.x --yes --quiet --threads 1"
  [assimp]="assimp export $work/grid.glb $work/a.x"
  [check]="./build-bench/bin/tarnvale check $work/grid.glb"
  [lods]="./build-bench/bin/tarnvale export $work/grid.glb -o $work/l/m.x --yes --quiet --no-tool --generate-lods 100,50,25,10"
)
mkdir -p "$work/l"
order=(tarnvale tarnvale-1 assimp check lods)
for ((i = 0; i < pairs; i++)); do
  for name in "${order[@]}"; do
    # Wall time to the millisecond (time's own has hundredths), peak from time.
    start=$(date +%s%N)
    /usr/bin/time -f "%M" -o "$work/peak" ${cmd[$name]} >/dev/null 2>&1 || true
    echo "$start $(date +%s%N) $(tail -1 "$work/peak")" | awk '{ printf "%.3f %s\n", ($2 - $1) / 1e9, $3 }' >>"$work/$name.runs"
  done
done

declare -A median
for name in "${order[@]}"; do
  read -r median[$name] line < <(sort -n "$work/$name.runs" | awk -v g="$glb_bytes" '
    { t[NR] = $1; if ($2 > peak) peak = $2 }
    END { m = (NR % 2) ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2;
          printf "%s %.3f s median (%.3f to %.3f), peak %.0f MiB = %.2f x the .glb\n",
                 m, m, t[1], t[NR], peak / 1024, peak * 1024 / g }')
  printf '%-11s %s\n' "$name" "$line"
done
awk -v a="${median[assimp]}" -v t="${median[tarnvale]}" -v o="${median[tarnvale-1]}" 'BEGIN {
  printf "tarnvale is %.1f x faster than assimp (%.1f x on one thread) over %d pairs\n", a / t, a / o, '"$pairs"' }'
awk -v c="${median[check]}" -v t="${median[tarnvale]}" 'BEGIN { printf "the check (with its budget) takes %.2f of the export'"'"'s time\n", c / t }'
awk -v l="${median[lods]}" -v t="${median[tarnvale]}" 'BEGIN { printf "making and writing 4 levels takes %.1f x the export'"'"'s time\n", l / t }'
for kind in x xanim; do
  diff <(grep -av '^// Exported' "$work/n/m.$kind") <(grep -av '^// Exported' "$work/1/m.$kind") >/dev/null \
    && echo "$kind files of one thread and of $(nproc): the same" || echo "$kind files of one thread and of $(nproc): DIFFER"
done
