#!/usr/bin/env bash
# Prepares what the Windows cross build needs in a folder of its own (argument):
# links to the header-only libraries Debian ships, and libxml2, libsquish and meshoptimizer
# built from their Debian source packages. Nothing outside Debian's archive is fetched.
set -euo pipefail
deps="$1"
toolchain="$(cd "$(dirname "$0")/.." && pwd)/cmake/mingw-w64.cmake"
mkdir -p "$deps/include" "$deps/src"
# Header-only libraries through links: the host's /usr/include stays off the
# cross compiler's include path.
for h in tiny_gltf.h nlohmann CLI stb; do
  [ -e "/usr/include/$h" ] && ln -sfn "/usr/include/$h" "$deps/include/$h"
done

# A library from its Debian source, built static with the cross compiler.
build() { # source package, library file, cmake options...
  local package="$1" library="$2"; shift 2
  [ -f "$deps/lib/$library" ] && return 0
  if ! ls -d "$deps/src/$package"-*/ >/dev/null 2>&1; then
    if ! grep -rqs "^Types: deb-src\|^deb-src" /etc/apt/sources.list /etc/apt/sources.list.d/; then
      local sudo=""; [ "$(id -u)" -ne 0 ] && sudo="sudo"
      printf 'Types: deb-src\nURIs: http://deb.debian.org/debian\nSuites: bookworm bookworm-updates\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' |
        $sudo tee /etc/apt/sources.list.d/tarnvale-src.sources >/dev/null
      $sudo apt-get update -qq
    fi
    (cd "$deps/src" && apt-get source -qq "$package" >/dev/null 2>&1)
  fi
  local src
  src=$(ls -d "$deps/src/$package"-*/ | head -n 1)
  cmake -S "$src" -B "$deps/build-$package" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$deps" -DBUILD_SHARED_LIBS=OFF "$@" >/dev/null
  cmake --build "$deps/build-$package" --target install >/dev/null
}

# libxml2 without iconv: the XML layer brings its own Windows-1252 converter,
# and UTF-8 and UTF-16 are libxml2's own.
build libxml2 libxml2.a -DLIBXML2_WITH_ICONV=OFF -DLIBXML2_WITH_ICU=OFF -DLIBXML2_WITH_LZMA=OFF \
  -DLIBXML2_WITH_ZLIB=OFF -DLIBXML2_WITH_PYTHON=OFF -DLIBXML2_WITH_HTTP=OFF -DLIBXML2_WITH_FTP=OFF \
  -DLIBXML2_WITH_TESTS=OFF -DLIBXML2_WITH_PROGRAMS=OFF
# libsquish for the textures; the threads are ours, not OpenMP's.
build libsquish libsquish.a -DBUILD_SQUISH_WITH_OPENMP=OFF
# meshoptimizer for the levels of detail made from one mesh.
build meshoptimizer libmeshoptimizer.a -DMESHOPT_BUILD_SHARED_LIBS=OFF
