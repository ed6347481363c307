// Recording the test run's sound server through roomcore.dll, as a host
// does: what is played into the null sink is recorded by its monitor, the
// default input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <thread>

#include "audio/audio_testing.h"
#include "roomcore/clock.h"

namespace {

// Records `blocks`, then stops.
audio_testing::Recorder& Record(AudioCapture* capture, audio_testing::Recorder& recorder, const wchar_t* name,
                                size_t blocks) {
  capture->SetCaptureEvent(&recorder, &recorder);
  // From a thread without COM of its own, as an SDK callback thread (Wine's
  // audio threads may give the process an apartment, so that isn't asserted).
  std::thread([&] { EXPECT_TRUE(capture->StartDeviceByName(true, name)); }).join();
  EXPECT_TRUE(recorder.WaitBlocks(blocks, 15000)) << "is the sound server running (scripts/test-env.sh)?";
  EXPECT_TRUE(capture->IsActive() && capture->Stop() && !capture->IsRunning());
  EXPECT_EQ(recorder.stop_ticks.size(), 1u);
  AudioCapture::Release(capture);
  return recorder;
}

TEST(RealEndpoints, RecordsAPlayedToneAtItsFrequencyAndLevel) {
  audio_testing::Recorder recorder;
  {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(tone.Start(L"Null Output", 1000, 0.5, audio_testing::TonePlayer::Shape::kSine));
    Record(AudioCapture::Create(), recorder, L"Monitor of Null Output", 160);  // about 1.6 s
  }
  int64_t previous = 0;
  for (const audio_testing::Block& b : recorder.blocks) {
    EXPECT_TRUE(b.bits == 16 && b.rate == 44100 && b.channels == 1 && b.user_data == &recorder);
    EXPECT_TRUE(b.timestamp <= TimeMicroseconds() &&
                b.timestamp >= previous - 20000);  // forward, within jitter
    previous = b.timestamp;
  }
  // The last second: the period is the median distance between rising zero
  // crossings, so that a stretch dropped on a busy machine moves few of them.
  const std::vector<int16_t> all = recorder.Samples();
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

TEST(RealEndpoints, FloatStereoAtTheMixRateFromTheDefaultInput) {
  audio_testing::Recorder recorder;
  {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(tone.Start(L"Null Output", 440, 0.25, audio_testing::TonePlayer::Shape::kSine));
    AudioCapture* capture = AudioCapture::Create();
    capture->SetOutputFormat(48000, 2, 32);
    Record(capture, recorder, L"No such microphone", 60);
  }
  float peak = 0;
  for (size_t k = recorder.blocks.size() / 2; k < recorder.blocks.size(); ++k) {
    const audio_testing::Block& b = recorder.blocks[k];
    EXPECT_TRUE(b.bits == 32 && b.rate == 48000 && b.channels == 2);
    const float* f = reinterpret_cast<const float*>(b.bytes.data());
    for (size_t i = 0; i + 1 < b.bytes.size() / 4; i += 2) {  // frames of the first `size` bytes
      EXPECT_FLOAT_EQ(f[i], f[i + 1]);
      peak = std::max(peak, std::fabs(f[i]));
    }
  }
  // A starved player's gap makes the resampler ring by up to 9 percent; a
  // wrong scale (integers read as floats, a downmix factor) lands far off.
  EXPECT_TRUE(peak >= 0.23f && peak <= 0.25f * 1.09f + 0.005f) << peak;
}

}  // namespace
