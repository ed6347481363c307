#!/usr/bin/env bash
# Sets up the machine if needed, builds everything, and runs every test under
# 32-bit Wine. Extra arguments go to ctest (for example -R FrameQueue).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ROOMCORE_BUILD_DIR:-$root/build}

"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-i686.cmake" >/dev/null
cmake --build "$build"

source "$root/scripts/test-env.sh"
cd "$build"
ctest --output-on-failure -j"$(nproc)" "$@"
