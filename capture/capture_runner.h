// What the display and the window capture share: the run of a capture thread
// (start, the polled stop, the stopped signal), the pacing loop, the reused
// grab buffer, the conversion into the output frame and its delivery, and the
// memory pictures a grab is made in.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "base/i420_frame.h"
#include "base/lock.h"
#include "base/scoped_handle.h"
#include "capture/frame_scaler.h"

namespace capture {

// The period of a frame rate, in microseconds, rounded: 83,333 at 12.
int64_t PeriodMicroseconds(int frames_per_second);

// A memory device context compatible with another, with a bitmap of its own
// selected into it. The bitmap is selected out before both are deleted.
class MemoryPicture {
 public:
  MemoryPicture(HDC compatible_with, int width, int height);
  ~MemoryPicture();
  MemoryPicture(const MemoryPicture&) = delete;
  MemoryPicture& operator=(const MemoryPicture&) = delete;

  HDC dc() const { return dc_; }
  HBITMAP bitmap() const { return bitmap_; }
  bool valid() const { return dc_ && bitmap_; }

 private:
  HDC dc_;
  HBITMAP bitmap_;
  HGDIOBJ previous_ = nullptr;
};

// The part of a capture that differs between display and window. All calls
// come on the capture thread.
class CaptureClient {
 public:
  // First thing on the thread, before the pacing starts.
  virtual void BeginRun() = 0;
  // One pass that is due.
  virtual void Pass() = 0;
  // After the loop, before the run is signalled as ended.
  virtual void EndRun() = 0;
  // Forward to the host's event, if one is set.
  virtual bool HasEvent() = 0;
  virtual void SendFrame(const uint8_t* data, uint32_t size, int width, int height, int64_t timestamp) = 0;
  // The owner was released on this thread: destroy it, runner included.
  // Last thing on the thread.
  virtual void DestroyOwner() = 0;

 protected:
  ~CaptureClient() = default;
};

class CaptureRunner {
 public:
  CaptureRunner(CaptureClient* client, const wchar_t* log_module);
  ~CaptureRunner();
  CaptureRunner(const CaptureRunner&) = delete;
  CaptureRunner& operator=(const CaptureRunner&) = delete;

  // Every wait below lets messages sent to the waiting thread through: the
  // capture thread may itself be waiting on a window that thread owns.

  // False while capturing, and while a thread that outlived a Stop's wait
  // doesn't end within another wait: two runs never share the buffers.
  bool Start();
  // Always true; waits up to 10 seconds for the thread to end (from the
  // capture thread itself, for all of them).
  bool Stop();
  // Stop, then wait without limit for a thread that outlived Stop's wait, so
  // that it never reads an object that is gone. The owner calls this first
  // in its destructor.
  void Shutdown();
  // For a release on the run's own thread (a host inside its own event):
  // ends the run without waiting and hands the owner's destruction to the
  // thread's end (CaptureClient::DestroyOwner). False anywhere else: the
  // caller destroys the owner itself.
  bool DestroyAtRunEnd();

  bool capturing() const { return capturing_.load(); }
  bool stop_requested() const { return stop_requested_.load(); }
  void set_frame_rate(int frames_per_second) { frame_rate_.store(frames_per_second); }
  int frame_rate() const { return frame_rate_.load(); }
  void set_draw_cursor(bool draw) { draw_cursor_.store(draw); }
  bool draw_cursor() const { return draw_cursor_.load(); }
  // Both values travel together, so the thread never sees half a change.
  void set_output_size(int width, int height);
  void output_size(int* width, int* height) const;

  // Capture thread only.
  // Makes the output frame at the current output size, unless it has it.
  void PrepareOutputFrame();
  void FreeOutputFrame();
  void DestroyScaler();
  void FreeGrabBuffer();
  // Reads `bitmap` out top line first, at `bits` a pixel, into the reused
  // grab buffer, which holds 4 bytes a pixel whatever the depth (the scaler
  // reads BGRA). Null if there is nothing to read, GetDIBits fails, or the
  // buffer's size doesn't fit 32 bits or can't be allocated (logged once).
  const uint8_t* ReadOut(HDC dc, HBITMAP bitmap, int width, int height, int bits);
  uint32_t grab_buffer_size() const { return grab_buffer_size_; }
  // Fits a packed BGRA picture into the output frame and hands it to the
  // host, unless a stop came or the output size is empty.
  void Deliver(const uint8_t* data, int width, int height, int64_t timestamp);
  // A black output frame (Y 1, U and V 128), stamped now.
  void DeliverBlack();
  // The line every grab pass writes, under the owner's module tag.
  void LogPass(int width, int height, DWORD begin) const;

 private:
  static DWORD WINAPI ThreadMain(LPVOID param);
  void Run();
  bool RunEnded() const;
  // The output frame at this size, or null (logged once) when there can be
  // no frame of it.
  I420Frame* OutputFrame(int width, int height);
  // Logs `format` with the size unless this failure was logged for this
  // size in this run.
  void LogFailureOnce(uint64_t* logged, const wchar_t* format, int width, int height) const;

  CaptureClient* const client_;
  const wchar_t* const log_module_;

  base::Lock lock_;  // Start and Stop
  base::ScopedHandle stopped_event_;
  std::atomic<bool> capturing_{false};
  std::atomic<bool> stop_requested_{true};
  std::atomic<int> frame_rate_{12};
  std::atomic<bool> draw_cursor_{true};
  std::atomic<uint64_t> output_size_;
  std::atomic<DWORD> thread_id_{0};
  // Set only on the capture thread, read by it at the end of the run.
  std::atomic<bool> destroy_at_end_{false};

  // Owned by the capture thread while a run lasts.
  std::unique_ptr<uint8_t[]> grab_buffer_;
  uint32_t grab_buffer_size_ = 0;
  I420Frame* output_frame_ = nullptr;
  std::unique_ptr<FrameScaler> scaler_;
  // The sizes whose failures this run has logged (packed; kNoSize: none).
  mutable uint64_t frame_failure_logged_;
  mutable uint64_t buffer_failure_logged_;
};

}  // namespace capture
