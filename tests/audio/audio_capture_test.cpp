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

TEST(RealEndpoints, RecordsAPlayedToneAtItsFrequencyAndLevel) {
  audio_testing::Recorder recorder;
  {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(tone.Start(L"Null Output", 1000, 0.5, audio_testing::TonePlayer::Shape::kSine));
    AudioCapture* capture = AudioCapture::Create();
    capture->SetCaptureEvent(&recorder, &recorder);
    // From a thread without COM of its own, as an SDK callback thread (Wine's
    // audio threads may give the process an apartment: that isn't asserted).
    std::thread([&] { EXPECT_TRUE(capture->StartDeviceByName(true, L"Monitor of Null Output")); }).join();
    EXPECT_TRUE(recorder.WaitBlocks(160, 15000)) << "is the sound server running (scripts/test-env.sh)?";
    EXPECT_TRUE(capture->IsActive() && capture->Stop() && !capture->IsRunning());
    AudioCapture::Release(capture);
    EXPECT_EQ(recorder.stop_ticks.size(), 1u);
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
  std::vector<int16_t> all;
  for (const audio_testing::Block& b : recorder.blocks) {
    const int16_t* samples = reinterpret_cast<const int16_t*>(b.bytes.data());
    all.insert(all.end(), samples, samples + b.bytes.size() / 2);
  }
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
