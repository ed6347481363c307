#include "dib_image.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<uint8_t> ReadFile(const std::wstring& path) {
  std::ifstream in(path.c_str(), std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::wstring& path, const std::string& bytes) {
  std::ofstream out(path.c_str(), std::ios::binary | std::ios::trunc);
  out << bytes;
}

uint32_t Le32(const std::vector<uint8_t>& b, size_t at) {
  return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | (static_cast<uint32_t>(b[at + 3]) << 24);
}
uint16_t Le16(const std::vector<uint8_t>& b, size_t at) {
  return static_cast<uint16_t>(b[at] | (b[at + 1] << 8));
}

// A folder of its own for each test's files, removed with its files afterwards.
class TempDir {
 public:
  TempDir() {
    wchar_t base[MAX_PATH];
    GetTempPathW(MAX_PATH, base);
    path_ = std::wstring(base) + L"roomcore_dib_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
            std::to_wstring(counter_++);
    CreateDirectoryW(path_.c_str(), nullptr);
  }
  ~TempDir() {
    WIN32_FIND_DATAW data;
    HANDLE find = FindFirstFileW((path_ + L"\\*").c_str(), &data);
    if (find != INVALID_HANDLE_VALUE) {
      do {
        DeleteFileW((path_ + L"\\" + data.cFileName).c_str());
      } while (FindNextFileW(find, &data));
      FindClose(find);
    }
    RemoveDirectoryW(path_.c_str());
  }
  std::wstring File(const wchar_t* name) const { return path_ + L"\\" + name; }

 private:
  static int counter_;
  std::wstring path_;
};
int TempDir::counter_ = 0;

bool Exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// A top-down 32-bit picture whose every pixel differs from its vertical
// mirror: the top line is pure red, the rest a gradient.
std::vector<uint8_t> Pattern(int width, int height) {
  std::vector<uint8_t> bits(static_cast<size_t>(width) * height * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &bits[(static_cast<size_t>(y) * width + x) * 4];
      if (y == 0) {
        p[0] = 0, p[1] = 0, p[2] = 255;
      } else {
        p[0] = static_cast<uint8_t>(x * 5), p[1] = static_cast<uint8_t>(y * 9),
        p[2] = static_cast<uint8_t>(x + y);
      }
      p[3] = 0;
    }
  }
  return bits;
}

TEST(BitmapHeader, TopDownNegatesHeightOnly) {
  BITMAPINFOHEADER h;
  std::memset(&h, 0xAB, sizeof(h));
  InitBitMapInfoHeader(100, 50, true, 32, &h);
  EXPECT_EQ(h.biSize, 40u);
  EXPECT_EQ(h.biWidth, 100);
  EXPECT_EQ(h.biHeight, -50);
  EXPECT_EQ(h.biPlanes, 1);
  EXPECT_EQ(h.biBitCount, 32);
  EXPECT_EQ(h.biCompression, static_cast<DWORD>(BI_RGB));
  EXPECT_EQ(h.biSizeImage, 20000u);
  EXPECT_EQ(h.biXPelsPerMeter, 0);
  EXPECT_EQ(h.biYPelsPerMeter, 0);
  EXPECT_EQ(h.biClrUsed, 0u);
  EXPECT_EQ(h.biClrImportant, 0u);

  BITMAPINFOHEADER b;
  std::memset(&b, 0xCD, sizeof(b));
  InitBitMapInfoHeader(100, 50, false, 32, &b);
  EXPECT_EQ(b.biHeight, 50);
  b.biHeight = -50;
  EXPECT_EQ(std::memcmp(&b, &h, sizeof(b)), 0);
}

TEST(BitmapHeader, SizeCountsFourBytesWhateverTheDepth) {
  BITMAPINFOHEADER h;
  InitBitMapInfoHeader(100, 50, false, 16, &h);
  EXPECT_EQ(h.biBitCount, 16);
  EXPECT_EQ(h.biSizeImage, 20000u);
  InitBitMapInfoHeader(3, 7, false, 0x10018, &h);  // cut to 16 bits
  EXPECT_EQ(h.biBitCount, 0x18);
  EXPECT_EQ(h.biSizeImage, 84u);
}

TEST(BitmapHeader, InfoClearsTheFirstColourEntry) {
  BITMAPINFO info;
  std::memset(&info, 0xEE, sizeof(info));
  InitBitMapInfo(100, 50, true, 32, &info);
  BITMAPINFOHEADER h;
  InitBitMapInfoHeader(100, 50, true, 32, &h);
  EXPECT_EQ(std::memcmp(&info.bmiHeader, &h, sizeof(h)), 0);
  EXPECT_EQ(info.bmiColors[0].rgbBlue, 0);
  EXPECT_EQ(info.bmiColors[0].rgbGreen, 0);
  EXPECT_EQ(info.bmiColors[0].rgbRed, 0);
  EXPECT_EQ(info.bmiColors[0].rgbReserved, 0);
}

