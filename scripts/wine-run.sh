#!/usr/bin/env bash
# Runs a Windows program under 32-bit Wine: CTest's crossing emulator.
# The prefix lives in the build tree (next to bin/), made once under a lock.
# Expects DISPLAY and a running wineserver from scripts/test-env.sh; without
# a DISPLAY it makes its own virtual display (slower).
set -euo pipefail
exe=$1
shift
bin=$(cd "$(dirname "$exe")" && pwd)
export WINEPREFIX=${ROOMCORE_WINEPREFIX:-$(dirname "$bin")/wineprefix}
export WINEARCH=win32
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES="mscoree,mshtml="
if [ ! -f "$WINEPREFIX/.roomcore-ready" ]; then
  mkdir -p "$(dirname "$WINEPREFIX")"
  (
    flock 9
    if [ ! -f "$WINEPREFIX/.roomcore-ready" ]; then
      wineboot -i >/dev/null 2>&1 || true
      wineserver -w || true
      touch "$WINEPREFIX/.roomcore-ready"
    fi
  ) 9>"$WINEPREFIX.lock"
fi
# Wine's helper processes (services, explorer) inherit whatever stdout and
# stderr the first program of a session has and outlive it; handed CTest's
# pipes they would keep them open and stall it. So the program writes to
# files, and they are copied out when it ends.
out=$(mktemp)
err=$(mktemp)
trap 'rm -f "$out" "$err"' EXIT
rc=0
if [ -z "${DISPLAY:-}" ]; then
  xvfb-run -a wine "$exe" "$@" >"$out" 2>"$err" </dev/null || rc=$?
else
  wine "$exe" "$@" >"$out" 2>"$err" </dev/null || rc=$?
fi
cat "$out"
cat "$err" >&2
exit $rc
