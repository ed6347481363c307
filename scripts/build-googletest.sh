#!/usr/bin/env bash
# Cross-builds GoogleTest and GoogleMock from Debian's googletest package
# (its sources in /usr/src/googletest) for one Windows architecture,
# cached under CACHE/ARCH/googletest-<version>.
set -euo pipefail
source "$(dirname "$0")/lib.sh"
arch=$1
version=$(dpkg-query -W -f='${Version}' googletest)
prefix="$roomcore_cache/$arch/googletest-${version//[:~]/_}"
if [ -f "$prefix/.complete" ]; then
  echo "[googletest/$arch] cached: $prefix"
else
  echo "[googletest/$arch] building into $prefix"
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  cmake -S /usr/src/googletest -B "$work" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(roomcore_toolchain "$arch")" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DINSTALL_GTEST=ON \
    -Dgtest_disable_pthreads=OFF >"$work.log" 2>&1 || { tail -30 "$work.log" >&2; exit 1; }
  cmake --build "$work" >"$work.log" 2>&1 || { tail -30 "$work.log" >&2; exit 1; }
  cmake --install "$work" >/dev/null
  rm -f "$work.log"
  touch "$prefix/.complete"
fi
ln -sfn "$prefix" "$roomcore_cache/$arch/googletest"
