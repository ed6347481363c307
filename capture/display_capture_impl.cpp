#include "capture/display_capture_impl.h"

#include <mmsystem.h>

#include <atomic>
#include <new>

#include "capture/capture_platform.h"
#include "capture/dib_image_internal.h"
#include "capture/draw_cursor.h"
#include "capture/scoped_gdi.h"
#include "roomcore/clock.h"

static_assert(sizeof(MONITORINFOEXW) == 104, "GetMonitorInfoW reads the record with the device name");

namespace {

std::atomic<DisplayCaptureImpl*> g_display_capture{nullptr};

// Copies the screen's pixels from (`left`, `top`) at the same size.
bool CopyScreen(HDC screen, const capture::MemoryPicture& picture, int width, int height, int left, int top) {
  if (!picture.valid()) return false;
  return StretchBlt(picture.dc(), 0, 0, width, height, screen, left, top, width, height, SRCCOPY) != FALSE;
}

// The depth a grab asks the read-out for; a screen that tells none counts as
// 32 bits.
int GrabDepth(HDC screen) {
  const int bits = capture::Platform().get_device_caps(screen, BITSPIXEL);
  return bits != 0 ? bits : 32;
}

// Device pixels per pixel the process sees; a record without a monitor
// rectangle (one a host filled in) counts as unscaled.
double Scale(int device_pixels, int logical_pixels) {
  return logical_pixels > 0 ? static_cast<double>(device_pixels) / logical_pixels : 1.0;
}

}  // namespace

DisplayCapture* DisplayCapture::Create() {
  DisplayCaptureImpl* capture = g_display_capture.load();
  if (!capture) {
    capture = new DisplayCaptureImpl();
    g_display_capture.store(capture);
  }
  return capture;
}

void DisplayCapture::Release(DisplayCapture* capture) {
  if (!capture) return;
  auto* impl = static_cast<DisplayCaptureImpl*>(capture);
  // Cleared first: a Create on another thread while this object is being
  // destroyed makes a new one instead of handing out the dying one.
  DisplayCaptureImpl* expected = impl;
  g_display_capture.compare_exchange_strong(expected, nullptr);
  impl->Destroy();
}

DisplayCaptureImpl::DisplayCaptureImpl() : runner_(this, L"DisplayCaptureImpl") {
  Enumerate();
  if (!displays_.empty()) current_display_ = displays_.front();
}

void DisplayCaptureImpl::Destroy() {
  if (!runner_.DestroyAtRunEnd()) delete this;
}

void DisplayCaptureImpl::DestroyOwner() { delete this; }

DisplayCaptureImpl::~DisplayCaptureImpl() {
  runner_.Shutdown();
  image_.reset();
  if (enumeration_dc_) ReleaseDC(nullptr, enumeration_dc_);
}

void DisplayCaptureImpl::RefreshDisplays() {
  base::AutoLock guard(lock_);
  Enumerate();
}

void DisplayCaptureImpl::Enumerate() {
  display_counter_ = 0;
  displays_.clear();
  HDC previous = enumeration_dc_;
  enumeration_dc_ = GetDC(nullptr);
  EnumDisplayMonitors(enumeration_dc_, nullptr, &DisplayCaptureImpl::EnumMonitor,
                      reinterpret_cast<LPARAM>(this));
  if (previous) ReleaseDC(nullptr, previous);
}

BOOL CALLBACK DisplayCaptureImpl::EnumMonitor(HMONITOR monitor, HDC dc, LPRECT rect, LPARAM param) {
  DisplayCaptureImpl* self = reinterpret_cast<DisplayCaptureImpl*>(param);
  MONITORINFOEXW info = {};
  info.cbSize = sizeof(info);
  GetMonitorInfoW(monitor, &info);
  DisplayInfo record;
  record.is_primary = info.dwFlags == MONITORINFOF_PRIMARY;
  const capture::CapturePlatform& platform = capture::Platform();
  record.width = platform.get_device_caps(dc, DESKTOPHORZRES);
  record.height = platform.get_device_caps(dc, DESKTOPVERTRES);
  record.dc = dc;
  record.monitor = monitor;
  record.index = self->display_counter_++;
  record.device_name = info.szDevice;
  record.work_rect = info.rcWork;
  record.monitor_rect = info.rcMonitor;
  if (rect) record.clip_rect = *rect;
  self->displays_.push_back(record);
  return TRUE;
}

int DisplayCaptureImpl::GetDisplayCount() {
  base::AutoLock guard(lock_);
  return static_cast<int>(displays_.size());
}

const DisplayInfo* DisplayCaptureImpl::GetDisplay(int index) {
  base::AutoLock guard(lock_);
  if (index < 0 || index >= static_cast<int>(displays_.size())) return nullptr;
  return &displays_[static_cast<size_t>(index)];
}

