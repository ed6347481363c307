#!/usr/bin/env bash
# The x86 suite on a machine that runs no 32-bit code: a Debian guest under
# full-system emulation (QEMU's TCG, no KVM needed) whose own kernel runs
# 32-bit programs, and so 32-bit Wine.
#
#   vm.sh image                      builds the guest's root image once
#   vm.sh suite ARCH BUILD [ARGS]    runs ARCH's suite from BUILD in the guest
#   vm.sh image-dir                  prints where the current recipe's image is
#
# The image is cached under $ROOMCORE_CACHE/vm/<recipe hash>/, made from the
# machine's own apt sources (no registry host is written into the project).
# For a run, a copy-on-write overlay of the image gets the project's sources
# and the build tree (without object files) at the same absolute paths, since
# build trees hold absolute paths; the guest runs scripts/run-suite.sh there,
# exactly as a machine that runs 32-bit code does, and hands back its output,
# exit status and CTest log through a shared folder. The kernel console goes
# to a log file; a watchdog ends the VM by its PID past its time limit.
set -euo pipefail
source "$(dirname "$0")/lib.sh"

log() { echo "[vm] $*"; }
fail() { echo "[vm] error: $*" >&2; exit 1; }

# What goes into the guest. Changing any of it, or the recipe's version,
# makes a new image.
vm_recipe_version=1
vm_packages=(linux-image-amd64 initramfs-tools wine wine32:i386 wine64 xvfb xauth cmake ninja-build
  python3 pulseaudio pulseaudio-utils file ffmpeg binutils-mingw-w64-i686 g++-mingw-w64-i686-posix
  procps)
vm_codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
vm_memory=${ROOMCORE_VM_MEMORY:-6G}
vm_timeout_min=${ROOMCORE_VM_TIMEOUT_MIN:-60}

# The Debian archive stanzas of this machine's own sources, without the
# security suite (its i386 index has been seen inconsistent with amd64's).
vm_apt_sources() {
  local f out=""
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -f "$f" ] || continue
    case "$f" in *roomcore*) continue ;; esac
    out+=$(awk 'BEGIN{RS="";ORS="\n\n"} /debian-archive-keyring/ && !/debian-security/ && /Types:[^\n]*deb/ {print}' "$f" |
      sed -e 's/^Types:.*/Types: deb/')
  done
  if [ -z "$out" ] && [ -f /etc/apt/sources.list ]; then
    out=$(grep -E '^deb ' /etc/apt/sources.list | grep -v security || true)
    [ -z "$out" ] || { echo "$out"; return; }
  fi
  [ -n "$out" ] || return 1
  echo "$out"
}

# The archive's URI for debootstrap: the first one of those stanzas.
vm_archive_uri() {
  vm_apt_sources | awk '/^URIs:/ {print $2; exit} /^deb / {print $2; exit}'
}

vm_image_dir() {
  local key
  key=$( (echo "$vm_recipe_version $vm_codename ${vm_packages[*]}"; vm_apt_sources;
    declare -f vm_build_image vm_init_script) | sha256sum | cut -c1-16)
  echo "$roomcore_cache/vm/$key"
}

# The guest's init: mounts what a job needs, runs /share/job.sh, powers off.
vm_init_script() {
  cat <<'EOF'
#!/bin/sh
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev 2>/dev/null
mkdir -p /dev/pts /dev/shm
mount -t devpts devpts /dev/pts
mount -t tmpfs tmpfs /dev/shm
mount -t tmpfs tmpfs /tmp
mount -t tmpfs tmpfs /run
mkdir -p /share
mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144 share /share
echo "[guest] up: $(uname -r), $(nproc) CPUs"
/bin/bash /share/job.sh >/share/job.log 2>&1
echo $? >/share/job.rc
sync
echo o >/proc/sysrq-trigger
sleep 30
EOF
}

