// FrameScaler::Scale against the bare sws_scale of the same conversion, for
// the source sizes a desktop share meets, into a 1920 x 1080 target.
#include <windows.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
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

// One source size into the 1920 x 1080 target, as the scaler does it (the
// first call rebuilds, so the constructor makes it).
class ScalerCase {
 public:
  explicit ScalerCase(const benchmark::State& state)
      : width_(static_cast<int>(state.range(0))),
        height_(static_cast<int>(state.range(1))),
        source_(MakeSource(width_, height_)),
        target_(CreateI420Frame(kTargetWidth, kTargetHeight, false, 1)) {
    Scale();
  }
  ~ScalerCase() { FreeI420Frame(target_); }
  ScalerCase(const ScalerCase&) = delete;
  ScalerCase& operator=(const ScalerCase&) = delete;

  void Scale() {
    scaler_.Scale(target_->planes[0], target_->linesizes[0], target_->planes[1], target_->linesizes[1],
                  target_->planes[2], target_->linesizes[2], kTargetWidth, kTargetHeight, source_.data(),
                  width_ * 4, width_, height_, AV_PIX_FMT_BGRA, kFit);
  }
  const FrameScaler& scaler() const { return scaler_; }
  const I420Frame* target() const { return target_; }
  int width() const { return width_; }
  int height() const { return height_; }
  const uint8_t* source() const { return source_.data(); }

 private:
  const int width_;
  const int height_;
  const std::vector<uint8_t> source_;
  I420Frame* const target_;
  FrameScaler scaler_;
};

// The conversion alone, as the scaler sets it up: the case's source into an
// image of the fitted size, alignment 1, bicubic, no paint and no placing.
class RawConversion {
 public:
  explicit RawConversion(const ScalerCase& c)
      : height_(c.height()),
        source_planes_{c.source(), nullptr, nullptr, nullptr},
        source_linesizes_{c.width() * 4, 0, 0, 0} {
    const int width = c.scaler().fitted_width();
    const int height = c.scaler().fitted_height();
    av_image_alloc(planes_, linesizes_, width, height, AV_PIX_FMT_YUV420P, 1);
    context_ = sws_getContext(c.width(), c.height(), AV_PIX_FMT_BGRA, width, height, AV_PIX_FMT_YUV420P,
                              SWS_BICUBIC, nullptr, nullptr, nullptr);
    Run();
  }
  ~RawConversion() {
    sws_freeContext(context_);
    av_freep(&planes_[0]);
  }
  RawConversion(const RawConversion&) = delete;
  RawConversion& operator=(const RawConversion&) = delete;

  void Run() { sws_scale(context_, source_planes_, source_linesizes_, 0, height_, planes_, linesizes_); }
  const uint8_t* output() const { return planes_[0]; }

 private:
  const int height_;
  const uint8_t* const source_planes_[4];
  const int source_linesizes_[4];
  uint8_t* planes_[4] = {};
  int linesizes_[4] = {};
  SwsContext* context_ = nullptr;
};

void BM_FrameScalerScale(benchmark::State& state) {
  ScalerCase c(state);  // the rebuild happens here, outside the measured steady state
  int64_t allocations = 0;
  for (auto _ : state) {
    const int64_t before = bench::AllocationCount();
    c.Scale();
    allocations += bench::AllocationCount() - before;
    benchmark::DoNotOptimize(c.target()->data);
    benchmark::ClobberMemory();
  }
  state.counters["allocs_per_frame"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
  state.counters["rebuilds"] = c.scaler().rebuild_count();
  state.counters["fitted_w"] = c.scaler().fitted_width();
  state.counters["fitted_h"] = c.scaler().fitted_height();
}

// The conversion alone. The scaler case is made only for the fitted size, so
// that both sides use the same arithmetic.
void BM_SwsScaleRaw(benchmark::State& state) {
  ScalerCase c(state);
  RawConversion raw(c);
  int64_t allocations = 0;
  for (auto _ : state) {
    const int64_t before = bench::AllocationCount();
    raw.Run();
    allocations += bench::AllocationCount() - before;
    benchmark::DoNotOptimize(raw.output());
    benchmark::ClobberMemory();
  }
  state.counters["allocs_per_frame"] =
      benchmark::Counter(static_cast<double>(allocations) / static_cast<double>(state.iterations()));
}

// The thread's CPU time. Its clock ticks coarsely (10 ms under Wine), so a
// single frame's figure means little, but the sums over many frames are fair
// samples and, unlike wall time, don't count the time other processes run.
double ThreadCpuMs() {
  FILETIME creation, exit, kernel, user;
  GetThreadTimes(GetCurrentThread(), &creation, &exit, &kernel, &user);
  auto ms = [](const FILETIME& t) {
    return static_cast<double>((static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime) / 1e4;
  };
  return ms(kernel) + ms(user);
}

// Both in one loop, each frame timed on its own and in alternating order: on
// a shared machine a busy moment then falls on both sides of the comparison.
// Reported: the medians of the two per-frame times and the median of the
// per-frame ratios.
void BM_ScalePairedWithRaw(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  ScalerCase c(state);
  RawConversion raw(c);

  std::vector<double> scale_ms, raw_ms, ratios;
  double cpu_ms[2] = {0, 0};
  bool scale_first = true;
  for (auto _ : state) {
    double times[2];
    for (int k = 0; k < 2; ++k) {
      const bool run_scale = (k == 0) == scale_first;
      const double cpu_start = ThreadCpuMs();
      const Clock::time_point start = Clock::now();
      if (run_scale) {
        c.Scale();
      } else {
        raw.Run();
      }
      benchmark::ClobberMemory();
      times[run_scale ? 0 : 1] = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
      cpu_ms[run_scale ? 0 : 1] += ThreadCpuMs() - cpu_start;
    }
    scale_first = !scale_first;
    scale_ms.push_back(times[0]);
    raw_ms.push_back(times[1]);
    ratios.push_back(times[0] / times[1]);
    state.SetIterationTime((times[0] + times[1]) / 1e3);
  }
  auto median = [](std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  };
  state.counters["scale_ms"] = median(scale_ms);
  state.counters["raw_ms"] = median(raw_ms);
  state.counters["ratio"] = median(ratios);
  state.counters["cpu_ratio"] = cpu_ms[1] > 0 ? cpu_ms[0] / cpu_ms[1] : 0;
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
    benchmark::RegisterBenchmark("BM_ScalePairedWithRaw", &BM_ScalePairedWithRaw)
        ->ArgNames({"w", "h"})
        ->Args({size[0], size[1]})
        ->Unit(benchmark::kMillisecond)
        ->UseManualTime()
        ->MinTime(1.0)
        ->Repetitions(3);
  }
}
const int registered = (Register(), 0);

}  // namespace
