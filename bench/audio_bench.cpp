// The audio capture path: one 20 ms packet through the resampler, and the
// capture thread recording the null sink's monitor (its CPU share, and the
// interval between the blocks it delivers).
#include <windows.h>

#include <benchmark/benchmark.h>
#include <objbase.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>
#include <vector>

#include "audio/audio_resampling.h"
#include "audio/tone_player.h"
#include "roomcore/audio.h"

extern "C" {
#include <libswresample/swresample.h>
}

namespace {

// A 20 ms packet of the endpoint's mix (44.1 kHz stereo float) into the
// default output (44.1 kHz mono 16-bit), as the drain does it.
void BM_ResampleBlock20ms(benchmark::State& state) {
  const int in_rate = static_cast<int>(state.range(0));
  WAVEFORMATEX mix = {};
  mix.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
  mix.nChannels = 2;
  mix.nSamplesPerSec = in_rate;
  mix.wBitsPerSample = 32;
  SwrContext* resampler = nullptr;
  if (!audio::ConfigureResampler(&resampler, mix, 44100, 1, AV_SAMPLE_FMT_S16)) {
    state.SkipWithError("swr_init failed");
    return;
  }
  const int frames = in_rate / 50;
  std::vector<float> in(static_cast<size_t>(frames) * 2);
  for (int i = 0; i < frames; ++i) in[2 * i] = in[2 * i + 1] = static_cast<float>(0.5 * std::sin(i * 0.142));
  std::vector<BYTE> out(0x100000);
  for (auto _ : state) {
    int converted = audio::ConvertPacket(resampler, reinterpret_cast<const BYTE*>(in.data()), frames,
                                         out.data(), static_cast<int>(out.size() / 2));
    benchmark::DoNotOptimize(converted);
  }
  audio::FreeResampler(&resampler);
}
BENCHMARK(BM_ResampleBlock20ms)->Arg(44100)->Arg(48000)->Unit(benchmark::kMicrosecond);

class Timing : public AudioCaptureEvent {
 public:
  void OnAudioData(void*, const void*, int size, int, int, int, int64_t) override {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    std::lock_guard<std::mutex> lock(mutex_);
    if (thread_id_ == 0) thread_id_ = GetCurrentThreadId();
    arrivals_.push_back(now.QuadPart);
    bytes_ += size;
  }
  DWORD thread_id() {
    std::lock_guard<std::mutex> lock(mutex_);
    return thread_id_;
  }
  std::vector<int64_t> arrivals() {
    std::lock_guard<std::mutex> lock(mutex_);
    return arrivals_;
  }
  int64_t bytes() {
    std::lock_guard<std::mutex> lock(mutex_);
    return bytes_;
  }

 private:
  std::mutex mutex_;
  DWORD thread_id_ = 0;
  std::vector<int64_t> arrivals_;
  int64_t bytes_ = 0;
};

int64_t ThreadCpu100ns(HANDLE thread) {
  FILETIME created, exited, kernel, user;
  if (!GetThreadTimes(thread, &created, &exited, &kernel, &user)) return -1;
  auto value = [](FILETIME t) { return (static_cast<int64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime; };
  return value(kernel) + value(user);
}

// Records the monitor for a few seconds while a tone plays into the sink.
void BM_CaptureMonitor(benchmark::State& state) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  audio_testing::TonePlayer tone;
  if (!tone.Start(L"Null Output", 1000.0, 0.5, audio_testing::TonePlayer::Shape::kSine)) {
    state.SkipWithError(
        "no \"Null Output\" endpoint: run through scripts/bench.sh (it starts the sound server)");
    return;
  }
  const double seconds = 5.0;
  for (auto _ : state) {
    Timing timing;
    AudioCapture* capture = AudioCapture::Create();
    capture->SetCaptureEvent(&timing, nullptr);
    capture->StartDeviceByName(true, L"Monitor of Null Output");
    // Let the stream settle, then measure from a known thread CPU time.
    while (timing.arrivals().size() < 20) Sleep(10);
    HANDLE thread = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, timing.thread_id());
    const size_t first = timing.arrivals().size();
    const int64_t bytes0 = timing.bytes();
    const int64_t cpu0 = ThreadCpu100ns(thread);
    const auto wall0 = std::chrono::steady_clock::now();
    Sleep(static_cast<DWORD>(seconds * 1000));
    const int64_t cpu1 = ThreadCpu100ns(thread);
    const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0).count();
    const int64_t bytes1 = timing.bytes();
    capture->Stop();
    AudioCapture::Release(capture);
    if (thread) CloseHandle(thread);

    std::vector<int64_t> arrivals = timing.arrivals();
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    std::vector<double> intervals;
    for (size_t i = first + 1; i < arrivals.size(); ++i) {
      intervals.push_back((arrivals[i] - arrivals[i - 1]) * 1000.0 / frequency.QuadPart);
    }
    std::sort(intervals.begin(), intervals.end());
    auto percentile = [&](double p) {
      return intervals.empty()
                 ? 0.0
                 : intervals[std::min(intervals.size() - 1, static_cast<size_t>(p * intervals.size()))];
    };
    const double blocks = static_cast<double>(intervals.size());
    const double samples = (bytes1 - bytes0) / 2.0;
    state.SetIterationTime(wall);
    state.counters["cpu_pct_of_core"] = cpu0 < 0 ? -1 : (cpu1 - cpu0) / 1e7 / wall * 100.0;
    state.counters["blocks"] = blocks;
    state.counters["block_ms"] = blocks > 0 ? samples / blocks / 44.1 : 0;
    state.counters["interval_p50_ms"] = percentile(0.50);
    state.counters["interval_p99_ms"] = percentile(0.99);
    state.counters["interval_max_ms"] = intervals.empty() ? 0 : intervals.back();
  }
}
BENCHMARK(BM_CaptureMonitor)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
