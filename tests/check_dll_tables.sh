#!/usr/bin/env bash
# Checks a DLL's PE tables from the outside:
#   check_dll_tables.sh DLL ARCH EXPORTS_LIST OBJDUMP
# - the DLL is PE32 (i386) for x86 and PE32+ (x86-64) for x64;
# - it imports only Windows system DLLs, Fundus.dll, the two SDK DLLs and
#   FFmpeg's (so no MinGW runtime DLL);
# - its export table is exactly EXPORTS_LIST: a missing export and an extra
#   one (a private member of an exported class, say) both fail.
set -euo pipefail
dll=$1 arch=$2 list=$3 objdump=$4
fail=0
kind=$(file -b "$dll")
case "$arch" in
  x86) [[ "$kind" == "PE32 executable (DLL)"*"Intel 80386"* ]] || { echo "not a PE32 i386 DLL: $kind"; fail=1; } ;;
  x64) [[ "$kind" == "PE32+ executable (DLL)"*"x86-64"* ]] || { echo "not a PE32+ x86-64 DLL: $kind"; fail=1; } ;;
esac

dump=$("$objdump" -p "$dll")
imports=$(awk '/DLL Name:/{print $3}' <<<"$dump")
echo "imports: $(echo $imports)"
for name in $imports; do
  case "$(tr 'A-Z' 'a-z' <<<"$name")" in
    kernel32.dll|user32.dll|gdi32.dll|ole32.dll|oleaut32.dll|msvcrt.dll|winmm.dll|dwmapi.dll|psapi.dll|\
    version.dll|shlwapi.dll|advapi32.dll|avrt.dll|api-ms-win-*.dll) ;;
    fundus.dll|liteav.dll|imsdk.dll) ;;
    avutil-*.dll|swscale-*.dll|swresample-*.dll) ;;
    *) echo "imports a DLL outside the allowed set: $name"; fail=1 ;;
  esac
done

# The export names, one a line, sorted.
actual=$(sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' <<<"$dump" | awk '/\[ *[0-9]+\]/{print $NF}' | LC_ALL=C sort)
expected=$(grep -v '^#' "$list" | grep . | LC_ALL=C sort)
if [ "$actual" != "$expected" ]; then
  echo "the export table differs from $list (< expected only, > exported only):"
  diff <(echo "$expected") <(echo "$actual") | grep '^[<>]' || true
  fail=1
fi
echo "exports: $(echo "$actual" | grep -c .)"
[ $fail -eq 0 ] && echo "$(basename "$dll") ($arch) tables OK"
exit $fail
