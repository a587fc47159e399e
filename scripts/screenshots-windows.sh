#!/usr/bin/env bash
# The Win32 material editor for the README, as wine draws it on a virtual display:
# ./scripts/screenshots-windows.sh (after ./run.sh windows). Needs imagemagick,
# x11-utils and xdotool.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ -z "${DISPLAY:-}" ]; then exec xvfb-run -a -s "-screen 0 1024x768x24" "$0" "$@"; fi
export WINEPREFIX="$PWD/build-windows/wine" WINEDEBUG=-all
work=$(mktemp -d)
trap 'wineserver -k 2>/dev/null || true; rm -rf "$work"' EXIT
cp examples/trainer.gltf examples/*.bin "$work/" 2>/dev/null || cp examples/trainer.gltf "$work/"
wine build-windows/bin/tarnvale.exe material edit "$work/trainer.gltf" --material "Paint White" \
  --settings "$work/none.ini" </dev/null >/dev/null 2>&1 &
for _ in $(seq 100); do
  window=$(xdotool search --name "FSX Extended Parameters" 2>/dev/null | head -n 1) && [ -n "$window" ] && break
  sleep 0.2
done
[ -n "${window:-}" ] || { echo "the editor did not open" >&2; exit 1; }
sleep 1
# Ctrl+Tab goes through the form: eight steps to the standard materials.
xdotool windowactivate --sync "$window" 2>/dev/null || true
for _ in $(seq 8); do xdotool key --window "$window" ctrl+Tab 2>/dev/null; sleep 0.2; done
sleep 1
mkdir -p docs/images
import -window "$window" docs/images/frmoptions-win32-standard-materials.png
echo docs/images/frmoptions-win32-standard-materials.png
