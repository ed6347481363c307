#!/usr/bin/env bash
# The main job: sets up the machine if needed, builds, and runs the demo host
# under Wine in a virtual display with a private sound server. It drives
# roomcore.dll as the meeting application would, against the stand-in SDKs,
# and leaves a report in one folder (default: demo-out/ at the top of the
# tree): index.html, one page that opens from disk, with the summary table,
# the storyboard, the contact sheet and the video; shared.mp4, the shared
# stream in H.264; storyboard.png; contact_sheet.png and windows/*.png, the
# picker's snapshots; summary.txt.
#
# It runs the x86 build (the product as specified) where this machine runs
# 32-bit code, the x64 build otherwise, and says which; ROOMCORE_ARCH=x64 or
# x86 chooses. Arguments go to the demo (--help lists them; --seconds N sets
# how long each share runs, --out DIR the folder), except --keep-raw, which
# keeps the raw stream (shared.y4m, about 40 MB a second) and the BMPs.
set -euo pipefail
source "$(dirname "$0")/lib.sh"
started=$(date +%s)
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
# (the demo host is a project of its own, built against the SDK that this
# tree installs: see tools/CMakeLists.txt)
cmake --build "$build" --target demo_host

args=()
report=()
out=$roomcore_root/demo-out
help=0
while [ $# -gt 0 ]; do
  case "$1" in
    --keep-raw) report+=(--keep-raw) ;;
    --out) out=$(realpath -m "${2:?--out takes a folder}"); shift ;;
    --help | -h) help=1; args+=("$1") ;;
    *) args+=("$1") ;;
  esac
  shift
done
mkdir -p "$out"
# Wine sees the Linux root as drive Z:.
args+=(--out "Z:${out//\//\\}")

source "$roomcore_root/scripts/test-env.sh"
roomcore_env_start "$arch" "$build"
cd "$build/demo_host"
rc=0
"$roomcore_wine" demo_host.exe "${args[@]}" </dev/null || rc=$?
[ "$help" -eq 1 ] && exit "$rc"
# The report shows what there is, even of a run where a stage failed.
if [ -f "$out/shared.y4m" ]; then
  python3 "$roomcore_root/tools/demo_report.py" "$out" "${report[@]}" || rc=1
fi
echo "[demo] $( [ "$rc" -eq 0 ] && echo finished || echo FAILED ) in $(($(date +%s) - started)) s; the report: $out/index.html"
exit "$rc"
