// The microphone level: its formula, its pacing, its capture, and a host's
// level handler that stops, restarts or ends the test on the capture thread.
#include "audio/audio_device_test.h"

#include <atomic>
#include <climits>
#include <thread>

#include "audio/fake_core_audio.h"
#include "base/clock_internal.h"

namespace {

class Levels : public AudioDeviceTestEvent, public audio_testing::Monitor {
 public:
  void OnAudioLevel(int level) override {
    Update([&] { levels.push_back(level); });
    std::function<void()> act;
    act.swap(action);
    if (act) act();
  }
  std::vector<int> Get() {
    std::lock_guard<std::mutex> lock(mutex_);
    return levels;
  }
  std::vector<int> levels;
  std::function<void()> action;  // run once, inside the next report
};

TEST_F(AudioTest, LevelIsFourteenTimesTheLogOfTheMeanMagnitude) {
  const struct {
    std::vector<int16_t> samples;
    int level;
  } cases[] = {
      {std::vector<int16_t>(441, 32767), 67},
      {std::vector<int16_t>(441, -32768), 67},
      {{1, -1, 1, -1}, 4},  // about 2.0 on the 65536 scale
      {{1, 0, 0, 0}, -4},   // a mean of 0.5, truncated toward zero
      {{1, 0, -1, 0}, 0},
      {{1000, -1000}, 46},
      {std::vector<int16_t>(441, 0), INT_MIN},
  };
  for (const auto& c : cases)
    EXPECT_EQ(AudioDeviceTest::Level(c.samples.data(), int(c.samples.size())), c.level);
}

std::atomic<DWORD> g_tick{0};
DWORD WINAPI Tick() { return g_tick; }

TEST_F(AudioTest, ReportsAtMostEvery600MsAndTheFirstBlockOfEachStart) {
  static const base::ClockPlatform kClock = {&Tick, &Sleep};
  g_tick = 100000;
  base::SetClockPlatformForTesting(&kClock);
  Levels levels;
  AudioDeviceTest test(&levels);
  auto block = [&test](int16_t value) {
    std::vector<int16_t> samples(100, value);
    test.OnAudioData(nullptr, samples.data(), 200, 16, 44100, 1, 0);
  };
  test.Start(L"Headset");
  ASSERT_TRUE(audio.WaitFor(L"GetDevice(mic2)"));
  block(32767);
  g_tick += 599;
  block(1);  // dropped unmeasured
  g_tick += 1;
  block(1);
  EXPECT_TRUE(test.Stop() && test.Stop());  // the stream's stop reports 0, once
  test.Start(L"No such name");              // the default input
  ASSERT_TRUE(audio.WaitFor(L"GetDevice(mic1)"));
  block(-1);  // at once, whatever the time
  base::SetClockPlatformForTesting(nullptr);
  EXPECT_EQ(levels.Get(), (std::vector<int>{67, 4, 0, 4}));
  AudioDeviceTest quiet(nullptr);
  quiet.OnAudioData(nullptr, nullptr, 1 << 30, 16, 44100, 1, 0);  // read nothing: the level goes nowhere
  quiet.OnCaptureStopped();
}

TEST_F(AudioTest, MeasuresWhatTheCaptureDeliversUntilItCantOpen) {
  Levels levels;
  {
    AudioDeviceTest test(&levels);
    test.Start(L"");
    ASSERT_TRUE(audio.WaitFor(L"client1 Start"));
    audio.Queue(std::vector<float>(960, 1.0f));  // stereo float at full scale
    ASSERT_TRUE(levels.Wait([&] { return levels.levels.size() == 1; }));
    EXPECT_GE(levels.Get()[0], 60);  // 16-bit mono near full scale, less the resampler's start
    audio.Script([](const std::wstring& call) { return call == L"GetDevice(mic1)" ? E_FAIL : S_OK; });
    test.Start(L"Microphone");  // the old test reports 0; the new can't open
    ASSERT_TRUE(audio.WaitFor(L"GetDevice(mic1)", 3));
  }
  EXPECT_EQ(levels.Get(), (std::vector<int>{levels.Get()[0], 0}));
}

TEST_F(AudioTest, ItsLevelHandlerMayStopRestartOrEndTheTest) {
  for (int action = 0; action < 3; ++action) {
    Clear();
    Levels levels;
    AudioDeviceTest* test = new AudioDeviceTest(&levels);
    HANDLE acted = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    levels.action = [&] {
      if (action == 0) test->Stop();
      if (action == 1) test->Start(L"Microphone");
      if (action == 2) delete test, test = nullptr;
      SetEvent(acted);
    };
    test->Start(L"Microphone");
    ASSERT_TRUE(audio.WaitFor(L"client1 Start"));
    audio.Queue(std::vector<float>(960, 1.0f));
    ASSERT_EQ(WaitForSingleObject(acted, 5000), WAIT_OBJECT_0) << "the handler's call hung";
    CloseHandle(acted);
    // Stopped: 0 once. Restarted: a fresh capture, whose first block counts.
    ASSERT_TRUE(action != 1 || audio.WaitFor(L"client1 Start", 2));
    if (action == 1) audio.Queue(std::vector<float>(960, 1.0f));
    EXPECT_TRUE(action == 2 || levels.Wait([&] { return levels.levels.size() == 2; }));
    delete test;
    EXPECT_TRUE(audio.Wait([this] { return audio.live_ == 0; }));
    const std::vector<int> got = levels.Get();
    ASSERT_EQ(got.size(), size_t(action == 2 ? 1 : action + 2));  // and 0 as the restarted test ends
    EXPECT_TRUE(action == 2 || (got[1] == 0) == (action == 0));
  }
}

// The host stops the test while the capture's stop reaches the host's level
// handler, which stops the test too: neither may wait for the other.
TEST_F(AudioTest, AStopMeetsAStopFromTheHandler) {
  Levels levels;
  AudioDeviceTest test(&levels);
  levels.action = [&] { test.Stop(); };
  test.Start(L"Microphone");
  ASSERT_TRUE(audio.WaitFor(L"client1 Start"));
  EXPECT_TRUE(test.Stop());
  EXPECT_EQ(levels.Get(), std::vector<int>{0});
}

// The engine starts tests from host threads and restarts them from the SDK's
// thread at a room's end; no capture may be lost or doubled.
TEST_F(AudioTest, StartsAndStopsFromTwoThreadsAtOnce) {
  {
    AudioDeviceTest test(nullptr);
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
  EXPECT_EQ(audio.Count(L"client1 Start"), audio.Count(L"client1 Stop"));
}

}  // namespace
