// Saves a picture with a distinct top line through the exported DibImage, and
// its pixels as raw top-down BGRA, for a reader outside this project to compare.
// Usage: capture_bmp_writer <folder>  (relative to the working directory)
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

#include "dib_image.h"

namespace {

bool WriteRaw(const std::wstring& path, const std::vector<uint8_t>& bytes) {
  FILE* out = _wfopen(path.c_str(), L"wb");
  if (!out) return false;
  const bool ok = fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
  return fclose(out) == 0 && ok;
}

// Odd width, so that a reader that mixes up line lengths shows it.
bool SavePicture(const std::wstring& folder, const wchar_t* name, int width, int height) {
  std::vector<uint8_t> bits(static_cast<size_t>(width) * height * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &bits[(static_cast<size_t>(y) * width + x) * 4];
      if (y == 0) {  // top line pure red, found nowhere else
        p[0] = 0, p[1] = 0, p[2] = 255;
      } else {
        p[0] = static_cast<uint8_t>(x * 7), p[1] = static_cast<uint8_t>(y * 11),
        p[2] = static_cast<uint8_t>(x ^ y);
      }
      p[3] = 0;
    }
  }
  BITMAPINFO info;
  InitBitMapInfo(width, height, true, 32, &info);
  const DibImage image(&info, bits.data());
  const std::wstring base = folder + L"\\" + name;
  // Files of an earlier run must not stand in for this run's.
  DeleteFileW((base + L".bmp").c_str());
  DeleteFileW((base + L".bgra").c_str());
  if (!image.Save(base + L".bmp")) {
    std::fwprintf(stderr, L"Save failed for %ls\n", base.c_str());
    return false;
  }
  return WriteRaw(base + L".bgra", bits);
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  if (argc != 2) {
    std::fwprintf(stderr, L"usage: capture_bmp_writer <folder>\n");
    return 2;
  }
  const std::wstring folder = argv[1];
  CreateDirectoryW(folder.c_str(), nullptr);
  const bool ok =
      SavePicture(folder, L"picture_37x21", 37, 21) && SavePicture(folder, L"picture_100x50", 100, 50);
  return ok ? 0 : 1;
}
