#!/usr/bin/env bash
# The Windows suite under wine, on the display given (run it under xvfb-run):
# wine's desktop process must start with that display, so the prefix is made
# here, and one wine server serves the whole run.
set -euo pipefail
cd "$(dirname "$0")/.."
export WINEPREFIX="$PWD/build-windows/wine" WINEDEBUG=-all
setsid wineserver -p </dev/null >/dev/null 2>&1 &
trap 'wineserver -k 2>/dev/null || true' EXIT
wineboot -i </dev/null >/dev/null 2>&1
# One test at a time: they share the registry.
ctest --test-dir build-windows --output-on-failure </dev/null
TARNVALE_WINDOWS_FAKE_TOOL="$PWD/build-windows/tests/windows/fake_tool.exe" \
  ctest --test-dir build -R '^Wine\.' --output-on-failure </dev/null
