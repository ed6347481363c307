#!/usr/bin/env bash
# The main job: sets up the machine if needed, builds, and runs the demo host
# under Wine in a virtual display with a private sound server. It drives
# roomcore.dll as the meeting application would, against the stand-in SDKs,
# and writes what a person can look at into one folder (default: demo-out/ at
# the top of the tree): the shared stream as Y4M, window snapshots and a
# contact sheet as BMP, and a summary.
#
# It runs the x86 build (the product as specified) where this machine runs
# 32-bit code, the x64 build otherwise, and says which; ROOMCORE_ARCH=x64 or
# x86 chooses. Arguments go to the demo (--help lists them; --seconds N sets
# how long each share runs, --out DIR the folder).
set -euo pipefail
source "$(dirname "$0")/lib.sh"
"$roomcore_root/scripts/setup.sh" >/dev/null
arch=$(roomcore_default_arch)
build=$(roomcore_build_dir "$arch")
if [ "$arch" = x86 ]; then
  echo "[demo] running the x86 build (PE32, 32-bit Wine) from $build"
else
  echo "[demo] running the x64 build (PE32+, 64-bit Wine) from $build$(roomcore_runs_32bit || echo '; this machine runs no 32-bit code')"
fi
cmake -S "$roomcore_root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(roomcore_toolchain "$arch")" \
  -DROOMCORE_CACHE="$roomcore_cache" >/dev/null
cmake --build "$build" --target demo_host

args=("$@")
out=$roomcore_root/demo-out
for ((i = 0; i < ${#args[@]}; ++i)); do
  [ "${args[$i]}" = --out ] && out=""
done
if [ -n "$out" ]; then
  mkdir -p "$out"
  # Wine sees the Linux root as drive Z:.
  args+=(--out "Z:${out//\//\\}")
fi

source "$roomcore_root/scripts/test-env.sh"
roomcore_env_start "$arch" "$build"
cd "$build/bin"
"$roomcore_wine" demo_host.exe "${args[@]}" </dev/null
