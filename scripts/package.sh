#!/usr/bin/env bash
# Builds roomcore for both Windows targets in Release, each in its own tree
# (build/release-x86, build/release-x64), and writes into dist/:
#
#   roomcore-<version>-<arch>.zip          the SDK: headers, roomcore.dll and
#                                          the FFmpeg DLLs it imports, the
#                                          import library and .def, the CMake
#                                          package, README, notice, licences
#   roomcore-<version>-<arch>-devkit.zip   the stand-in SDK DLLs with their
#                                          headers and import libraries
#   SHA256SUMS                             of the four zips
#
# The version is the project's own (project(VERSION) in CMakeLists.txt). Each
# zip holds one folder, roomcore-<version>-<arch>/, so that the devkit
# unpacks into the SDK's folder. Only what ships is built (no tests); the
# library zip's layout is checked before it is written.
set -euo pipefail
source "$(dirname "$0")/lib.sh"
"$roomcore_root/scripts/setup.sh" >/dev/null
dist=$roomcore_root/dist
rm -rf "$dist"
mkdir -p "$dist"

for arch in "${roomcore_archs[@]}"; do
  build=$(roomcore_build_dir "release-$arch")
  echo "[package] $arch: Release build in $build"
  mkdir -p "$build"
  cmake -S "$roomcore_root" -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$(roomcore_toolchain "$arch")" \
    -DCMAKE_BUILD_TYPE=Release -DROOMCORE_CACHE="$roomcore_cache" >"$build/configure.log" 2>&1 ||
    { cat "$build/configure.log"; exit 1; }
  cmake --build "$build" --target roomcore liteav imsdk fundus
  version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
  name=roomcore-$version-$arch
  stage=$build/package-stage
  rm -rf "$stage"
  for component in roomcore devkit; do
    # (stripped: the symbol tables halve the DLLs; exports and resources stay)
    cmake --install "$build" --prefix "$stage/$component/$name" --component "$component" --strip >/dev/null
  done
  bash "$roomcore_root/tests/package/check_layout.sh" "$stage/roomcore/$name"
  (cd "$stage/roomcore" && cmake -E tar cf "$dist/$name.zip" --format=zip "$name")
  (cd "$stage/devkit" && cmake -E tar cf "$dist/$name-devkit.zip" --format=zip "$name")
done

cd "$dist"
sha256sum -- *.zip >SHA256SUMS
echo "[package] in $dist:"
for file in *.zip SHA256SUMS; do
  printf '%10s  %s\n' "$(du -h --apparent-size "$file" | cut -f1)" "$dist/$file"
done
