// Real windows with known content, on a thread of their own with a message
// pump, and a recorder of what a capture reports.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "roomcore/capture.h"
#include "roomcore/clock.h"

namespace capture_test {

constexpr COLORREF kRed = RGB(255, 0, 0);
constexpr COLORREF kGreen = RGB(0, 255, 0);
constexpr COLORREF kBlue = RGB(0, 0, 255);
constexpr COLORREF kWhite = RGB(255, 255, 255);
constexpr COLORREF kMagenta = RGB(255, 0, 255);
constexpr COLORREF kYellow = RGB(255, 255, 0);
constexpr COLORREF kBlack = RGB(0, 0, 0);

// BT.601 limited range, as libswscale converts by default.
inline int Luma(COLORREF c) {
  return static_cast<int>(16.5 +
                          (65.481 * GetRValue(c) + 128.553 * GetGValue(c) + 24.966 * GetBValue(c)) / 255.0);
}

// What a test window paints: four solid quadrants split at the centre
// (red, green / blue, white), a yellow one-pixel frame on its outer edge,
// and a magenta one-pixel frame exactly where the trimmed picture ends
// (column 8, line 7, and the last column and line the even trim keeps).
// A window may instead be painted in one colour.
class TestWindow {
 public:
  TestWindow(int x, int y, int width, int height, bool topmost = false) {
    thread_ = std::thread([=] { Run(x, y, width, height, topmost); });
    std::unique_lock<std::mutex> guard(mutex_);
    ready_.wait(guard, [this] { return created_; });
  }
  ~TestWindow() {
    Destroy();
    thread_.join();
  }
  TestWindow(const TestWindow&) = delete;
  TestWindow& operator=(const TestWindow&) = delete;

  HWND hwnd() const { return hwnd_; }
  // Everything in one colour from now on (CLR_INVALID: the pattern again).
  void Fill(COLORREF colour) {
    fill_.store(colour);
    RedrawWindow(hwnd_, nullptr, nullptr, RDW_INVALIDATE | RDW_UPDATENOW);
  }
  void Resize(int width, int height) {
    SetWindowPos(hwnd_, nullptr, 0, 0, width, height, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  }
  void Show(int command) { ShowWindow(hwnd_, command); }
  // Closed by its own thread, as DestroyWindow requires.
  void Destroy() {
    if (IsWindow(hwnd_)) SendMessageW(hwnd_, WM_CLOSE, 0, 0);
  }

  // Closes it without waiting for the window's thread to finish.
  void DestroyAsync() { PostMessageW(hwnd_, WM_CLOSE, 0, 0); }

  static void Paint(HDC dc, int width, int height, COLORREF fill) {
    auto rect = [dc](int l, int t, int r, int b, COLORREF c) {
      HBRUSH brush = CreateSolidBrush(c);
      RECT area = {l, t, r, b};
      FillRect(dc, &area, brush);
      DeleteObject(brush);
    };
    if (fill != CLR_INVALID) {
      rect(0, 0, width, height, fill);
      return;
    }
    const int cx = width / 2;
    const int cy = height / 2;
    rect(0, 0, cx, cy, kRed);
    rect(cx, 0, width, cy, kGreen);
    rect(0, cy, cx, height, kBlue);
    rect(cx, cy, width, height, kWhite);
    rect(0, 0, width, 1, kYellow);
    rect(0, height - 1, width, height, kYellow);
    rect(0, 0, 1, height, kYellow);
    rect(width - 1, 0, width, height, kYellow);
    const int last_column = 8 + ((width - 16) & ~1) - 1;
    const int last_line = 7 + ((height - 14) & ~1) - 1;
    rect(8, 7, last_column + 1, 8, kMagenta);
    rect(8, last_line, last_column + 1, last_line + 1, kMagenta);
    rect(8, 7, 9, last_line + 1, kMagenta);
    rect(last_column, 7, last_column + 1, last_line + 1, kMagenta);
  }

 private:
  static LRESULT CALLBACK Proc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    TestWindow* self = reinterpret_cast<TestWindow*>(GetWindowLongPtrW(hwnd, GWLP_USERDATA));
    switch (message) {
      case WM_ERASEBKGND:
        return 1;
      case WM_PAINT: {
        PAINTSTRUCT ps;
        HDC dc = BeginPaint(hwnd, &ps);
        if (self) self->PaintClient(hwnd, dc);
        EndPaint(hwnd, &ps);
        return 0;
      }
      case WM_PRINTCLIENT:
        if (self) self->PaintClient(hwnd, reinterpret_cast<HDC>(wparam));
        return 0;
      case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    }
    return DefWindowProcW(hwnd, message, wparam, lparam);
  }
  void PaintClient(HWND hwnd, HDC dc) {
    RECT client;
    GetClientRect(hwnd, &client);
    Paint(dc, client.right, client.bottom, fill_.load());
  }
  void Run(int x, int y, int width, int height, bool topmost) {
    static const wchar_t* const kClass = L"RoomcoreCaptureTestWindow";
    WNDCLASSW wc = {};
    wc.lpfnWndProc = &TestWindow::Proc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = kClass;
    wc.hCursor = nullptr;
    RegisterClassW(&wc);  // fails harmlessly once registered
    HWND hwnd = CreateWindowExW(WS_EX_TOOLWINDOW | (topmost ? WS_EX_TOPMOST : 0), kClass, L"capture test",
                                WS_POPUP, x, y, width, height, nullptr, nullptr, wc.hInstance, nullptr);
    SetWindowLongPtrW(hwnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
    ShowWindow(hwnd, SW_SHOWNOACTIVATE);
    UpdateWindow(hwnd);
    {
      std::lock_guard<std::mutex> guard(mutex_);
      hwnd_ = hwnd;
      created_ = true;
    }
    ready_.notify_all();
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
  }

  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable ready_;
  bool created_ = false;
  HWND hwnd_ = nullptr;
  std::atomic<COLORREF> fill_{CLR_INVALID};
};

struct Frame {
  std::vector<uint8_t> bytes;  // kept for the last few frames only
  uint32_t size;
  int width;
  int height;
  int reserved;
  int64_t timestamp;
  int64_t arrival;  // TimeMicroseconds() when the event came
};

struct Status {
  int status;
  int64_t arrival;
};

// Records frames and statuses of either capture event. `on_frame` (set
// before the capture starts) runs inside OnCaptureFrame with the frame's
// number, for slow grabs and calls made from inside an event.
template <typename Event>
class Recorder : public Event {
 public:
  void OnCaptureStatus(int status) override {
    {
      std::lock_guard<std::mutex> guard(mutex_);
      statuses_.push_back({status, TimeMicroseconds()});
    }
    changed_.notify_all();
  }
  void OnCaptureFrame(const uint8_t* data, uint32_t size, int width, int height, int reserved,
                      int64_t timestamp) override {
    size_t number;
    {
      std::lock_guard<std::mutex> guard(mutex_);
      number = frames_.size();
      Frame frame{{}, size, width, height, reserved, timestamp, TimeMicroseconds()};
      frame.bytes.assign(data, data + size);
      frames_.push_back(std::move(frame));
      if (frames_.size() > kKeep) std::vector<uint8_t>().swap(frames_[frames_.size() - kKeep - 1].bytes);
    }
    changed_.notify_all();
    if (on_frame) on_frame(number);
  }

