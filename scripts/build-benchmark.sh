#!/usr/bin/env bash
# Cross-builds Google Benchmark from Debian's source package for
# i686-w64-mingw32, cached under $1/benchmark-<version>.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
source "$here/scripts/source-package.sh"
prepare_source_package benchmark "$1"
cmake -S "$srcdir" -B build -G Ninja -DCMAKE_TOOLCHAIN_FILE="$here/cmake/mingw-i686.cmake" \
  -DCMAKE_BUILD_TYPE=Release -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_GTEST_TESTS=OFF \
  -DBENCHMARK_ENABLE_WERROR=OFF -DBENCHMARK_ENABLE_INSTALL=ON -DBUILD_SHARED_LIBS=OFF \
  -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
cmake --build build >/dev/null
cmake --install build >/dev/null
finish_source_package benchmark "$1"
