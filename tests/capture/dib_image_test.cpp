#include "roomcore/dib_image.h"

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
  std::ofstream(path.c_str(), std::ios::binary | std::ios::trunc) << bytes;
}

int32_t Le32(const std::vector<uint8_t>& b, size_t at) {
  int32_t value;
  std::memcpy(&value, &b[at], sizeof(value));  // x86: little-endian like the file
  return value;
}

bool Exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

// Files of one test in the temporary folder, removed afterwards.
class DibImageFile : public ::testing::Test {
 protected:
  std::wstring File(const std::wstring& name) {
    wchar_t folder[MAX_PATH];
    GetTempPathW(MAX_PATH, folder);
    files_.push_back(folder + (L"roomcore_dib_" + std::to_wstring(GetCurrentProcessId()) + L"_" + name));
    return files_.back();
  }
  void TearDown() override {
    for (const std::wstring& file : files_) DeleteFileW(file.c_str());
  }

 private:
  std::vector<std::wstring> files_;
};

// 32-bit pixels in which no line equals another (for heights up to 28).
std::vector<uint8_t> Pattern(int width, int height) {
  std::vector<uint8_t> bits(static_cast<size_t>(width) * height * 4, 0);
  for (size_t i = 0; i < bits.size(); i += 4) {
    const int x = static_cast<int>(i / 4 % width), y = static_cast<int>(i / 4 / width);
    bits[i] = static_cast<uint8_t>(x * 5), bits[i + 1] = static_cast<uint8_t>(y * 9);
    bits[i + 2] = static_cast<uint8_t>(x + y);
  }
  return bits;
}

TEST(BitmapInfo, SetsEveryFieldAndClearsTheColourEntry) {
  BITMAPINFO info;
  std::memset(&info, 0xEE, sizeof(info));
  InitBitMapInfo(100, 50, true, 16, &info);
  // biSizeImage counts four bytes a pixel whatever the depth.
  const BITMAPINFOHEADER want = {40, 100, -50, 1, 16, BI_RGB, 20000, 0, 0, 0, 0};
  EXPECT_EQ(std::memcmp(&info.bmiHeader, &want, sizeof(want)), 0);
  const RGBQUAD zero = {};
  EXPECT_EQ(std::memcmp(&info.bmiColors[0], &zero, sizeof(zero)), 0);
  InitBitMapInfoHeader(100, 50, false, 16, &info.bmiHeader);
  EXPECT_EQ(info.bmiHeader.biHeight, 50);
}

TEST_F(DibImageFile, NullArgumentsGiveAnEmptyImageThatSavesNothing) {
  BITMAPINFO info;
  InitBitMapInfo(4, 4, true, 32, &info);
  const std::vector<uint8_t> bits = Pattern(4, 4);
  const std::wstring kept = File(L"kept.bmp");
  WriteBytes(kept, "untouched");
  for (const DibImage& image : {DibImage(nullptr, bits.data()), DibImage(&info, nullptr)}) {
    EXPECT_EQ(image.bitmap_info(), nullptr);
    EXPECT_EQ(image.bits_data(), nullptr);
    EXPECT_FALSE(image.Save(File(L"empty.bmp")));
    EXPECT_FALSE(Exists(File(L"empty.bmp")));
    EXPECT_FALSE(image.Save(kept));
    const std::vector<uint8_t> after = ReadFile(kept);
    EXPECT_EQ(std::string(after.begin(), after.end()), "untouched");
  }
}

