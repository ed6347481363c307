// The custom stream that carries the shared desktop to the TRTC SDK: the
// host pushes I420 pictures in, the SDK pulls the oldest one out on a thread
// of its own. A queue of 12 decouples the two rates and drops the oldest.
#pragma once

#include <atomic>
#include <cstdint>

#include "liteav/ITRTCCloud.h"
#include "base/i420_frame.h"

class DesktopDataSource : public ILiteAVStreamDataSource {
 public:
  static const uint32_t kQueueCapacity = 12;

  DesktopDataSource();
  ~DesktopDataSource() override;
  DesktopDataSource(const DesktopDataSource&) = delete;
  DesktopDataSource& operator=(const DesktopDataSource&) = delete;

  // Both empty the queue, so that no picture from before a switch comes out
  // after it.
  bool Enable();
  bool Disable();
  // Copies width x height of I420 from `data`; `size` is not trusted.
  void PushFrame(const void* data, int32_t size, int32_t width, int32_t height, int64_t pts);

  void onStart() override {}
  void onStop() override {}
  int32_t onPullVideo(TRTCVideoFrame* out) override;
  int32_t onPullAudio(TRTCAudioFrame* out) override;

 private:
  // A pulled frame kept for the next push of the same size. A fresh 3 MB
  // buffer for every picture comes straight from virtual memory and costs
  // its page faults and zero fill each time, many times the two copies the
  // path is meant to cost. One spare is enough while the SDK keeps up; it is
  // handed over by exchange, so pusher and puller never share a frame.
  I420Frame* TakeSpare(int32_t width, int32_t height);
  void KeepSpare(I420Frame* frame);

  FrameQueue* queue_;
  std::atomic<bool> enabled_{false};
  std::atomic<I420Frame*> spare_{nullptr};
};
