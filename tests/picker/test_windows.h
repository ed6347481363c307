// Real windows for the picker's tests and benchmarks: any style, four
// coloured quadrants painted on the screen and into PrintWindow's context,
// class icons, and answers to WM_GETICON, recording what was asked.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace picker_testing {

// Top left, top right, bottom left, bottom right.
constexpr COLORREF kQuadrantColors[4] = {RGB(200, 30, 40), RGB(20, 180, 60), RGB(30, 50, 210),
                                         RGB(250, 240, 10)};

struct WindowOptions {
  std::wstring title = L"roomcore picker test";
  DWORD style = WS_OVERLAPPEDWINDOW | WS_VISIBLE;
  DWORD ex_style = 0;
  HWND owner = nullptr;
  int x = 40, y = 40, width = 200, height = 150;
  HICON class_icon = nullptr, class_small_icon = nullptr;  // null for none
  HICON big_answer = nullptr, small2_answer = nullptr;     // WM_GETICON answers; null answers nothing
};

class TestWindow {
 public:
  explicit TestWindow(const WindowOptions& options);
  ~TestWindow() { DestroyWindow(hwnd_); }
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;

  HWND hwnd() const { return hwnd_; }
  // The wParam of each WM_GETICON, in order.
  const std::vector<WPARAM>& icon_requests() const { return icon_requests_; }

 private:
  static LRESULT CALLBACK Proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  WindowOptions options_;
  std::vector<WPARAM> icon_requests_;
  HWND hwnd_ = nullptr;
};

// A square icon of one colour, opaque; the caller destroys it.
HICON SolidIcon(int size, COLORREF color);

}  // namespace picker_testing
