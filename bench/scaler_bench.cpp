// FrameScaler::Scale against the bare sws_scale of the same conversion, for
// the source sizes a desktop share meets, into a 1920 x 1080 target.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "allocation_hooks.h"
#include "base/i420_frame.h"
#include "capture/frame_scaler.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/mem.h>
#include <libswscale/swscale.h>
}

namespace {

constexpr int kTargetWidth = 1920;
constexpr int kTargetHeight = 1080;
constexpr int kFit = 2;

// A desktop-like source: smooth gradients with sharp edges, not one colour,
// so that no conversion path can take a shortcut.
std::vector<uint8_t> MakeSource(int width, int height) {
  std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
      p[0] = static_cast<uint8_t>(x);
      p[1] = static_cast<uint8_t>(y);
      p[2] = static_cast<uint8_t>((x / 64 + y / 64) % 2 ? 230 : 20);
      p[3] = 255;
    }
  }
  return pixels;
}

void BM_FrameScalerScale(benchmark::State& state) {
  const int source_width = static_cast<int>(state.range(0));
  const int source_height = static_cast<int>(state.range(1));
  const std::vector<uint8_t> source = MakeSource(source_width, source_height);
  I420Frame* target = CreateI420Frame(kTargetWidth, kTargetHeight, false, 1);
  FrameScaler scaler;
  auto scale = [&] {
    scaler.Scale(target->planes[0], target->linesizes[0], target->planes[1], target->linesizes[1],
                 target->planes[2], target->linesizes[2], kTargetWidth, kTargetHeight, source.data(),
                 source_width * 4, source_width, source_height, AV_PIX_FMT_BGRA, kFit);
  };
  scale();  // the rebuild happens here, outside the measured steady state
  int64_t allocations = 0;
  for (auto _ : state) {
    const int64_t before = bench::AllocationCount();
    scale();
    allocations += bench::AllocationCount() - before;
    benchmark::DoNotOptimize(target->data);
    benchmark::ClobberMemory();
  }
  state.counters["allocs_per_frame"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
  state.counters["rebuilds"] = scaler.rebuild_count();
  state.counters["fitted_w"] = scaler.fitted_width();
  state.counters["fitted_h"] = scaler.fitted_height();
  FreeI420Frame(target);
}

// The conversion alone, as the scaler sets it up: into an image of the fitted
// size, alignment 1, bicubic, no paint and no placing.
void BM_SwsScaleRaw(benchmark::State& state) {
  const int source_width = static_cast<int>(state.range(0));
  const int source_height = static_cast<int>(state.range(1));
  const std::vector<uint8_t> source = MakeSource(source_width, source_height);
  FrameScaler probe;  // only for the fitted size, so both sides use the same arithmetic
  I420Frame* target = CreateI420Frame(kTargetWidth, kTargetHeight, false, 1);
  probe.Scale(target->planes[0], target->linesizes[0], target->planes[1], target->linesizes[1],
              target->planes[2], target->linesizes[2], kTargetWidth, kTargetHeight, source.data(),
              source_width * 4, source_width, source_height, AV_PIX_FMT_BGRA, kFit);
  const int fitted_width = probe.fitted_width();
  const int fitted_height = probe.fitted_height();
  FreeI420Frame(target);

  uint8_t* planes[4] = {};
  int linesizes[4] = {};
  av_image_alloc(planes, linesizes, fitted_width, fitted_height, AV_PIX_FMT_YUV420P, 1);
  SwsContext* context =
      sws_getContext(source_width, source_height, AV_PIX_FMT_BGRA, fitted_width, fitted_height,
                     AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr);
  const uint8_t* const source_planes[4] = {source.data(), nullptr, nullptr, nullptr};
  const int source_linesizes[4] = {source_width * 4, 0, 0, 0};
  sws_scale(context, source_planes, source_linesizes, 0, source_height, planes, linesizes);
  int64_t allocations = 0;
  for (auto _ : state) {
    const int64_t before = bench::AllocationCount();
    sws_scale(context, source_planes, source_linesizes, 0, source_height, planes, linesizes);
    allocations += bench::AllocationCount() - before;
    benchmark::DoNotOptimize(planes[0]);
    benchmark::ClobberMemory();
  }
  state.counters["allocs_per_frame"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
  sws_freeContext(context);
  av_freep(&planes[0]);
}

// Each size's two cases side by side, so that a slow phase of a shared
// machine hits both alike.
void Register() {
  const int sizes[][2] = {{1920, 1080}, {2560, 1440}, {1280, 1024}, {3840, 2160}};
  for (const auto& size : sizes) {
    for (auto* fn : {&BM_FrameScalerScale, &BM_SwsScaleRaw}) {
      benchmark::RegisterBenchmark(fn == &BM_FrameScalerScale ? "BM_FrameScalerScale" : "BM_SwsScaleRaw", fn)
          ->ArgNames({"w", "h"})
          ->Args({size[0], size[1]})
          ->Unit(benchmark::kMillisecond)
          ->UseRealTime()
          ->MinTime(0.5)
          ->Repetitions(5);
    }
  }
}
const int registered = (Register(), 0);

}  // namespace
