#!/usr/bin/env bash
# Runs a Windows program under Wine: CTest's crossing emulator.
#   wine-run.sh ARCH PROGRAM.exe [ARGS...]
# ARCH is x86 or x64. The prefix lives in the build tree (next to bin/).
# Uses the display and wineserver of scripts/test-env.sh when they run;
# otherwise it makes its own virtual display (slower).
set -euo pipefail
source "$(dirname "$0")/lib.sh"
arch=$1
exe=$2
shift 2
bin=$(cd "$(dirname "$exe")" && pwd)
roomcore_wine_env "$arch" "${ROOMCORE_WINEPREFIX:-$(dirname "$bin")/wineprefix}"
roomcore_wine_prefix_ready
# Wine's helper processes (services, explorer) inherit whatever stdout and
# stderr the first program of a session has and outlive it; handed CTest's
# pipes they would keep them open and stall it. So the program writes to
# files, and they are copied out when it ends.
out=$(mktemp)
err=$(mktemp)
trap 'rm -f "$out" "$err"' EXIT
rc=0
if [ -n "${ROOMCORE_TEST_DISPLAY:-}" ]; then
  DISPLAY=$ROOMCORE_TEST_DISPLAY "$roomcore_wine" "$exe" "$@" >"$out" 2>"$err" </dev/null || rc=$?
else
  xvfb-run -a -s "-screen 0 1280x1024x24 -nolisten tcp" \
    "$roomcore_wine" "$exe" "$@" >"$out" 2>"$err" </dev/null || rc=$?
fi
cat "$out"
cat "$err" >&2
exit $rc
