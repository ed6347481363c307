#!/usr/bin/env bash
# The installed SDK as a host developer meets it:
#   host_from_package.sh build BUILD_DIR ARCH
#     installs the build tree's library component into a fresh prefix
#     (BUILD_DIR/package-test/sdk), checks that it holds exactly the files of
#     library_files.txt, adds the devkit component, and configures and builds
#     host/ (the README's CMakeLists.txt) out of tree against it with the
#     MinGW toolchain file of ARCH.
#   host_from_package.sh run BUILD_DIR ARCH
#     runs that host under Wine with only the installed bin/ on its PATH and
#     checks that it loaded the installed roomcore.dll, whose version
#     resource Windows' GetFileVersionInfo reads as the package's version.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../../scripts/lib.sh"
step=$1 build=$2 arch=$3
work=$build/package-test
prefix=$work/sdk

if [ "$step" = build ]; then
  rm -rf "$work"
  cmake --install "$build" --prefix "$prefix" --component roomcore >/dev/null
  bash "$here/check_layout.sh" "$prefix"
  cmake --install "$build" --prefix "$prefix" --component devkit >/dev/null
  cmake -S "$here/host" -B "$work/host" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(roomcore_toolchain "$arch")" \
    -Droomcore_DIR="$prefix/lib/cmake/roomcore" -DCMAKE_BUILD_TYPE=Release >"$work/host-configure.log" 2>&1 ||
    { cat "$work/host-configure.log"; exit 1; }
  cmake --build "$work/host"
  exit 0
fi

# The exe's folder holds no DLL: Wine's loader finds them through WINEPATH,
# in the installed bin/ (the stand-ins there come from the devkit).
bin=$(realpath "$prefix/bin")
export WINEPATH="Z:${bin//\//\\}"
export ROOMCORE_WINEPREFIX=${ROOMCORE_WINEPREFIX:-$build/wineprefix}
rc=0
out=$("$roomcore_root/scripts/wine-run.sh" "$arch" "$work/host/host.exe" 2>&1) || rc=$?
echo "$out"
[ "$rc" -eq 0 ] || { echo "the host exited $rc (WINEPATH=$WINEPATH; bin/: $(ls "$bin" | tr '\n' ' '))"; exit 1; }
version=$(sed -n 's/^set(PACKAGE_VERSION "\(.*\)")$/\1/p' "$prefix/lib/cmake/roomcore/roomcoreConfigVersion.cmake")
want="made and released with $WINEPATH\\roomcore.dll, FileVersion $version.0"
grep -iqF "$want" <<<"$out" || { echo "expected: $want"; exit 1; }
