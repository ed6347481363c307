// The window filter's building blocks and the snapshot's size on a scaled
// display.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "picker/top_window_enum_impl.h"
#include "picker/window_snapshot_impl.h"
#include "tests/picker/test_windows.h"

// From this size on, arrays can't be had: a host's address space can run
// out before any bitmap limit is reached.
static size_t g_refuse_arrays_from = SIZE_MAX;

void* operator new[](size_t size) {
  void* p = size < g_refuse_arrays_from ? std::malloc(size ? size : 1) : nullptr;
  if (!p) throw std::bad_alloc();
  return p;
}
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

namespace {

TEST(WindowSnapshotImpl, APictureWhoseMemoryCantBeHadIsNone) {
  picker_testing::WindowOptions options;
  options.style = WS_POPUP | WS_VISIBLE;
  options.width = 400;
  options.height = 300;
  picker_testing::TestWindow window(options);
  picker::WindowSnapshotImpl snapshot(window.hwnd());
  ASSERT_NE(snapshot.GetPicture(), nullptr);
  g_refuse_arrays_from = 400 * 300 * 4;
  EXPECT_EQ(snapshot.GetPicture(), nullptr);
  g_refuse_arrays_from = SIZE_MAX;
}

// On a monochrome context the bitmap of 65536 x 16384 pixels is 128 MB and
// can be made, while the picture of it is 2^32 bytes: counted in 32 bits,
// that wraps to 0.
TEST(PictureOfWindow, APictureTooLargeForItsHeaderIsNone) {
  picker_testing::WindowOptions options;
  options.style = WS_POPUP;
  picker_testing::TestWindow window(options);
  const HDC monochrome = CreateCompatibleDC(nullptr);
  EXPECT_EQ(picker::PictureOfWindow(window.hwnd(), monochrome, 65536, 16384, SIZE{65536, 16384}), nullptr);
  DeleteDC(monochrome);
}

TEST(TopWindowEnumCallback, KeepsWalkingWhateverItIsGiven) {
  EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(nullptr, 0), TRUE);  // no object
  picker::TopWindowEnumImpl windows;
  EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(nullptr, reinterpret_cast<LPARAM>(&windows)), TRUE);
  EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(reinterpret_cast<HWND>(0x7FFFFFF0),
                                                reinterpret_cast<LPARAM>(&windows)),
            TRUE);
  EXPECT_EQ(windows.GetWindowAt(0), nullptr);

  picker_testing::WindowOptions options;
  options.title = L"picker callback";
  picker_testing::TestWindow window(options);
  EXPECT_TRUE(picker::IsShareableWindow(window.hwnd()));
  EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(window.hwnd(), reinterpret_cast<LPARAM>(&windows)), TRUE);
  EXPECT_EQ(windows.GetWindowAt(0), window.hwnd());
}

// A filter that throws for one window, as a failing allocation would.
class ThrowingFilter : public picker::TopWindowEnumImpl {
 public:
  explicit ThrowingFilter(HWND bad) : bad_(bad) {}

 protected:
  bool Accepts(HWND window) override {
    if (window == bad_) throw std::runtime_error("bad window");
    return TopWindowEnumImpl::Accepts(window);
  }

 private:
  HWND bad_;
};

TEST(TopWindowEnumCallback, AnExceptionDropsOneWindowAndTheWalkGoesOn) {
  picker_testing::WindowOptions options;
  options.title = L"picker throws";
  picker_testing::TestWindow bad(options);
  options.title = L"picker kept";
  picker_testing::TestWindow kept(options);
  ThrowingFilter windows(bad.hwnd());
  const int count = windows.EnumerateWindows();
  std::vector<HWND> listed;
  for (int i = 0; i < count; ++i) listed.push_back(windows.GetWindowAt(i));
  EXPECT_EQ(std::count(listed.begin(), listed.end(), bad.hwnd()), 0);
  EXPECT_EQ(std::count(listed.begin(), listed.end(), kept.hwnd()), 1);
}

TEST(DeviceSize, ScalesOnlyWhereTheDisplayIsScaled) {
  struct Case {
    int width, height, horz, vert, desktop_horz, desktop_vert;
    SIZE want;
  } cases[] = {
      {300, 200, 1280, 1024, 1280, 1024, {300, 200}},                // unscaled
      {300, 200, 1280, 720, 1920, 1080, {450, 300}},                 // 150 %
      {301, 201, 1280, 720, 1920, 1080, {451, 301}},                 // truncated
      {300, 200, 960, 540, 1920, 1080, {600, 400}},                  // 200 %
      {300, 200, 0, 0, 1920, 1080, {300, 200}},                      // no answer from the device
      {1 << 30, 1 << 30, 960, 540, 1920, 1080, {INT_MAX, INT_MAX}},  // beyond any bitmap: held at the limit
  };
  for (const Case& c : cases) {
    const SIZE got = picker::DeviceSize(c.width, c.height, c.horz, c.vert, c.desktop_horz, c.desktop_vert);
    EXPECT_EQ(got.cx, c.want.cx) << c.horz << " -> " << c.desktop_horz;
    EXPECT_EQ(got.cy, c.want.cy) << c.vert << " -> " << c.desktop_vert;
  }
}

// Where the device has twice the pixels the process sees, the window is
// drawn at device size and comes back whole at the size the host sees. Here
// the display isn't scaled, so the window fills only the top left quarter of
// the device-size drawing: halved, it takes the top left quarter of the
// picture, and the rest stays black.
TEST(PictureOfWindow, ADeviceSizeDrawingIsScaledDownToTheSizeTheHostSees) {
  picker_testing::WindowOptions options;
  options.style = WS_POPUP | WS_VISIBLE;
  options.width = 200;
  options.height = 100;
  picker_testing::TestWindow window(options);
  const HDC dc = GetDC(window.hwnd());
  const std::unique_ptr<DibImage> picture =
      picker::PictureOfWindow(window.hwnd(), dc, 200, 100, SIZE{400, 200});
  ReleaseDC(window.hwnd(), dc);
  ASSERT_NE(picture, nullptr);
  const BITMAPINFOHEADER& header = picture->bitmap_info()->bmiHeader;
  EXPECT_EQ(header.biWidth, 200);
  EXPECT_EQ(header.biHeight, -100);
  auto pixel = [&](int x, int y) {
    const uint8_t* p = picture->bits_data() + (static_cast<size_t>(y) * 200 + x) * 4;
    return RGB(p[2], p[1], p[0]);
  };
  EXPECT_EQ(pixel(25, 12), picker_testing::kQuadrantColors[0]);
  EXPECT_EQ(pixel(75, 12), picker_testing::kQuadrantColors[1]);
  EXPECT_EQ(pixel(25, 37), picker_testing::kQuadrantColors[2]);
  EXPECT_EQ(pixel(75, 37), picker_testing::kQuadrantColors[3]);
  EXPECT_EQ(pixel(150, 75), RGB(0, 0, 0));
}

}  // namespace
