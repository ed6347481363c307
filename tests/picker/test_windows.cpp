#include "tests/picker/test_windows.h"

namespace picker_testing {

static LRESULT CALLBACK Proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  auto* self = reinterpret_cast<TestWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  if (message == WM_GETICON && self) {
    self->icon_requests.push_back(wparam);
    const WindowOptions& o = self->options;
    return reinterpret_cast<LRESULT>(wparam == ICON_BIG ? o.big_answer : o.small2_answer);  // the one asked
  }
  if (message != WM_PAINT && message != WM_PRINTCLIENT)
    return message == WM_ERASEBKGND ? 1 : DefWindowProcW(window, message, wparam, lparam);
  PAINTSTRUCT paint;
  const HDC dc = message == WM_PAINT ? BeginPaint(window, &paint) : reinterpret_cast<HDC>(wparam);
  RECT c;
  GetClientRect(window, &c);
  const LONG x = c.right / 2, y = c.bottom / 2;
  for (int i = 0; i < 4; ++i) {  // in the order of kQuadrantColors
    const RECT part = {i % 2 ? x : 0, i / 2 ? y : 0, i % 2 ? c.right : x, i / 2 ? c.bottom : y};
    SetDCBrushColor(dc, kQuadrantColors[i]);
    FillRect(dc, &part, static_cast<HBRUSH>(GetStockObject(DC_BRUSH)));
  }
  if (message == WM_PAINT) EndPaint(window, &paint);
  return 0;
}

TestWindow::TestWindow(const WindowOptions& o) : options(o) {
  static int classes = 0;
  const std::wstring name = L"roomcore_picker_test_" + std::to_wstring(classes++);
  WNDCLASSEXW c = {};
  c.cbSize = sizeof(c), c.lpfnWndProc = &Proc, c.hInstance = GetModuleHandleW(nullptr);
  c.lpszClassName = name.c_str(), c.hIcon = o.class_icon, c.hIconSm = o.class_small_icon;
  RegisterClassExW(&c);
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
