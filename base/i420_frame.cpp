#include "base/i420_frame.h"

#include <cstring>
#include <memory>
#include <new>

#include "base/frame_pool.h"

I420Frame* CreateI420Frame(int width, int height, bool with_alpha, int fill) {
  if (width < 0 || height < 0) return nullptr;
  // In 64 bits: a size past 4 GiB would otherwise wrap to a small buffer
  // that the paint below, and every writer after it, runs far past.
  const uint64_t chroma_width = (static_cast<uint64_t>(width) + 1) / 2;
  const uint64_t chroma_height = (static_cast<uint64_t>(height) + 1) / 2;
  const uint64_t luma_size = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  const uint64_t chroma_size = chroma_width * chroma_height;
  const uint64_t size = luma_size + 2 * chroma_size + (with_alpha ? luma_size : 0);
  if (size > UINT32_MAX || size > SIZE_MAX) return nullptr;
  std::unique_ptr<I420Frame> frame(new (std::nothrow) I420Frame());
  if (!frame) return nullptr;
  std::memset(frame.get(), 0, sizeof(I420Frame));
  frame->data = new (std::nothrow) uint8_t[static_cast<size_t>(size)];
  if (!frame->data) return nullptr;
  frame->size = static_cast<uint32_t>(size);
  frame->width = width;
  frame->height = height;
  frame->linesizes[0] = width;
  frame->linesizes[1] = static_cast<int32_t>(chroma_width);
  frame->linesizes[2] = static_cast<int32_t>(chroma_width);
  frame->planes[0] = frame->data;
  frame->planes[1] = frame->data + luma_size;
  frame->planes[2] = frame->planes[1] + chroma_size;
  if (with_alpha) frame->planes[3] = frame->planes[2] + chroma_size;
  if (fill != 0) {
    std::memset(frame->planes[0], 1, static_cast<size_t>(luma_size));
    std::memset(frame->planes[1], 128, static_cast<size_t>(2 * chroma_size));
    if (with_alpha) std::memset(frame->planes[3], 128, static_cast<size_t>(luma_size));
  }
  return frame.release();
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