  bool WaitFrames(size_t count, DWORD timeout_ms = 10000) {
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, std::chrono::milliseconds(timeout_ms),
                             [&] { return frames_.size() >= count; });
  }
  bool WaitStatus(int status, size_t times = 1, DWORD timeout_ms = 10000) {
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, std::chrono::milliseconds(timeout_ms),
                             [&] { return CountLocked(status) >= times; });
  }
  size_t FrameCount() {
    std::lock_guard<std::mutex> guard(mutex_);
    return frames_.size();
  }
  Frame LastFrame() {
    std::lock_guard<std::mutex> guard(mutex_);
    return frames_.back();
  }
  Frame FrameAt(size_t index) {
    std::lock_guard<std::mutex> guard(mutex_);
    return frames_.at(index);
  }
  std::vector<Frame> Frames() {
    std::lock_guard<std::mutex> guard(mutex_);
    return frames_;
  }
  std::vector<Status> Statuses() {
    std::lock_guard<std::mutex> guard(mutex_);
    return statuses_;
  }
  size_t StatusCount(int status) {
    std::lock_guard<std::mutex> guard(mutex_);
    return CountLocked(status);
  }
  void Clear() {
    std::lock_guard<std::mutex> guard(mutex_);
    frames_.clear();
    statuses_.clear();
  }

  std::function<void(size_t)> on_frame;

 private:
  static constexpr size_t kKeep = 3;
  size_t CountLocked(int status) const {
    return static_cast<size_t>(std::count_if(statuses_.begin(), statuses_.end(),
                                             [&](const Status& s) { return s.status == status; }));
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Frame> frames_;
  std::vector<Status> statuses_;
};

using WindowRecorder = Recorder<WindowCaptureEvent>;
using DisplayRecorder = Recorder<DisplayCaptureEvent>;

// The luma of pixel (x, y) of an I420 frame of `width` columns.
inline int LumaAt(const Frame& frame, int x, int y) {
  return frame.bytes.at(static_cast<size_t>(y) * frame.width + x);
}

// True if every byte of Y is 1 and every byte of U and V 128.
inline bool IsBlack(const Frame& frame) {
  const size_t luma = static_cast<size_t>(frame.width) * frame.height;
  if (frame.bytes.size() != frame.size || frame.size < luma) return false;
  for (size_t i = 0; i < frame.bytes.size(); ++i) {
    if (frame.bytes[i] != (i < luma ? 1 : 128)) return false;
  }
  return true;
}

#define EXPECT_LUMA(frame, x, y, colour)                                            \
  EXPECT_NEAR(::capture_test::LumaAt(frame, x, y), ::capture_test::Luma(colour), 4) \
      << "at " << (x) << ", " << (y)

}  // namespace capture_test
