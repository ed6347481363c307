// Endpoint lists, names and defaults, the exported listener, and the microphone level (its formula, pacing
// and handler), against scripted Core Audio and on the real endpoints: a null sink and its monitor.
#include <climits>
#include <thread>

#include "audio/audio_device_enumerator.h"
#include "audio/audio_device_listener.h"
#include "audio/audio_device_test.h"
#include "audio/fake_core_audio.h"
#include "base/clock_internal.h"

namespace {

using Levels = audio_testing::Recorder;

TEST_F(AudioTest, EnumeratorListsFindsAndNamesActiveEndpoints) {
  for (const Endpoint& e :
       {Endpoint{L"mic3", L"Headset", true, DEVICE_STATE_UNPLUGGED}, {L"mic4", L"Headset"}, {L"mic5", L""}})
    Add(e);
  AudioDeviceEnumerator* enumerator = AudioDeviceEnumerator::GetInstance();
  std::vector<AudioDeviceInfo> devices(3);  // cleared first
  auto text = [](const AudioDeviceInfo& d) { return d.id + L"=" + d.name + (d.is_input ? L"; " : L"! "); };
  auto list = [&](bool is_input) {
    std::wstring listed;
    enumerator->EnumerateDevices(is_input, devices);
    for (const AudioDeviceInfo& d : devices) listed += text(d);
    return listed;
  };
  auto find = [&](bool in, const wchar_t* name) { return enumerator->FindDeviceId(in, name) + L","; };
  auto by_default = [&](bool is_input) {
    AudioDeviceInfo d;
    d.is_input = !is_input;
    return enumerator->GetDefaultDevice(is_input, d) ? text(d) : L"none ";
  };
  EXPECT_EQ(list(true) + list(false), L"mic1=Microphone; mic2=Headset; mic4=Headset; mic5=; spk1=Speakers! ");
  EXPECT_EQ(find(true, L"Headset") + find(true, L"headset") + find(false, L"Headset") + find(true, L"") +
                find(false, L"Speakers"),
            L"mic2,,,mic5,spk1,");
  Locked([&] { Find(L"mic2")->state = DEVICE_STATE_DISABLED; });
  EXPECT_EQ(find(true, L"Headset"), L"mic4,");  // listed afresh on each call
  EXPECT_EQ(by_default(true) + by_default(false), L"mic1=Microphone; spk1=Speakers! ");
  Locked([&] { defaults[1] = L""; });  // no default, then no enumerator at all
  EXPECT_EQ(by_default(true), L"none ");
  Fail({{L"CreateEnumerator", E_FAIL}});
  EXPECT_EQ(list(true) + by_default(false), L"none ");
}

struct Changes : AudioDeviceListenerEvent {
  void OnDeviceStateChanged(const wchar_t* id) override { ids += id; }
  std::wstring ids;
};

TEST_F(AudioTest, ListenerPassesOnStateChangesOnlyAndCountsNoReferences) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);  // the listener's enumerator lives in the host's apartment
  Fail({{L"CreateEnumerator", E_FAIL}});
  IAudioDeviceListener::Release(IAudioDeviceListener::Create());  // without an enumerator it hears nothing
  Fail();
  IAudioDeviceListener* listener = IAudioDeviceListener::Create();
  ASSERT_TRUE(client);
  Changes changes;
  client->OnDeviceStateChanged(L"a", DEVICE_STATE_UNPLUGGED);  // no event yet: swallowed
  listener->SetListenerEvent(&changes);
  PROPERTYKEY key = {};
  for (HRESULT hr : {client->OnDeviceStateChanged(L"b", DEVICE_STATE_UNPLUGGED), client->OnDeviceAdded(L"c"),
                     client->OnDeviceRemoved(L"d"), client->OnDefaultDeviceChanged(eCapture, eConsole, L"e"),
                     client->OnPropertyValueChanged(L"f", key)})
    EXPECT_EQ(hr, S_OK);
  void* object = nullptr;
  EXPECT_TRUE(client->AddRef() == 1 && client->Release() == 1 && client->Release() == 1);
  EXPECT_TRUE(client->QueryInterface(IID_IUnknown, &object) == S_OK && object == client);
  EXPECT_TRUE(client->QueryInterface(__uuidof(IMMNotificationClient), &object) == S_OK && object == client);
  EXPECT_TRUE(client->QueryInterface(__uuidof(IMMDevice), &object) == E_NOINTERFACE && !object);
  client->OnDeviceStateChanged(L"g", DEVICE_STATE_ACTIVE);  // still alive
  EXPECT_EQ(changes.ids, L"bg");
  IAudioDeviceListener::Release(listener);
  EXPECT_TRUE(Count(L"Unregister") == 1 && !client);
  CoUninitialize();
}

std::atomic<DWORD> g_tick{0};
DWORD WINAPI Tick() { return g_tick; }

