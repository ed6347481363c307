#!/usr/bin/env bash
# Sets up the machine if needed, builds, and runs the demo host under Wine:
# it drives roomcore.dll as the meeting application would, against the
# stand-in SDKs, and prints what the library reports. It runs the x86 build
# (the product as specified) where this machine runs 32-bit code, the x64
# build otherwise; ROOMCORE_ARCH=x64 or x86 chooses. Arguments go to the demo.
set -euo pipefail
source "$(dirname "$0")/lib.sh"
"$roomcore_root/scripts/setup.sh" >/dev/null
arch=${ROOMCORE_ARCH:-}
if [ -z "$arch" ]; then
  if roomcore_runs_32bit; then arch=x86; else arch=x64; fi
fi
build=$(roomcore_build_dir "$arch")
echo "[demo] $arch build ($( [ "$arch" = x86 ] && echo 'PE32, 32-bit Wine' || echo 'PE32+, 64-bit Wine' )) in $build"
cmake -S "$roomcore_root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(roomcore_toolchain "$arch")" \
  -DROOMCORE_CACHE="$roomcore_cache" >/dev/null
cmake --build "$build" --target demo_host

source "$roomcore_root/scripts/test-env.sh"
roomcore_env_start "$arch" "$build"
cd "$build/bin"
# The stand-ins list a few devices and echo whiteboard data as another user.
LITEAV_STANDIN_DEVICES=1 IMSDK_STANDIN_ECHO_PEER=peer_user "$roomcore_wine" demo_host.exe "$@" </dev/null
