// The planar YUV 4:2:0 picture in one contiguous buffer, and the bounded,
// drop-oldest queue that carries such pictures to the custom stream's pull.
#pragma once

#include <cstdint>
#include <memory>

#include "base/lock.h"

class FramePool;

struct I420Frame {
  uint8_t* data;
  uint32_t size;
  uint8_t* planes[4];  // Y, U, V, alpha (null unless requested)
  int32_t linesizes[4];
  int32_t width;
  int32_t height;
  int64_t timestamp;
};

// With a non-zero fill, Y is painted 1, U and V 128 (and alpha 128): black as
// the scaler paints it. With fill 0 the caller overwrites all `size` bytes.
// Null, and no frame, for a negative size, for one whose bytes don't fit
// `size`, and when the memory can't be had.
I420Frame* CreateI420Frame(int width, int height, bool with_alpha, int fill);
void FreeI420Frame(I420Frame* frame);

class FrameQueue {
 public:
  // A capacity below 1 counts as 1. Frames the queue drops or clears go to
  // `pool` when there is one (it must outlive the queue), else are freed.
  explicit FrameQueue(uint32_t capacity, FramePool* pool = nullptr);
  ~FrameQueue();
  FrameQueue(const FrameQueue&) = delete;
  FrameQueue& operator=(const FrameQueue&) = delete;

  // Takes ownership. When full, the oldest frame is freed first. Never blocks.
  bool Push(I420Frame* frame);
  // The oldest frame, now owned by the caller; false (and *out untouched)
  // when empty. Never waits.
  bool Pop(I420Frame** out);
  void Clear();

 private:
  void Drop(I420Frame* frame);

  // A ring of capacity_ slots, made once: pushing never allocates.
  std::unique_ptr<I420Frame*[]> frames_;
  uint32_t first_ = 0;
  uint32_t count_ = 0;
  base::Lock lock_;
  const uint32_t capacity_;
  FramePool* const pool_;
};
