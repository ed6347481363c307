// Still pictures: the bitmap header of every grab, and the picture that
// carries a grab or an icon out of the library.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "roomcore_export.h"

// Zeroes all 40 bytes, then: biSize 40, biWidth `width`, biHeight `-height`
// when `top_down` (else `height`), biPlanes 1, biBitCount `bit_count`,
// BI_RGB, and biSizeImage `width` * `height` * 4 whatever the depth: the size
// bounds a buffer of 4-byte pixels.
ROOMCORE_API void InitBitMapInfoHeader(int width, int height, bool top_down, int bit_count,
                                       BITMAPINFOHEADER* header);
// The header as above, and the first colour entry set to 0.
ROOMCORE_API void InitBitMapInfo(int width, int height, bool top_down, int bit_count, BITMAPINFO* info);

// A copy of a BITMAPINFO (header and one colour entry, 44 bytes) and of its
// biSizeImage bytes of pixels. Either empty (both null) or complete.
class ROOMCORE_API DibImage {
 public:
  // A null argument gives an empty image.
  DibImage(const BITMAPINFO* info, const uint8_t* bits);
  // Copying duplicates both blocks, so that each block always has one owner.
  DibImage(const DibImage& other);
  DibImage& operator=(const DibImage& other);
  ~DibImage();

  // Frees both blocks; the image is empty afterwards.
  void Clear();
  // Writes a bitmap file at the display's current depth (bits per pixel
  // times planes), bottom line first. False for an empty image, or when the
  // bitmap or the file can't be made. A biSizeImage of 0 counts lines at
  // 4-byte alignment, as for any uncompressed picture.
  bool Save(const std::wstring& path) const;

  const BITMAPINFO* bitmap_info() const { return info; }
  const uint8_t* bits_data() const { return bits; }

 private:
  BITMAPINFO* info;
  uint8_t* bits;
};
