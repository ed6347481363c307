// What the captures share with DibImage about picture sizes, and a seam in
// front of the display-depth query of DibImage::Save: a virtual display shows
// one depth only, so tests stand in for GetDeviceCaps.
#pragma once

#include <windows.h>

#include <cstdint>

using DeviceCapsFunction = int(WINAPI*)(HDC dc, int index);

namespace capture {

// Bytes of a picture of 4-byte pixels, in 64 bits so that no size wraps; 0
// for a negative width or height.
inline uint64_t PictureBytes(int width, int height) {
  if (width < 0 || height < 0) return 0;
  return static_cast<uint64_t>(width) * static_cast<uint64_t>(height) * 4;
}

// Whether `bytes` fits a bitmap header's biSizeImage (and so a buffer this
// process could address).
inline bool FitsSizeField(uint64_t bytes) { return bytes <= UINT32_MAX && bytes <= SIZE_MAX; }

// Replaces GetDeviceCaps for every later Save; null restores it.
void SetDeviceCapsForTesting(DeviceCapsFunction function);

}  // namespace capture
