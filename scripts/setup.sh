#!/usr/bin/env bash
# Installs everything the build and the tests need, and builds what Debian
# doesn't ship for MinGW (FFmpeg's three libraries, Google Benchmark).
# Idempotent: a second run only checks.
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
cache=${ROOMCORE_CACHE:-/var/cache/roomcore}
sudo_=""
[ "$(id -u)" -eq 0 ] || sudo_="sudo"

log() { echo "[setup] $*"; }

packages=(cmake ninja-build g++-mingw-w64-i686-posix nasm make pkg-config
  wine wine32:i386 wine64 xvfb xauth pulseaudio pulseaudio-utils
  rapidjson-dev googletest dpkg-dev python3 file binutils-mingw-w64-i686)

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
# that no registry host is written into the project.
src=/etc/apt/sources.list.d/roomcore-src.sources
if [ ! -f "$src" ]; then
  log "adding deb-src entries derived from the machine's sources"
  tmp=$(mktemp)
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] || continue
    case "$f" in *roomcore*) continue ;; esac
    # keep only the stanzas of the Debian archive itself
    awk 'BEGIN{RS="";ORS="\n\n"} /debian-archive-keyring/ && !/debian-security/ {print}' "$f" |
      sed -e 's/^Types:.*/Types: deb-src/' >>"$tmp"
  done
  if [ -f /etc/apt/sources.list ]; then
    grep -E '^deb ' /etc/apt/sources.list | grep -v security | sed 's/^deb /deb-src /' >"${tmp}.list" || true
    if [ -s "${tmp}.list" ]; then $sudo_ cp "${tmp}.list" /etc/apt/sources.list.d/roomcore-src.list; fi
    rm -f "${tmp}.list"
  fi
  $sudo_ cp "$tmp" "$src"
  rm -f "$tmp"
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
  DEBIAN_FRONTEND=noninteractive $sudo_ apt-get install -y -q --no-install-recommends "${packages[@]}" >/dev/null
fi

$sudo_ mkdir -p "$cache"
[ -w "$cache" ] || $sudo_ chown "$(id -u)" "$cache"

# FFmpeg: libavutil, libswscale, libswresample as shared DLLs with x86 asm.
"$here/scripts/build-ffmpeg.sh" "$cache"
# Google Benchmark for bench/.
"$here/scripts/build-benchmark.sh" "$cache" || log "Google Benchmark could not be built; bench/ falls back to its own harness"

log "done"
