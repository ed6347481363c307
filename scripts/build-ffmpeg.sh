#!/usr/bin/env bash
# Cross-builds FFmpeg's libavutil, libswscale and libswresample from Debian's
# source package for i686-w64-mingw32. The result is cached under
# $1/ffmpeg-<version>; a cached build is reused.
set -euo pipefail
cache=$1
version=$(apt-cache showsrc ffmpeg 2>/dev/null | awk '/^Version:/ && !v {v=$2} END {print v}')
[ -n "$version" ] || { echo "no source package for ffmpeg (deb-src missing?)" >&2; exit 1; }
prefix="$cache/ffmpeg-${version//[:~]/_}-w32threads-static"
if [ -f "$prefix/.complete" ]; then
  echo "[ffmpeg] cached: $prefix"
  ln -sfn "$prefix" "$cache/ffmpeg"
  exit 0
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
echo "[ffmpeg] fetching source $version"
apt-get source --download-only -q ffmpeg >/dev/null
tar xf "$(ls ffmpeg_*.orig.tar.* | grep -v "\.asc$" | head -1)"
dir=$(find . -maxdepth 1 -type d -name 'ffmpeg*' | head -1)
cd "$dir"
echo "[ffmpeg] configuring"
./configure --prefix="$prefix" --target-os=mingw32 --arch=x86 --cross-prefix=i686-w64-mingw32- \
  --enable-shared --disable-static --disable-everything --disable-programs --disable-doc \
  --disable-avcodec --disable-avformat --disable-avdevice --disable-avfilter --disable-postproc \
  --disable-network --disable-debug --disable-pthreads --enable-w32threads --enable-swscale --enable-swresample \
  --extra-ldflags="-static" >configure.log 2>&1 || { tail -40 configure.log >&2; exit 1; }
echo "[ffmpeg] building"
make -j"$(nproc)" >build.log 2>&1 || { tail -40 build.log >&2; exit 1; }
make install >/dev/null 2>&1
touch "$prefix/.complete"
ln -sfn "$prefix" "$cache/ffmpeg"
echo "[ffmpeg] installed to $prefix"