vm_build_image() {
  local dir=$1 root uri start
  root=$dir.root
  uri=$(vm_archive_uri) || true
  [ -n "$uri" ] || fail "no Debian archive found in this machine's apt sources"
  rm -rf "$root" "$dir.tmp"
  mkdir -p "$root" "$dir.tmp"
  local mounted=()
  cleanup() {
    local m
    for m in "${mounted[@]}"; do umount -l "$m" 2>/dev/null || true; done
  }
  trap cleanup EXIT
  start=$SECONDS
  log "image: debootstrap $vm_codename (minbase) into $root"
  debootstrap --variant=minbase "$vm_codename" "$root" "$uri" >"$dir.tmp/debootstrap.log" 2>&1 ||
    { tail -20 "$dir.tmp/debootstrap.log" >&2; fail "debootstrap failed"; }
  log "image: debootstrap done in $((SECONDS - start)) s"
  rm -f "$root"/etc/apt/sources.list
  vm_apt_sources >"$root/etc/apt/sources.list.d/debian.sources"
  # No service starts inside the chroot.
  printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
  chmod +x "$root/usr/sbin/policy-rc.d"
  mount -t proc proc "$root/proc" && mounted+=("$root/proc")
  mount -t sysfs sys "$root/sys" && mounted+=("$root/sys")
  mount --bind /dev "$root/dev" && mounted+=("$root/dev")
  mount --bind /dev/pts "$root/dev/pts" && mounted+=("$root/dev/pts")
  # The guest boots straight from its initramfs, which needs only the virtio
  # disk, ext4 and the shared folders. Listing just those (instead of most of
  # the kernel's modules) makes each initramfs in seconds instead of minutes.
  mkdir -p "$root/etc/initramfs-tools/conf.d" "$root/etc/initramfs-tools/hooks"
  echo MODULES=list >"$root/etc/initramfs-tools/conf.d/roomcore-vm"
  cat >"$root/etc/initramfs-tools/hooks/roomcore-vm" <<'EOF'
#!/bin/sh
[ "$1" = prereqs ] && exit 0
. /usr/share/initramfs-tools/hook-functions
for m in virtio_pci virtio_blk ext4 9pnet_virtio 9p; do force_load "$m"; done
EOF
  chmod +x "$root/etc/initramfs-tools/hooks/roomcore-vm"
  start=$SECONDS
  log "image: installing the guest's packages (about 7 minutes)"
  chroot "$root" /bin/sh -c "dpkg --add-architecture i386 &&
    apt-get update -q && DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends ${vm_packages[*]} &&
    apt-get clean" >"$dir.tmp/packages.log" 2>&1 &
  local pid=$!
  while kill -0 "$pid" 2>/dev/null; do
    sleep 5
    if (((SECONDS - start) % 60 < 5)); then
      log "image: packages, $(((SECONDS - start) / 60)) min: $(grep -cE '^(Unpacking|Setting up)' "$dir.tmp/packages.log" || true) steps done"
    fi
  done
  wait "$pid" || { tail -30 "$dir.tmp/packages.log" >&2; fail "installing the guest's packages failed"; }
  log "image: packages done in $((SECONDS - start)) s"
  cleanup
  mounted=()
  trap - EXIT
  vm_init_script >"$root/job-init.sh"
  chmod +x "$root/job-init.sh"
  echo roomcore-vm >"$root/etc/hostname"
  cp "$(ls "$root"/boot/vmlinuz-* | sort | tail -n1)" "$dir.tmp/vmlinuz"
  cp "$(ls "$root"/boot/initrd.img-* | sort | tail -n1)" "$dir.tmp/initrd.img"
  start=$SECONDS
  truncate -s 10G "$dir.tmp/root.img"
  mkfs.ext4 -q -F -d "$root" "$dir.tmp/root.img"
  log "image: root.img written in $((SECONDS - start)) s ($(du -h "$dir.tmp/root.img" | cut -f1) used)"
  rm -rf "$root"
  rm -rf "$dir"
  mv "$dir.tmp" "$dir"
}

