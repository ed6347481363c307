#include "tests/picker/test_windows.h"

namespace picker_testing {

namespace {

void PaintQuadrants(HWND window, HDC dc) {
  RECT client;
  GetClientRect(window, &client);
  const LONG x = client.right / 2, y = client.bottom / 2;
  const RECT parts[4] = {
      {0, 0, x, y}, {x, 0, client.right, y}, {0, y, x, client.bottom}, {x, y, client.right, client.bottom}};
  for (int i = 0; i < 4; ++i) {
    HBRUSH brush = CreateSolidBrush(kQuadrantColors[i]);
    FillRect(dc, &parts[i], brush);
    DeleteObject(brush);
  }
}

}  // namespace

LRESULT CALLBACK TestWindow::Proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  auto* self = reinterpret_cast<TestWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (message == WM_GETICON && self) {
    self->icon_requests_.push_back(wparam);
    if (wparam == ICON_BIG) return reinterpret_cast<LRESULT>(self->options_.big_answer);
    return reinterpret_cast<LRESULT>(wparam == ICON_SMALL2 ? self->options_.small2_answer : nullptr);
  }
  if (message == WM_ERASEBKGND) return 1;
  if (message == WM_PRINTCLIENT) PaintQuadrants(window, reinterpret_cast<HDC>(wparam));
  if (message == WM_PAINT) {
    PAINTSTRUCT paint;
    PaintQuadrants(window, BeginPaint(window, &paint));
    EndPaint(window, &paint);
  }
  if (message == WM_PRINTCLIENT || message == WM_PAINT) return 0;
  return DefWindowProcW(window, message, wparam, lparam);
}

// A class of its own for each window: class icons differ from one to the next.
TestWindow::TestWindow(const WindowOptions& options) : options_(options) {
  static int classes = 0;
  const std::wstring name = L"roomcore_picker_test_" + std::to_wstring(classes++);
  const WNDCLASSEXW window_class = {sizeof(window_class),
                                    0,
                                    &Proc,
                                    0,
                                    0,
                                    GetModuleHandleW(nullptr),
                                    options.class_icon,
                                    nullptr,
                                    nullptr,
                                    nullptr,
                                    name.c_str(),
                                    options.class_small_icon};
  RegisterClassExW(&window_class);
  hwnd_ = CreateWindowExW(options.ex_style, name.c_str(), options.title.c_str(), options.style, options.x,
                          options.y, options.width, options.height, options.owner, nullptr,
                          GetModuleHandleW(nullptr), nullptr);
  SetWindowLongPtrW(hwnd_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
}

HICON SolidIcon(int size, COLORREF color) {
  std::vector<uint32_t> pixels(static_cast<size_t>(size) * size,
                               (GetRValue(color) << 16) | (GetGValue(color) << 8) | GetBValue(color));
  std::vector<uint8_t> mask(static_cast<size_t>(size) * size / 8, 0);  // all opaque
  ICONINFO info = {TRUE, 0, 0, CreateBitmap(size, size, 1, 1, mask.data()),
                   CreateBitmap(size, size, 1, 32, pixels.data())};
  HICON icon = CreateIconIndirect(&info);
  DeleteObject(info.hbmColor);
  DeleteObject(info.hbmMask);
  return icon;
}

}  // namespace picker_testing
