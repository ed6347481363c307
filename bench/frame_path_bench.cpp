// The desktop stream's copy path for one 1080p I420 picture, against one
// memcpy of the picture: two copies (into a frame of the pool on push, into
// the SDK's buffer on pull), and no allocation once the pool holds frames.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "allocation_hooks.h"
#include "base/frame_pool.h"
#include "base/i420_frame.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr size_t kFrameBytes = kWidth * kHeight + 2 * (kWidth / 2) * (kHeight / 2);

std::vector<uint8_t> Picture() {
  std::vector<uint8_t> bytes(kFrameBytes);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 31 + (i >> 11));
  return bytes;
}

void BM_MemcpyFrame1080p(benchmark::State& state) {
  const std::vector<uint8_t> source = Picture();
  std::vector<uint8_t> target(kFrameBytes);
  for (auto _ : state) {
    std::memcpy(target.data(), source.data(), kFrameBytes);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(kFrameBytes));
}

// What the data source does, on the foundation's pool and queue alone: a
// frame from the pool and a copy in, push, pop, a copy out, back to the pool.
void BM_FrameQueueCopyPath(benchmark::State& state) {
  const std::vector<uint8_t> source = Picture();
  std::vector<uint8_t> sdk_buffer(kFrameBytes);
  FramePool pool(14);
  FrameQueue queue(12, &pool);
  pool.Give(pool.Take(kWidth, kHeight));  // the one frame this path cycles
  int64_t pts = 0;
  int64_t allocations = 0;
  for (auto _ : state) {
    const int64_t before = bench::AllocationCount();
    I420Frame* frame = pool.Take(kWidth, kHeight);
    std::memcpy(frame->data, source.data(), frame->size);
    frame->timestamp = ++pts;
    queue.Push(frame);
    I420Frame* out = nullptr;
    queue.Pop(&out);
    std::memcpy(sdk_buffer.data(), out->data, out->size);
    pool.Give(out);
    allocations += bench::AllocationCount() - before;
    benchmark::DoNotOptimize(sdk_buffer.data());
    benchmark::ClobberMemory();
  }
  state.counters["allocs_per_frame"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
}

// Where the copy path's time goes: a fresh 3 MB block for every picture.
// Large blocks come straight from the system's virtual memory, so each new
// frame's pages are faulted in and zeroed on first touch.
void BM_MallocMemcpyFree1080p(benchmark::State& state) {
  const std::vector<uint8_t> source = Picture();
  int64_t allocations = 0;
  for (auto _ : state) {
    const int64_t before = bench::AllocationCount();
    auto* block = new uint8_t[kFrameBytes];
    std::memcpy(block, source.data(), kFrameBytes);
    benchmark::DoNotOptimize(block);
    benchmark::ClobberMemory();
    delete[] block;
    allocations += bench::AllocationCount() - before;
  }
  state.counters["allocs_per_frame"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
}

BENCHMARK(BM_MemcpyFrame1080p)->Unit(benchmark::kMicrosecond)->UseRealTime()->MinTime(0.5)->Repetitions(5);
BENCHMARK(BM_FrameQueueCopyPath)->Unit(benchmark::kMicrosecond)->UseRealTime()->MinTime(0.5)->Repetitions(5);
BENCHMARK(BM_MallocMemcpyFree1080p)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->MinTime(0.5)
    ->Repetitions(5);

}  // namespace
