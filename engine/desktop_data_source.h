// The custom stream that carries the shared desktop to the TRTC SDK: the
// host pushes I420 pictures in, the SDK pulls the oldest one out on a thread
// of its own. A queue of 12 decouples the two rates and drops the oldest.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/frame_pool.h"
#include "base/i420_frame.h"
#include "liteav/ITRTCCloud.h"

class DesktopDataSource : public ILiteAVStreamDataSource {
 public:
  static const uint32_t kQueueCapacity = 12;

  DesktopDataSource();
  ~DesktopDataSource() override;
  DesktopDataSource(const DesktopDataSource&) = delete;
  DesktopDataSource& operator=(const DesktopDataSource&) = delete;

  // Both empty the queue, so that no picture from before a switch comes out
  // after it. Disable also gives back every frame's memory until Enable.
  bool Enable();
  bool Disable();
  // Gives back the memory of the frames kept for reuse.
  void Trim();
  // Copies width x height of I420 from `data`; `size` is not trusted.
  void PushFrame(const void* data, int32_t size, int32_t width, int32_t height, int64_t pts);

  void onStart() override {}
  void onStop() override {}
  int32_t onPullVideo(TRTCVideoFrame* out) override;
  int32_t onPullAudio(TRTCAudioFrame* out) override;

 private:
  // Frames for the pictures: what the queue holds, what a push is filling
  // and what a pull is copying out. Pushing takes one and nothing is
  // allocated in the steady state, whatever the rate of the pulls.
  FramePool pool_{static_cast<int>(kQueueCapacity) + 2};
  FrameQueue* queue_;
  std::atomic<bool> enabled_{false};
};
