// The window list's callback, and the snapshot's picture at its limits.
#include <windows.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>

#include "picker/top_window_enum_impl.h"
#include "picker/window_snapshot_impl.h"
#include "tests/picker/test_windows.h"

// From this size on arrays can't be had: an address space runs out before
// any bitmap limit is reached.
static size_t g_refuse_arrays_from = SIZE_MAX;
void* operator new[](size_t size) {
  void* p = size < g_refuse_arrays_from ? std::malloc(size ? size : 1) : nullptr;
  return p ? p : throw std::bad_alloc();
}
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

namespace {

using picker_testing::TestWindow;
using picker_testing::WindowOptions;

struct ThrowingFilter : picker::TopWindowEnumImpl {
  bool Accepts(HWND window) override {
    return window == bad ? throw std::runtime_error("bad") : TopWindowEnumImpl::Accepts(window);
  }
  HWND bad = nullptr;
};

TEST(TopWindowEnumCallback, NoWindowEndsTheWalkAndOneThatThrowsIsLeftOut) {
  TestWindow bad{WindowOptions()}, kept{WindowOptions()};
  ThrowingFilter windows;
  windows.bad = bad.hwnd();
  const LPARAM self = reinterpret_cast<LPARAM>(&windows);
  EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(kept.hwnd(), 0), TRUE);  // no object
  for (HWND window :
       {static_cast<HWND>(nullptr), reinterpret_cast<HWND>(0x7FFFFFF0), bad.hwnd(), kept.hwnd()}) {
    EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(window, self), TRUE);
  }
  EXPECT_EQ(windows.GetWindowAt(0), kept.hwnd());
  EXPECT_EQ(windows.GetWindowAt(1), nullptr);
}

TEST(DeviceSize, ScalesOnlyWhereTheDisplayIsScaled) {
  const int cases[][8] = {{300, 200, 1280, 1024, 1280, 1024, 300, 200},  // unscaled
                          {300, 200, 1280, 720, 1920, 1080, 450, 300},   // 150 %
                          {301, 201, 1280, 720, 1920, 1080, 451, 301},   // truncated
                          {300, 200, 960, 540, 1920, 1080, 600, 400},    // 200 %
                          {300, 200, 0, 0, 1920, 1080, 300, 200},        // no answer from the device
                          {1 << 30, 1 << 30, 960, 540, 1920, 1080, INT_MAX, INT_MAX}};  // held at the limit
  for (const auto& c : cases) {
    const SIZE size = picker::DeviceSize(c[0], c[1], c[2], c[3], c[4], c[5]);
    EXPECT_TRUE(size.cx == c[6] && size.cy == c[7]) << c[0] << " at " << c[2] << " -> " << c[4];
  }
}

TEST(PictureOfWindow, ScaledDownWholeAndNoneWhenTooLargeOrOutOfMemory) {
  WindowOptions options;
  options.style = WS_POPUP | WS_VISIBLE;
  TestWindow window(options);  // 200 x 150
  const HDC dc = GetDC(window.hwnd());
  // A device of twice the pixels: drawn at 400 x 300, the unscaled window
  // fills the top left quarter of the drawing, and so of the picture.
  std::unique_ptr<DibImage> picture = picker::PictureOfWindow(window.hwnd(), dc, 200, 150, SIZE{400, 300});
  ASSERT_NE(picture, nullptr);
  auto pixel = [&](int x, int y) {
    const uint8_t* p = picture->bits_data() + (y * 200 + x) * 4;
    return RGB(p[2], p[1], p[0]);
  };
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(pixel(25 + i % 2 * 50, 18 + i / 2 * 37), picker_testing::kQuadrantColors[i]);
  EXPECT_EQ(pixel(150, 110), RGB(0, 0, 0));
  g_refuse_arrays_from = 200 * 150 * 4;
  EXPECT_EQ(picker::PictureOfWindow(window.hwnd(), dc, 200, 150, SIZE{200, 150}), nullptr);
  g_refuse_arrays_from = SIZE_MAX;
  ReleaseDC(window.hwnd(), dc);
  // On a monochrome context a bitmap of 65536 x 16384 is 128 MB and can be
  // made; its picture has 2^32 bytes, which 32 bits count as 0.
  const HDC monochrome = CreateCompatibleDC(nullptr);
  EXPECT_EQ(picker::PictureOfWindow(window.hwnd(), monochrome, 65536, 16384, SIZE{65536, 16384}), nullptr);
  DeleteDC(monochrome);
}

}  // namespace