// Every block keeps exactly one owner: the image's blocks are copies of the
// caller's, and a copy's blocks outlive the original's Clear and destruction.
TEST(DibImageValue, ConstructionCopyAndAssignmentOwnTheirBlocks) {
  BITMAPINFO info;
  InitBitMapInfo(5, 2, true, 32, &info);
  info.bmiColors[0].rgbRed = 7;  // the colour entry is part of the 44 bytes
  std::vector<uint8_t> bits = Pattern(5, 2);
  const BITMAPINFO original_info = info;
  const std::vector<uint8_t> original_bits = bits;
  auto* original = new DibImage(&info, bits.data());
  bits.assign(bits.size(), 0);
  info.bmiHeader.biWidth = 1;
  DibImage assigned(nullptr, nullptr);
  assigned = *original;
  DibImage copied(*original);
  EXPECT_NE(assigned.bits_data(), original->bits_data());
  EXPECT_NE(copied.bits_data(), original->bits_data());
  original->Clear();
  EXPECT_TRUE(original->bitmap_info() == nullptr && original->bits_data() == nullptr);
  original->Clear();  // nothing left to free
  delete original;
  for (const DibImage* image : {&assigned, &copied}) {
    ASSERT_NE(image->bits_data(), nullptr);
    EXPECT_EQ(std::memcmp(image->bitmap_info(), &original_info, sizeof(BITMAPINFO)), 0);
    EXPECT_EQ(std::memcmp(image->bits_data(), original_bits.data(), original_bits.size()), 0);
  }
  // Assigning over a complete image replaces it (itself too); an empty one empties.
  InitBitMapInfo(1, 1, true, 32, &info);
  const uint8_t pixel[4] = {1, 2, 3, 4};
  assigned = DibImage(&info, pixel);
  assigned = assigned;
  EXPECT_EQ(assigned.bitmap_info()->bmiHeader.biWidth, 1);
  EXPECT_EQ(std::memcmp(assigned.bits_data(), pixel, 4), 0);
  assigned = DibImage(nullptr, nullptr);
  EXPECT_TRUE(assigned.bitmap_info() == nullptr && assigned.bits_data() == nullptr);
}

// Saved at the display's depth (32 here), bottom line first with a positive
// height, over a larger file that it replaces whole. The layout in full and
// every pixel are checked by an outside reader, check_bmp.py.
TEST_F(DibImageFile, SavesAtTheDisplayDepthTheRightWayUpReplacingTheFile) {
  for (int depth : {32, 16}) {
    const int width = 10, height = 6;
    const std::wstring path = File(L"picture.bmp");
    WriteBytes(path, std::string(100000, 'x'));
    BITMAPINFO info;
    InitBitMapInfo(width, height, true, depth, &info);
    const std::vector<uint8_t> bits = depth == 32 ? Pattern(width, height) : std::vector<uint8_t>(240, 0xFF);
    ASSERT_TRUE(DibImage(&info, bits.data()).Save(path));
    const std::vector<uint8_t> file = ReadFile(path);
    ASSERT_EQ(file.size(), 54u + width * height * 4) << depth;
    EXPECT_EQ(Le32(file, 2), 54 + width * height * 4);
    EXPECT_EQ(Le32(file, 22), height);
    EXPECT_EQ(file[28], 32);
    if (depth == 32) {                 // the file's first line is the picture's last
      for (int x = 0; x < width; ++x)  // colours only: the fourth byte is not one
        EXPECT_EQ(std::memcmp(&file[54 + x * 4], &bits[((height - 1) * width + x) * 4], 3), 0) << x;
    }
  }
}

// Save fails only for an empty image, a bitmap that can't be made or a file
// that can't be opened. A header of 0 bytes of pixels is legal for an
// uncompressed picture, and one that promises more than its block holds is
// saved from a padded copy rather than read past the block.
TEST_F(DibImageFile, SaveFailsOnlyWithoutABitmapOrAFile) {
  BITMAPINFO info;
  InitBitMapInfo(10, 10, true, 32, &info);
  const std::vector<uint8_t> bits = Pattern(10, 10);
  EXPECT_FALSE(DibImage(&info, bits.data()).Save(File(L"no_such_folder\\picture.bmp")));
  info.bmiHeader.biSizeImage = 0;
  const DibImage counted(&info, bits.data());
  ASSERT_TRUE(counted.Save(File(L"counted.bmp")));
  EXPECT_EQ(ReadFile(File(L"counted.bmp")).size(), 54u + 400);
  EXPECT_EQ(std::memcmp(counted.bits_data(), bits.data(), bits.size()), 0);
  info.bmiHeader.biSizeImage = 399;
  ASSERT_TRUE(DibImage(&info, bits.data()).Save(File(L"short.bmp")));
  EXPECT_EQ(ReadFile(File(L"short.bmp")).size(), 54u + 400);
}

}  // namespace
