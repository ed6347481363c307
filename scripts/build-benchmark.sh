#!/usr/bin/env bash
# Cross-builds Google Benchmark from Debian's source package for
# i686-w64-mingw32, cached under $1/benchmark-<version>.
set -euo pipefail
cache=$1
here=$(cd "$(dirname "$0")/.." && pwd)
version=$(apt-cache showsrc benchmark 2>/dev/null | awk '/^Version:/ && !v {v=$2} END {print v}')
[ -n "$version" ] || { echo "no source package for benchmark" >&2; exit 1; }
prefix="$cache/benchmark-${version//[:~]/_}"
if [ -f "$prefix/.complete" ]; then
  echo "[benchmark] cached: $prefix"
  ln -sfn "$prefix" "$cache/benchmark"
  exit 0
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
echo "[benchmark] fetching source $version"
apt-get source --download-only -q benchmark >/dev/null
tar xf "$(ls benchmark_*.orig.tar.* | grep -v "\.asc$" | head -1)"
dir=$(find . -maxdepth 1 -type d -name 'benchmark*' | head -1)
cmake -S "$dir" -B build -G Ninja -DCMAKE_TOOLCHAIN_FILE="$here/cmake/mingw-i686.cmake" \
  -DCMAKE_BUILD_TYPE=Release -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_GTEST_TESTS=OFF \
  -DBENCHMARK_ENABLE_WERROR=OFF -DBENCHMARK_ENABLE_INSTALL=ON -DBUILD_SHARED_LIBS=OFF \
  -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
cmake --build build >/dev/null
cmake --install build >/dev/null
touch "$prefix/.complete"
ln -sfn "$prefix" "$cache/benchmark"
echo "[benchmark] installed to $prefix"
