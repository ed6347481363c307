// Real windows for the picker's tests and benchmarks: four coloured quadrants
// on the screen and in PrintWindow's context, class icons, WM_GETICON answers.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace picker_testing {

// Top left, top right, bottom left, bottom right.
constexpr COLORREF kQuadrantColors[4] = {RGB(200, 30, 40), RGB(20, 180, 60), RGB(30, 50, 210),
                                         RGB(250, 240, 10)};

struct WindowOptions {
  WindowOptions(std::wstring t = L"roomcore picker test", DWORD s = WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                int w = 200, int h = 150)
      : title(std::move(t)), style(s), width(w), height(h) {}
  std::wstring title;
  DWORD style, ex_style = 0;
  HWND owner = nullptr;
  int x = 40, y = 40, width, height;
  HICON class_icon = nullptr, class_small_icon = nullptr;  // null for none
  HICON big_answer = nullptr, small2_answer = nullptr;     // WM_GETICON answers; null answers nothing
};

// A window of a class of its own, which records the wParam of each WM_GETICON.
class TestWindow {
 public:
  explicit TestWindow(const WindowOptions& options);
  ~TestWindow() { DestroyWindow(hwnd_); }
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;
  HWND hwnd() const { return hwnd_; }

  const WindowOptions options;
  std::vector<WPARAM> icon_requests;

 private:
  static LRESULT CALLBACK Proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  HWND hwnd_ = nullptr;
};

// A square icon of one colour, opaque; the caller destroys it.
HICON SolidIcon(int size, COLORREF color);

}  // namespace picker_testing
