// Through roomcore.dll: sample arithmetic, and recording a tone played into the null sink through its
// monitor, the default input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <thread>

#include "audio/audio_testing.h"
#include "roomcore/clock.h"

namespace {

using Floats = std::vector<float>;

// Runs `f` on copies of `a` and `b` 16-byte aligned (the four-lane path) and a float past (per sample).
template <typename F>
Floats Aligned(Floats& a, Floats& b, F f) {
  Floats results[2], sources[2];
  for (int offset : {0, 1}) {
    alignas(16) float x[1100], y[1100];
    std::memcpy(x + offset, a.data(), a.size() * 4);
    std::memcpy(y + offset, b.data(), b.size() * 4);
    f(x + offset, y + offset);
    results[offset].assign(x + offset, x + offset + a.size());
    sources[offset].assign(y + offset, y + offset + b.size());
  }
  EXPECT_EQ(0, std::memcmp(results[0].data(), results[1].data(), a.size() * 4)) << "aligned and not differ";
  EXPECT_EQ(sources[0], sources[1]);
  b = sources[0];
  return results[0];
}

Floats Q(std::initializer_list<int> quarters) {  // of full scale
  Floats samples;
  for (int q : quarters) samples.push_back(q / 4.0f);
  return samples;
}

TEST(SampleMath, MixAddsClipsAndDownmixesTheSourceInPlaceAndMultiplyAppliesGain) {
  const struct {
    bool downmix;  // onto silence: the mix is the downmixed source, which the source becomes
    Floats dst, src, mixed;
  } cases[] = {
      {false, Q({3, -3, 3, 1, 2}), Q({2, -2, 1, 2, 2}), Q({4, -4, 4, 3, 4})},
      {true, Q({0, 0, 0, 0}), Q({4, 0, -4, 2}), Q({2, 2, -1, -1})},
      {true, Floats(6), Q({1, 3, 2, 4, -2, 4}), Q({2, 2, 3, 3, 1, 1})},  // a block of four and a pair
  };
  for (auto c : cases) {
    const Floats src = c.src;
    EXPECT_EQ(
        Aligned(c.dst, c.src, [&](float* d, float* s) { MixAudio(d, s, unsigned(src.size()), c.downmix); }),
        c.mixed);
    EXPECT_EQ(c.src, c.downmix ? c.mixed : src);
  }
  float dst = 0.5f, src = 0.25f;
  MixAudio(&dst, &src, 0, true);
  EXPECT_TRUE(dst == 0.5f && src == 0.25f);
  const struct {
    float gain;
    int count;
    Floats want;
  } gains[] = {{2, 6, Q({6, -4, 2, 8, 4, -8})}, {0, 6, Floats(6)}, {5, 0, Q({3, -2, 1, 4, 2, -4})}};
  for (const auto& c : gains) {  // without clipping
    Floats samples = Q({3, -2, 1, 4, 2, -4}), none;
    EXPECT_EQ(Aligned(samples, none, [&](float* s, float*) { MultiplyAudio(s, c.count, c.gain); }), c.want);
  }
}

TEST(RealEndpoints, RecordsAPlayedToneAtItsFrequencyAndLevel) {
  audio_testing::Recorder recorder;
  {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(tone.Start(L"Null Output", 1000, 0.5, audio_testing::TonePlayer::Shape::kSine));
    AudioCapture* capture = AudioCapture::Create();
    capture->SetCaptureEvent(&recorder, &recorder);
    // From a thread without COM, as an SDK callback thread (Wine's audio may give the process an apartment).
    std::thread([&] { EXPECT_TRUE(capture->StartDeviceByName(true, L"Monitor of Null Output")); }).join();
    EXPECT_TRUE(recorder.WaitBlocks(160, 15000)) << "is the sound server running (scripts/test-env.sh)?";
    EXPECT_TRUE(capture->IsActive() && capture->Stop() && !capture->IsRunning());
    AudioCapture::Release(capture);
    EXPECT_EQ(recorder.stop_ticks.size(), 1u);
  }
  int64_t previous = 0;
  std::vector<int16_t> all;
  for (const audio_testing::Block& b : recorder.blocks) {
    EXPECT_TRUE(b.bits == 16 && b.rate == 44100 && b.channels == 1 && b.user_data == &recorder);
    EXPECT_TRUE(b.timestamp <= TimeMicroseconds() &&
                b.timestamp >= previous - 20000);  // forward, within jitter
    previous = b.timestamp;
    const int16_t* samples = reinterpret_cast<const int16_t*>(b.bytes.data());
    all.insert(all.end(), samples, samples + b.bytes.size() / 2);
  }
  // The last second; the period is the median between rising zero crossings: a dropped stretch moves few.
  ASSERT_GT(all.size(), 44100u);
  const std::vector<int16_t> s(all.end() - 44100, all.end());
  std::vector<double> crossings, periods;
  double squares = 0;
  int peak = 0;
  for (size_t i = 1; i < s.size(); ++i) {
    if (s[i - 1] < 0 && s[i] >= 0) crossings.push_back(i - 1 + -s[i - 1] / (double(s[i]) - s[i - 1]));
    squares += double(s[i]) * s[i];
    peak = std::max(peak, std::abs(int(s[i])));
  }
  for (size_t i = 1; i < crossings.size(); ++i) periods.push_back(crossings[i] - crossings[i - 1]);
  ASSERT_GT(periods.size(), 100u);
  std::nth_element(periods.begin(), periods.begin() + periods.size() / 2, periods.end());
  EXPECT_NEAR(44100 / periods[periods.size() / 2], 1000, 10);
  EXPECT_NEAR(peak, 0.5 * 32767, 0.05 * 32767);
  EXPECT_NEAR(std::sqrt(squares / s.size()), 0.5 * 32767 / std::sqrt(2.0), 0.05 * 32767);
}

}  // namespace
