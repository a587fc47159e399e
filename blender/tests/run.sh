#!/usr/bin/env bash
# The add-on's tests under Debian's Blender (run.sh TARNVALE FAKE_TOOL): a user
# scripts folder holding the add-on, a plug-in folder whose SDK tool is a
# recording stand-in, then the tests in a factory-fresh Blender, and the
# command's `blender install` into a home of its own.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
tarnvale="$(realpath "$1")" fake_tool="$(realpath "$2")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/scripts/addons" "$work/plugin" "$work/home"
cp -r "$here/../tarnvale" "$work/scripts/addons/"
cp "$here/../../data/Tarnvale.X" "$here/../../data/modeldef.xml" "$work/plugin/"
cp "$fake_tool" "$work/plugin/xtomdl.exe"
export TARNVALE_TEST_BIN="$tarnvale" TARNVALE_TEST_PLUGIN="$work/plugin" TARNVALE_TEST_WORK="$work"
BLENDER_USER_SCRIPTS="$work/scripts" blender -b --factory-startup --addons tarnvale --python-exit-code 1 \
  --python "$here/test_addon.py" 2>&1 | grep -v -E '^(Draco mesh compression is not available|$)|INFO:' || true
[ -f "$work/passed" ] || { echo "the add-on's tests failed"; exit 1; }
# The X files written, for the DirectX reader of the Windows run.
if [ -n "${TARNVALE_XFILES:-}" ]; then
  for x in "$work"/*.x; do
    [ "$(head -c 16 "$x")" = "xof 0303txt 0032" ] && cp "$x" "$TARNVALE_XFILES/Blender-$(basename "$x")"
  done
fi

# Installed by the command into a Blender of its own home, enabled there; a
# second install says that it replaces the first; no Blender is one sentence.
HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" "$tarnvale" blender install
again=$(HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" "$tarnvale" blender install)
[[ "$again" == *"in place of the older copy there"* ]] || { echo "a second install did not say so: $again"; exit 1; }
none=$("$tarnvale" blender install --blender "$work/none" 2>&1 || true)
[ "$none" = "tarnvale: there is no Blender named $work/none here: install Blender, or give its program with --blender PATH" ] ||
  { echo "no Blender: $none"; exit 1; }
HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" blender -b --python-exit-code 1 --python-expr \
  "import addon_utils, bpy, sys; assert addon_utils.check('tarnvale')[1], 'not enabled'; \
assert bpy.context.preferences.addons['tarnvale'].preferences.command == '$tarnvale'" >/dev/null
echo "blender tests: passed"