DibImage* DisplayCaptureImpl::CaptureImage(const DisplayInfo* display) {
  image_.reset();
  if (!display) return nullptr;
  HWND desktop = GetDesktopWindow();
  SetCapture(desktop);
  capture::ScopedGetDC screen(desktop);
  const int width = display->width;
  const int height = display->height;
  capture::MemoryPicture picture(screen.get(), width, height);
  if (!CopyScreen(screen.get(), picture, width, height, display->monitor_rect.left,
                  display->monitor_rect.top)) {
    return nullptr;
  }
  // Sized in 64 bits: a wrapped size would be a small buffer that the
  // read-out overruns.
  const uint64_t bytes = capture::PictureBytes(width, height);
  if (!capture::FitsSizeField(bytes)) return nullptr;
  // With room for the colour table that the read-out writes at 8 bits a
  // pixel or fewer; the image keeps the first entry.
  struct {
    BITMAPINFOHEADER header;
    RGBQUAD colors[256];
  } info = {};
  InitBitMapInfo(width, height, true, GrabDepth(screen.get()), reinterpret_cast<BITMAPINFO*>(&info));
  std::unique_ptr<uint8_t[]> pixels(new (std::nothrow) uint8_t[static_cast<size_t>(bytes)]);
  if (!pixels) return nullptr;
  if (capture::Platform().get_di_bits(picture.dc(), picture.bitmap(), 0, static_cast<UINT>(height),
                                      pixels.get(), reinterpret_cast<BITMAPINFO*>(&info), DIB_RGB_COLORS)) {
    image_.reset(new (std::nothrow) DibImage(reinterpret_cast<const BITMAPINFO*>(&info), pixels.get()));
    // An image that couldn't copy the pixels is empty: no picture.
    if (image_ && !image_->bits_data()) image_.reset();
  }
  return image_.get();
}

void DisplayCaptureImpl::SetCaptureEvent(DisplayCaptureEvent* event) { event_.store(event); }

void DisplayCaptureImpl::SetDrawCursor(bool draw) { runner_.set_draw_cursor(draw); }

void DisplayCaptureImpl::SetFrameRate(int frames_per_second) { runner_.set_frame_rate(frames_per_second); }

void DisplayCaptureImpl::SelectDisplay(const DisplayInfo* display) {
  if (!display) return;
  base::AutoLock guard(lock_);
  base::AutoLock selection(selection_lock_);
  current_display_ = *display;
}

void DisplayCaptureImpl::SetOutputSize(int width, int height) { runner_.set_output_size(width, height); }

bool DisplayCaptureImpl::Start() { return runner_.Start(); }

bool DisplayCaptureImpl::Stop() { return runner_.Stop(); }

bool DisplayCaptureImpl::IsCapturing() { return runner_.capturing(); }

DisplayCaptureImpl::GrabArea DisplayCaptureImpl::CurrentArea() {
  base::AutoLock selection(selection_lock_);
  return GrabArea{current_display_.width, current_display_.height, current_display_.monitor_rect};
}

void DisplayCaptureImpl::BeginRun() {
  if (DisplayCaptureEvent* event = event_.load()) event->OnCaptureStatus(1);
}

void DisplayCaptureImpl::Pass() {
  const GrabArea area = CurrentArea();
  if (area.width == 0 || area.height == 0) {
    SleepAccurate(20);
    return;
  }
  Grab(area);
}

void DisplayCaptureImpl::Grab(const GrabArea& area) {
  const DWORD begin = timeGetTime();
  HWND desktop = GetDesktopWindow();
  {
    capture::ScopedGetDC screen(desktop);
    capture::MemoryPicture picture(screen.get(), area.width, area.height);
    if (CopyScreen(screen.get(), picture, area.width, area.height, area.monitor_rect.left,
                   area.monitor_rect.top)) {
      if (runner_.draw_cursor()) {
        const double scale_x = Scale(area.width, area.monitor_rect.right - area.monitor_rect.left);
        const double scale_y = Scale(area.height, area.monitor_rect.bottom - area.monitor_rect.top);
        capture::DrawCursor(desktop, picture.dc(), area.monitor_rect, scale_x, scale_y);
      }
      const uint8_t* pixels =
          runner_.ReadOut(picture.dc(), picture.bitmap(), area.width, area.height, GrabDepth(screen.get()));
      if (pixels) runner_.Deliver(pixels, area.width, area.height, TimeMicroseconds());
    }
  }
  runner_.LogPass(area.width, area.height, begin);
}

void DisplayCaptureImpl::EndRun() {
  runner_.FreeGrabBuffer();
  runner_.FreeOutputFrame();
  if (DisplayCaptureEvent* event = event_.load()) event->OnCaptureStatus(2);
}

bool DisplayCaptureImpl::HasEvent() { return event_.load() != nullptr; }

void DisplayCaptureImpl::SendFrame(const uint8_t* data, uint32_t size, int width, int height,
                                   int64_t timestamp) {
  if (DisplayCaptureEvent* event = event_.load())
    event->OnCaptureFrame(data, size, width, height, 0, timestamp);
}
