#!/usr/bin/env bash
# Runs the whole suite of one built architecture under Wine of its own width:
#   run-suite.sh ARCH BUILD [ctest args...]
# with the test environment of scripts/test-env.sh (virtual display,
# PulseAudio null sink, persistent wineserver), all stopped on exit. CTest's
# output goes to the terminal and to BUILD/test-run.log; the exit status is
# CTest's. scripts/test.sh calls it on this machine, and scripts/vm.sh inside
# the VM where this machine runs no 32-bit code, so both runs are the same.
set -uo pipefail
source "$(dirname "$0")/test-env.sh"
arch=$1 build=$2
shift 2
roomcore_env_start "$arch" "$build"
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" "$@" 2>&1 | tee "$build/test-run.log"
exit "${PIPESTATUS[0]}"
