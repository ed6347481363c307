// The desktop stream's copy path for one 1080p I420 picture, against one
// memcpy of the picture: the design copies twice (into a new frame on push,
// into the SDK's buffer on pull) and allocates one frame per picture.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "allocation_hooks.h"
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

// What the data source does, on the foundation's frame and queue alone: a
// new frame and a copy in, push, pop, a copy out, free.
void BM_FrameQueueCopyPath(benchmark::State& state) {
  const std::vector<uint8_t> source = Picture();
  std::vector<uint8_t> sdk_buffer(kFrameBytes);
  FrameQueue queue(12);
  int64_t pts = 0;
  int64_t allocations = 0;
  for (auto _ : state) {
    const int64_t before = bench::AllocationCount();
    I420Frame* frame = CreateI420Frame(kWidth, kHeight, false, 0);
    std::memcpy(frame->data, source.data(), frame->size);
    frame->timestamp = ++pts;
    queue.Push(frame);
    I420Frame* out = nullptr;
    queue.Pop(&out);
    std::memcpy(sdk_buffer.data(), out->data, out->size);
    FreeI420Frame(out);
    allocations += bench::AllocationCount() - before;
    benchmark::DoNotOptimize(sdk_buffer.data());
    benchmark::ClobberMemory();
  }
  state.counters["allocs_per_frame"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
}

// The same two copies and the queue, with one frame used over and over: the
// floor of the design once no fresh memory is touched for each picture.
void BM_FrameQueueCopyPathReusedFrame(benchmark::State& state) {
  const std::vector<uint8_t> source = Picture();
  std::vector<uint8_t> sdk_buffer(kFrameBytes);
  FrameQueue queue(12);
  I420Frame* frame = CreateI420Frame(kWidth, kHeight, false, 0);
  int64_t pts = 0;
  for (auto _ : state) {
    std::memcpy(frame->data, source.data(), frame->size);
    frame->timestamp = ++pts;
    queue.Push(frame);
    queue.Pop(&frame);
    std::memcpy(sdk_buffer.data(), frame->data, frame->size);
    benchmark::DoNotOptimize(sdk_buffer.data());
    benchmark::ClobberMemory();
  }
  FreeI420Frame(frame);
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
BENCHMARK(BM_FrameQueueCopyPathReusedFrame)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->MinTime(0.5)
    ->Repetitions(5);
BENCHMARK(BM_MallocMemcpyFree1080p)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->MinTime(0.5)
    ->Repetitions(5);

}  // namespace
