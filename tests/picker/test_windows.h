// Real windows for the picker's tests and benchmarks: a window of any style
// that paints four coloured quadrants (also into PrintWindow's context) and
// answers WM_GETICON as told, recording what it was asked.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace picker_testing {

// The quadrants' colours, top left, top right, bottom left, bottom right.
constexpr COLORREF kQuadrantColors[4] = {RGB(200, 30, 40), RGB(20, 180, 60), RGB(30, 50, 210),
                                         RGB(250, 240, 10)};

struct WindowOptions {
  std::wstring title = L"roomcore picker test";
  DWORD style = WS_OVERLAPPEDWINDOW | WS_VISIBLE;
  DWORD ex_style = 0;
  HWND owner = nullptr;
  int x = 40;
  int y = 40;
  int width = 200;
  int height = 150;
  // Class icons: large and small; null for none.
  HICON class_icon = nullptr;
  HICON class_small_icon = nullptr;
  // Answers to WM_GETICON; null answers nothing.
  HICON big_answer = nullptr;
  HICON small2_answer = nullptr;
};

class TestWindow {
 public:
  explicit TestWindow(const WindowOptions& options);
  ~TestWindow();
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;

  HWND hwnd() const { return hwnd_; }
  // The wParam of each WM_GETICON received, in order.
  std::vector<WPARAM> icon_requests() const;
  void Destroy();

 private:
  HWND hwnd_ = nullptr;
};

// A square icon of one colour, opaque; the caller destroys it.
HICON SolidIcon(int size, COLORREF color);

// Runs the calling thread's pending messages.
void PumpMessages();

}  // namespace picker_testing
