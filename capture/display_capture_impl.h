// The display capture: the list of displays, still pictures, and the grab of
// one display at a fixed rate.
#pragma once

#include <windows.h>

#include <atomic>
#include <memory>
#include <vector>

#include "base/lock.h"
#include "capture/capture_runner.h"
#include "roomcore/capture.h"

class DisplayCaptureImpl : public DisplayCapture, private capture::CaptureClient {
 public:
  DisplayCaptureImpl();
  ~DisplayCaptureImpl() override;

  void RefreshDisplays() override;
  int GetDisplayCount() override;
  const DisplayInfo* GetDisplay(int index) override;
  DibImage* CaptureImage(const DisplayInfo* display) override;
  void SetCaptureEvent(DisplayCaptureEvent* event) override;
  void SetDrawCursor(bool draw) override;
  void SetFrameRate(int frames_per_second) override;
  void SelectDisplay(const DisplayInfo* display) override;
  void SetOutputSize(int width, int height) override;
  bool Start() override;
  bool Stop() override;
  bool IsCapturing() override;

  // Release's part: destroys the object now, or, on the capture's own
  // thread, when that thread's run has ended.
  void Destroy();

 private:
  // What a grab reads of the current display, copied whole under
  // `selection_lock_` so that a SelectDisplay during a grab never shows half.
  struct GrabArea {
    int width;
    int height;
    RECT monitor_rect;
  };

  static BOOL CALLBACK EnumMonitor(HMONITOR monitor, HDC dc, LPRECT rect, LPARAM param);
  void Enumerate();
  GrabArea CurrentArea();
  void Grab(const GrabArea& area);

  // capture::CaptureClient
  void BeginRun() override;
  void Pass() override;
  void EndRun() override;
  bool HasEvent() override;
  void SendFrame(const uint8_t* data, uint32_t size, int width, int height, int64_t timestamp) override;
  void DestroyOwner() override;

  base::Lock lock_;
  base::Lock selection_lock_;  // current_display_ only; taken inside lock_ or alone
  DisplayInfo current_display_;
  std::vector<DisplayInfo> displays_;
  int display_counter_ = 0;
  // The screen context the enumeration opened: the records' `dc` comes from
  // it, so it stays open until the next enumeration.
  HDC enumeration_dc_ = nullptr;
  std::atomic<DisplayCaptureEvent*> event_{nullptr};
  std::unique_ptr<DibImage> image_;
  capture::CaptureRunner runner_;
};
