#!/usr/bin/env bash
# Installs the Debian packages the build needs, when any is missing. Quick when
# all are there; needs root (or sudo) only when it has to install.
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libxml2-dev libsquish-dev libstb-dev python3-pil
  libtinygltf-dev nlohmann-json3-dev libcli11-dev libmeshoptimizer-dev libdraco-dev libwebp-dev
  qt6-base-dev libgl-dev fonts-dejavu-core
)
packages+=("$@")

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}" >&2
sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
