// The demo's own windows: each painted in one colour with a white frame and a
// few bars, on a thread of their own with a message pump, and a stage that
// fills the screen behind them while the display is shared.
#include <iterator>

#include "demo.h"

const DemoWindowLook kDemoWindows[3] = {
    {L"roomcore demo: whiteboard", RGB(30, 90, 200), 40, 40, 800, 600},
    {L"roomcore demo: agenda", RGB(220, 120, 20), 480, 200, 640, 480},
    {L"roomcore demo: notes", RGB(40, 160, 70), 700, 420, 480, 360},
};

namespace {

const COLORREF kStageColour = RGB(150, 40, 160);

void PaintDemoWindow(HWND window, HDC dc) {
  RECT client;
  GetClientRect(window, &client);
  const COLORREF colour = static_cast<COLORREF>(GetWindowLongPtrW(window, GWLP_USERDATA));
  HBRUSH fill = CreateSolidBrush(colour);
  FillRect(dc, &client, fill);
  DeleteObject(fill);
  // A few pale bars near the edges, so that a moving picture shows; the
  // middle stays the window's own colour.
  HBRUSH bar = CreateSolidBrush(RGB(245, 245, 245));
  for (int i = 0; i < 4; ++i) {
    RECT r = {client.left + 10, client.top + 10 + i * 18, client.left + 10 + (i + 2) * 40,
              client.top + 20 + i * 18};
    FillRect(dc, &r, bar);
  }
  DeleteObject(bar);
  HBRUSH frame = CreateSolidBrush(RGB(255, 255, 255));
  FrameRect(dc, &client, frame);
  DeleteObject(frame);
}

LRESULT CALLBACK DemoWindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_PAINT: {
      PAINTSTRUCT paint;
      HDC dc = BeginPaint(window, &paint);
      PaintDemoWindow(window, dc);
      EndPaint(window, &paint);
      return 0;
    }
    case WM_PRINTCLIENT:  // a snapshot asks for the picture into its own DC
      PaintDemoWindow(window, reinterpret_cast<HDC>(wparam));
      return 0;
    case WM_ERASEBKGND:
      return 1;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

}  // namespace

bool DemoWindows::Open() {
  thread_ = CreateThread(nullptr, 0, &DemoWindows::Thread, this, 0, &thread_id_);
  return thread_ && ready_.Wait(10000) && windows_.size() == std::size(kDemoWindows) && stage_;
}

void DemoWindows::Close() {
  if (!thread_) return;
  PostThreadMessageW(thread_id_, WM_QUIT, 0, 0);
  WaitForSingleObject(thread_, 10000);
  CloseHandle(thread_);
  thread_ = nullptr;
}

void DemoWindows::ShowStage(bool show) {
  SetWindowPos(stage_, HWND_BOTTOM, 0, 0, 0, 0,
               SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | (show ? SWP_SHOWWINDOW : SWP_HIDEWINDOW));
  // Without a window manager a window that is shown comes up on top
  // whatever its place in the order, so the others are raised again.
  for (auto it = windows_.rbegin(); show && it != windows_.rend(); ++it) {
    SetWindowPos(*it, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
  }
}

DWORD WINAPI DemoWindows::Thread(LPVOID context) {
  auto* self = static_cast<DemoWindows*>(context);
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &DemoWindowProc;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.hIcon = LoadIconW(nullptr, IDI_INFORMATION);
  window_class.hIconSm = LoadIconW(nullptr, IDI_INFORMATION);
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.lpszClassName = L"RoomcoreDemoWindow";
  RegisterClassExW(&window_class);
  for (const DemoWindowLook& look : kDemoWindows) {
    HWND window =
        CreateWindowExW(0, window_class.lpszClassName, look.title, WS_OVERLAPPEDWINDOW, look.x, look.y,
                        look.width, look.height, nullptr, nullptr, window_class.hInstance, nullptr);
    if (!window) continue;
    SetWindowLongPtrW(window, GWLP_USERDATA, static_cast<LONG_PTR>(look.colour));
    ShowWindow(window, SW_SHOWNORMAL);
    UpdateWindow(window);
    self->windows_.push_back(window);
  }
  // The stage: a popup as large as the screen, hidden until the display is
  // shared, so that the shared screen shows known content everywhere.
  self->stage_ = CreateWindowExW(WS_EX_TOOLWINDOW, window_class.lpszClassName, L"roomcore demo: stage",
                                 WS_POPUP, 0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN),
                                 nullptr, nullptr, window_class.hInstance, nullptr);
  if (self->stage_) SetWindowLongPtrW(self->stage_, GWLP_USERDATA, static_cast<LONG_PTR>(kStageColour));
  self->ready_.Set();
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  for (HWND window : self->windows_) DestroyWindow(window);
  if (self->stage_) DestroyWindow(self->stage_);
  return 0;
}
