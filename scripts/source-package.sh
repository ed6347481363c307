# Sourced by scripts/build-*.sh: the shared steps of cross-building one of
# Debian's source packages into the cache.
#
#   prepare_source_package NAME CACHE [SUFFIX]
# sets `prefix` to CACHE/NAME-<version>[SUFFIX] and points CACHE/NAME at it.
# If that prefix holds a complete build, it says so and exits 0. Otherwise it
# fetches and unpacks the source into a temporary folder (removed on exit)
# and sets `srcdir` to it, with the current directory at the folder's parent.
prepare_source_package() {
  local name=$1 cache=$2 suffix=${3:-}
  local version
  version=$(apt-cache showsrc "$name" 2>/dev/null | awk '/^Version:/ && !v {v=$2} END {print v}')
  [ -n "$version" ] || { echo "[$name] no source package (deb-src missing?)" >&2; exit 1; }
  prefix="$cache/$name-${version//[:~]/_}$suffix"
  if [ -f "$prefix/.complete" ]; then
    echo "[$name] cached: $prefix"
    ln -sfn "$prefix" "$cache/$name"
    exit 0
  fi
  source_work=$(mktemp -d)
  trap 'rm -rf "$source_work"' EXIT
  cd "$source_work"
  echo "[$name] fetching source $version"
  apt-get source --download-only -q "$name" >/dev/null 2>&1
  local archive
  for archive in "${name}"_*.orig.tar.*; do
    case "$archive" in *.asc) ;; *) tar xf "$archive"; break ;; esac
  done
  for srcdir in "$source_work/$name"-*/; do break; done
  [ -d "$srcdir" ] || { echo "[$name] could not unpack the source" >&2; exit 1; }
}

# finish_source_package NAME CACHE: marks `prefix` complete and links it.
finish_source_package() {
  touch "$prefix/.complete"
  ln -sfn "$prefix" "$2/$1"
  echo "[$1] installed to $prefix"
}
