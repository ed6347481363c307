#include "base/frame_pool.h"

#include <algorithm>

FramePool::FramePool(int capacity) : capacity_(std::min(std::max(capacity, 1), kMaxFrames)) {
  for (std::atomic<I420Frame*>& slot : slots_) slot = nullptr;
}

FramePool::~FramePool() { Clear(); }

I420Frame* FramePool::Take(int width, int height) {
  for (int i = 0; i < capacity_; ++i) {
    I420Frame* frame = slots_[i].exchange(nullptr);
    if (!frame) continue;
    if (frame->width == width && frame->height == height) return frame;
    FreeI420Frame(frame);
  }
  return CreateI420Frame(width, height, false, 0);
}

void FramePool::Give(I420Frame* frame) {
  if (!frame) return;
  for (int i = 0; i < capacity_; ++i) {
    I420Frame* empty = nullptr;
    if (slots_[i].compare_exchange_strong(empty, frame)) return;
  }
  FreeI420Frame(frame);
}

void FramePool::Clear() {
  for (int i = 0; i < capacity_; ++i) FreeI420Frame(slots_[i].exchange(nullptr));
}
