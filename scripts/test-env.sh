# Sourced by the scripts that run Windows programs: one virtual display for
# the whole run and one persistent wineserver per Wine prefix, all stopped on
# exit. Call roomcore_env_start ARCH BUILD before running ARCH's programs.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

roomcore_env_prefixes=()
roomcore_env_stop() {
  local prefix
  roomcore_stop_sound_server
  for prefix in "${roomcore_env_prefixes[@]}"; do
    WINEPREFIX=$prefix wineserver -k >/dev/null 2>&1 || true
  done
  [ -z "$roomcore_display_pid" ] || kill "$roomcore_display_pid" >/dev/null 2>&1 || true
}
trap roomcore_env_stop EXIT

roomcore_env_start() {
  local arch=$1 build=$2
  [ -n "$roomcore_display_pid" ] || roomcore_start_display
  # Before Wine starts: its audio driver reads the sound server's address
  # from the environment of each program.
  [ -n "$roomcore_sound_pid" ] || roomcore_start_sound_server || true
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

# A private PulseAudio with one null sink, so that Wine lists real audio
# endpoints: render "Null Output", capture "Monitor of Null Output" (which
# records whatever is played into the sink). Its runtime folder is private
# to this run; the daemon is stopped by its pid on exit. Without PulseAudio
# the run goes on and the tests that need endpoints say so.
roomcore_sound_pid=
roomcore_sound_dir=
roomcore_start_sound_server() {
  command -v pulseaudio >/dev/null 2>&1 || { echo "no pulseaudio: no audio endpoints" >&2; return 1; }
  roomcore_sound_dir=$(mktemp -d)
  export XDG_RUNTIME_DIR=$roomcore_sound_dir
  export PULSE_SERVER=unix:$roomcore_sound_dir/pulse/native
  # No user configuration or autospawn: only what is loaded here.
  export PULSE_CLIENTCONFIG=$roomcore_sound_dir/client.conf
  echo "autospawn = no" >"$PULSE_CLIENTCONFIG"
  pulseaudio --daemonize=yes --exit-idle-time=-1 -n --use-pid-file=yes \
    --load="module-null-sink sink_name=nullsink" \
    --load="module-native-protocol-unix" >/dev/null 2>&1 || {
    echo "pulseaudio did not start: no audio endpoints" >&2
    return 1
  }
  local _
  for _ in $(seq 1 100); do
    [ -s "$roomcore_sound_dir/pulse/pid" ] && pactl info >/dev/null 2>&1 && break
    sleep 0.1
  done
  roomcore_sound_pid=$(cat "$roomcore_sound_dir/pulse/pid" 2>/dev/null || true)
  [ -n "$roomcore_sound_pid" ] || { echo "pulseaudio wrote no pid" >&2; return 1; }
  export ROOMCORE_NULL_SINK=nullsink
}

roomcore_stop_sound_server() {
  if [ -n "$roomcore_sound_pid" ]; then
    kill "$roomcore_sound_pid" >/dev/null 2>&1 || true
    local _
    for _ in $(seq 1 50); do kill -0 "$roomcore_sound_pid" 2>/dev/null || break; sleep 0.1; done
  fi
  [ -z "$roomcore_sound_dir" ] || rm -rf "$roomcore_sound_dir"
  roomcore_sound_pid=
  roomcore_sound_dir=
}
