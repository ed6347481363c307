#!/usr/bin/env bash
# Sets up the machine if needed, builds, and runs the demo host under 32-bit
# Wine: it drives roomcore.dll as the meeting application would, against the
# stand-in SDKs, and prints what the library reports.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ROOMCORE_BUILD_DIR:-$root/build}

"$root/scripts/setup.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-i686.cmake" >/dev/null
cmake --build "$build" --target demo_host

source "$root/scripts/test-env.sh"
cd "$build/bin"
# The stand-ins list a few devices and echo whiteboard data as another user.
LITEAV_STANDIN_DEVICES=1 IMSDK_STANDIN_ECHO_PEER=peer_user wine demo_host.exe "$@" </dev/null

