// The desktop stream as a host and the SDK drive it: RTCEngine::PushDesktopFrame
// of a 1080p I420 picture, then one synchronous pull through the TRTC
// stand-in, which hands its own buffer to the data source's onPullVideo.
// The argument is the number of pushes a pull: 1 while the SDK keeps up, 2
// and 4 when it pulls at a half or a quarter of the capture rate and the
// full queue drops pictures. Time and allocations are per iteration (n
// pushes and one pull); allocs_per_frame counts per pushed picture.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "allocation_hooks.h"
#include "common/silent_engine_events.h"
#include "liteav_control.h"
#include "roomcore/rtc_engine.h"

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr size_t kFrameBytes = kWidth * kHeight + 2 * (kWidth / 2) * (kHeight / 2);

void BM_PushDesktopFrameAndPull(benchmark::State& state) {
  std::vector<uint8_t> picture(kFrameBytes);
  for (size_t i = 0; i < picture.size(); ++i) picture[i] = static_cast<uint8_t>(i * 31 + (i >> 11));
  std::vector<uint8_t> sdk_buffer(kFrameBytes);
  SilentEngineEvents events;
  RTCEngine* engine = CreaeRTCEngine();
  engine->Initialize(nullptr, &events);
  LiteavSetPullRate(0);  // no pulls but ours
  engine->EnableCaptureDesktopVideo(true);
  int64_t pts = 0;
  int64_t allocations = 0;
  bool all_pulled = true;
  // The steady state: the queue full (when pulls lag) and the frame pool
  // filled. Reaching it allocates at most the queue's capacity plus two
  // frames, once per streaming session.
  for (int round = 0; round < 32; ++round) {
    for (int64_t i = 0; i < state.range(0); ++i) {
      engine->PushDesktopFrame(picture.data(), static_cast<int32_t>(kFrameBytes), kWidth, kHeight, ++pts);
    }
    TRTCVideoFrame frame;
    LiteavPullVideoFrame(sdk_buffer.data(), static_cast<uint32_t>(sdk_buffer.size()), &frame);
  }
  for (auto _ : state) {
    const int64_t before = bench::AllocationCount();
    for (int64_t i = 0; i < state.range(0); ++i) {
      engine->PushDesktopFrame(picture.data(), static_cast<int32_t>(kFrameBytes), kWidth, kHeight, ++pts);
    }
    TRTCVideoFrame frame;
    const int32_t pulled =
        LiteavPullVideoFrame(sdk_buffer.data(), static_cast<uint32_t>(sdk_buffer.size()), &frame);
    allocations += bench::AllocationCount() - before;
    all_pulled = all_pulled && pulled == static_cast<int32_t>(kFrameBytes);
    benchmark::DoNotOptimize(sdk_buffer.data());
    benchmark::ClobberMemory();
  }
  engine->EnableCaptureDesktopVideo(false);
  engine->UnInitialize();
  ReleaseRTCEngine();
  if (!all_pulled || std::memcmp(sdk_buffer.data(), picture.data(), kFrameBytes) != 0) {
    state.SkipWithError("a pull did not give the pushed picture");
  }
  state.counters["allocs_per_frame"] = benchmark::Counter(
      static_cast<double>(allocations) / static_cast<double>(state.iterations() * state.range(0)));
}

BENCHMARK(BM_PushDesktopFrameAndPull)
    ->Arg(1)
    ->Arg(2)
    ->Arg(4)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime()
    ->MinTime(0.5)
    ->Repetitions(5);

}  // namespace
