// The microphone level: its formula, its 600 ms pacing, and its capture.
#include "audio/audio_device_test.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "audio/fake_core_audio.h"
#include "audio/level_recorder.h"
#include "base/clock_internal.h"
#include "common/log_capture.h"

namespace {

using fake_audio::FakeAudioSystem;
using fake_audio::Step;

using Levels = audio_testing::LevelRecorder;

int LevelOf(std::vector<int16_t> samples) {
  return AudioDeviceTest::Level(samples.data(), static_cast<int>(samples.size()));
}

TEST(AudioLevel, Formula) {
  EXPECT_EQ(LevelOf(std::vector<int16_t>(441, 32767)), 67);
  EXPECT_EQ(LevelOf(std::vector<int16_t>(441, -32768)), 67);
  EXPECT_EQ(LevelOf({1, -1, 1, -1}), 4);  // about 2.0 on the 65536 scale
  EXPECT_EQ(LevelOf({1, 0, 0, 0}), -4);   // mean 0.5: truncated toward zero
  EXPECT_EQ(LevelOf({1, 0, -1, 0}), 0);   // mean 1.0
  EXPECT_EQ(LevelOf(std::vector<int16_t>(441, 0)), INT_MIN);
  // 1000 on the 65536 scale is about 2000: 14 * log10(2000.06) = 46.2.
  EXPECT_EQ(LevelOf({1000, -1000}), 46);
}

std::atomic<DWORD> g_tick{0};
DWORD WINAPI Tick() { return g_tick.load(); }

class AudioLevelPacing : public ::testing::Test {
 protected:
  void SetUp() override {
    static const base::ClockPlatform kClock = {&Tick, &Sleep};
    g_tick = 100000;
    base::SetClockPlatformForTesting(&kClock);
  }
  void TearDown() override { base::SetClockPlatformForTesting(nullptr); }
  void Block(AudioDeviceTest& test, int16_t value) {
    std::vector<int16_t> samples(100, value);
    test.OnAudioData(nullptr, samples.data(), 200, 16, 44100, 1, 0);
  }
};

TEST_F(AudioLevelPacing, OneReportPer600Milliseconds) {
  Levels levels;
  AudioDeviceTest test(&levels);
  Block(test, 32767);  // the first block is always measured
  ASSERT_EQ(levels.levels(), std::vector<int>{67});
  g_tick = 100000 + 599;
  Block(test, 1);  // 599 ms later: dropped
  EXPECT_EQ(levels.size(), 1u);
  g_tick = 100000 + 600;
  Block(test, 1);
  EXPECT_EQ(levels.levels(), (std::vector<int>{67, 4}));
  test.OnCaptureStopped();
  EXPECT_EQ(levels.levels(), (std::vector<int>{67, 4, 0}));
}

TEST_F(AudioLevelPacing, NoEventMeansNoReportAndNoFault) {
  AudioDeviceTest test(nullptr);
  Block(test, 32767);
  test.OnCaptureStopped();
}

TEST(AudioDeviceTestCapture, UnknownNamesFallBackToTheDefaultInputAndStopReportsZeroOnce) {
  FakeAudioSystem system;
  system.AddEndpoint({L"mic1", L"Microphone", true});
  system.AddEndpoint({L"mic2", L"Headset", true});
  system.SetDefault(true, L"mic1");
  Levels levels;
  {
    AudioDeviceTest test(&levels);
    test.Start(L"Headset");
    ASSERT_TRUE(system.WaitFor(L"client1 Start"));
    EXPECT_EQ(system.Count(L"GetDevice(mic2)"), 1);
    std::vector<float> full(960, 1.0f);  // stereo float at full scale
    system.QueuePacket(full);
    ASSERT_TRUE(testing_support::WaitUntil([&] { return levels.size() == 1; }));
    EXPECT_GE(levels.levels()[0], 60);  // 16-bit near full scale, less the resampler's start

    // A new test: the old capture ends (level 0 once), a new one starts.
    test.Start(L"");
    ASSERT_TRUE(system.WaitFor(L"client1 Start", 2));
    EXPECT_EQ(levels.levels().back(), 0);
    EXPECT_EQ(system.Count(L"GetDevice(mic1)"), 1);
    EXPECT_TRUE(test.Stop());
    EXPECT_EQ(levels.size(), 3u);
    EXPECT_TRUE(test.Stop());
    EXPECT_EQ(levels.size(), 3u);

    // A device that can't be opened gives no level and keeps retrying.
    system.FailAt(Step::kActivate, E_FAIL);
    test.Start(L"Microphone");
    ASSERT_TRUE(system.WaitFor(L"GetDevice(mic1)", 2));
  }
  EXPECT_EQ(levels.size(), 3u);
  EXPECT_EQ(system.live_objects(), 0);
}

// The engine starts tests from host threads and restarts them from the SDK's
// thread at a room's end; neither may lose or double a capture.
TEST(AudioDeviceTestCapture, StartsAndStopsFromTwoThreadsAtOnce) {
  FakeAudioSystem system;
  system.AddEndpoint({L"mic1", L"Microphone", true});
  system.SetDefault(true, L"mic1");
  Levels levels;
  {
    AudioDeviceTest test(&levels);
    auto churn = [&test] {
      for (int i = 0; i < 20; ++i) {
        test.Start(L"Microphone");
        if (i % 3 == 0) test.Stop();
      }
    };
    std::thread a(churn), b(churn);
    a.join();
    b.join();
  }
  // Every stream that opened ended once, and nothing is left open.
  EXPECT_EQ(system.Count(L"client1 Start"), system.Count(L"client1 Stop"));
  EXPECT_EQ(system.live_objects(), 0);
}

// A level handler that acts once, on the capture thread, as a host's
// OnMicTestVolume that stops or restarts the microphone test does.
class ActingLevels : public Levels {
 public:
  void OnAudioLevel(int level) override {
    Levels::OnAudioLevel(level);
    if (action && action(level)) {
      action = nullptr;
      SetEvent(acted);
    }
  }
  std::function<bool(int level)> action;  // true once it has acted
  HANDLE acted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

TEST(AudioDeviceTestCapture, ItsLevelHandlerMayStopRestartOrEndTheTest) {
  enum class Action { kStop, kRestart, kDestroy };
  for (Action action : {Action::kStop, Action::kRestart, Action::kDestroy}) {
    SCOPED_TRACE(static_cast<int>(action));
    FakeAudioSystem system;
    system.AddEndpoint({L"mic1", L"Microphone", true});
    system.SetDefault(true, L"mic1");
    ActingLevels levels;
    AudioDeviceTest* test = new AudioDeviceTest(&levels);
    levels.action = [&](int) {
      if (action == Action::kStop) test->Stop();
      if (action == Action::kRestart) test->Start(L"Microphone");
      if (action == Action::kDestroy) {
        delete test;
        test = nullptr;
      }
      return true;
    };
    test->Start(L"Microphone");
    ASSERT_TRUE(system.WaitFor(L"client1 Start"));
    system.QueuePacket(std::vector<float>(960, 1.0f));
    ASSERT_EQ(WaitForSingleObject(levels.acted, 5000), WAIT_OBJECT_0) << "the handler's call hung";
    if (action == Action::kStop) {
      ASSERT_TRUE(testing_support::WaitUntil([&] { return levels.size() == 2; }));
      EXPECT_EQ(levels.levels()[1], 0);
    }
    if (action == Action::kRestart) {
      // A fresh capture, whose first block is reported at once.
      ASSERT_TRUE(system.WaitFor(L"client1 Start", 2));
      system.QueuePacket(std::vector<float>(960, 1.0f));
      ASSERT_TRUE(testing_support::WaitUntil([&] { return levels.size() == 2; }));
      EXPECT_NE(levels.levels()[1], 0);
    }
    delete test;
    EXPECT_TRUE(testing_support::WaitUntil([&] { return system.live_objects() == 0; }));
    CloseHandle(levels.acted);
  }
}

// The host stops the test while the capture's stop reaches the host's
// handler, which stops the test too: neither may wait for the other.
TEST(AudioDeviceTestCapture, AStopMeetsAStopFromTheHandler) {
  FakeAudioSystem system;
  system.AddEndpoint({L"mic1", L"Microphone", true});
  system.SetDefault(true, L"mic1");
  ActingLevels levels;
  AudioDeviceTest test(&levels);
  levels.action = [&](int level) {
    if (level != 0) return false;
    test.Stop();
    return true;
  };
  test.Start(L"Microphone");
  ASSERT_TRUE(system.WaitFor(L"client1 Start"));
  EXPECT_TRUE(test.Stop());
  EXPECT_EQ(WaitForSingleObject(levels.acted, 0), WAIT_OBJECT_0);
  EXPECT_EQ(levels.levels(), std::vector<int>{0});
  CloseHandle(levels.acted);
}

}  // namespace
