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

# A free display number of our own.
for n in $(seq 90 140); do
  if [ ! -e "/tmp/.X${n}-lock" ] && [ ! -e "/tmp/.X11-unix/X${n}" ]; then break; fi
done
Xvfb ":$n" -screen 0 1280x1024x24 -nolisten tcp >/dev/null 2>&1 &
roomcore_env_pids+=($!)
export DISPLAY=":$n"
for _ in $(seq 1 50); do [ -e "/tmp/.X11-unix/X${n}" ] && break; sleep 0.1; done

if [ ! -f "$WINEPREFIX/.roomcore-ready" ]; then
  echo "[test-env] creating the Wine prefix (once per build tree)"
  mkdir -p "$WINEPREFIX"
  wineboot -i >/dev/null 2>&1 || true
  wineserver -w || true
  touch "$WINEPREFIX/.roomcore-ready"
fi
# A persistent wineserver: each Wine process then starts in tens of ms.
wineserver -p >/dev/null 2>&1 || true
