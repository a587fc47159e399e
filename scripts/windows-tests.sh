#!/usr/bin/env bash
# The Windows suite under wine, on the display given (run it under xvfb-run):
# wine's desktop process must start with that display, so the prefix is made
# here, and one wine server serves the whole run. Both suites keep the X files
# they write, and the DirectX reader reads them all at the end, with the example.
set -euo pipefail
cd "$(dirname "$0")/.."
export WINEPREFIX="$PWD/build-windows/wine" WINEDEBUG=-all
export TARNVALE_XFILES="$PWD/build-windows/xfiles"
rm -rf "$TARNVALE_XFILES" && mkdir -p "$TARNVALE_XFILES"
setsid wineserver -p </dev/null >/dev/null 2>&1 &
trap 'wineserver -k 2>/dev/null || true' EXIT
wineboot -i </dev/null >/dev/null 2>&1
ctest --test-dir build -j2 --output-on-failure -E '^Wine\.' </dev/null | tail -n 3
build/bin/tarnvale export examples/trainer.gltf -o "$TARNVALE_XFILES/example.x" --yes --quiet </dev/null 2>/dev/null
# One test at a time: they share the registry.
ctest --test-dir build-windows --output-on-failure -E '^DirectXReader\.ReadsEveryXFile' </dev/null
TARNVALE_WINDOWS_FAKE_TOOL="$PWD/build-windows/tests/windows/fake_tool.exe" \
  ctest --test-dir build -R '^Wine\.' --output-on-failure </dev/null
echo "windows-tests: the DirectX reader reads the $(ls "$TARNVALE_XFILES"/*.x | wc -l) X files the suites wrote"
ctest --test-dir build-windows --output-on-failure -R '^DirectXReader\.ReadsEveryXFile' </dev/null
