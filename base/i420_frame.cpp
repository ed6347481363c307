#include "base/i420_frame.h"

#include <cstring>

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

FrameQueue::FrameQueue(uint32_t capacity) : capacity_(capacity) {}

FrameQueue::~FrameQueue() { Clear(); }

bool FrameQueue::Push(I420Frame* frame) {
  base::AutoLock hold(lock_);
  if (frames_.size() >= capacity_) {
    FreeI420Frame(frames_.front());
    frames_.pop_front();
  }
  frames_.push_back(frame);
  return true;
}

bool FrameQueue::Pop(I420Frame** out) {
  base::AutoLock hold(lock_);
  if (frames_.empty()) return false;
  *out = frames_.front();
  frames_.pop_front();
  return true;
}

void FrameQueue::Clear() {
  base::AutoLock hold(lock_);
  while (!frames_.empty()) {
    FreeI420Frame(frames_.front());
    frames_.pop_front();
  }
}
