#!/usr/bin/env bash
# Builds the benchmarks (release flags, own build tree) and runs them once
# under Wine: the x86 build where this machine runs 32-bit code, the x64
# build otherwise (ROOMCORE_ARCH=x64 or x86 chooses). Extra arguments go to
# the benchmark program (for example --benchmark_filter=Scaler).
set -euo pipefail
source "$(dirname "$0")/lib.sh"
"$roomcore_root/scripts/setup.sh" >/dev/null
arch=$(roomcore_default_arch)
build=${ROOMCORE_BENCH_BUILD_DIR:-$roomcore_root/build-bench}/$arch
cmake -S "$roomcore_root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(roomcore_toolchain "$arch")" \
  -DROOMCORE_CACHE="$roomcore_cache" -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target roomcore_bench

source "$roomcore_root/scripts/test-env.sh"
roomcore_env_start "$arch" "$build"
echo "machine: $(nproc) CPUs, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//'), $("$roomcore_wine" --version); build: $arch; load average before the run: $(cut -d" " -f1-3 /proc/loadavg)"
"$roomcore_root/scripts/wine-run.sh" "$arch" "$build/bin/roomcore_bench.exe" "$@"
