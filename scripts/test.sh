#!/usr/bin/env bash
# Sets up the machine if needed, builds roomcore for both Windows targets
# (x86: PE32, the product as specified; x64: PE32+), and runs every test of
# each under Wine of its own width. Extra arguments go to ctest (for example
# -R FrameQueue). ROOMCORE_ARCHS="x64" limits the run to one target.
#
# The x64 suite always runs. The x86 suite runs when this machine executes
# 32-bit code (a probe finds out); where it can't, the x86 build is still
# built and its table check run, and the summary says the suite was not run.
# The last lines are one summary per architecture and a total; the exit is
# non-zero when a build or a run fails, or when no test ran at all.
set -uo pipefail
source "$(dirname "$0")/lib.sh"

"$roomcore_root/scripts/setup.sh" || exit 1
archs=(${ROOMCORE_ARCHS:-x64 x86})
runs32=0
roomcore_runs_32bit && runs32=1

source "$roomcore_root/scripts/test-env.sh"
summary=()
total_passed=0
total_failed=0
broken=0

# run_ctest BUILD LOG ARGS...: runs ctest in the build tree, keeps its
# output in LOG and sets `passed` and `failed` from its closing line.
run_ctest() {
  local build=$1 log=$2
  shift 2
  ctest --test-dir "$build" --output-on-failure -j"$(nproc)" "$@" 2>&1 | tee "$log"
  local line
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n1)
  if [ -z "$line" ]; then
    passed=0 failed=0
    return
  fi
  local all
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
  if [ "$arch" = x86 ] && [ "$runs32" -eq 0 ]; then
    echo "== x86: this machine runs no 32-bit code; checking the DLL's tables and the SDK only"
    # (not through ctest: its test discovery would start the 32-bit programs)
    # The SDK's own checks need no Wine either (version resource, the
    # installed package and a host built from it); its folder holds no
    # discovered test, so ctest starts nothing there.
    if bash "$roomcore_root/tests/check_dll_tables.sh" "$build/bin/roomcore.dll" x86 \
        "$roomcore_root/tests/exports/roomcore_x86.txt" "$(roomcore_triplet x86)-objdump" &&
        ctest --test-dir "$build/tests/package" -L host --output-on-failure; then
      summary+=("x86: not run, this machine runs no 32-bit code (built; table, version and package checks passed)")
    else
      summary+=("x86: not run, this machine runs no 32-bit code (built; table, version or package check FAILED)")
      broken=1
    fi
    continue
  fi
  echo "== $arch: running the tests under $( [ "$arch" = x86 ] && echo 32-bit || echo 64-bit ) Wine"
  roomcore_env_start "$arch" "$build"
  run_ctest "$build" "$log" "$@"
  summary+=("$arch: $passed passed, $failed failed")
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
