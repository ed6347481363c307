# Sourced by the scripts that run Windows programs: one virtual display and
# one persistent wineserver for the whole run, stopped on exit.
# Needs: $build (the build tree).
export WINEPREFIX=${ROOMCORE_WINEPREFIX:-$build/wineprefix}
export WINEARCH=win32
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
roomcore_env_pids=()
roomcore_env_stop() {
  wineserver -k >/dev/null 2>&1 || true
  for pid in "${roomcore_env_pids[@]}"; do kill "$pid" >/dev/null 2>&1 || true; done
}
trap roomcore_env_stop EXIT

# A display of our own: Xvfb picks a free number and writes it to fd 3.
displayfile=$(mktemp)
Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$displayfile" >/dev/null 2>&1 &
roomcore_env_pids+=($!)
for _ in $(seq 1 100); do [ -s "$displayfile" ] && break; sleep 0.1; done
export DISPLAY=":$(head -n1 "$displayfile")"
rm -f "$displayfile"

if [ ! -f "$WINEPREFIX/.roomcore-ready" ]; then
  echo "[test-env] creating the Wine prefix (once per build tree)"
  mkdir -p "$WINEPREFIX"
  wineboot -i >/dev/null 2>&1 || true
  wineserver -w || true
  touch "$WINEPREFIX/.roomcore-ready"
fi
# A persistent wineserver: each Wine process then starts in tens of ms.
wineserver -p >/dev/null 2>&1 || true
# Start Wine's own helper processes (services, winedevice) now, with nothing
# of ours as their output: they outlive the programs that start them and
# would otherwise hold a caller's pipe open.
wine cmd /c exit >/dev/null 2>&1 </dev/null || true
