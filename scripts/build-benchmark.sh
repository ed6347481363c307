#!/usr/bin/env bash
# Cross-builds Google Benchmark from Debian's source package for one Windows
# architecture (x86 or x64), cached under CACHE/ARCH/benchmark-<version>.
set -euo pipefail
source "$(dirname "$0")/source-package.sh"
arch=$1
prepare_source_package benchmark "$arch"
cmake -S "$srcdir" -B build -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(roomcore_toolchain "$arch")" \
  -DCMAKE_BUILD_TYPE=Release -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_GTEST_TESTS=OFF \
  -DBENCHMARK_ENABLE_WERROR=OFF -DBENCHMARK_ENABLE_INSTALL=ON -DBUILD_SHARED_LIBS=OFF \
  -DCMAKE_INSTALL_PREFIX="$prefix" >build.log 2>&1 || { tail -30 build.log >&2; exit 1; }
cmake --build build >>build.log 2>&1 || { tail -30 build.log >&2; exit 1; }
cmake --install build >/dev/null
finish_source_package benchmark "$arch"
