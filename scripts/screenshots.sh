#!/usr/bin/env bash
# Pictures of the material editor for the README, taken from the real dialog
# drawn offscreen: ./scripts/screenshots.sh [BUILD_FOLDER]
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
cmake --build "$build" --target tarnvale-shots >/dev/null
library=$(mktemp -d)
trap 'rm -rf "$library"' EXIT
printf 'SrcBlend=One;DstBlend=Zero;SpecMapPowerScale=202\r\n' > "$library/Painted metal.FSXMat"
printf 'SrcBlend=SrcAlpha;DstBlend=InvSrcAlpha\r\n' > "$library/Canopy glass.FSXMat"
mkdir -p docs/images
QT_QPA_PLATFORM=offscreen "$build/src/tarnvale-shots" docs/images "$library"
