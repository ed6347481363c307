#!/usr/bin/env bash
# Cross-builds FFmpeg's libavutil, libswscale and libswresample from Debian's
# source package for i686-w64-mingw32: shared DLLs with x86 asm, Windows
# threads and a static runtime, so that they import only system DLLs.
# Cached under $1/ffmpeg-<version>-w32threads-static; a cached build is reused.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
source "$here/scripts/source-package.sh"
prepare_source_package ffmpeg "$1" -w32threads-static
cd "$srcdir"
echo "[ffmpeg] configuring"
./configure --prefix="$prefix" --target-os=mingw32 --arch=x86 --cross-prefix=i686-w64-mingw32- \
  --enable-shared --disable-static --disable-everything --disable-programs --disable-doc \
  --disable-avcodec --disable-avformat --disable-avdevice --disable-avfilter --disable-postproc \
  --disable-network --disable-debug --disable-pthreads --enable-w32threads --enable-swscale --enable-swresample \
  --extra-ldflags="-static" >configure.log 2>&1 || { tail -40 configure.log >&2; exit 1; }
echo "[ffmpeg] building"
make -j"$(nproc)" >build.log 2>&1 || { tail -40 build.log >&2; exit 1; }
make install >/dev/null 2>&1
finish_source_package ffmpeg "$1"
