#!/usr/bin/env bash
# Installs everything the build and the tests need, and cross-builds for both
# Windows targets (x86 and x64) what Debian doesn't ship for MinGW: FFmpeg's
# three libraries, GoogleTest and Google Benchmark, cached by architecture
# and version under $ROOMCORE_CACHE (default /var/cache/roomcore).
# Idempotent: a second run only checks.
set -euo pipefail
source "$(dirname "$0")/lib.sh"
sudo_=""
[ "$(id -u)" -eq 0 ] || sudo_="sudo"

log() { echo "[setup] $*"; }
fail() { echo "[setup] error: $*" >&2; exit 1; }

packages=(cmake ninja-build make pkg-config nasm dpkg-dev python3 file
  g++-mingw-w64-i686-posix binutils-mingw-w64-i686
  g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
  wine wine32:i386 wine64 xvfb xauth pulseaudio pulseaudio-utils
  rapidjson-dev googletest ffmpeg fonts-dejavu-core)
# Where this machine runs no 32-bit code, the x86 suite runs in an emulated
# Debian VM (scripts/vm.sh): its builder and its emulator.
if [[ " ${roomcore_archs[*]} " == *" x86 "* ]] && ! roomcore_runs_32bit; then
  packages+=(qemu-system-x86 qemu-utils debootstrap e2fsprogs)
fi

need_install=0
for p in "${packages[@]}"; do
  # (no early-exiting grep -q in pipelines: under pipefail its SIGPIPE fails them)
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || { need_install=1; break; }
done

apt_sources_changed=0
if ! dpkg --print-foreign-architectures | grep -x i386 >/dev/null; then
  log "adding the i386 architecture"
  $sudo_ dpkg --add-architecture i386
  apt_sources_changed=1
fi

# The i386 index of the security suite sometimes fails to download, which
# leaves amd64 and i386 shared libraries at different versions and wine32
# uninstallable. Preferring the main suite keeps both architectures equal.
pin=/etc/apt/preferences.d/roomcore-security-pin
if [ ! -f "$pin" ]; then
  log "pinning the security suite below the main suite"
  printf 'Package: *\nPin: release l=Debian-Security\nPin-Priority: 100\n' | $sudo_ tee "$pin" >/dev/null
  apt_sources_changed=1
fi

# Source entries for apt-get source, derived from the machine's own lists so
# that no registry host is written into the project. A file without a single
# entry (a machine whose lists had none to derive from at the time) is made
# again rather than trusted.
src=/etc/apt/sources.list.d/roomcore-src.sources
srclist=/etc/apt/sources.list.d/roomcore-src.list
src_entries() {
  cat "$src" "$srclist" 2>/dev/null | grep -cE '^(Types: deb-src|deb-src )' || true
}
if [ "$(src_entries)" -eq 0 ]; then
  log "adding deb-src entries derived from the machine's sources"
  tmp=$(mktemp)
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] || continue
    case "$f" in *roomcore*) continue ;; esac
    # keep only the stanzas of the Debian archive itself
    awk 'BEGIN{RS="";ORS="\n\n"} /debian-archive-keyring/ && !/debian-security/ {print}' "$f" |
      sed -e 's/^Types:.*/Types: deb-src/' >>"$tmp"
  done
  $sudo_ rm -f "$src" "$srclist"
  [ -s "$tmp" ] && $sudo_ cp "$tmp" "$src"
  if [ -f /etc/apt/sources.list ]; then
    grep -E '^deb ' /etc/apt/sources.list | grep -v security | sed 's/^deb /deb-src /' >"$tmp" || true
    [ -s "$tmp" ] && $sudo_ cp "$tmp" "$srclist"
  fi
  rm -f "$tmp"
  [ "$(src_entries)" -gt 0 ] ||
    fail "no Debian archive entry found in /etc/apt/sources.list or /etc/apt/sources.list.d/*.sources to derive deb-src entries from"
  apt_sources_changed=1
fi

if [ "$need_install" -eq 1 ] || [ "$apt_sources_changed" -eq 1 ]; then
  log "apt-get update"
  # An index that fails to download (the i386 security index does, at times)
  # makes apt-get update exit non-zero; the pin above covers for it.
  $sudo_ apt-get update -q >/dev/null 2>&1 || log "apt-get update reported failures; continuing with the lists it has"
fi
if [ "$need_install" -eq 1 ]; then
  log "installing packages"
  out=$(mktemp)
  DEBIAN_FRONTEND=noninteractive $sudo_ apt-get install -y -q --no-install-recommends "${packages[@]}" >"$out" 2>&1 ||
    { tail -30 "$out" >&2; rm -f "$out"; fail "apt-get install failed"; }
  rm -f "$out"
fi

$sudo_ mkdir -p "$roomcore_cache"
[ -w "$roomcore_cache" ] || $sudo_ chown "$(id -u)" "$roomcore_cache"

for arch in "${roomcore_archs[@]}"; do
  # FFmpeg: libavutil, libswscale, libswresample as shared DLLs with x86 asm.
  "$roomcore_root/scripts/build-ffmpeg.sh" "$arch"
  "$roomcore_root/scripts/build-googletest.sh" "$arch"
  "$roomcore_root/scripts/build-benchmark.sh" "$arch"
done
log "done"