TEST(DibImageValue, NullArgumentsGiveAnEmptyImageThatSavesNothing) {
  TempDir dir;
  BITMAPINFO info;
  InitBitMapInfo(4, 4, true, 32, &info);
  std::vector<uint8_t> bits = Pattern(4, 4);
  const DibImage no_info(nullptr, bits.data());
  const DibImage no_bits(&info, nullptr);
  for (const DibImage* image : {&no_info, &no_bits}) {
    EXPECT_EQ(image->bitmap_info(), nullptr);
    EXPECT_EQ(image->bits_data(), nullptr);
    const std::wstring path = dir.File(L"empty.bmp");
    EXPECT_FALSE(image->Save(path));
    EXPECT_FALSE(Exists(path));
  }
  // An existing file is left as it was.
  const std::wstring kept = dir.File(L"kept.bmp");
  WriteBytes(kept, "untouched");
  EXPECT_FALSE(no_info.Save(kept));
  const std::vector<uint8_t> after = ReadFile(kept);
  EXPECT_EQ(std::string(after.begin(), after.end()), "untouched");
}

TEST(DibImageValue, CopiesHeaderAndPixels) {
  BITMAPINFO info;
  InitBitMapInfo(8, 3, true, 32, &info);
  info.bmiColors[0].rgbRed = 7;  // the colour entry is part of the 44 bytes
  std::vector<uint8_t> bits = Pattern(8, 3);
  DibImage image(&info, bits.data());
  ASSERT_NE(image.bitmap_info(), nullptr);
  ASSERT_NE(image.bits_data(), nullptr);
  EXPECT_NE(image.bitmap_info(), &info);
  EXPECT_NE(image.bits_data(), bits.data());
  EXPECT_EQ(std::memcmp(image.bitmap_info(), &info, sizeof(BITMAPINFO)), 0);
  EXPECT_EQ(std::memcmp(image.bits_data(), bits.data(), bits.size()), 0);
  // Later changes of the caller's buffers don't reach the image.
  const std::vector<uint8_t> original = bits;
  bits.assign(bits.size(), 0);
  info.bmiHeader.biWidth = 1;
  EXPECT_EQ(image.bitmap_info()->bmiHeader.biWidth, 8);
  EXPECT_EQ(std::memcmp(image.bits_data(), original.data(), original.size()), 0);

  image.Clear();
  EXPECT_EQ(image.bitmap_info(), nullptr);
  EXPECT_EQ(image.bits_data(), nullptr);
  image.Clear();  // nothing left to free
}

// Every block keeps exactly one owner: a copy has its own blocks, which
// outlive the original's Clear and destruction.
TEST(DibImageValue, AssignmentAndCopyOwnTheirBlocks) {
  BITMAPINFO info;
  InitBitMapInfo(5, 2, true, 32, &info);
  const std::vector<uint8_t> bits = Pattern(5, 2);
  auto* original = new DibImage(&info, bits.data());
  DibImage assigned(nullptr, nullptr);
  assigned = *original;
  DibImage copied(*original);
  EXPECT_NE(assigned.bitmap_info(), original->bitmap_info());
  EXPECT_NE(assigned.bits_data(), original->bits_data());
  EXPECT_NE(copied.bits_data(), original->bits_data());
  original->Clear();
  delete original;
  for (const DibImage* image : {&assigned, &copied}) {
    ASSERT_NE(image->bits_data(), nullptr);
    EXPECT_EQ(std::memcmp(image->bitmap_info(), &info, sizeof(info)), 0);
    EXPECT_EQ(std::memcmp(image->bits_data(), bits.data(), bits.size()), 0);
  }

  // Assigning over a complete image replaces it; assigning an empty image empties.
  BITMAPINFO other_info;
  InitBitMapInfo(1, 1, true, 32, &other_info);
  const uint8_t pixel[4] = {1, 2, 3, 4};
  DibImage other(&other_info, pixel);
  assigned = other;
  EXPECT_EQ(assigned.bitmap_info()->bmiHeader.biWidth, 1);
  EXPECT_EQ(std::memcmp(assigned.bits_data(), pixel, 4), 0);
  assigned = assigned;
  EXPECT_EQ(std::memcmp(assigned.bits_data(), pixel, 4), 0);
  assigned = DibImage(nullptr, nullptr);
  EXPECT_EQ(assigned.bitmap_info(), nullptr);
  EXPECT_EQ(assigned.bits_data(), nullptr);
}

