#!/usr/bin/env bash
# Sets up the machine if needed, builds roomcore for both Windows targets
# (x86: PE32, the product as specified; x64: PE32+), and runs every test of
# each under Wine of its own width. Extra arguments go to ctest (for example
# -R FrameQueue). ROOMCORE_ARCHS="x64" limits the run to one target.
#
# Where this machine runs no 32-bit code (a probe finds out), the x86 suite
# runs inside an emulated Debian VM (scripts/vm.sh) instead, the same suite
# from the same build tree; its DLL tables are also checked here first.
# The last lines are one summary per architecture and a total; the exit is
# non-zero when a build or a run fails, or when no test ran at all.
set -uo pipefail
source "$(dirname "$0")/lib.sh"

"$roomcore_root/scripts/setup.sh" || exit 1
archs=(${ROOMCORE_ARCHS:-x64 x86})
runs32=0
roomcore_runs_32bit && runs32=1

summary=()
total_passed=0
total_failed=0
broken=0

# counts LOG: sets `passed` and `failed` from CTest's closing line in LOG.
counts() {
  local line all
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$1" 2>/dev/null | tail -n1)
  if [ -z "$line" ]; then
    passed=0 failed=0
    return
  fi
  failed=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
  all=$(sed -E 's/.* tests? failed out of ([0-9]+).*/\1/' <<<"$line")
  passed=$((all - failed))
}

for arch in "${archs[@]}"; do
  build=$(roomcore_build_dir "$arch")
  echo "== $arch: building in $build"
  mkdir -p "$build"
  if ! cmake -S "$roomcore_root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(roomcore_toolchain "$arch")" \
      -DROOMCORE_CACHE="$roomcore_cache" >"$build/configure.log" 2>&1; then
    cat "$build/configure.log"
    summary+=("$arch: build failed (configure)")
    broken=1
    continue
  fi
  if ! cmake --build "$build"; then
    summary+=("$arch: build failed")
    broken=1
    continue
  fi
  log=$build/test-run.log
  rm -f "$log"
  where=""
  if [ "$arch" = x86 ] && [ "$runs32" -eq 0 ]; then
    # (checked here too, before the long run: a wrong table fails at once)
    if ! bash "$roomcore_root/tests/check_dll_tables.sh" "$build/bin/roomcore.dll" x86 \
        "$roomcore_root/tests/exports/roomcore_x86.txt" "$(roomcore_triplet x86)-objdump"; then
      summary+=("x86: table check FAILED")
      broken=1
      continue
    fi
    echo "== x86: this machine runs no 32-bit code; running the x86 suite in an emulated VM"
    where=" (in a VM: this machine runs no 32-bit code)"
    "$roomcore_root/scripts/vm.sh" suite x86 "$build" "$@"
  else
    echo "== $arch: running the tests under $( [ "$arch" = x86 ] && echo 32-bit || echo 64-bit ) Wine"
    "$roomcore_root/scripts/run-suite.sh" "$arch" "$build" "$@"
  fi
  counts "$log"
  if [ "$passed" -eq 0 ] && [ "$failed" -eq 0 ]; then
    summary+=("$arch: no result: the run ended before CTest's closing line$where")
  else
    summary+=("$arch: $passed passed, $failed failed$where")
  fi
  total_passed=$((total_passed + passed))
  total_failed=$((total_failed + failed))
  [ "$failed" -eq 0 ] && [ "$passed" -gt 0 ] || broken=1
done

echo
echo "== summary"
for line in "${summary[@]}"; do echo "$line"; done
if [ "$total_passed" -eq 0 ] && [ "$total_failed" -eq 0 ]; then
  echo "no test ran"
  broken=1
fi
echo "all: $total_passed passed, $total_failed failed"
exit $broken