vm_image() {
  local dir
  dir=$(vm_image_dir)
  if [ -f "$dir/root.img" ] && [ -f "$dir/vmlinuz" ] && [ -f "$dir/.prefix-ready" ]; then
    log "image: cached in $dir"
    return
  fi
  [ "$(id -u)" -eq 0 ] || fail "building the guest image needs root (debootstrap, chroot)"
  command -v debootstrap >/dev/null && command -v qemu-system-x86_64 >/dev/null ||
    fail "debootstrap and qemu-system-x86 are missing: run scripts/setup.sh"
  mkdir -p "$roomcore_cache/vm"
  (
    flock 9
    [ -f "$dir/root.img" ] || vm_build_image "$dir"
    vm_prepare_prefix "$dir"
  ) 9>"$roomcore_cache/vm/.lock"
  # Older recipes' images are of no further use.
  local old
  for old in "$roomcore_cache"/vm/*/; do
    [ "${old%/}" = "$dir" ] || rm -rf "$old"
  done
}

# vm_boot DRIVE FORMAT SHARE CONSOLE [QEMU ARGS...]: boots the image's kernel
# with DRIVE as its root and SHARE (holding job.sh) as /share, shows the
# job's output as it comes and a line a minute, ends the VM by its PID past
# the time limit, and returns the job's exit status.
vm_boot() {
  local drive=$1 format=$2 share=$3 console=$4 dir start pid
  shift 4
  dir=$(vm_image_dir)
  start=$SECONDS
  qemu-system-x86_64 -accel tcg,thread=multi -cpu max,-smap -smp 2 -m "$vm_memory" \
    -display none -monitor none -serial "file:$console" -nic none -no-reboot \
    -kernel "$dir/vmlinuz" -initrd "$dir/initrd.img" \
    -append "root=/dev/vda rw console=ttyS0 init=/job-init.sh" \
    -drive "file=$drive,format=$format,if=virtio,cache=unsafe" \
    -virtfs "local,path=$share,mount_tag=share,security_model=none" "$@" &
  pid=$!
  trap 'kill "$pid" 2>/dev/null' EXIT
  local next=60 shown=0 lines done_line
  while kill -0 "$pid" 2>/dev/null; do
    sleep 2
    if ((SECONDS - start >= vm_timeout_min * 60)); then
      log "the guest outlived its $vm_timeout_min min: ending it (pid $pid)"
      kill "$pid" 2>/dev/null || true
      sleep 2
      kill -9 "$pid" 2>/dev/null || true
      break
    fi
    if ((SECONDS - start >= next)); then
      next=$((next + 60))
      done_line=$( (grep -aE '^ *[0-9]+/[0-9]+ Test' "$share/job.log" 2>/dev/null || true) | tail -n1 |
        sed -E 's/^ *([0-9]+\/[0-9]+) Test +#[0-9]+: ([^ ]+).*/\1 done (last: \2)/')
      [ -n "$done_line" ] || done_line=$(tail -n1 "$share/job.log" 2>/dev/null || true)
      log "$(((SECONDS - start) / 60)) min: ${done_line:-booting}"
    fi
    if [ -f "$share/job.log" ] && [ -z "${ROOMCORE_VM_QUIET:-}" ]; then
      lines=$(wc -l <"$share/job.log")
      if ((lines > shown)); then
        sed -n "$((shown + 1)),${lines}p" "$share/job.log"
        shown=$lines
      fi
    fi
  done
  wait "$pid" 2>/dev/null || true
  trap - EXIT
  if [ -f "$share/job.log" ] && [ -z "${ROOMCORE_VM_QUIET:-}" ]; then sed -n "$((shown + 1)),\$p" "$share/job.log"; fi
  local rc
  rc=$(cat "$share/job.rc" 2>/dev/null || echo 125)
  log "the guest ran $(((SECONDS - start) / 60)) min $(((SECONDS - start) % 60)) s; its job exited $rc"
  return "$rc"
}

# Wine's first start in a new prefix takes minutes under emulation, so the
# image keeps a ready 32-bit prefix that each run's overlay starts from.
vm_guest_prefix=/var/lib/roomcore/wineprefix-x86
vm_prepare_prefix() {
  local dir=$1 share
  [ -f "$dir/.prefix-ready" ] && return
  log "image: making the guest's Wine prefix (one boot)"
  share=$(mktemp -d)
  cat >"$share/job.sh" <<EOF
export WINEPREFIX=$vm_guest_prefix WINEARCH=win32 WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=;winealsa.drv=d"
mkdir -p "\$(dirname "\$WINEPREFIX")"
Xvfb :7 -nolisten tcp >/dev/null 2>&1 &
export DISPLAY=:7
/usr/lib/wine/wine wineboot -i >/dev/null 2>&1 </dev/null
wineserver -w
kill %1
touch "\$WINEPREFIX/.roomcore-ready"
echo "[guest] prefix ready"
EOF
  if vm_boot "$dir/root.img" raw "$share" "$dir/prefix-console.log"; then
    touch "$dir/.prefix-ready"
  else
    rm -rf "$share"
    fail "making the guest's Wine prefix failed (see $dir/prefix-console.log)"
  fi
  rm -rf "$share"
}

