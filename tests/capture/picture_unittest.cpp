// The frame scaler's fit, paint and rebuilds; bitmap headers, DibImage and the files it saves.
#include <cstring>
#include <fstream>
#include <iterator>

#include "bench/allocation_hooks.h"
#include "capture/dib_image_internal.h"
#include "capture/frame_scaler.h"
#include "capture_fixture.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace capture_suite {
namespace {
constexpr int kFit = 2, kStretch = 1, kBgra = AV_PIX_FMT_BGRA;
// BGRA with padding behind each line: red x * 7, green y * 5, blue (x + y) * 3, or 4 x 2 coloured cells.
struct Bgra {
  Bgra(int w, int h, bool cells = false, int padding = 64)
      : width(w), height(h), stride(w * 4 + padding), pixels(size_t(stride) * h) {
    const int grid[8] = {0xFFFFFF, 0xFFFF00, 0x00FFFF, 0x00FF00, 0xFF00FF, 0xFF0000, 0x0000FF, 0x000000};
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const int c = cells ? grid[y * 2 / h * 4 + x * 4 / w]
                            : ((x * 7 & 255) << 16) | ((y * 5 & 255) << 8) | ((x + y) * 3 & 255);
        uint8_t* p = &pixels[size_t(y) * stride + x * 4];
        p[0] = c & 255, p[1] = c >> 8 & 255, p[2] = c >> 16 & 255, p[3] = 255;
      }
    }
  }
  int width, height, stride;
  std::vector<uint8_t> pixels;
};
// Target planes of the given line sizes (0: packed) with 64 bytes behind that nothing may touch.
struct Planes {
  Planes(int w, int h, int y_line = 0, int c_line = 0) : width(w), height(h) {
    line[0] = y_line ? y_line : w, line[1] = line[2] = c_line ? c_line : (w + 1) / 2;
    for (int p = 0; p < 3; ++p) data[p].assign(Painted(p) + 64, 0x55);
  }
  int Rows(int p) const { return p ? (height + 1) / 2 : height; }
  size_t Painted(int p) const { return size_t(line[p]) * Rows(p); }
  void Scale(FrameScaler& scaler, const Bgra& s, int mode = kFit, int format = kBgra) {
    scaler.Scale(data[0].data(), line[0], data[1].data(), line[1], data[2].data(), line[2], width, height,
                 s.pixels.data(), s.stride, s.width, s.height, format, mode);
  }
  int width, height, line[3];
  std::vector<uint8_t> data[3];
};
// The plain conversion at the fitted size (mode 1, lines kept), centred on Y 1, U and V 128 over all lines.
TEST_F(CaptureTest, TheScalerFitsCentresAndPaintsBlack) {
  const struct {
    int source_w, source_h, fitted_w, fitted_h, offset_x, offset_y, mode = kFit, w = 1920, h = 1080,
                                                                    y_line = 0, c_line = 0;
  } cases[] = {
      {1920, 1080, 1920, 1080, 0, 0},
      {1280, 1024, 1350, 1080, 285, 0},  // bars left and right, odd offset
      {1000, 200, 1920, 384, 0, 348},
      {1366, 768, 1920, 1079, 0, 0},  // the last line stays black
      {1000, 201, 1920, 385, 0, 347},
      {1001, 1000, 1081, 1080, 419, 0},  // odd: chroma rounds up
      {64, 64, 51, 51, 25, 0, 0, 101, 51},
      {64, 64, 64, 64, 0, 0, kFit, 65, 64},
      {300, 100, 64, 21, 0, 21, kFit, 64, 64, 80, 48}};  // lines longer than the picture: painted too
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.source_w) + "x" + std::to_string(c.source_h) + " into " +
                 std::to_string(c.w));
    const Bgra source(c.source_w, c.source_h);
    Planes target(c.w, c.h, c.y_line, c.c_line), want(c.w, c.h, c.y_line, c.c_line),
        fitted(c.fitted_w, c.fitted_h, c.fitted_w + 16, (c.fitted_w + 1) / 2 + 8);  // lines kept in mode 1
    FrameScaler scaler, plain;
    target.Scale(scaler, source, c.mode);
    EXPECT_TRUE(scaler.fitted_width() == c.fitted_w && scaler.fitted_height() == c.fitted_h);
    fitted.Scale(plain, source, kStretch);
    for (int p = 0; p < 3; ++p) {
      const int sub = p ? 2 : 1;
      std::memset(want.data[p].data(), p ? 128 : 1, want.Painted(p));
      for (int i = 0; i < fitted.Rows(p); ++i)
        std::memcpy(&want.data[p][size_t(c.offset_y / sub + i) * ((c.w + sub - 1) / sub) + c.offset_x / sub],
                    &fitted.data[p][size_t(i) * fitted.line[p]], (c.fitted_w + sub - 1) / sub);
      EXPECT_TRUE(target.data[p] == want.data[p]) << "plane " << p;
    }
  }
}
// A rebuild exactly when one of the six values changed, else no allocation; values none serves drop the
// frame.
TEST_F(CaptureTest, TheScalerRebuildsOnlyOnChangeAndDropsFramesItCannotServe) {
  bench::InstallAllocationHooks();
  const Bgra full(1920, 1080), wide(1280, 1080), small(1280, 1024);
  Planes big(1920, 1080), narrow(960, 1080), half(960, 540);
  const int rgba = AV_PIX_FMT_RGBA;
  const struct {
    const Bgra* source;
    Planes* target;
    int format, mode, rebuilds, fitted_width;
  } steps[] = {{&full, &big, kBgra, kFit, 1, 1920},       {&full, &big, kBgra, kFit, 1, 1920},
               {&wide, &big, kBgra, kFit, 2, 1280},       {&small, &big, kBgra, kFit, 3, 1350},
               {&small, &big, rgba, kFit, 4, 1350},       {&small, &big, rgba, 0, 5, 1350},
               {&small, &big, rgba, kStretch, 6, 1920},   {&small, &big, rgba, kStretch, 6, 1920},
               {&small, &narrow, rgba, kStretch, 7, 960}, {&small, &half, rgba, kStretch, 8, 960},
               {&small, &half, rgba, kFit, 9, 675},       {&small, &half, rgba, kFit, 9, 675}};
  FrameScaler scaler;
  for (size_t i = 0; i < std::size(steps); ++i) {
    const auto& s = steps[i];
    const int64_t before = bench::AllocationCount();
    s.target->Scale(scaler, *s.source, s.mode, s.format);
    EXPECT_TRUE(scaler.rebuild_count() == s.rebuilds && scaler.fitted_width() == s.fitted_width) << i;
    EXPECT_EQ(bench::AllocationCount() > before, i == 0 || s.rebuilds > steps[i - 1].rebuilds) << i;
  }
  const Bgra white(4000, 48, true);
  Planes target(64, 48);
  const Planes blank(64, 48);
  // Width, Y line, source size, a source?, format, rebuilds: hardware, unknown formats; a fitted height of 0.
  const int calls[][7] = {{64, 64, 0, 48, 1, kBgra, 9},    {64, 64, 64, -48, 1, kBgra, 9},
                          {0, 64, 64, 48, 1, kBgra, 9},    {64, 64, 64, 48, 0, kBgra, 9},
                          {64, -64, 64, 48, 1, kBgra, 9},  {64, 64, 64, 48, 1, AV_PIX_FMT_VAAPI, 10},
                          {64, 64, 64, 48, 1, 100000, 11}, {64, 64, 64, 48, 1, 100000, 11},
                          {64, 64, 4000, 1, 1, kBgra, 12}};
  for (const auto& c : calls) {
    scaler.Scale(target.data[0].data(), c[1], target.data[1].data(), 32, target.data[2].data(), 32, c[0], 48,
                 c[4] ? white.pixels.data() : nullptr, white.stride, c[2], c[3], c[5], kFit);
    EXPECT_EQ(scaler.rebuild_count(), c[6]);
    for (int p = 0; p < 3; ++p) EXPECT_TRUE(target.data[p] == blank.data[p]) << c[6];
  }
  target.Scale(scaler, Bgra(64, 48, true));
  EXPECT_TRUE(scaler.rebuild_count() == 13 && target.data[0][0] != 0x55);
}
std::vector<uint8_t> Read(const std::wstring& path) {
  std::ifstream in(path.c_str(), std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
int Le32(const std::vector<uint8_t>& f, size_t i) {
  return f[i] | f[i + 1] << 8 | f[i + 2] << 16 | f[i + 3] << 24;
}
std::wstring TempFile(const std::wstring& name) {
  wchar_t folder[MAX_PATH];
  GetTempPathW(MAX_PATH, folder);
  return folder + (L"roomcore_dib_" + std::to_wstring(GetCurrentProcessId()) + L"_" + name);
}
int g_bits = 32, g_planes = 1;
int WINAPI DisplayCaps(HDC, int index) {
  return index == BITSPIXEL ? g_bits : index == PLANES ? g_planes : 0;
}
// Headers, also past 4 GiB; images own their blocks; files at the display's depth, bottom line first, whole.
TEST_F(CaptureTest, BitmapHeadersImagesAndTheirFiles) {
  BITMAPINFO info;
  std::memset(&info, 0xEE, sizeof(info));
  InitBitMapInfo(100, 50, true, 16, &info);
  const BITMAPINFO want = {{40, 100, -50, 1, 16, BI_RGB, 20000, 0, 0, 0, 0}, {}};
  EXPECT_EQ(std::memcmp(&info, &want, sizeof(info)), 0);
  EXPECT_EQ((InitBitMapInfoHeader(100, 50, false, 32, &info.bmiHeader), info.bmiHeader.biHeight), 50);
  const std::wstring none = TempFile(L"none.bmp");
  const uint8_t bits[64] = {};
  for (const DibImage& image : {DibImage(nullptr, bits), DibImage(&info, nullptr)}) {
    EXPECT_TRUE(image.bitmap_info() == nullptr && image.bits_data() == nullptr && !image.Save(none));
    EXPECT_EQ(GetFileAttributesW(none.c_str()), INVALID_FILE_ATTRIBUTES);
  }
  const int64_t headers[][3] = {{65535, 16384, 4294901760}, {65536, 16384, 0}, {1 << 20, (1 << 20) + 1, 0}};
  for (const auto& c : headers)
    ASSERT_EQ((InitBitMapInfo(int(c[0]), int(c[1]), true, 32, &info), info.bmiHeader.biSizeImage), c[2])
        << c[0];
  EXPECT_EQ(DibImage(&info, bits).bits_data(), nullptr);  // the last: 4 TiB of pixels
  InitBitMapInfo(5, 2, true, 32, &info);
  info.bmiColors[0].rgbRed = 7;  // the colour entry is part of the 44 bytes
  std::vector<uint8_t> pixels(40, 9);
  const BITMAPINFO copy = info;
  auto* original = new DibImage(&info, pixels.data());
  info.bmiHeader.biWidth = 1, pixels.assign(40, 0);  // the image holds copies
  DibImage assigned(nullptr, nullptr), copied(*original);
  assigned = *original, assigned = assigned;
  original->Clear(), delete original;  // the destructor clears again
  for (const DibImage* image : {&assigned, &copied})
    EXPECT_TRUE(std::memcmp(image->bitmap_info(), &copy, sizeof(copy)) == 0 &&
                std::vector<uint8_t>(image->bits_data(), image->bits_data() + 40) ==
                    std::vector<uint8_t>(40, 9));
  assigned = DibImage(nullptr, nullptr);
  EXPECT_EQ(assigned.bits_data(), nullptr);
  HDC display = CreateDCW(L"DISPLAY", nullptr, nullptr, nullptr);
  const int real = GetDeviceCaps(display, BITSPIXEL) * GetDeviceCaps(display, PLANES);
  DeleteDC(display);
  const int cases[][3] = {{0, 0, real}, {24, 1, 24}, {12, 2, 24}, {15, 1, 15}};  // 0: the real display
  const int width = 5, height = 3;
  const std::vector<uint8_t> packed = Bgra(width, height, false, 0).pixels;
  InitBitMapInfo(width, height, true, 32, &info);
  const std::wstring path = TempFile(L"picture.bmp");
  for (const auto& c : cases) {
    g_bits = c[0], g_planes = c[1];
    capture::SetDeviceCapsForTesting(c[0] ? &DisplayCaps : nullptr);
    std::ofstream(path.c_str(), std::ios::binary) << std::string(100000, 'x');
    ASSERT_TRUE(DibImage(&info, packed.data()).Save(path));
    const std::vector<uint8_t> file = Read(path);
    const size_t image_size = width * height * c[2] / 8;
    ASSERT_EQ(file.size(), 54 + image_size) << c[0];
    EXPECT_TRUE(Le32(file, 2) == int32_t(54 + image_size) && Le32(file, 10) == 54);
    EXPECT_TRUE(Le32(file, 18) == width && Le32(file, 22) == height && file[28] == c[2]) << c[0];
    for (int x = 0; c[2] >= 24 && x < width; ++x)  // the file's first line is the picture's last
      EXPECT_EQ(std::memcmp(&file[54 + x * c[2] / 8], &packed[((height - 1) * width + x) * 4], 3), 0) << x;
  }
  capture::SetDeviceCapsForTesting(nullptr);
  EXPECT_FALSE(DibImage(&info, packed.data()).Save(TempFile(L"no_such_folder\\picture.bmp")));
  for (DWORD size_image : {0, 59}) {
    info.bmiHeader.biSizeImage = size_image;
    ASSERT_TRUE(DibImage(&info, packed.data()).Save(path));
    EXPECT_EQ(Read(path).size(), 54u + width * height * real / 8);
  }
  DeleteFileW(path.c_str());
}
// For check_bmp.py: pictures with a red top line and their raw BGRA, in ROOMCORE_BMP_FOLDER.
TEST_F(CaptureTest, SavedBitmapsForAnOutsideReader) {
  const wchar_t* folder = _wgetenv(L"ROOMCORE_BMP_FOLDER");
  const std::wstring base = folder ? folder : TempFile(L"bmp");
  CreateDirectoryW(base.c_str(), nullptr);
  for (SIZE size : {SIZE{37, 21}, SIZE{100, 50}}) {  // an odd width shows a reader that mixes up line lengths
    std::vector<uint8_t> bits = Bgra(size.cx, size.cy, false, 0).pixels;
    for (int x = 0; x < size.cx * 4; x += 4) bits[x] = 0, bits[x + 2] = 255;  // the top line pure red
    BITMAPINFO info;
    InitBitMapInfo(size.cx, size.cy, true, 32, &info);
    const std::wstring name =
        base + L"\\picture_" + std::to_wstring(size.cx) + L"x" + std::to_wstring(size.cy);
    DeleteFileW((name + L".bmp").c_str());
    ASSERT_TRUE(DibImage(&info, bits.data()).Save(name + L".bmp"));
    std::ofstream((name + L".bgra").c_str(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bits.data()), bits.size());
  }
}
}  // namespace
}  // namespace capture_suite
