#!/usr/bin/env bash
# Builds the benchmarks (release flags, own build tree) and runs them once
# under 32-bit Wine. Extra arguments go to the benchmark program (for example
# --benchmark_filter=Scaler).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ROOMCORE_BENCH_BUILD_DIR:-$root/build-bench}

cache=${ROOMCORE_CACHE:-/var/cache/roomcore}
if [ ! -f "$cache/benchmark/lib/libbenchmark.a" ] || [ ! -f "$cache/ffmpeg/include/libswscale/swscale.h" ]; then
  "$root/scripts/setup.sh"
fi
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-i686.cmake" \
  -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target roomcore_bench

source "$root/scripts/test-env.sh"
echo "machine: $(nproc) CPUs, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//'), $(wine --version)"
"$root/scripts/wine-run.sh" "$build/bin/roomcore_bench.exe" "$@"
