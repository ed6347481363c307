// A few spare frames of the size in use, so that a stream of pictures reuses
// its memory instead of allocating a frame for each: a fresh multi-megabyte
// block comes from virtual memory and costs page faults and zero fill every
// time. Slots are exchanged atomically, without a lock, so any thread may
// take or give, also under another object's lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/i420_frame.h"

class FramePool {
 public:
  static const int kMaxFrames = 16;

  // Keeps at most `capacity` frames (1 to kMaxFrames).
  explicit FramePool(int capacity);
  ~FramePool();
  FramePool(const FramePool&) = delete;
  FramePool& operator=(const FramePool&) = delete;

  // A kept frame of `width` x `height`, the one kept last by preference (its
  // memory is the likeliest to be in the caches still), or a new one whose
  // bytes the caller overwrites. Kept frames of another size are freed on
  // the way: a change of size empties the pool.
  I420Frame* Take(int width, int height);
  // Keeps `frame` for a later Take; frees it when every slot is taken or
  // the pool is closed.
  void Give(I420Frame* frame);
  // Frees every kept frame.
  void Clear();
  // Clear, and keep nothing until Open: a frame given back meanwhile, also
  // by a Give that was under way when Close began, is freed.
  void Close();
  void Open();

 private:
  const int capacity_;
  std::atomic<I420Frame*> slots_[kMaxFrames];
  // When each slot was filled, by a count of Give calls. Only a preference:
  // the frame itself changes hands by the exchange of its slot alone.
  std::atomic<uint32_t> stamps_[kMaxFrames];
  std::atomic<uint32_t> gives_{0};
  std::atomic<bool> closed_{false};
};
