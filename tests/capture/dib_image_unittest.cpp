// The depth of the file follows the display's, planes included, whatever
// that depth is; a virtual display shows one depth, so the query is faked.
#include "roomcore/dib_image.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "capture/dib_image_internal.h"

namespace {

int g_bits_per_pixel = 32;
int g_planes = 1;

int WINAPI FakeDeviceCaps(HDC, int index) {
  if (index == BITSPIXEL) return g_bits_per_pixel;
  if (index == PLANES) return g_planes;
  return 0;
}

int32_t Le32(const std::vector<uint8_t>& b, size_t at) {
  int32_t value;
  std::memcpy(&value, &b[at], sizeof(value));
  return value;
}

TEST(DibImageDepth, TheFileHasTheDisplaysBitsPerPixelTimesPlanes) {
  capture::SetDeviceCapsForTesting(&FakeDeviceCaps);
  wchar_t folder[MAX_PATH];
  GetTempPathW(MAX_PATH, folder);
  const std::wstring path = folder + std::wstring(L"roomcore_dib_depth.bmp");
  // An odd width: 24-bit lines of 15 bytes, which the read-out pads to 16.
  const int width = 5, height = 3;
  std::vector<uint8_t> bits(width * height * 4);
  for (size_t i = 0; i < bits.size(); ++i) bits[i] = static_cast<uint8_t>(i * 7 + 1);
  BITMAPINFO info;
  InitBitMapInfo(width, height, true, 32, &info);
  const DibImage image(&info, bits.data());
  const struct { int bits_per_pixel, planes, file_depth; } cases[] = {{24, 1, 24}, {12, 2, 24}, {15, 1, 15}};
  for (const auto& c : cases) {
    g_bits_per_pixel = c.bits_per_pixel;
    g_planes = c.planes;
    ASSERT_TRUE(image.Save(path));
    std::ifstream in(path.c_str(), std::ios::binary);
    const std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t image_size = width * height * c.file_depth / 8;
    ASSERT_EQ(file.size(), 54 + image_size) << c.bits_per_pixel << "x" << c.planes;
    EXPECT_EQ(Le32(file, 2), static_cast<int32_t>(54 + image_size));
    EXPECT_EQ(Le32(file, 18), width);
    EXPECT_EQ(Le32(file, 22), height);
    EXPECT_EQ(file[28], c.file_depth);
    if (c.file_depth == 24) {  // the file's first line is the picture's last, 3 bytes a pixel
      for (int x = 0; x < width; ++x)
        EXPECT_EQ(std::memcmp(&file[54 + x * 3], &bits[((height - 1) * width + x) * 4], 3), 0) << x;
    }
  }
  capture::SetDeviceCapsForTesting(nullptr);
  DeleteFileW(path.c_str());
}

}  // namespace
