#!/usr/bin/env bash
# Checks an installed (or unpacked) library component of the SDK:
#   check_layout.sh PREFIX
# PREFIX must hold every line of library_files.txt (globs) at least once and
# no other file, and exactly the headers of include/roomcore/ in the tree.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
prefix=$1
fail=0
mapfile -t patterns < <(grep -v '^#' "$here/library_files.txt" | grep .)
mapfile -t files < <(cd "$prefix" && find . -type f | sed 's|^\./||' | LC_ALL=C sort)
for file in "${files[@]}"; do
  ok=0
  for pattern in "${patterns[@]}"; do
    # (unquoted: the line is a glob)
    [[ $file == $pattern ]] && ok=1 && break
  done
  [ $ok -eq 1 ] || { echo "not in the SDK's layout: $file"; fail=1; }
done
for pattern in "${patterns[@]}"; do
  ok=0
  for file in "${files[@]}"; do [[ $file == $pattern ]] && ok=1 && break; done
  [ $ok -eq 1 ] || { echo "missing from the SDK: $pattern"; fail=1; }
done
if ! diff <(cd "$here/../../include/roomcore" && ls) <(cd "$prefix/include/roomcore" && ls); then
  echo "the SDK's headers differ from include/roomcore/ (< tree, > SDK)"
  fail=1
fi
[ $fail -eq 0 ] && echo "library component: ${#files[@]} files, as laid out"
exit $fail
