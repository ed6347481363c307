// Capture family: one display or one window grabbed at a fixed rate on a
// thread of the capture's own, each grab converted to an I420 picture of a
// fixed output size and handed to the host's event interface.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "roomcore/dib_image.h"
#include "roomcore_export.h"

// One display of the desktop, as the enumeration found it. `width` and
// `height` are device pixels, the rectangles are in the coordinates the
// process sees; on a scaled display the two differ.
struct DisplayInfo {
  std::wstring device_name;
  int32_t width = 0;
  int32_t height = 0;
  int32_t index = -1;
  RECT clip_rect = {};
  RECT work_rect = {};
  RECT monitor_rect = {};
  bool is_primary = true;
  HMONITOR monitor = nullptr;
  HDC dc = nullptr;
};

// Implemented by the host; called on the capture thread. `data` holds the Y,
// U and V planes one behind the other and is valid during the call only.
class DisplayCaptureEvent {
 public:
  // 1 when the capture thread has begun, 2 when it is about to end.
  virtual void OnCaptureStatus(int status) = 0;
  virtual void OnCaptureFrame(const uint8_t* data, uint32_t size, int width, int height, int reserved,
                              int64_t timestamp) = 0;

 protected:
  virtual ~DisplayCaptureEvent() = default;
};

class ROOMCORE_API DisplayCapture {
 public:
  // The one capture, made at first use; later calls return the same object.
  static DisplayCapture* Create();
  // Destroys the capture (stopping it first); null does nothing.
  static void Release(DisplayCapture* capture);

  DisplayCapture(const DisplayCapture&) = default;
  DisplayCapture& operator=(const DisplayCapture&) = default;

  virtual void RefreshDisplays() = 0;
  virtual int GetDisplayCount() = 0;
  // Null for an index out of range. Valid until the next RefreshDisplays.
  virtual const DisplayInfo* GetDisplay(int index) = 0;
  // A still picture of the display at its own size, without the cursor.
  // Owned by the capture; valid until the next CaptureImage or Release.
  virtual DibImage* CaptureImage(const DisplayInfo* display) = 0;
  virtual void SetCaptureEvent(DisplayCaptureEvent* event) = 0;
  virtual void SetDrawCursor(bool draw) = 0;
  // Takes effect at the next Start.
  virtual void SetFrameRate(int frames_per_second) = 0;
  // Copies the record; may come during a capture (the next grab uses it).
  virtual void SelectDisplay(const DisplayInfo* display) = 0;
  virtual void SetOutputSize(int width, int height) = 0;
  virtual bool Start() = 0;
  // Waits up to 10 seconds for the capture thread to end; always true.
  virtual bool Stop() = 0;
  virtual bool IsCapturing() = 0;

 protected:
  DisplayCapture() = default;
  virtual ~DisplayCapture() = default;
};

// Implemented by the host; called on the capture thread. Frames as in
// DisplayCaptureEvent.
class WindowCaptureEvent {
 public:
  // 2 when the thread has begun, 0 on each pass that finds no window, 3
  // when the thread is about to end.
  virtual void OnCaptureStatus(int status) = 0;
  virtual void OnCaptureFrame(const uint8_t* data, uint32_t size, int width, int height, int reserved,
                              int64_t timestamp) = 0;

 protected:
  virtual ~WindowCaptureEvent() = default;
};

class ROOMCORE_API WindowCapture {
 public:
  static WindowCapture* Create();
  static void Release(WindowCapture* capture);

  WindowCapture(const WindowCapture&) = default;
  WindowCapture& operator=(const WindowCapture&) = default;

  virtual void SetCaptureEvent(WindowCaptureEvent* event) = 0;
  // 0 or below means 12. Takes effect at the next Start.
  virtual void SetFrameRate(int frames_per_second) = 0;
  // Also brings the window to the front, on the calling thread. May come
  // during a capture: the next pass uses the new window.
  virtual void SelectWindow(HWND window) = 0;
  virtual void SetDrawCursor(bool draw) = 0;
  // Before Start: the run's output frame is made when its thread starts.
  virtual void SetOutputSize(int width, int height) = 0;
  virtual bool Start() = 0;
  virtual bool Stop() = 0;
  virtual bool IsCapturing() = 0;

 protected:
  WindowCapture() = default;
  virtual ~WindowCapture() = default;
};
