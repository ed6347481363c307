#include "tests/picker/test_windows.h"

#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace picker_testing {

namespace {

struct WindowState {
  HICON big_answer = nullptr;
  HICON small2_answer = nullptr;
  std::vector<WPARAM> icon_requests;
};

void PaintQuadrants(HWND window, HDC dc) {
  RECT client;
  GetClientRect(window, &client);
  const int half_x = client.right / 2, half_y = client.bottom / 2;
  const RECT parts[4] = {{0, 0, half_x, half_y},
                         {half_x, 0, client.right, half_y},
                         {0, half_y, half_x, client.bottom},
                         {half_x, half_y, client.right, client.bottom}};
  for (int i = 0; i < 4; ++i) {
    HBRUSH brush = CreateSolidBrush(kQuadrantColors[i]);
    FillRect(dc, &parts[i], brush);
    DeleteObject(brush);
  }
}

LRESULT CALLBACK WindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  auto* state = reinterpret_cast<WindowState*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  switch (message) {
    case WM_GETICON:
      if (!state) break;
      state->icon_requests.push_back(wparam);
      if (wparam == ICON_BIG) return reinterpret_cast<LRESULT>(state->big_answer);
      if (wparam == ICON_SMALL2) return reinterpret_cast<LRESULT>(state->small2_answer);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_PAINT: {
      PAINTSTRUCT paint;
      HDC dc = BeginPaint(window, &paint);
      PaintQuadrants(window, dc);
      EndPaint(window, &paint);
      return 0;
    }
    case WM_PRINTCLIENT:
      PaintQuadrants(window, reinterpret_cast<HDC>(wparam));
      return 0;
    case WM_NCDESTROY:
      delete state;
      SetWindowLongPtrW(window, GWLP_USERDATA, 0);
      break;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

// One class per pair of class icons, registered at first use.
const wchar_t* ClassFor(HICON icon, HICON small_icon) {
  static std::mutex mutex;
  static std::map<std::pair<HICON, HICON>, std::wstring> classes;
  std::lock_guard<std::mutex> hold(mutex);
  auto found = classes.find({icon, small_icon});
  if (found != classes.end()) return found->second.c_str();
  std::wstring name = L"roomcore_picker_test_" + std::to_wstring(classes.size());
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &WindowProc;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.hIcon = icon;
  window_class.hIconSm = small_icon;
  window_class.lpszClassName = name.c_str();
  RegisterClassExW(&window_class);
  return classes.emplace(std::make_pair(icon, small_icon), name).first->second.c_str();
}

}  // namespace

TestWindow::TestWindow(const WindowOptions& options) {
  hwnd_ = CreateWindowExW(options.ex_style, ClassFor(options.class_icon, options.class_small_icon),
                          options.title.c_str(), options.style, options.x, options.y, options.width,
                          options.height, options.owner, nullptr, GetModuleHandleW(nullptr), nullptr);
  if (!hwnd_) return;
  auto* state = new WindowState;
  state->big_answer = options.big_answer;
  state->small2_answer = options.small2_answer;
  SetWindowLongPtrW(hwnd_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(state));
  PumpMessages();
}

TestWindow::~TestWindow() { Destroy(); }

void TestWindow::Destroy() {
  if (hwnd_) DestroyWindow(hwnd_);
  hwnd_ = nullptr;
  PumpMessages();
}

std::vector<WPARAM> TestWindow::icon_requests() const {
  auto* state = reinterpret_cast<WindowState*>(GetWindowLongPtrW(hwnd_, GWLP_USERDATA));
  return state ? state->icon_requests : std::vector<WPARAM>();
}

HICON SolidIcon(int size, COLORREF color) {
  std::vector<uint32_t> pixels(static_cast<size_t>(size) * size,
                               (GetRValue(color) << 16) | (GetGValue(color) << 8) | GetBValue(color));
  std::vector<uint8_t> mask(static_cast<size_t>(size) * size / 8, 0);  // all opaque
  ICONINFO info = {};
  info.fIcon = TRUE;
  info.hbmColor = CreateBitmap(size, size, 1, 32, pixels.data());
  info.hbmMask = CreateBitmap(size, size, 1, 1, mask.data());
  HICON icon = CreateIconIndirect(&info);
  DeleteObject(info.hbmColor);
  DeleteObject(info.hbmMask);
  return icon;
}

void PumpMessages() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

}  // namespace picker_testing
