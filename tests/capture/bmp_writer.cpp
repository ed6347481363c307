// Saves pictures with a distinct top line through the exported DibImage, and
// their pixels as raw top-down BGRA, for a reader outside this project to
// compare. Usage: capture_bmp_writer <folder>  (relative to the working directory)
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "roomcore/dib_image.h"

namespace {

// Odd width, so that a reader that mixes up line lengths shows it.
bool SavePicture(const std::wstring& folder, const wchar_t* name, int width, int height) {
  std::vector<uint8_t> bits(static_cast<size_t>(width) * height * 4, 0);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &bits[(static_cast<size_t>(y) * width + x) * 4];
      p[0] = static_cast<uint8_t>(y == 0 ? 0 : x * 7);  // top line pure red, found nowhere else
      p[1] = static_cast<uint8_t>(y == 0 ? 0 : y * 11);
      p[2] = static_cast<uint8_t>(y == 0 ? 255 : x ^ y);
    }
  }
  BITMAPINFO info;
  InitBitMapInfo(width, height, true, 32, &info);
  const std::wstring base = folder + L"\\" + name;
  // Files of an earlier run must not stand in for this run's.
  DeleteFileW((base + L".bmp").c_str());
  if (!DibImage(&info, bits.data()).Save(base + L".bmp")) {
    std::fwprintf(stderr, L"Save failed for %ls\n", base.c_str());
    return false;
  }
  FILE* raw = _wfopen((base + L".bgra").c_str(), L"wb");
  if (!raw) return false;
  const bool written = fwrite(bits.data(), 1, bits.size(), raw) == bits.size();
  return fclose(raw) == 0 && written;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 2) {
    std::fwprintf(stderr, L"usage: capture_bmp_writer <folder>\n");
    return 2;
  }
  CreateDirectoryW(argv[1], nullptr);
  return SavePicture(argv[1], L"picture_37x21", 37, 21) && SavePicture(argv[1], L"picture_100x50", 100, 50)
             ? 0
             : 1;
}