vm_suite() {
  local arch=$1 build
  build=$(realpath "$2")
  shift 2
  vm_image
  local dir work share overlay rc=0
  dir=$(vm_image_dir)
  work=$(mktemp -d "${TMPDIR:-/tmp}/roomcore-vm.XXXXXX")
  share=$work/share
  mkdir -p "$share"
  overlay=$work/overlay.qcow2
  qemu-img create -q -f qcow2 -b "$dir/root.img" -F raw "$overlay"
  # The job: the sources and the build tree at their own paths, then the
  # suite exactly as scripts/test.sh runs it where 32-bit code runs.
  local args=""
  [ $# -eq 0 ] || args=$(printf '%q ' "$@")
  cat >"$share/job.sh" <<EOF
set -u
mkdir -p /mnt/src /mnt/build
mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144,ro src /mnt/src
mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144,ro build /mnt/build
mkdir -p /mnt/deps
mount -t 9p -o trans=virtio,version=9p2000.L,msize=262144,ro deps /mnt/deps
echo "[guest] copying the sources and the build tree"
mkdir -p "$roomcore_root" "$build"
tar -C /mnt/src -cf - --exclude=./build --exclude=./.git --exclude=./dist --exclude=./demo-out . | tar -C "$roomcore_root" -xf -
tar -C /mnt/build -cf - --exclude='*.obj' --exclude='*.o' --exclude=./wineprefix --exclude=./Testing . | tar -C "$build" -xf -
tar -C /mnt/deps -cf - . | (mkdir -p "$roomcore_cache/$arch" && tar -C "$roomcore_cache/$arch" -xf -)
umount /mnt/src /mnt/build /mnt/deps
# Programs the build tree names by a path of this machine (a python3 of a
# version manager, say) are the guest's own of the same name.
grep -E '^[A-Za-z0-9_]+:FILEPATH=/' "$build/CMakeCache.txt" | cut -d= -f2- | while read -r program; do
  [ -e "\$program" ] && continue
  own=\$(command -v "\$(basename "\$program")") || continue
  mkdir -p "\$(dirname "\$program")" && ln -s "\$own" "\$program"
done
echo "[guest] running the $arch suite"
export ROOMCORE_WINEPREFIX=$vm_guest_prefix
bash "$roomcore_root/scripts/run-suite.sh" $arch "$build" $args
rc=\$?
cp "$build/test-run.log" /share/test-run.log 2>/dev/null
cp "$build/Testing/Temporary/LastTest.log" /share/LastTest.log 2>/dev/null
exit \$rc
EOF
  log "booting the guest (console: $build/vm-console.log; limit $vm_timeout_min min)"
  vm_boot "$overlay" qcow2 "$share" "$build/vm-console.log" \
    -virtfs "local,path=$roomcore_root,mount_tag=src,security_model=none,readonly=on" \
    -virtfs "local,path=$build,mount_tag=build,security_model=none,readonly=on" \
    -virtfs "local,path=$(realpath "$roomcore_cache/$arch"),mount_tag=deps,security_model=none,readonly=on" || rc=$?
  cp "$share/test-run.log" "$build/test-run.log" 2>/dev/null || true
  cp "$share/LastTest.log" "$build/vm-LastTest.log" 2>/dev/null || true
  rm -rf "$work"
  return "$rc"
}

case "${1:-}" in
  image) vm_image ;;
  image-dir) vm_image_dir ;;
  suite) shift; vm_suite "$@" ;;
  *) echo "usage: vm.sh image | vm.sh suite ARCH BUILD [ctest args...]" >&2; exit 2 ;;
esac
