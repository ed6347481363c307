#include "tests/picker/test_windows.h"

namespace picker_testing {

static void PaintQuadrants(HWND window, HDC dc) {
  RECT c;
  GetClientRect(window, &c);
  const LONG x = c.right / 2, y = c.bottom / 2;
  for (int i = 0; i < 4; ++i) {
    const RECT part = {i % 2 ? x : 0, i / 2 ? y : 0, i % 2 ? c.right : x, i / 2 ? c.bottom : y};
    SetDCBrushColor(dc, kQuadrantColors[i]);
    FillRect(dc, &part, static_cast<HBRUSH>(GetStockObject(DC_BRUSH)));
  }
}

LRESULT CALLBACK TestWindow::Proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  auto* self = reinterpret_cast<TestWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (message == WM_GETICON && self) {
    self->icon_requests.push_back(wparam);
    const WindowOptions& o = self->options;
    return reinterpret_cast<LRESULT>(wparam == ICON_BIG      ? o.big_answer
                                     : wparam == ICON_SMALL2 ? o.small2_answer
                                                             : nullptr);
  }
  PAINTSTRUCT paint;
  if (message == WM_PAINT) PaintQuadrants(window, BeginPaint(window, &paint)), EndPaint(window, &paint);
  if (message == WM_PRINTCLIENT) PaintQuadrants(window, reinterpret_cast<HDC>(wparam));
  if (message == WM_PAINT || message == WM_PRINTCLIENT || message == WM_ERASEBKGND)
    return message == WM_ERASEBKGND;
  return DefWindowProcW(window, message, wparam, lparam);
}

TestWindow::TestWindow(const WindowOptions& o) : options(o) {
  static int classes = 0;
  const std::wstring name = L"roomcore_picker_test_" + std::to_wstring(classes++);
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class), window_class.lpfnWndProc = &Proc;
  window_class.hInstance = GetModuleHandleW(nullptr), window_class.lpszClassName = name.c_str();
  window_class.hIcon = o.class_icon, window_class.hIconSm = o.class_small_icon;
  RegisterClassExW(&window_class);
  hwnd_ = CreateWindowExW(o.ex_style, name.c_str(), o.title.c_str(), o.style, o.x, o.y, o.width, o.height,
                          o.owner, nullptr, GetModuleHandleW(nullptr), nullptr);
  SetWindowLongPtrW(hwnd_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
}

HICON SolidIcon(int size, COLORREF color) {
  std::vector<uint32_t> pixels(static_cast<size_t>(size) * size,
                               (GetRValue(color) << 16) | (GetGValue(color) << 8) | GetBValue(color));
  std::vector<uint8_t> mask(static_cast<size_t>(size) * size / 8, 0);  // all opaque
  return CreateIcon(nullptr, size, size, 1, 32, mask.data(), reinterpret_cast<const BYTE*>(pixels.data()));
}

COLORREF PixelAt(const DibImage* image, int width, int height, int x, int y) {
  const BITMAPINFOHEADER& h = image->bitmap_info()->bmiHeader;
  if (h.biWidth != width || h.biHeight != -height || h.biBitCount != 32 ||
      h.biSizeImage != static_cast<DWORD>(width * height * 4))
    return CLR_INVALID;
  const uint8_t* p = image->bits_data() + (static_cast<size_t>(y) * width + x) * 4;
  return RGB(p[2], p[1], p[0]);
}

}  // namespace picker_testing