// Reads the saved file back: the layout a reader expects, bottom line first.
TEST(DibImageSave, WritesABottomUpFileAtDisplayDepth) {
  TempDir dir;
  const int width = 100, height = 50;
  BITMAPINFO info;
  InitBitMapInfo(width, height, true, 32, &info);
  const std::vector<uint8_t> bits = Pattern(width, height);
  const DibImage image(&info, bits.data());
  const std::wstring path = dir.File(L"picture.bmp");
  ASSERT_TRUE(image.Save(path));

  const std::vector<uint8_t> file = ReadFile(path);
  HDC screen = GetDC(nullptr);
  const int depth = GetDeviceCaps(screen, BITSPIXEL) * GetDeviceCaps(screen, PLANES);
  ReleaseDC(nullptr, screen);
  ASSERT_EQ(depth, 32) << "the checks below assume a 32-bit display";
  ASSERT_EQ(file.size(), 20054u);
  EXPECT_EQ(file[0], 'B');
  EXPECT_EQ(file[1], 'M');
  EXPECT_EQ(Le32(file, 2), 20054u);
  EXPECT_EQ(Le32(file, 6), 0u);  // both reserved words
  EXPECT_EQ(Le32(file, 10), 54u);
  EXPECT_EQ(Le32(file, 14), 40u);
  EXPECT_EQ(static_cast<int32_t>(Le32(file, 18)), width);
  EXPECT_EQ(static_cast<int32_t>(Le32(file, 22)), height);  // positive
  EXPECT_EQ(Le16(file, 26), 1);
  EXPECT_EQ(Le16(file, 28), 32);
  EXPECT_EQ(Le32(file, 30), 0u);  // BI_RGB
  for (int row = 0; row < height; ++row) {
    const uint8_t* got = &file[54 + static_cast<size_t>(row) * width * 4];
    const uint8_t* want = &bits[static_cast<size_t>(height - 1 - row) * width * 4];
    for (int x = 0; x < width; ++x) {
      ASSERT_EQ(got[x * 4 + 0], want[x * 4 + 0]) << "row " << row << " x " << x;
      ASSERT_EQ(got[x * 4 + 1], want[x * 4 + 1]) << "row " << row << " x " << x;
      ASSERT_EQ(got[x * 4 + 2], want[x * 4 + 2]) << "row " << row << " x " << x;
    }
  }
}

TEST(DibImageSave, ReplacesAnExistingFile) {
  TempDir dir;
  const std::wstring path = dir.File(L"replaced.bmp");
  WriteBytes(path, std::string(100000, 'x'));
  BITMAPINFO info;
  InitBitMapInfo(10, 10, true, 32, &info);
  const std::vector<uint8_t> bits = Pattern(10, 10);
  ASSERT_TRUE(DibImage(&info, bits.data()).Save(path));
  const std::vector<uint8_t> file = ReadFile(path);
  ASSERT_EQ(file.size(), 54u + 400u);
  EXPECT_EQ(Le32(file, 2), 454u);
}

TEST(DibImageSave, FailsWhenTheFileCannotBeOpened) {
  TempDir dir;
  BITMAPINFO info;
  InitBitMapInfo(10, 10, true, 32, &info);
  const std::vector<uint8_t> bits = Pattern(10, 10);
  EXPECT_FALSE(DibImage(&info, bits.data()).Save(dir.File(L"no_such_folder\\picture.bmp")));
}

// A header that promises more pixels than the copied block holds is refused
// instead of letting the bitmap read past the block.
TEST(DibImageSave, RefusesAHeaderLargerThanItsPixels) {
  TempDir dir;
  BITMAPINFO info;
  InitBitMapInfo(10, 10, true, 32, &info);
  info.bmiHeader.biSizeImage = 399;
  const std::vector<uint8_t> bits = Pattern(10, 10);
  const std::wstring path = dir.File(L"short.bmp");
  EXPECT_FALSE(DibImage(&info, bits.data()).Save(path));
  EXPECT_FALSE(Exists(path));
}

// A 16-bit image is saved at the display's depth, not its own.
TEST(DibImageSave, FileTakesTheDisplayDepth) {
  TempDir dir;
  const int width = 7, height = 3;
  BITMAPINFO info;
  InitBitMapInfo(width, height, true, 16, &info);
  std::vector<uint8_t> bits(info.bmiHeader.biSizeImage, 0xFF);  // white in 5-6-5
  const std::wstring path = dir.File(L"sixteen.bmp");
  ASSERT_TRUE(DibImage(&info, bits.data()).Save(path));
  const std::vector<uint8_t> file = ReadFile(path);
  ASSERT_EQ(file.size(), 54u + width * height * 4);
  EXPECT_EQ(Le16(file, 28), 32);
  EXPECT_EQ(static_cast<int32_t>(Le32(file, 22)), height);
}

}  // namespace
