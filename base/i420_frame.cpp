#include "base/i420_frame.h"

#include <cstring>

#include "base/frame_pool.h"

I420Frame* CreateI420Frame(int width, int height, bool with_alpha, int fill) {
  I420Frame* frame = new I420Frame();
  std::memset(frame, 0, sizeof(*frame));
  const int chroma_width = (width + 1) / 2;
  const int chroma_height = (height + 1) / 2;
  const uint32_t luma_size = static_cast<uint32_t>(width) * static_cast<uint32_t>(height);
  const uint32_t chroma_size = static_cast<uint32_t>(chroma_width) * static_cast<uint32_t>(chroma_height);
  frame->width = width;
  frame->height = height;
  frame->linesizes[0] = width;
  frame->linesizes[1] = chroma_width;
  frame->linesizes[2] = chroma_width;
  frame->size = luma_size + 2 * chroma_size + (with_alpha ? luma_size : 0);
  frame->data = new uint8_t[frame->size];
  frame->planes[0] = frame->data;
  frame->planes[1] = frame->data + luma_size;
  frame->planes[2] = frame->planes[1] + chroma_size;
  if (with_alpha) frame->planes[3] = frame->planes[2] + chroma_size;
  if (fill != 0) {
    std::memset(frame->planes[0], 1, luma_size);
    std::memset(frame->planes[1], 128, 2 * chroma_size);
    if (with_alpha) std::memset(frame->planes[3], 128, luma_size);
  }
  return frame;
}

void FreeI420Frame(I420Frame* frame) {
  if (!frame) return;
  delete[] frame->data;
  delete frame;
}

FrameQueue::FrameQueue(uint32_t capacity, FramePool* pool)
    : frames_(new I420Frame*[capacity < 1 ? 1 : capacity]()),
      capacity_(capacity < 1 ? 1 : capacity),
      pool_(pool) {}

FrameQueue::~FrameQueue() { Clear(); }

void FrameQueue::Drop(I420Frame* frame) {
  if (pool_) {
    pool_->Give(frame);
  } else {
    FreeI420Frame(frame);
  }
}

bool FrameQueue::Push(I420Frame* frame) {
  base::AutoLock hold(lock_);
  if (count_ >= capacity_) {
    Drop(frames_[first_]);
    first_ = (first_ + 1) % capacity_;
    --count_;
  }
  frames_[(first_ + count_) % capacity_] = frame;
  ++count_;
  return true;
}

bool FrameQueue::Pop(I420Frame** out) {
  base::AutoLock hold(lock_);
  if (count_ == 0) return false;
  *out = frames_[first_];
  first_ = (first_ + 1) % capacity_;
  --count_;
  return true;
}

void FrameQueue::Clear() {
  base::AutoLock hold(lock_);
  while (count_ > 0) {
    Drop(frames_[first_]);
    first_ = (first_ + 1) % capacity_;
    --count_;
  }
}