TEST_F(AudioTest, LevelIsFourteenLogsOfTheMeanMagnitudeAtMostEvery600Ms) {
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
  ASSERT_TRUE(WaitFor(L"GetDevice(mic2)"));
  block(32767);
  g_tick += 599;
  block(1);  // dropped unmeasured
  g_tick += 1;
  block(1000);
  EXPECT_TRUE(test.Stop() && test.Stop());  // the stream's stop reports 0, once
  test.Start(L"No such name");              // the default input
  ASSERT_TRUE(WaitFor(L"GetDevice(mic1)"));
  block(-1);  // at once, whatever the time
  base::SetClockPlatformForTesting(nullptr);
  EXPECT_EQ(levels.Locked([&] { return levels.levels; }), (std::vector<int>{67, 46, 0, 4}));
  const int16_t low[] = {-32768, -32768}, quarter[] = {1, 0, 0, 0}, zeros[] = {0, 0};  // the formula's edges
  EXPECT_EQ(AudioDeviceTest::Level(low, 2), 67);      // full scale either way: 14 * log10(65536)
  EXPECT_EQ(AudioDeviceTest::Level(quarter, 4), -4);  // a mean of 0.5, truncated toward zero
  EXPECT_EQ(AudioDeviceTest::Level(zeros, 2), INT_MIN);
  AudioDeviceTest quiet(nullptr);
  quiet.OnAudioData(nullptr, nullptr, 1 << 30, 16, 44100, 1, 0);  // read nothing: the level goes nowhere
  quiet.OnCaptureStopped();
}

// Full-scale packets (-1 below: a level of at least 60), then the handler stops, restarts or ends the test,
// or the host restarts it on an endpoint that can't open.
TEST_F(AudioTest, ItsLevelHandlerMayStopRestartOrEndTheTest) {
  const std::vector<int> want[] = {{-1, 0}, {-1, -1, 0}, {-1}, {-1, 0}};
  for (int action = 0; action < 4; ++action) {
    Journal();
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
    ASSERT_TRUE(WaitFor(L"client1 Start"));
    Queue(std::vector<float>(960, 1.0f));
    ASSERT_EQ(WaitForSingleObject(acted, 5000), WAIT_OBJECT_0) << "the handler's call hung";
    CloseHandle(acted);
    if (action == 1) {  // a fresh capture, whose first block counts
      ASSERT_TRUE(WaitFor(L"client1 Start", 2));
      Queue(std::vector<float>(960, 1.0f));
      ASSERT_TRUE(levels.Wait([&] { return levels.levels.size() == 2; }));
      // The host's stop meets a stop from the handler: neither may wait for the other.
      levels.action = [&] { test->Stop(); };
      EXPECT_TRUE(test->Stop());
    }
    if (action == 3) {  // the old test reports 0; the new can't open
      Fail({{L"GetDevice(mic1)", E_FAIL}});
      test->Start(L"Microphone");
      ASSERT_TRUE(WaitFor(L"GetDevice(mic1)", 3));
    }
    delete test;
    EXPECT_TRUE(Wait([this] { return live == 0; }));
    std::vector<int> got = levels.Locked([&] { return levels.levels; });
    for (int& level : got) level = level >= 60 ? -1 : level;
    EXPECT_EQ(got, want[action]) << action;
  }
}

// Host threads and the SDK's thread at a room's end start tests at once: no capture may be lost or doubled.
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
    a.join(), b.join();
  }
  EXPECT_EQ(Count(L"client1 Start"), Count(L"client1 Stop"));
}

TEST(RealEndpoints, EnumeratorListsFindsAndNamesTheDefaults) {
  AudioDeviceEnumerator* enumerator = AudioDeviceEnumerator::GetInstance();
  for (bool is_input : {true, false}) {
    AudioDeviceInfo d;
    ASSERT_TRUE(enumerator->GetDefaultDevice(is_input, d))
        << "is the sound server running (scripts/test-env.sh)?";
    EXPECT_EQ(enumerator->FindDeviceId(is_input, d.name), d.id);  // listed by the same name
    EXPECT_NE(enumerator->FindDeviceId(is_input, is_input ? L"Monitor of Null Output" : L"Null Output"), L"");
  }
}

TEST(RealEndpoints, LevelOfFullScaleTonesAndOfSilence) {
  using Shape = audio_testing::TonePlayer::Shape;
  const struct {
    double frequency;  // 0: nothing plays, exact zeros
    Shape shape;
    int level;  // a sine's mean magnitude is 2/pi of its peak: 14 * log10(65536 * 0.6366)
  } cases[] = {{50, Shape::kSquare, 67}, {1000, Shape::kSine, 64}, {0, Shape::kSine, INT_MIN}};
  for (const auto& c : cases) {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(!c.frequency || tone.Start(L"Null Output", c.frequency, 1.0, c.shape));
    Levels levels;  // the third 600 ms report: the first may hold the stream's start
    AudioDeviceTest test(&levels);
    test.Start(L"Monitor of Null Output");
    EXPECT_TRUE(levels.Wait([&] { return levels.levels.size() >= 3; }, 10000));
    test.Stop();
    EXPECT_EQ(levels.levels.back(), 0) << "the stop reports 0";
    EXPECT_EQ(levels.levels.at(2), c.level);
  }
}

}  // namespace
