#include "capture/window_capture_impl.h"

#include <mmsystem.h>

#include "base/system_info.h"
#include "capture/capture_platform.h"
#include "capture/draw_cursor.h"
#include "roomcore/clock.h"

namespace {

std::atomic<WindowCaptureImpl*> g_window_capture{nullptr};

constexpr int kDefaultFrameRate = 12;
constexpr int kNoWindowSleepMs = 50;
// Below this version class (Windows 8) PrintWindow can't render composed
// content: composition is turned off and the window's own context is copied.
constexpr int kFirstPrintWindowVersion = 5;
constexpr UINT kRenderFullContent = 2;  // PW_RENDERFULLCONTENT, beyond the SDK level we build for

// A window's device context, frame included: ReleaseDC with the same window.
class ScopedWindowDC {
 public:
  explicit ScopedWindowDC(HWND window) : window_(window), dc_(GetWindowDC(window)) {}
  ~ScopedWindowDC() {
    if (dc_) ReleaseDC(window_, dc_);
  }
  ScopedWindowDC(const ScopedWindowDC&) = delete;
  ScopedWindowDC& operator=(const ScopedWindowDC&) = delete;
  HDC get() const { return dc_; }

 private:
  HWND window_;
  HDC dc_;
};

double Ratio(int numerator, int denominator) {
  return denominator > 0 ? static_cast<double>(numerator) / denominator : 1.0;
}

}  // namespace

WindowCapture* WindowCapture::Create() {
  WindowCaptureImpl* capture = g_window_capture.load();
  if (!capture) {
    capture = new WindowCaptureImpl();
    g_window_capture.store(capture);
  }
  return capture;
}

void WindowCapture::Release(WindowCapture* capture) {
  if (!capture) return;
  auto* impl = static_cast<WindowCaptureImpl*>(capture);
  // Cleared first: a Create on another thread while this object is being
  // destroyed makes a new one instead of handing out the dying one.
  WindowCaptureImpl* expected = impl;
  g_window_capture.compare_exchange_strong(expected, nullptr);
  impl->Destroy();
}

WindowCaptureImpl::WindowCaptureImpl() : runner_(this, L"WindowCaptureImpl") {}

void WindowCaptureImpl::Destroy() {
  if (!runner_.DestroyAtRunEnd()) delete this;
}

void WindowCaptureImpl::DestroyOwner() { delete this; }

WindowCaptureImpl::~WindowCaptureImpl() { runner_.Shutdown(); }

void WindowCaptureImpl::SetCaptureEvent(WindowCaptureEvent* event) { event_.store(event); }

void WindowCaptureImpl::SetFrameRate(int frames_per_second) {
  runner_.set_frame_rate(frames_per_second > 0 ? frames_per_second : kDefaultFrameRate);
}

