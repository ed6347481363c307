// The window capture: one top-level window grabbed at a fixed rate, its
// margin trimmed, black frames while it is minimised or hidden.
#pragma once

#include <windows.h>

#include <atomic>

#include "capture/capture_runner.h"
#include "roomcore/capture.h"

class WindowCaptureImpl : public WindowCapture, private capture::CaptureClient {
 public:
  // Cut off the window's picture: 8 columns each side, 7 lines top and bottom.
  static constexpr int kLeftOffset = 8;
  static constexpr int kTopOffset = 7;
  static constexpr int kWidthCut = 16;
  static constexpr int kHeightCut = 14;

  WindowCaptureImpl();
  ~WindowCaptureImpl() override;

  void SetCaptureEvent(WindowCaptureEvent* event) override;
  void SetFrameRate(int frames_per_second) override;
  void SelectWindow(HWND window) override;
  void SetDrawCursor(bool draw) override;
  void SetOutputSize(int width, int height) override;
  bool Start() override;
  bool Stop() override;
  bool IsCapturing() override;

  // Release's part: destroys the object now, or, on the capture's own
  // thread, when that thread's run has ended.
  void Destroy();

 private:
  void Grab(HWND target);

  // capture::CaptureClient
  void BeginRun() override;
  void Pass() override;
  void EndRun() override;
  bool HasEvent() override;
  void SendFrame(const uint8_t* data, uint32_t size, int width, int height, int64_t timestamp) override;
  void DestroyOwner() override;

  std::atomic<HWND> window_{nullptr};
  std::atomic<WindowCaptureEvent*> event_{nullptr};
  capture::CaptureRunner runner_;
};

namespace capture {

// The trimmed size of a grab of `width` x `height` device pixels: the margin
// off, then the lowest bit cleared. At 0 or below there is nothing to grab.
inline int TrimmedWidth(int width) { return (width - WindowCaptureImpl::kWidthCut) & ~1; }
inline int TrimmedHeight(int height) { return (height - WindowCaptureImpl::kHeightCut) & ~1; }

}  // namespace capture
