# Sourced by the scripts that run Windows programs: one virtual display for
# the whole run and one persistent wineserver per Wine prefix, all stopped on
# exit. Call roomcore_env_start ARCH BUILD before running ARCH's programs.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

roomcore_env_prefixes=()
roomcore_env_stop() {
  local prefix
  for prefix in "${roomcore_env_prefixes[@]}"; do
    WINEPREFIX=$prefix wineserver -k >/dev/null 2>&1 || true
  done
  [ -z "$roomcore_display_pid" ] || kill "$roomcore_display_pid" >/dev/null 2>&1 || true
}
trap roomcore_env_stop EXIT

roomcore_env_start() {
  local arch=$1 build=$2
  [ -n "$roomcore_display_pid" ] || roomcore_start_display
  roomcore_wine_env "$arch" "${ROOMCORE_WINEPREFIX:-$build/wineprefix}"
  roomcore_wine_prefix_ready
  roomcore_env_prefixes+=("$WINEPREFIX")
  # A persistent wineserver: each Wine process then starts in tens of ms.
  wineserver -p >/dev/null 2>&1 || true
  # Start Wine's own helper processes (services, winedevice) now, with
  # nothing of ours as their output: they outlive the programs that start
  # them and would otherwise hold a caller's pipe open.
  "$roomcore_wine" cmd /c exit >/dev/null 2>&1 </dev/null || true
}
