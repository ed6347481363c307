# Sourced by scripts/build-*.sh: the shared steps of cross-building one of
# Debian's source packages into the cache of one architecture.
#
#   prepare_source_package NAME ARCH [SUFFIX]
# sets `prefix` to CACHE/ARCH/NAME-<version>[SUFFIX] and points
# CACHE/ARCH/NAME at it. If that prefix holds a complete build, it says so and
# exits 0. Otherwise it unpacks the source (fetched once into CACHE/src) into
# a temporary folder (removed on exit) and sets `srcdir` to it, with the
# current directory at the folder's parent.
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

prepare_source_package() {
  local name=$1 arch=$2 suffix=${3:-}
  local version
  version=$(apt-cache showsrc "$name" 2>/dev/null | awk '/^Version:/ && !v {v=$2} END {print v}')
  [ -n "$version" ] || { echo "[$name] no source package known to apt (are the deb-src entries there, and apt-get update done?)" >&2; exit 1; }
  mkdir -p "$roomcore_cache/$arch"
  prefix="$roomcore_cache/$arch/$name-${version//[:~]/_}$suffix"
  if [ -f "$prefix/.complete" ]; then
    echo "[$name/$arch] cached: $prefix"
    ln -sfn "$prefix" "$roomcore_cache/$arch/$name"
    exit 0
  fi
  local sources="$roomcore_cache/src/$name-${version//[:~]/_}"
  if [ ! -f "$sources/.complete" ]; then
    echo "[$name] fetching source $version"
    rm -rf "$sources"
    mkdir -p "$sources"
    local out
    out=$(cd "$sources" && apt-get source --download-only -q "$name=$version" 2>&1) ||
      { echo "$out" >&2; echo "[$name] apt-get source failed" >&2; exit 1; }
    touch "$sources/.complete"
  fi
  source_work=$(mktemp -d)
  trap 'rm -rf "$source_work"' EXIT
  cd "$source_work"
  local archive
  for archive in "$sources/${name}"_*.orig.tar.*; do
    case "$archive" in *.asc) ;; *) tar xf "$archive"; break ;; esac
  done
  for srcdir in "$source_work/$name"-*/; do break; done
  [ -d "$srcdir" ] || { echo "[$name] could not unpack the source" >&2; exit 1; }
  echo "[$name/$arch] building into $prefix"
}

# finish_source_package NAME ARCH: marks `prefix` complete and links it.
finish_source_package() {
  touch "$prefix/.complete"
  ln -sfn "$prefix" "$roomcore_cache/$2/$1"
  echo "[$1/$2] installed to $prefix"
}
