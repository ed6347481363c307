// Recording real endpoints through roomcore.dll, as a host does. The test run
// provides a sound server with a null sink: what is played into "Null Output"
// is recorded from "Monitor of Null Output".
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio/capture_recorder.h"
#include "audio/tone_player.h"
#include "common/log_capture.h"
#include "roomcore/audio.h"
#include "roomcore/clock.h"

namespace {

using audio_testing::CaptureRecorder;
using audio_testing::TonePlayer;

const wchar_t kSink[] = L"Null Output";
const wchar_t kMonitor[] = L"Monitor of Null Output";

class AudioCaptureRealTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(audio_testing::HasEndpoint(true, kMonitor))
        << "no null-sink monitor among the capture endpoints: "
        << std::string(audio_testing::ListEndpoints(true).begin(), audio_testing::ListEndpoints(true).end())
        << "(run through scripts/test-env.sh, which starts the sound server)";
  }
};

// Recorded samples, once `seconds` of them have arrived.
std::vector<int16_t> Record(CaptureRecorder& recorder, double seconds) {
  const size_t wanted = static_cast<size_t>(seconds * 44100);
  EXPECT_TRUE(testing_support::WaitUntil(
      [&] { return audio_testing::Samples16(recorder.blocks()).size() >= wanted; }, 15000));
  return audio_testing::Samples16(recorder.blocks());
}

TEST_F(AudioCaptureRealTest, RecordsAPlayedToneAtItsFrequencyAndLevel) {
  TonePlayer tone;
  ASSERT_TRUE(tone.Start(kSink, 1000.0, 0.5, TonePlayer::Shape::kSine));
  CaptureRecorder recorder;
  AudioCapture* capture = AudioCapture::Create();
  capture->SetCaptureEvent(&recorder, &tone);
  ASSERT_TRUE(capture->StartDeviceByName(true, kMonitor));
  EXPECT_TRUE(testing_support::WaitUntil([&] { return capture->IsActive(); }));
  // Settle for half a second (the sink's latency, the resampler's start),
  // then measure one second.
  std::vector<int16_t> all = Record(recorder, 1.6);
  std::vector<audio_testing::Block> blocks = recorder.blocks();
  capture->Stop();
  EXPECT_FALSE(capture->IsRunning());
  EXPECT_EQ(recorder.stopped(), 1);
  AudioCapture::Release(capture);
  tone.Stop();

  ASSERT_FALSE(blocks.empty());
  int64_t previous = 0;
  for (const audio_testing::Block& b : blocks) {
    EXPECT_EQ(b.bits_per_sample, 16);
    EXPECT_EQ(b.sample_rate, 44100);
    EXPECT_EQ(b.channels, 1);
    EXPECT_EQ(b.user_data, &tone);
    EXPECT_LE(b.timestamp, TimeMicroseconds());
    EXPECT_GE(b.timestamp, previous - 20000) << "timestamps run forward (within a clock step and jitter)";
    previous = b.timestamp;
  }
  std::vector<int16_t> window(all.end() - 44100, all.end());
  // The period is the median distance between rising zero crossings, each
  // placed between its two samples: a dropped or doubled stretch on a busy
  // machine moves a few crossings, not the median.
  std::vector<double> crossings;
  double sum_squares = 0;
  int peak = 0;
  for (size_t i = 0; i < window.size(); ++i) {
    if (i > 0 && window[i - 1] < 0 && window[i] >= 0) {
      crossings.push_back(i - 1 + double(-window[i - 1]) / (double(window[i]) - window[i - 1]));
    }
    sum_squares += double(window[i]) * window[i];
    peak = std::max(peak, std::abs(int(window[i])));
  }
  ASSERT_GT(crossings.size(), 100u);
  std::vector<double> periods;
  for (size_t i = 1; i < crossings.size(); ++i) periods.push_back(crossings[i] - crossings[i - 1]);
  std::nth_element(periods.begin(), periods.begin() + periods.size() / 2, periods.end());
  const double frequency = 44100.0 / periods[periods.size() / 2];
  const double rms = std::sqrt(sum_squares / window.size());
  printf("recorded tone: %.2f Hz, peak %d, rms %.0f (played: 1000 Hz, peak 16384, rms 11585)\n", frequency,
         peak, rms);
  EXPECT_NEAR(frequency, 1000.0, 10.0);
  EXPECT_NEAR(peak, 0.5 * 32767, 0.05 * 32767);
  EXPECT_NEAR(rms, 0.5 * 32767 / std::sqrt(2.0), 0.05 * 32767);
}

TEST_F(AudioCaptureRealTest, FloatOutputAtTheMixRateKeepsTheToneAndStereo) {
  TonePlayer tone;
  ASSERT_TRUE(tone.Start(kSink, 440.0, 0.25, TonePlayer::Shape::kSine));
  CaptureRecorder recorder;
  AudioCapture* capture = AudioCapture::Create();
  capture->SetCaptureEvent(&recorder, nullptr);
  capture->SetOutputFormat(48000, 2, 32);
  ASSERT_TRUE(capture->StartDeviceByName(true, kMonitor));
  ASSERT_TRUE(recorder.WaitForBlocks(40, 10000));
  AudioCapture::Release(capture);
  std::vector<audio_testing::Block> blocks = recorder.blocks();
  float peak = 0;
  for (size_t k = blocks.size() / 2; k < blocks.size(); ++k) {
    const audio_testing::Block& b = blocks[k];
    EXPECT_EQ(b.bits_per_sample, 32);
    EXPECT_EQ(b.sample_rate, 48000);
    EXPECT_EQ(b.channels, 2);
    ASSERT_EQ(b.size % 8, 0);
    const float* f = reinterpret_cast<const float*>(b.bytes.data());
    for (int i = 0; i < b.size / 4; i += 2) {
      EXPECT_FLOAT_EQ(f[i], f[i + 1]);  // both channels carry the tone
      peak = std::max(peak, std::fabs(f[i]));
    }
  }
  // A loaded machine can starve the player for a moment; the gap's edges
  // then make the 48 kHz resampler ring, by up to 9 percent of the step
  // (Gibbs). A wrong scale (integers read as floats, a downmix factor)
  // lands far outside this.
  EXPECT_GE(peak, 0.23f);
  EXPECT_LE(peak, 0.25f * 1.09f + 0.005f);
}

TEST_F(AudioCaptureRealTest, AnUnknownNameRecordsTheDefaultInput) {
  CaptureRecorder recorder;
  AudioCapture* capture = AudioCapture::Create();
  capture->SetCaptureEvent(&recorder, nullptr);
  ASSERT_TRUE(capture->StartDeviceByName(true, L"No such microphone"));
  EXPECT_TRUE(recorder.WaitForBlocks(3, 10000));
  EXPECT_TRUE(capture->IsActive());
  AudioCapture::Release(capture);
  EXPECT_EQ(recorder.stopped(), 1);
}

}  // namespace
