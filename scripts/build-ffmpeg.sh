#!/usr/bin/env bash
# Cross-builds FFmpeg's libavutil, libswscale and libswresample from Debian's
# source package for one Windows architecture (x86 or x64): shared DLLs with
# x86 asm, Windows threads and a static runtime, so that they import only
# system DLLs. Cached under CACHE/ARCH/ffmpeg-<version>-w32threads-static.
set -euo pipefail
source "$(dirname "$0")/source-package.sh"
arch=$1
prepare_source_package ffmpeg "$arch" -w32threads-static
cd "$srcdir"
case "$arch" in x86) ffarch=x86 ;; x64) ffarch=x86_64 ;; esac
./configure --prefix="$prefix" --target-os=mingw32 --arch="$ffarch" --cross-prefix="$(roomcore_triplet "$arch")-" \
  --enable-shared --disable-static --disable-everything --disable-programs --disable-doc \
  --disable-avcodec --disable-avformat --disable-avdevice --disable-avfilter --disable-postproc \
  --disable-network --disable-debug --disable-pthreads --enable-w32threads --enable-swscale --enable-swresample \
  --extra-ldflags="-static" >configure.log 2>&1 || { tail -40 configure.log >&2; exit 1; }
make -j"$(nproc)" >build.log 2>&1 || { tail -40 build.log >&2; exit 1; }
make install >/dev/null 2>&1
finish_source_package ffmpeg "$arch"
