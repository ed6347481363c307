// Real windows of known content, a recording host, either capture behind one face, the one fixture.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/journal.h"
#include "fundus_control.h"
#include "roomcore/capture.h"
#include "roomcore/clock.h"

namespace capture_suite {
constexpr COLORREF kRed = RGB(255, 0, 0), kGreen = RGB(0, 255, 0), kBlue = RGB(0, 0, 255), kBlack = 0;
constexpr COLORREF kWhite = RGB(255, 255, 255), kMagenta = RGB(255, 0, 255), kYellow = RGB(255, 255, 0);
inline int Luma(COLORREF c) {  // BT.601 limited range, as libswscale converts by default
  return static_cast<int>(16.5 +
                          (65.481 * GetRValue(c) + 128.553 * GetGValue(c) + 24.966 * GetBValue(c)) / 255);
}
// A window on its own thread: quadrants, a yellow edge, magenta where the window trim ends; or Fill's.
class TestWindow {
 public:
  TestWindow(int x, int y, int width, int height, bool topmost = false) {
    thread_ = std::thread([=] { Run(x, y, width, height, topmost); });
    ready_.Wait([this] { return hwnd_ != nullptr; }, INFINITE);
  }
  ~TestWindow() {
    if (IsWindow(hwnd_)) SendMessageW(hwnd_, WM_CLOSE, 0, 0);
    thread_.join();
  }
  HWND hwnd() const { return hwnd_; }
  void Fill(COLORREF colour) { SendMessageW(hwnd_, WM_APP, colour, 0); }

 private:
  static COLORREF Pattern(int x, int y, int w, int h) {
    const int r = 7 + ((w - 16) & ~1), b = 6 + ((h - 14) & ~1);
    if (x == 0 || y == 0 || x == w - 1 || y == h - 1) return kYellow;
    if (x >= 8 && x <= r && y >= 7 && y <= b && (x == 8 || x == r || y == 7 || y == b)) return kMagenta;
    return y < h / 2 ? (x < w / 2 ? kRed : kGreen) : (x < w / 2 ? kBlue : kWhite);
  }
  void Paint(HWND hwnd, HDC dc) {
    RECT c;
    GetClientRect(hwnd, &c);
    std::vector<uint32_t> pixels(static_cast<size_t>(c.right) * c.bottom);
    for (size_t i = 0; i < pixels.size(); ++i) {
      const COLORREF p =
          fill_ != CLR_INVALID ? fill_.load() : Pattern(i % c.right, i / c.right, c.right, c.bottom);
      pixels[i] = RGB(GetBValue(p), GetGValue(p), GetRValue(p));  // a DIB's pixel is 0xRRGGBB
    }
    BITMAPINFO info = {{sizeof(BITMAPINFOHEADER), c.right, -c.bottom, 1, 32, BI_RGB, 0, 0, 0, 0, 0}, {}};
    SetDIBitsToDevice(dc, 0, 0, c.right, c.bottom, 0, 0, 0, c.bottom, pixels.data(), &info, DIB_RGB_COLORS);
  }
  static LRESULT CALLBACK Proc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    auto* self = reinterpret_cast<TestWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    PAINTSTRUCT ps;
    if (message == WM_DESTROY) PostQuitMessage(0);
    if (message == WM_APP) self->fill_ = static_cast<COLORREF>(wparam), InvalidateRect(hwnd, nullptr, FALSE);
    if (message == WM_APP) return UpdateWindow(hwnd), 0;
    if (message == WM_PRINTCLIENT && self) self->Paint(hwnd, reinterpret_cast<HDC>(wparam));
    if (message == WM_PAINT && self) return self->Paint(hwnd, BeginPaint(hwnd, &ps)), EndPaint(hwnd, &ps), 0;
    return message == WM_ERASEBKGND ? 1 : DefWindowProcW(hwnd, message, wparam, lparam);
  }
  void Run(int x, int y, int width, int height, bool topmost) {
    WNDCLASSW wc = {0, &TestWindow::Proc,           0, 0, GetModuleHandleW(nullptr), 0, 0, 0,
                    0, L"RoomcoreCaptureTestWindow"};
    RegisterClassW(&wc);  // fails harmlessly once registered
    HWND hwnd = CreateWindowExW(WS_EX_TOOLWINDOW | (topmost ? WS_EX_TOPMOST : 0), wc.lpszClassName, L"",
                                WS_POPUP, x, y, width, height, nullptr, nullptr, wc.hInstance, nullptr);
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    ShowWindow(hwnd, SW_SHOWNOACTIVATE), UpdateWindow(hwnd);
    ready_.Locked([&] { hwnd_ = hwnd; });
    for (MSG msg; GetMessageW(&msg, nullptr, 0, 0) > 0;) DispatchMessageW(&msg);
  }
  std::thread thread_;
  testing_support::Monitor ready_;
  HWND hwnd_ = nullptr;
  std::atomic<COLORREF> fill_{CLR_INVALID};
};
struct Frame {
  std::vector<uint8_t> bytes;  // kept for the last few frames only
  uint32_t size;
  int width, height, reserved;
  int64_t timestamp;
  int Y(int x, int y) const { return bytes.at(static_cast<size_t>(y) * width + x); }
  bool Black() const {  // Y 1, U and V 128
    std::vector<uint8_t> black(size, 128);
    return std::fill_n(black.begin(), static_cast<size_t>(width) * height, 1), bytes == black;
  }
};
#define EXPECT_LUMA(frame, x, y, colour) \
  EXPECT_NEAR((frame).Y(x, y), ::capture_suite::Luma(colour), 4) << "at " << (x) << ", " << (y)
