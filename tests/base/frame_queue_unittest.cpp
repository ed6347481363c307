#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "allocation_counter.h"
#include "base/frame_pool.h"
#include "base/i420_frame.h"

namespace {

bool AllBytes(const uint8_t* p, size_t n, uint8_t value) {
  for (size_t i = 0; i < n; ++i) {
    if (p[i] != value) return false;
  }
  return true;
}

// Planes without gaps, chroma halves rounded up, alpha only on request; a
// fill paints black (Y 1, U, V and alpha 128).
TEST(I420FrameLayout, PlanesFollowOneAnotherWithoutGaps) {
  const struct {
    int width, height;
    bool alpha;
    uint32_t size, u, v, a;
    int chroma_line;
  } cases[] = {
      {1, 1, false, 3, 1, 2, 0, 1}, {5, 3, false, 27, 15, 21, 0, 3}, {4, 4, true, 40, 16, 20, 24, 2}};
  for (const auto& c : cases) {
    I420Frame* f = CreateI420Frame(c.width, c.height, c.alpha, 1);
    EXPECT_EQ(f->size, c.size);
    EXPECT_EQ(f->width, c.width);
    EXPECT_EQ(f->timestamp, 0);
    EXPECT_EQ(f->planes[0], f->data);
    EXPECT_EQ(f->planes[1], f->data + c.u);
    EXPECT_EQ(f->planes[2], f->data + c.v);
    EXPECT_EQ(f->planes[3], c.alpha ? f->data + c.a : nullptr);
    EXPECT_EQ(f->linesizes[0], c.width);
    EXPECT_EQ(f->linesizes[1], c.chroma_line);
    EXPECT_EQ(f->linesizes[2], c.chroma_line);
    EXPECT_EQ(f->linesizes[3], 0);
    EXPECT_TRUE(AllBytes(f->planes[0], c.u, 1));
    EXPECT_TRUE(AllBytes(f->planes[1], (c.alpha ? c.a : c.size) - c.u, 128));
    if (c.alpha) {
      EXPECT_TRUE(AllBytes(f->planes[3], c.size - c.a, 128));
    }
    FreeI420Frame(f);
  }
  FreeI420Frame(nullptr);
}

I420Frame* Numbered(int64_t n) {
  I420Frame* f = CreateI420Frame(2, 2, false, 0);
  f->timestamp = n;
  return f;
}

TEST(FrameQueue, FullQueueDropsTheOldest) {
  const int64_t before = testing_support::LiveAllocations();
  {
    FrameQueue queue(12);
    for (int n = 1; n <= 13; ++n) EXPECT_TRUE(queue.Push(Numbered(n)));
    for (int n = 2; n <= 13; ++n) {
      I420Frame* out = nullptr;
      ASSERT_TRUE(queue.Pop(&out));
      EXPECT_EQ(out->timestamp, n);
      FreeI420Frame(out);
    }
    I420Frame* out = nullptr;
    EXPECT_FALSE(queue.Pop(&out));
  }
  EXPECT_EQ(testing_support::LiveAllocations(), before) << "the dropped frame was not freed";
}

TEST(FrameQueue, CapacityBelowOneCountsAsOneAndKeepsTheNewest) {
  for (uint32_t capacity : {0u, 1u}) {
    FrameQueue queue(capacity);
    queue.Push(Numbered(1));
    queue.Push(Numbered(2));
    I420Frame* out = nullptr;
    ASSERT_TRUE(queue.Pop(&out)) << capacity;
    EXPECT_EQ(out->timestamp, 2);
    FreeI420Frame(out);
    EXPECT_FALSE(queue.Pop(&out));
  }
}

// Frames a queue drops or clears go back to its pool, and a push takes them
// again: a stream of one size allocates nothing once the pool holds enough.
TEST(FramePool, ReusesDroppedAndReturnedFramesOfTheSizeInUse) {
  const int64_t before = testing_support::LiveAllocations();
  {
    FramePool pool(3);
    FrameQueue queue(2, &pool);
    I420Frame* first = pool.Take(4, 2);
    queue.Push(first);
    queue.Push(pool.Take(4, 2));
    queue.Push(pool.Take(4, 2));  // drops `first` into the pool
    const int64_t warm = testing_support::LiveAllocations();
    EXPECT_EQ(pool.Take(4, 2), first);
    pool.Give(first);
    queue.Clear();  // two more into the pool, which is now full
    EXPECT_EQ(testing_support::LiveAllocations(), warm);
    pool.Give(CreateI420Frame(4, 2, false, 0));  // no slot left: freed
    EXPECT_EQ(testing_support::LiveAllocations(), warm);
    // Another size empties the pool and makes a new frame.
    I420Frame* other = pool.Take(2, 2);
    EXPECT_EQ(other->width, 2);
    EXPECT_EQ(testing_support::LiveAllocations(), warm - 3 * 2 + 2);
    pool.Give(other);
  }
  EXPECT_EQ(testing_support::LiveAllocations(), before);
}

TEST(FrameQueue, ClearFreesEverythingAndEmpties) {
  const int64_t before = testing_support::LiveAllocations();
  {
    FrameQueue queue(12);
    I420Frame sentinel = {};
    I420Frame* untouched = &sentinel;
    EXPECT_FALSE(queue.Pop(&untouched));
    EXPECT_EQ(untouched, &sentinel);
    queue.Clear();  // empty: nothing happens
    for (int n = 1; n <= 5; ++n) queue.Push(Numbered(n));
    queue.Clear();
    I420Frame* out = nullptr;
    EXPECT_FALSE(queue.Pop(&out));
    queue.Push(Numbered(6));
    ASSERT_TRUE(queue.Pop(&out));
    EXPECT_EQ(out->timestamp, 6);
    FreeI420Frame(out);
    for (int n = 7; n <= 9; ++n) queue.Push(Numbered(n));
  }  // the destructor frees what is left
  EXPECT_EQ(testing_support::LiveAllocations(), before);
}

// A producer that never waits and a consumer that falls behind: every frame
// is either popped, in order, or dropped and freed; the newest is never lost.
TEST(FrameQueueThreads, ProducerAndConsumerLoseAndLeakNothing) {
  const int64_t before = testing_support::LiveAllocations();
  constexpr int kFrames = 5000;
  std::vector<int64_t> popped;
  popped.reserve(kFrames);
  {
    FrameQueue queue(12);
    std::atomic<bool> done{false};
    std::thread consumer([&] {
      for (;;) {
        const bool finished = done.load();
        I420Frame* out = nullptr;
        bool any = false;
        while (queue.Pop(&out)) {
          popped.push_back(out->timestamp);
          FreeI420Frame(out);
          any = true;
        }
        if (finished) break;
        if (!any) std::this_thread::yield();
      }
    });
    for (int n = 1; n <= kFrames; ++n) {
      queue.Push(Numbered(n));
      if (n % 64 == 0) std::this_thread::yield();
    }
    done.store(true);
    consumer.join();
  }
  ASSERT_FALSE(popped.empty());
  for (size_t i = 1; i < popped.size(); ++i) ASSERT_LT(popped[i - 1], popped[i]) << "order broken";
  EXPECT_EQ(popped.back(), kFrames) << "the newest frame was lost";
  const size_t reserved = 1;  // the vector's own block
  EXPECT_EQ(testing_support::LiveAllocations(), before + static_cast<int64_t>(reserved));
}

}  // namespace
