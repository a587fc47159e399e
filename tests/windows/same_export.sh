#!/usr/bin/env bash
# The Windows command (under wine) and the Linux command export the scene; the X,
# XANIM and sidecar files must match byte for byte, GUIDs and the date line aside,
# and so must the DDS textures.
set -euo pipefail
exe="$1" native="$2" scene="$3"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/windows" "$work/linux"
WINEDEBUG=-all wine "$exe" export "$scene" -o "$work/windows/model.x" --yes --quiet --settings "$work/none.ini" \
  --textures "$work/windows/textures" \
  </dev/null >"$work/windows.log" 2>&1 || { cat "$work/windows.log"; exit 1; }
"$native" export "$scene" -o "$work/linux/model.x" --yes --quiet --settings "$work/none.ini" \
  --textures "$work/linux/textures" \
  </dev/null >"$work/linux.log" 2>&1 || { cat "$work/linux.log"; exit 1; }
mask() { sed -E 's/[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}/GUID/g; s#^// Exported .*#// Exported#' "$1"; }
status=0
for f in model.x model.xanim model.config; do
  if ! cmp -s <(mask "$work/windows/$f") <(mask "$work/linux/$f"); then
    echo "$f differs:"; diff <(mask "$work/linux/$f") <(mask "$work/windows/$f") | head -20
    status=1
  fi
done
for f in "$work"/linux/textures/*.DDS; do
  cmp -s "$f" "$work/windows/textures/$(basename "$f")" || { echo "$(basename "$f") differs or is missing"; status=1; }
done
[ -n "$(ls "$work"/linux/textures/*.DDS 2>/dev/null)" ] || { echo "no textures were written"; status=1; }
# Both wrote their own GUID, the same one in all places of a file.
grep -q "^// GUID [0-9A-F-]\{36\}"$'\r'"$" "$work/windows/model.x" || { echo "no GUID line in the Windows X file"; status=1; }
exit $status