void WindowCaptureImpl::SelectWindow(HWND window) {
  window_.store(window);
  // Raise it over everything and leave it an ordinary window. Focus rules
  // only let the thread that has the foreground's input hand it on, so the
  // two input queues are joined for the moment of the switch.
  SetActiveWindow(window);
  HWND foreground = GetForegroundWindow();
  const DWORD own = GetCurrentThreadId();
  const DWORD other = GetWindowThreadProcessId(foreground, nullptr);
  AttachThreadInput(own, other, TRUE);
  if (IsIconic(window)) ShowWindow(window, SW_SHOWNORMAL);
  SetWindowPos(window, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
  SetWindowPos(window, HWND_NOTOPMOST, 0, 0, 0, 0, SWP_NOSIZE | SWP_NOMOVE);
  SetForegroundWindow(window);
  AttachThreadInput(own, other, FALSE);
}

void WindowCaptureImpl::SetDrawCursor(bool draw) { runner_.set_draw_cursor(draw); }

void WindowCaptureImpl::SetOutputSize(int width, int height) { runner_.set_output_size(width, height); }

bool WindowCaptureImpl::Start() { return runner_.Start(); }

bool WindowCaptureImpl::Stop() { return runner_.Stop(); }

bool WindowCaptureImpl::IsCapturing() { return runner_.capturing(); }

void WindowCaptureImpl::BeginRun() {
  const capture::CapturePlatform& platform = capture::Platform();
  BOOL enabled = FALSE;
  platform.dwm_is_composition_enabled(&enabled);
  if (platform.windows_version() < kFirstPrintWindowVersion && enabled) {
    // Stays off: turning it back on mid-share would blank the window again.
    if (capture::DwmEnableCompositionFunction enable = platform.find_dwm_enable_composition()) enable(0);
  }
  if (WindowCaptureEvent* event = event_.load()) event->OnCaptureStatus(2);
  runner_.PrepareOutputFrame();
}

void WindowCaptureImpl::Pass() {
  HWND target = window_.load();
  if (!IsWindow(target)) {
    if (WindowCaptureEvent* event = event_.load()) event->OnCaptureStatus(0);
    SleepAccurate(kNoWindowSleepMs);
    return;
  }
  if (IsIconic(target) || !IsWindowVisible(target)) {
    runner_.DeliverBlack();
    return;
  }
  if (runner_.stop_requested()) return;
  Grab(target);
}

void WindowCaptureImpl::Grab(HWND target) {
  const DWORD begin = timeGetTime();
  RECT rect = {};
  GetWindowRect(target, &rect);
  int width = rect.right - rect.left;
  int height = rect.bottom - rect.top;
  {
    ScopedWindowDC dc(target);
    const capture::CapturePlatform& platform = capture::Platform();
    const double scale_x = Ratio(platform.get_device_caps(dc.get(), DESKTOPHORZRES),
                                 platform.get_device_caps(dc.get(), HORZRES));
    const double scale_y = Ratio(platform.get_device_caps(dc.get(), DESKTOPVERTRES),
                                 platform.get_device_caps(dc.get(), VERTRES));
    width = static_cast<int>(width * scale_x);
    height = static_cast<int>(height * scale_y);
    const int trimmed_width = capture::TrimmedWidth(width);
    const int trimmed_height = capture::TrimmedHeight(height);
    // A handle that died after the loop's tests gives no rectangle or no
    // context; there is then nothing to grab.
    if (dc.get() && trimmed_width > 0 && trimmed_height > 0) {
      capture::MemoryPicture full(dc.get(), width, height);
      if (platform.windows_version() >= kFirstPrintWindowVersion) {
        platform.print_window(target, full.dc(), kRenderFullContent);
      } else {
        StretchBlt(full.dc(), 0, 0, width, height, dc.get(), 0, 0, width, height, SRCCOPY);
      }
      RECT client = {};
      GetClientRect(target, &client);
      if (runner_.draw_cursor()) capture::DrawCursor(target, full.dc(), client, scale_x, scale_y);
      capture::MemoryPicture trimmed(dc.get(), trimmed_width, trimmed_height);
      if (full.valid() && trimmed.valid()) {
        StretchBlt(trimmed.dc(), 0, 0, trimmed_width, trimmed_height, full.dc(),
                   WindowCaptureImpl::kLeftOffset, WindowCaptureImpl::kTopOffset, trimmed_width,
                   trimmed_height, SRCCOPY);
      }
      // The depth as the window's context tells it, 0 included: unlike a
      // display grab there is no fallback.
      const int bits = platform.get_device_caps(dc.get(), BITSPIXEL);
      const uint8_t* pixels =
          runner_.ReadOut(trimmed.dc(), trimmed.bitmap(), trimmed_width, trimmed_height, bits);
      // A window that went away during the grab leaves a picture of nothing.
      if (pixels && IsWindow(target))
        runner_.Deliver(pixels, trimmed_width, trimmed_height, TimeMicroseconds());
    }
  }
  runner_.LogPass(width, height, begin);
}

void WindowCaptureImpl::EndRun() {
  runner_.DestroyScaler();
  runner_.FreeOutputFrame();
  if (WindowCaptureEvent* event = event_.load()) event->OnCaptureStatus(3);
}

bool WindowCaptureImpl::HasEvent() { return event_.load() != nullptr; }

void WindowCaptureImpl::SendFrame(const uint8_t* data, uint32_t size, int width, int height,
                                  int64_t timestamp) {
  if (WindowCaptureEvent* event = event_.load())
    event->OnCaptureFrame(data, size, width, height, 0, timestamp);
}
