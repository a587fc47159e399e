#!/usr/bin/env bash
# Quick start. ./run.sh example   set up, build, export the example scene
#              ./run.sh test      set up, build, run the whole test suite
#              ./run.sh sanitize  the tests under AddressSanitizer and UBSan
#              ./run.sh format    fail when a C++ file differs from .clang-format
#              ./run.sh windows   cross-build tarnvale.exe, run the Windows tests under wine
set -euo pipefail
cd "$(dirname "$0")"
mode="${1:-example}"

configure() { # folder, cmake options...
  local dir="$1"; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
}

case "$mode" in
  example)
    scripts/setup.sh
    configure build
    cmake --build build --target tarnvale
    mkdir -p out
    ./build/bin/tarnvale export examples/trainer.gltf -o out/trainer.x --yes
    echo "run.sh: wrote $(ls out/trainer.* | tr '\n' ' ')" >&2
    ;;
  test)
    # Blender (with the numpy its glTF exporter needs) for the add-on's tests.
    scripts/setup.sh blender python3-numpy
    configure build -DTARNVALE_TESTS=ON -DTARNVALE_WERROR=ON
    cmake --build build
    ctest --test-dir build --output-on-failure -j2
    ;;
  sanitize)
    scripts/setup.sh
    configure build-asan -DTARNVALE_TESTS=ON -DTARNVALE_SANITIZE=ON -DTARNVALE_WERROR=ON -DCMAKE_BUILD_TYPE=Debug
    cmake --build build-asan
    ASAN_OPTIONS=detect_leaks=1 ctest --test-dir build-asan --output-on-failure -j2
    ;;
  format)
    scripts/setup.sh clang-format
    git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
    echo "run.sh: every C++ file is as .clang-format writes it" >&2
    ;;
  windows)
    scripts/setup.sh g++-mingw-w64-x86-64-posix wine wine64 fonts-wine xvfb xauth dpkg-dev
    configure build -DTARNVALE_TESTS=ON -DTARNVALE_WERROR=ON
    cmake --build build
    export TARNVALE_WINDOWS_DEPS="$PWD/build-windows-deps"
    scripts/windows-deps.sh "$TARNVALE_WINDOWS_DEPS"
    configure build-windows -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DCMAKE_BUILD_TYPE=Release \
      -DTARNVALE_TESTS=ON -DTARNVALE_NATIVE_BIN="$PWD/build/bin/tarnvale"
    cmake --build build-windows
    # The dialogs need a display: a virtual one.
    xvfb-run -a scripts/windows-tests.sh
    ;;
  *)
    echo "usage: $0 example|test|sanitize|format|windows" >&2
    exit 2
    ;;
esac
