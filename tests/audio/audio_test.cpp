// Through roomcore.dll: sample arithmetic, and recording a tone played into the null sink from its monitor.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include "audio/audio_testing.h"
#include "roomcore/clock.h"

namespace {

using Floats = std::vector<float>;

// `f` on copies of `dst` and `src` 16-byte aligned (the four-lane path), then a float past (per sample).
template <typename F>
std::vector<Floats> Aligned(const Floats& dst, const Floats& src, F f) {  // both copies of both
  std::vector<Floats> out;
  for (int offset : {0, 1}) {
    alignas(16) float x[16], y[16];
    std::copy(dst.begin(), dst.end(), x + offset), std::copy(src.begin(), src.end(), y + offset);
    f(x + offset, y + offset);
    out.push_back(Floats(x + offset, x + offset + dst.size()));
    out.push_back(Floats(y + offset, y + offset + src.size()));
  }
  return out;
}

TEST(SampleMath, MixAddsClipsAndDownmixesTheSourceInPlaceAndMultiplyAppliesGain) {
  const struct {
    bool downmix;  // onto silence: the mix is the downmixed source, which the source becomes
    Floats dst, src, mixed;
  } cases[] = {
      {false, {.75, -.75, .75, .25, .5}, {.5, -.5, .25, .5, .5}, {1, -1, 1, .75, 1}},
      {true, {0, 0, 0, 0}, {1, 0, -1, .5}, {.5, .5, -.25, -.25}},
      {true, Floats(6), {.25, .75, .5, 1, -.5, 1}, {.5, .5, .75, .75, .25, .25}},  // four lanes, a pair
  };
  for (const auto& c : cases) {
    const Floats& after = c.downmix ? c.mixed : c.src;
    EXPECT_EQ(
        Aligned(c.dst, c.src, [&](float* d, float* s) { MixAudio(d, s, unsigned(after.size()), c.downmix); }),
        (std::vector<Floats>{c.mixed, after, c.mixed, after}));
  }
  float dst = 0.5f, src = 0.25f;
  MixAudio(&dst, &src, 0, true);
  EXPECT_TRUE(dst == 0.5f && src == 0.25f);
  const struct {
    float gain;
    int count;
    Floats want;
  } gains[] = {{2, 6, {1.5, -1, .5, 2, 1, -2}}, {0, 6, Floats(6)}, {5, 0, {.75, -.5, .25, 1, .5, -1}}};
  for (const auto& c : gains) {  // without clipping
    EXPECT_EQ(
        Aligned({.75, -.5, .25, 1, .5, -1}, {}, [&](float* s, float*) { MultiplyAudio(s, c.count, c.gain); }),
        (std::vector<Floats>{c.want, {}, c.want, {}}));
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
    EXPECT_TRUE(b.bits == 16 && b.rate == 44100 && b.channels == 1 && b.user_data == &recorder &&
                b.timestamp <= TimeMicroseconds() && b.timestamp >= previous - 20000);
    previous = b.timestamp;  // forward, within jitter
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
