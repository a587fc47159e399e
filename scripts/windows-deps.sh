#!/usr/bin/env bash
# Prepares what the Windows cross build needs in a folder of its own (argument):
# links to the header-only libraries Debian ships, and libxml2 built from its
# Debian source package. Nothing outside Debian's archive is fetched.
set -euo pipefail
deps="$1"
mkdir -p "$deps/include" "$deps/src"
# Header-only libraries through links: the host's /usr/include stays off the
# cross compiler's include path.
for h in tiny_gltf.h nlohmann CLI stb; do
  [ -e "/usr/include/$h" ] && ln -sfn "/usr/include/$h" "$deps/include/$h"
done
[ -f "$deps/lib/libxml2.a" ] && exit 0
# libxml2 from its Debian source, static, without iconv: the XML layer brings
# its own Windows-1252 converter, and UTF-8 and UTF-16 are libxml2's own.
if ! ls "$deps"/src/libxml2-*/CMakeLists.txt >/dev/null 2>&1; then
  sources=/etc/apt/sources.list.d/tarnvale-src.sources
  if ! grep -rqs "deb-src" /etc/apt/sources.list /etc/apt/sources.list.d/; then
    sudo=""; [ "$(id -u)" -ne 0 ] && sudo="sudo"
    printf 'Types: deb-src\nURIs: http://deb.debian.org/debian\nSuites: bookworm bookworm-updates\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' | $sudo tee "$sources" >/dev/null
    $sudo apt-get update -qq
  fi
  (cd "$deps/src" && apt-get source -qq libxml2 >/dev/null 2>&1)
fi
src=$(ls -d "$deps"/src/libxml2-*/ | head -n 1)
cmake -S "$src" -B "$deps/build-libxml2" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(cd "$(dirname "$0")/.." && pwd)/cmake/mingw-w64.cmake" \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$deps" -DBUILD_SHARED_LIBS=OFF \
  -DLIBXML2_WITH_ICONV=OFF -DLIBXML2_WITH_ICU=OFF -DLIBXML2_WITH_LZMA=OFF -DLIBXML2_WITH_ZLIB=OFF \
  -DLIBXML2_WITH_PYTHON=OFF -DLIBXML2_WITH_HTTP=OFF -DLIBXML2_WITH_FTP=OFF -DLIBXML2_WITH_TESTS=OFF \
  -DLIBXML2_WITH_PROGRAMS=OFF >/dev/null
cmake --build "$deps/build-libxml2" --target install >/dev/null
