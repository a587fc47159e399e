#!/usr/bin/env bash
# The add-on's pictures in docs/images/, from the real Blender on a virtual display.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh blender python3-numpy xvfb xauth
scripts_folder=$(mktemp -d)
trap 'rm -rf "$scripts_folder"' EXIT
mkdir -p "$scripts_folder/addons" && cp -r blender/tarnvale "$scripts_folder/addons/"
BLENDER_USER_SCRIPTS="$scripts_folder" xvfb-run -a -s "-screen 0 1600x900x24" \
  blender --factory-startup --addons tarnvale --python scripts/blender_shots.py >/dev/null 2>&1
ls docs/images/blender-*.png
