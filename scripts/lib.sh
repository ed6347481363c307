# Sourced by the project's scripts: what differs between the two Windows
# targets, and whether this machine can run the 32-bit one at all.
#
# Architectures are named as Windows names them: x86 (PE32, i686) and x64
# (PE32+, x86_64). Each has its own build tree, Wine prefix and dependency
# cache folder.

roomcore_root=${roomcore_root:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}
roomcore_cache=${ROOMCORE_CACHE:-/var/cache/roomcore}
roomcore_archs=(x86 x64)

# roomcore_triplet ARCH: the MinGW target triplet.
roomcore_triplet() {
  case "$1" in
    x86) echo i686-w64-mingw32 ;;
    x64) echo x86_64-w64-mingw32 ;;
    *) echo "unknown architecture: $1" >&2; return 1 ;;
  esac
}

# roomcore_toolchain ARCH: the CMake toolchain file.
roomcore_toolchain() {
  case "$1" in
    x86) echo "$roomcore_root/cmake/mingw-i686.cmake" ;;
    x64) echo "$roomcore_root/cmake/mingw-x86_64.cmake" ;;
  esac
}

# roomcore_build_dir ARCH: the build tree of one architecture.
roomcore_build_dir() {
  echo "${ROOMCORE_BUILD_DIR:-$roomcore_root/build}/$1"
}

# roomcore_runs_32bit: true when this machine executes 32-bit x86 code. Some
# kernels have IA-32 emulation switched off, and then every i386 program,
# 32-bit Wine included, fails with "Exec format error". The probe runs the
# smallest i386 Linux program there is (exit(42) through int 0x80), written
# here byte by byte so that it needs no 32-bit toolchain or library.
roomcore_runs_32bit() {
  if [ -n "${ROOMCORE_RUNS_32BIT:-}" ]; then
    [ "$ROOMCORE_RUNS_32BIT" = 1 ]
    return
  fi
  local probe rc=0
  probe=$(mktemp)
  python3 - "$probe" <<'PY'
import struct, sys
code = bytes([0xb8, 1, 0, 0, 0,        # mov eax, 1 (exit)
              0xbb, 42, 0, 0, 0,       # mov ebx, 42
              0xcd, 0x80])             # int 0x80
base, headers = 0x08048000, 52 + 32
size = headers + len(code)
elf = b"\x7fELF" + bytes([1, 1, 1, 0]) + bytes(8)
elf += struct.pack("<HHIIIIIHHHHHH", 2, 3, 1, base + headers, 52, 0, 0, 52, 32, 1, 0, 0, 0)
elf += struct.pack("<IIIIIIII", 1, 0, base, base, size, size, 5, 0x1000)
open(sys.argv[1], "wb").write(elf + code)
PY
  chmod +x "$probe"
  "$probe" >/dev/null 2>&1 || rc=$?
  rm -f "$probe"
  [ "$rc" -eq 42 ]
}

# roomcore_default_arch: the build that the demo and the benchmarks run:
# ROOMCORE_ARCH if set, else x86 (the product as specified) where this
# machine runs 32-bit code, else x64.
roomcore_default_arch() {
  if [ -n "${ROOMCORE_ARCH:-}" ]; then
    echo "$ROOMCORE_ARCH"
  elif roomcore_runs_32bit; then
    echo x86
  else
    echo x64
  fi
}

# roomcore_wine_env ARCH PREFIX: exports what Wine needs to run one
# architecture's programs in PREFIX, and sets `roomcore_wine` to the loader.
# The /usr/bin/wine launcher always picks the 32-bit loader when wine32 is
# installed, so 64-bit programs go straight to wine64.
roomcore_wine_env() {
  export WINEPREFIX=$(realpath -m "$2")
  export WINEDEBUG=${WINEDEBUG:--all}
  # No Mono/Gecko prompts; sound goes through PulseAudio only (Wine's ALSA
  # driver would probe for cards this machine lacks and print its failures).
  export WINEDLLOVERRIDES="mscoree,mshtml=;winealsa.drv=d"
  case "$1" in
    x86)
      export WINEARCH=win32
      unset WINELOADER
      roomcore_wine=/usr/lib/wine/wine
      ;;
    x64)
      export WINEARCH=win64
      export WINELOADER=/usr/lib/wine/wine64
      roomcore_wine=/usr/lib/wine/wine64
      ;;
  esac
}

# roomcore_wine_prefix_ready: makes the prefix once (under a lock, since
# CTest may start several programs at the same moment).
roomcore_wine_prefix_ready() {
  [ -f "$WINEPREFIX/.roomcore-ready" ] && return 0
  mkdir -p "$(dirname "$WINEPREFIX")"
  (
    flock 9
    if [ ! -f "$WINEPREFIX/.roomcore-ready" ]; then
      echo "[wine] creating the $WINEARCH prefix $WINEPREFIX" >&2
      "$roomcore_wine" wineboot -i >/dev/null 2>&1 </dev/null || true
      wineserver -w || true
      touch "$WINEPREFIX/.roomcore-ready"
    fi
  ) 9>"$WINEPREFIX.lock"
}

# The tests' virtual display: always 24 bits deep, whatever display the
# caller has; Xvfb picks a free number and writes it to fd 3.
roomcore_display_pid=""
roomcore_start_display() {
  local displayfile
  displayfile=$(mktemp)
  Xvfb -displayfd 3 -screen 0 "${ROOMCORE_SCREEN:-1280x1024x24}" -nolisten tcp 3>"$displayfile" >/dev/null 2>&1 &
  roomcore_display_pid=$!
  for _ in $(seq 1 100); do [ -s "$displayfile" ] && break; sleep 0.1; done
  [ -s "$displayfile" ] || { echo "Xvfb did not start" >&2; rm -f "$displayfile"; return 1; }
  export ROOMCORE_TEST_DISPLAY=":$(head -n1 "$displayfile")"
  export DISPLAY=$ROOMCORE_TEST_DISPLAY
  rm -f "$displayfile"
}
