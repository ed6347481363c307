// A seam in front of the display-depth query of DibImage::Save: a virtual
// display shows one depth only, so tests stand in for GetDeviceCaps.
#pragma once

#include <windows.h>

using DeviceCapsFunction = int(WINAPI*)(HDC dc, int index);

namespace capture {
// Replaces GetDeviceCaps for every later Save; null restores it.
void SetDeviceCapsForTesting(DeviceCapsFunction function);
}  // namespace capture
