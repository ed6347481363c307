#!/usr/bin/env bash
# Checks roomcore.dll's PE tables from the outside: a PE32 i386 DLL, importing
# no MinGW runtime DLL, exporting the families a host links against.
set -euo pipefail
dll=$1
objdump=${OBJDUMP:-i686-w64-mingw32-objdump}
fail=0
[[ "$(file "$dll")" == *"PE32 executable (DLL)"*"Intel 80386"* ]] || { echo "not a PE32 i386 DLL: $(file "$dll")"; fail=1; }

imports=$("$objdump" -p "$dll" | awk '/DLL Name:/{print $3}')
echo "imports: $(echo $imports)"
for name in $imports; do
  case "$(echo "$name" | tr 'A-Z' 'a-z')" in
    libstdc++*|libgcc*|libwinpthread*) echo "imports a MinGW runtime DLL: $name"; fail=1 ;;
  esac
done

exports=$("$objdump" -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p')
for symbol in TimeNanoseconds TimeMicroseconds TimeMilliseconds SleepAccurate GetTerminationStatus \
  MixAudio MultiplyAudio 8PointOpt 7SizeOpt 7RectOpt 10PointOptEx 7Point3D 6Size3D 6Rect3D kFloatNA \
  CreaeRTCEngine ReleaseRTCEngine FreeDeviceRecords 9ImManager20GetImManagerInstance \
  9ImManager24DestroyImManagerInstance InitBitMapInfo InitBitMapInfoHeader 8DibImage4Save \
  ${EXTRA_EXPORTS:-}; do
  grep -q "$symbol" <<<"$exports" || { echo "missing export: $symbol"; fail=1; }
done
[ $fail -eq 0 ] && echo "roomcore.dll tables OK"
exit $fail
