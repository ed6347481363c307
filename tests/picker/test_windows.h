// Real windows for the picker's tests and benchmarks: coloured quadrants, class icons, WM_GETICON answers.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "roomcore/picker.h"

namespace picker_testing {

// Top left, top right, bottom left, bottom right.
constexpr COLORREF kQuadrantColors[4] = {RGB(200, 30, 40), RGB(20, 180, 60), RGB(30, 50, 210),
                                         RGB(250, 240, 10)};

struct WindowOptions {
  std::wstring title = L"roomcore picker test";
  DWORD style = WS_OVERLAPPEDWINDOW | WS_VISIBLE;
  int width = 200, height = 150, x = 40, y = 40;
  DWORD ex_style = 0;
  HWND owner = nullptr;
  HICON class_icon = nullptr, class_small_icon = nullptr;  // null for none
  HICON big_answer = nullptr, small2_answer = nullptr;     // WM_GETICON answers; null answers nothing
};
// A window of a class of its own, which records the wParam of each WM_GETICON.
struct TestWindow {
  explicit TestWindow(const WindowOptions& options);
  ~TestWindow() { DestroyWindow(hwnd_); }
  TestWindow(const TestWindow&) = delete;  // and no assignment: `options` is const
  HWND hwnd() const { return hwnd_; }
  const WindowOptions options;
  std::vector<WPARAM> icon_requests;
  HWND hwnd_ = nullptr;
};

// A square icon of one colour, opaque; the caller destroys it.
HICON SolidIcon(int size, COLORREF color);

// The colour at (x, y) of a top-down 32-bit image (icons at the display's depth); else CLR_INVALID.
COLORREF PixelAt(const DibImage* image, int width, int height, int x, int y);

}  // namespace picker_testing