struct Status {
  int status;
  int64_t time;
  size_t frames;  // frames that came before it
};
// Frames, statuses and the library's log lines (tag, text) as the host saw them.
struct Record {
  std::vector<Frame> frames;
  std::vector<Status> statuses;
  std::vector<std::pair<std::wstring, std::wstring>> log;
  size_t Count(int status) const {
    return std::count_if(statuses.begin(), statuses.end(),
                         [&](const Status& s) { return s.status == status; });
  }
  size_t Lines(const std::wstring& start) const {  // log lines that start so, any tag
    return std::count_if(log.begin(), log.end(),
                         [&](const auto& l) { return l.second.rfind(start, 0) == 0; });
  }
};
// Both event interfaces and the log's sink; `on_frame` runs in OnCaptureFrame.
class Host : public DisplayCaptureEvent, public WindowCaptureEvent, public testing_support::Monitor {
 public:
  Host() { FundusSetLogSink(&Host::Log, this); }
  ~Host() override { FundusSetLogSink(nullptr, nullptr); }
  void OnCaptureStatus(int status) override {
    Locked([&] { record_.statuses.push_back({status, TimeMicroseconds(), record_.frames.size()}); });
  }
  void OnCaptureFrame(const uint8_t* data, uint32_t size, int width, int height, int reserved,
                      int64_t timestamp) override {
    const size_t number = Locked([&] {
      std::vector<Frame>& f = record_.frames;
      f.push_back(Frame{std::vector<uint8_t>(data, data + size), size, width, height, reserved, timestamp});
      if (f.size() > 3) std::vector<uint8_t>().swap(f[f.size() - 4].bytes);
      return f.size() - 1;
    });
    if (on_frame) on_frame(number);
  }
  bool Wait(const std::function<bool(const Record&)>& done, DWORD timeout_ms = 10000) const {
    return Monitor::Wait([&] { return done(record_); }, timeout_ms);
  }
  bool Frames(size_t count) const {
    return Wait([=](const Record& r) { return r.frames.size() >= count; });
  }
  Record Now() const {
    return Locked([&] { return record_; });
  }
  Frame Fresh() const {  // grabbed after everything the test did so far
    EXPECT_TRUE(Frames(Now().frames.size() + 2));
    return Now().frames.back();
  }
  void Clear() {
    Locked([&] { record_ = Record(); });
  }
  std::function<void(size_t)> on_frame;

 private:
  static void Log(const wchar_t* tag, const wchar_t* text, void* self) {
    Host* host = static_cast<Host*>(self);
    host->Locked([&] { host->record_.log.emplace_back(tag, text); });
  }
  Record record_;
};
enum Kind { kDisplay, kWindow };
// Either capture as the host sees it: a new one, or the one that lives.
struct Capture {
  explicit Capture(Kind k)
      : kind(k),
        display(k == kDisplay ? DisplayCapture::Create() : nullptr),
        window(k == kWindow ? WindowCapture::Create() : nullptr) {}
  void Release() {
    kind == kDisplay ? DisplayCapture::Release(display) : WindowCapture::Release(window);
    display = nullptr, window = nullptr;
  }
  template <typename F>
  auto Do(F f) {
    return kind == kDisplay ? f(display) : f(window);
  }
  bool Start() { return kind == kDisplay ? display->Start() : window->Start(); }
  bool Stop() { return kind == kDisplay ? display->Stop() : window->Stop(); }
  void* object() const { return kind == kDisplay ? (void*)display : window; }
  int started() const { return kind == kDisplay ? 1 : 2; }  // the statuses of the run's begin and end
  int ended() const { return kind == kDisplay ? 2 : 3; }
  Kind kind;
  DisplayCapture* display;
  WindowCapture* window;
};
// Open ties a capture to the host (and a window to capture), released at the end unless a test did.
class CaptureTest : public ::testing::Test {
 protected:
  Capture& Open(Kind kind, int width = 160, int height = 90) {
    if (!window_) window_.reset(new TestWindow(40, 30, 400, 300));
    Capture& capture = *captures_.emplace_back(new Capture(kind));
    capture.Do([&](auto* c) { c->SetCaptureEvent(&host_), c->SetOutputSize(width, height); });
    if (kind == kWindow) capture.window->SelectWindow(window_->hwnd());
    return capture;
  }
  void TearDown() override {
    for (auto& capture : captures_) capture->Release();
  }
  Host host_;
  std::unique_ptr<TestWindow> window_;
  std::vector<std::unique_ptr<Capture>> captures_;
};
}  // namespace capture_suite
