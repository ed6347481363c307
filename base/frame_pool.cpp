#include "base/frame_pool.h"

#include <algorithm>

FramePool::FramePool(int capacity) : capacity_(std::min(std::max(capacity, 1), kMaxFrames)) {
  for (int i = 0; i < kMaxFrames; ++i) {
    slots_[i] = nullptr;
    stamps_[i] = 0;
  }
}

FramePool::~FramePool() { Clear(); }

I420Frame* FramePool::Take(int width, int height) {
  for (;;) {
    int newest = -1;
    uint32_t newest_stamp = 0;
    for (int i = 0; i < capacity_; ++i) {
      if (!slots_[i].load()) continue;
      const uint32_t stamp = stamps_[i].load();
      if (newest < 0 || static_cast<int32_t>(stamp - newest_stamp) > 0) {
        newest = i;
        newest_stamp = stamp;
      }
    }
    if (newest < 0) break;
    I420Frame* frame = slots_[newest].exchange(nullptr);
    if (!frame) continue;  // another thread took it first
    if (frame->width == width && frame->height == height) return frame;
    FreeI420Frame(frame);
  }
  return CreateI420Frame(width, height, false, 0);
}

void FramePool::Give(I420Frame* frame) {
  if (!frame) return;
  if (!closed_.load()) {
    const uint32_t stamp = ++gives_;
    for (int i = 0; i < capacity_; ++i) {
      I420Frame* empty = nullptr;
      if (!slots_[i].compare_exchange_strong(empty, frame)) continue;
      stamps_[i] = stamp;
      // A Close that began meanwhile may have passed this slot already. The
      // flag is read after the slot was filled: either Close's sweep finds
      // the frame or this sees the flag, and whatever the slot holds then
      // is freed (a Take may have had it first).
      if (closed_.load()) FreeI420Frame(slots_[i].exchange(nullptr));
      return;
    }
  }
  FreeI420Frame(frame);
}

void FramePool::Clear() {
  for (int i = 0; i < capacity_; ++i) FreeI420Frame(slots_[i].exchange(nullptr));
}

void FramePool::Close() {
  closed_ = true;
  Clear();
}

void FramePool::Open() { closed_ = false; }
