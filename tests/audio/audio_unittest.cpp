// The capture engine, endpoints, the exported listener and the microphone level against scripted Core Audio,
// and the level on the null sink's monitor.
#include <objbase.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <sstream>
#include <thread>

#include "audio/audio_device_enumerator.h"
#include "audio/audio_device_listener.h"
#include "audio/audio_device_test.h"
#include "audio/core_audio.h"
#include "audio/fake_core_audio.h"
#include "base/clock_internal.h"
#include "base/thread_start.h"
#include "common/refuse_threads.h"

namespace {

// The multimedia registration, journalled: "here" on the test's own thread.
const DWORD g_main_thread = GetCurrentThreadId();
thread_local HANDLE t_task = nullptr;
HANDLE WINAPI MmSet(LPCWSTR task, LPDWORD) {
  fake_audio::g->Call(L"MmSet(" + std::wstring(task) +
                      (GetCurrentThreadId() == g_main_thread ? L") here" : L")"));
  return t_task = reinterpret_cast<HANDLE>(0x5A);
}
BOOL WINAPI MmRevert(HANDLE task) {
  return fake_audio::g->Call(task == t_task ? L"MmRevert" : L"MmRevert(?)"), TRUE;
}

std::atomic<DWORD> g_tick{0};  // the library's clock where a test sets it
DWORD WINAPI Tick() { return g_tick; }
const base::ClockPlatform kClock = {&Tick, &Sleep};

TEST_F(AudioTest, OpensEachKindOfStreamInOrderAsAnAudioProTaskAndConvertsAndTimesEachPacket) {
  static const audio::MmThreadFunctions kMm = {&MmSet, &MmRevert};
  audio::SetMmThreadFunctionsForTesting(&kMm);
  const std::wstring open = L"MmSet(Audio Pro); CreateEnumerator; GetDevice(",
                     client1 = L"); client1 Activate(23); client1 GetMixFormat; client1 Initialize(0,0x",
                     stream =
                         L"client1 GetService(capture); client1 SetEventHandle; client1 Start; "
                         L"ReleaseBuffer(480); client1 Stop; MmRevert; ";
  const std::wstring journals[] = {
      // loopback keeps a silent, never started output stream on the endpoint
      open + L"spk1" + client1 + L"60000,50000000,0,2,0); client2 Activate(23); client2 GetMixFormat; " +
          L"client2 Initialize(0,0x0,50000000,0,2,0); client2 GetBufferSize; client2 GetService(render); " +
          L"render GetBuffer(4800); render ReleaseBuffer(4800,0) zeroed; " + stream,
      open + L"mic1" + client1 + L"40000,50000000,0,2,0); " + stream};
  for (bool is_input : {true, false}) {
    Run(is_input, is_input ? L"mic1" : L"spk1");
    Queue(Sine(), is_input);  // loopback wakes every 10 ms: no signal needed
    EXPECT_TRUE(recorder.WaitBlocks(is_input ? 1 : 2));
    EXPECT_TRUE(capture->Stop() && !capture->IsRunning() && !capture->IsActive() && capture->Stop());
    EXPECT_EQ(Calls(), journals[is_input]);
  }
  EXPECT_EQ(recorder.stop_ticks.size(), 2u);
  g_tick = 5000000;  // the asked formats (the default is the host test's), on a frozen clock
  base::SetClockPlatformForTesting(&kClock);
  const struct {
    int rate, channels, bits, frames, size;            // of a block; 0: not checked
    double samples, peak;                              // per channel; of full scale
  } cases[] = {{44100, 1, 32, 4800, 0, 4410, 0.7071},  // stereo folds to mono at -3 dB a channel
               {48000, 2, 16, 480, 480 * 2, 0, 0.5},   // converted * (bits / 8): one channel's samples
               {48000, 1, 24, 480, 480 * 3, 0, 0}};    // 16-bit samples, yet 24 reported
  for (const auto& c : cases) {
    capture->SetOutputFormat(c.rate, c.channels, c.bits);
    Clear();
    recorder.blocks.clear();
    Run(true, L"mic1");
    if (c.rate != 48000) Queue(Sine(1));  // kept in the resampler's filter: released, no block
    Queue(Sine(c.frames));
    ASSERT_TRUE(WaitFor(L"ReleaseBuffer(" + std::to_wstring(c.frames) + L")", 1));
    capture->Stop();
    ASSERT_EQ(recorder.blocks.size(), 1u);
    const audio_testing::Block& b = recorder.blocks[0];
    EXPECT_TRUE(b.bits == c.bits && b.rate == c.rate && b.channels == c.channels &&
                b.user_data == &recorder && b.thread != GetCurrentThreadId() &&
                b.timestamp == 5000000000LL - c.frames * 1000000LL / 48000);
    const size_t n = b.bytes.size() / (b.bits == 32 ? 4 : 2);
    double peak = 0;
    for (size_t i = n / 2; i < n; ++i)
      peak = std::max(
          peak, std::fabs(b.bits == 32 ? reinterpret_cast<const float*>(b.bytes.data())[i]
                                       : reinterpret_cast<const int16_t*>(b.bytes.data())[i] / 32768.0));
    EXPECT_TRUE((!c.size || b.bytes.size() == size_t(c.size)) &&
                (!c.samples || std::fabs(n - c.samples) < 200) &&
                (!c.peak || std::fabs(peak - c.peak) < 0.03))
        << b.bytes.size() << " " << peak;
  }
}

// Each stream opens the default, which it keeps once found, even as the default moves on.
TEST_F(AudioTest, StreamErrorsEndTheStreamOnceAndTheSameDeviceComesBack) {
  const struct {
    bool is_input;
    const wchar_t* call;
    HRESULT hr;
    DWORD state;
  } cases[] = {{true, L"GetNextPacketSize", AUDCLNT_E_DEVICE_INVALIDATED, DEVICE_STATE_UNPLUGGED},
               {true, L"GetNextPacketSize", E_FAIL, DEVICE_STATE_ACTIVE},
               {true, L"GetBuffer", E_FAIL, DEVICE_STATE_ACTIVE},
               // With the real pause between tries: a lost loopback device, noticed by the 10 ms poll.
               {false, L"GetNextPacketSize", AUDCLNT_E_DEVICE_INVALIDATED, DEVICE_STATE_UNPLUGGED},
               {true, L"GetNextPacketSize", AUDCLNT_E_DEVICE_INVALIDATED,
                DEVICE_STATE_ACTIVE}};  // still active: goes on
  for (const auto& c : cases) {
    const std::wstring id = c.is_input ? L"mic1" : L"spk1";
    if (!c.is_input) AudioCapture::Release(std::exchange(capture, new AudioCaptureImpl()));
    if (!c.is_input) capture->SetCaptureEvent(&recorder, nullptr);
    Locked([&] { defaults[1] = L"mic1"; });
    Clear();
    Run(c.is_input, L"");
    Locked([&] { defaults[1] = L"mic2", Find(id)->state = c.state; });
    // Gone until brought back: the retries fail meanwhile.
    Fail({{c.call, c.hr}, {c.is_input ? L"GetDevice" : L"-", E_FAIL}});
    const DWORD lost = GetTickCount();
    const size_t stops = recorder.stop_ticks.size();
    Queue(Sine(), c.is_input);
    if (c.state == DEVICE_STATE_ACTIVE && c.hr == AUDCLNT_E_DEVICE_INVALIDATED) break;
    ASSERT_TRUE(recorder.Wait([&] { return recorder.stop_ticks.size() > stops; }));
    EXPECT_TRUE(recorder.stop_ticks.back() - lost < 500 && capture->IsRunning() && !capture->IsActive());
    ASSERT_TRUE(!c.is_input || WaitFor(L"GetDevice", 2));  // a failed retry
    Locked([&] { Find(id)->state = DEVICE_STATE_ACTIVE, packets.clear(), fail.clear(); });
    ASSERT_TRUE(WaitFor(L"client1 Start", 2, 10000));
    const DWORD back = GetTickCount() - recorder.stop_ticks.back();
    EXPECT_TRUE(c.is_input || (back >= 2900 && back < 4500)) << back;
    EXPECT_TRUE(Count(L"client1 Stop") == 1 && Count(L"GetDefault") == 1 &&
                Count(L"GetDevice(") == Count(L"GetDevice(" + id + L")") && capture->device_id() == id);
    capture->Stop();
  }
  ASSERT_TRUE(WaitFor(L"GetState"));
  Fail();
  Queue();
  EXPECT_TRUE(recorder.WaitBlocks(1) && capture->IsActive());
  EXPECT_EQ(recorder.stop_ticks.size(), 8u);
}

TEST_F(AudioTest, EachFailedOpenStepIsRetriedWithoutEvents) {
  std::vector<std::wstring> steps;
  std::wistringstream list(  // a microphone's open, then a loopback's; the fourth throws
      L"CreateEnumerator;GetDevice;client1 Activate;client1 Activate;client1 GetMixFormat;client1 Initialize;"
      L"client1 GetService(capture);client1 SetEventHandle;client1 GetService(capture);client2 Activate;"
      L"client2 GetMixFormat;client2 Initialize;client2 GetBufferSize;client2 GetService(render);"
      L"render GetBuffer;render ReleaseBuffer");
  for (std::wstring step; std::getline(list, step, L';');) steps.push_back(step);
  // Only packed 32-bit float mixes open.
  const Endpoint mixes[] = {
      {L"mic1", L"", true, 1, 48000, 2, 16, WAVE_FORMAT_PCM},  // read as float: past the packet's end
      {L"mic1", L"", true, 1, 48000, 2, 32, WAVE_FORMAT_EXTENSIBLE, false},  // integers
      {L"mic1", L"", true, 1, 48000, 2, 64, WAVE_FORMAT_IEEE_FLOAT},
      {L"mic1", L"", true, 1, 48000, 9, 32, WAVE_FORMAT_IEEE_FLOAT}};  // the resampler refuses it
  const size_t n = steps.size(), m = std::size(mixes);
  for (size_t i = 0; i < n + m; ++i) {
    SCOPED_TRACE(i);
    const bool is_input = i < 8 || i >= n;
    if (i < n) Fail({{steps[i], i == 3 ? kThrow : E_FAIL}});
    if (i >= n) Plug(mixes[i - n]);
    Clear();
    ASSERT_TRUE(capture->StartDevice(is_input, is_input ? L"mic1" : L"spk1"));
    ASSERT_TRUE(WaitFor(L"CreateEnumerator", 3));  // three whole tries
    EXPECT_TRUE(capture->IsRunning() && !capture->IsActive() && recorder.stop_ticks.empty());
    EXPECT_EQ(Count(L"client1 Start") + Count(L"client1 Stop"), 0);
    Fail();
    Plug({L"mic1", L"Microphone"});
    ASSERT_TRUE(WaitFor(L"client1 Start"));
    capture->Stop();
    ASSERT_EQ(recorder.stop_ticks.size(), 1u);
    recorder.stop_ticks.clear();
  }
}

TEST_F(AudioTest, FindsItsEndpointByNameOrTheDefaultOnThreadsWithoutCom) {
  Locked([&] { defaults[1] = L"mic2"; });
  const std::wstring list = L"CreateEnumerator; ", by_default = list + L"CreateEnumerator; GetDefault(";
  const struct {
    bool is_input;
    const wchar_t* name;
    std::wstring calls;  // the list, the default if needed, and what the capture thread opens
  } cases[] = {{true, L"Microphone", list + list + L"GetDevice(mic1)"},
               {true, L"microphone", by_default + L"1,2); " + list + L"GetDevice(mic2)"},  // exact names only
               {false, L"", by_default + L"0,0); " + list + L"GetDevice(spk1)"},
               {true, L"Nothing", by_default + L"1,2); "}};  // neither: false, nothing moves
  std::thread([&] {                                          // as an SDK thread that has no COM apartment
    APTTYPE type;
    APTTYPEQUALIFIER qualifier;
    for (const auto& c : cases) {
      if (c.calls.back() == L' ') Locked([&] { defaults[1] = L""; });
      EXPECT_EQ(capture->StartDeviceByName(c.is_input, c.name), c.calls.back() == L')');
      EXPECT_EQ(CoGetApartmentType(&type, &qualifier), CO_E_NOTINITIALIZED)
          << "the call's COM must be its own";
      capture->Stop();  // after the open is tried
      EXPECT_EQ(Calls().substr(0, c.calls.size()), c.calls);
    }
  })
      .join();
  EXPECT_TRUE(!capture->IsRunning() && capture->device_id() == L"spk1");
}

std::atomic<int> g_launches{0};
HANDLE WINAPI CountLaunch(LPSECURITY_ATTRIBUTES a, SIZE_T s, LPTHREAD_START_ROUTINE r, LPVOID p, DWORD f,
                          LPDWORD id) {
  return ++g_launches, CreateThread(a, s, r, p, f, id);
}

TEST_F(AudioTest, OneThreadAtATimeWhichAnotherEndpointOrItsOwnEventTurns) {
  g_launches = 0;
  base::SetThreadStarterForTesting(&CountLaunch);
  // A host's handler may restart the capture that calls it (a stop or release from it: the level handler's).
  recorder.Then([this] { capture->StartDevice(true, L"mic1"); });
  Run(true, L"mic2");
  Queue(Sine());
  ASSERT_TRUE(WaitFor(L"client1 Start", 2)) << "the call waited for its own thread";
  EXPECT_NE(Calls().find(L"client1 Stop; CreateEnumerator; GetDevice(mic1); "), std::wstring::npos);
  EXPECT_TRUE(capture->device_id() == L"mic1" && capture->IsRunning() && recorder.blocks.size() == 1);
  // The same endpoint is left alone; another's start returns once the stream ended.
  EXPECT_TRUE(capture->StartDevice(true, L"mic1") && g_launches == 1 && recorder.stop_ticks.size() == 1);
  EXPECT_TRUE(capture->StartDevice(true, L"mic2") && recorder.stop_ticks.size() == 2);
  ASSERT_TRUE(WaitFor(L"GetDevice(mic2)"));
  capture->Stop();
  // A thread waiting to retry is left alone for its endpoint and turned at once to another, by no second one.
  capture->SetRetryIntervalForTesting(600000);
  Fail({{L"GetDevice(mic1)", E_FAIL}});
  ASSERT_TRUE(capture->StartDevice(true, L"mic1"));
  ASSERT_TRUE(WaitFor(L"GetDevice(mic1)"));
  EXPECT_TRUE(capture->StartDevice(true, L"mic1"));
  Fail();
  ASSERT_TRUE(capture->StartDevice(true, L"mic2"));
  ASSERT_TRUE(WaitFor(L"client1 Start", 2));
  EXPECT_EQ(g_launches, 3);
  capture->Stop();
  // A refused thread leaves the engine idle.
  EXPECT_FALSE((testing_support::RefuseThreads(), capture->StartDevice(true, L"mic1")));
  EXPECT_TRUE(!capture->IsRunning() && capture->Stop());
  Run(true, L"mic1", 3);
  // A start that names an endpoint while the default is looked up keeps it: the default was its own start's.
  capture->Stop();
  Clear();
  Fail({{L"GetDefault(1,2)", kPause}});
  ASSERT_TRUE(capture->StartDevice(true, L""));
  ASSERT_TRUE(Wait([this] { return pauses == 1; }));
  ASSERT_TRUE(capture->StartDevice(true, L"mic2"));
  Fail();
  ASSERT_TRUE(WaitFor(L"client1 Start"));
  EXPECT_TRUE(capture->device_id() == L"mic2" && Count(L"GetDevice(mic1)") == 0);
}

// The listener passes on state changes only and counts no references.
TEST_F(AudioTest, EnumeratorListsFindsAndNamesActiveEndpointsAndListenerPassesOnStateChanges) {
  for (const Endpoint& e :
       {Endpoint{L"mic3", L"Headset", true, DEVICE_STATE_UNPLUGGED}, {L"mic4", L"Headset"}, {L"mic5", L""}})
    Plug(e);
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
  // The listener: its enumerator lives in the host's apartment.
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  IAudioDeviceListener::Release(IAudioDeviceListener::Create());  // without an enumerator it hears nothing
  Fail();
  IAudioDeviceListener* listener = IAudioDeviceListener::Create();
  ASSERT_TRUE(client);
  client->OnDeviceStateChanged(L"a", DEVICE_STATE_UNPLUGGED);  // no event yet: swallowed
  listener->SetListenerEvent(this);
  EXPECT_EQ(client->OnDeviceStateChanged(L"b", DEVICE_STATE_UNPLUGGED) | client->OnDeviceAdded(L"c") |
                client->OnDeviceRemoved(L"d") | client->OnDefaultDeviceChanged(eCapture, eConsole, L"e") |
                client->OnPropertyValueChanged(L"f", PROPERTYKEY()),
            S_OK);  // each of them
  void* object = nullptr;
  EXPECT_TRUE(client->AddRef() == 1 && client->Release() == 1 && client->Release() == 1);
  EXPECT_TRUE(client->QueryInterface(IID_IUnknown, &object) == S_OK && object == client);
  EXPECT_TRUE(client->QueryInterface(__uuidof(IMMNotificationClient), &object) == S_OK && object == client);
  EXPECT_TRUE(client->QueryInterface(__uuidof(IMMDevice), &object) == E_NOINTERFACE && !object);
  client->OnDeviceStateChanged(L"g", DEVICE_STATE_ACTIVE);  // still alive
  EXPECT_EQ(Of(L"Changed"), (Lines{L"Changed(b)", L"Changed(g)"}));
  IAudioDeviceListener::Release(listener);
  EXPECT_TRUE(Of(L"Unregister") == Lines{L"Unregister"} && !client);
  CoUninitialize();
}

TEST_F(AudioTest, LevelIsFourteenLogsOfTheMeanMagnitudeAtMostEvery600MsAndItsHandlerMayStopRestartOrEndIt) {
  g_tick = 100000;
  base::SetClockPlatformForTesting(&kClock);
  audio_testing::Recorder paced;
  AudioDeviceTest meter(&paced);
  auto block = [&meter](int16_t value) {
    std::vector<int16_t> samples(100, value);
    meter.OnAudioData(nullptr, samples.data(), 200, 16, 44100, 1, 0);
  };
  meter.Start(L"Headset");
  ASSERT_TRUE(WaitFor(L"GetDevice(mic2)"));
  block(32767);
  g_tick += 599;
  block(1);  // dropped unmeasured
  g_tick += 1;
  block(1000);
  EXPECT_TRUE(meter.Stop() && meter.Stop());  // the stream's stop reports 0, once
  meter.Start(L"No such name");               // the default input
  ASSERT_TRUE(WaitFor(L"GetDevice(mic1)"));
  block(-1);  // at once, whatever the time
  EXPECT_EQ(paced.Locked([&] { return paced.levels; }), (std::vector<int>{67, 46, 0, 4}));
  // The formula's edges: full scale either way (14 * log10(65536)), a mean of 0.5 truncated toward zero,
  // silence.
  const int16_t low[] = {-32768, -32768}, quarter[] = {1, 0, 0, 0}, zeros[] = {0, 0};
  EXPECT_TRUE(AudioDeviceTest::Level(low, 2) == 67 && AudioDeviceTest::Level(quarter, 4) == -4 &&
              AudioDeviceTest::Level(zeros, 2) == INT_MIN);
  AudioDeviceTest quiet(nullptr);
  quiet.OnAudioData(nullptr, nullptr, 1 << 30, 16, 44100, 1, 0);  // read nothing: the level goes nowhere
  quiet.OnCaptureStopped();
  meter.Stop();
  base::SetClockPlatformForTesting(nullptr);
  Fail({{L"CreateEnumerator", kPause}});  // a start holds the lock through its lookup: a stop waits for it
  std::thread starter([&] { meter.Start(L"Microphone"); });
  EXPECT_TRUE(Wait([this] { return pauses == 1; }));
  std::atomic<bool> stopped{false};
  std::thread stopper([&] { meter.Stop(), stopped = true; });
  EXPECT_FALSE(Wait([&] { return stopped.load(); }, 300)) << "the stop passed the start's lock";
  Fail();
  starter.join(), stopper.join();
  // Full-scale packets (-1: 60 up); the handler stops, restarts or ends the test; the host restart fails.
  const std::vector<int> want[] = {{-1, 0}, {-1, -1, 0}, {-1}, {-1, 0}};
  for (int action = 0; action < 4; ++action) {
    Clear();
    audio_testing::Recorder levels;
    AudioDeviceTest* test = new AudioDeviceTest(&levels);
    bool acted = false;
    levels.Then([&] {
      if (action == 0) test->Stop();
      if (action == 1) test->Start(L"Microphone");
      if (action == 2) delete test, test = nullptr;
      levels.Locked([&] { acted = true; });
    });
    test->Start(L"Microphone");
    ASSERT_TRUE(WaitFor(L"client1 Start"));
    Queue(std::vector<float>(960, 1.0f));
    ASSERT_TRUE(levels.Wait([&] { return acted; })) << "the handler's call hung";
    if (action == 1) {  // a fresh capture, whose first block counts
      ASSERT_TRUE(WaitFor(L"client1 Start", 2));
      Queue(std::vector<float>(960, 1.0f));
      ASSERT_TRUE(levels.Wait([&] { return levels.levels.size() == 2; }));
      // The host's stop meets a stop from the handler: neither may wait for the other.
      levels.Then([&] { test->Stop(); });
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

TEST(RealEndpoints, EnumeratorNamesTheDefaultsAndLevelsFullScaleTonesAndSilence) {
  AudioDeviceEnumerator* enumerator = AudioDeviceEnumerator::GetInstance();
  for (bool is_input : {true, false}) {
    AudioDeviceInfo d;
    ASSERT_TRUE(enumerator->GetDefaultDevice(is_input, d))
        << "is the sound server running (scripts/test-env.sh)?";
    EXPECT_EQ(enumerator->FindDeviceId(is_input, d.name), d.id);  // listed by the same name
    EXPECT_NE(enumerator->FindDeviceId(is_input, is_input ? L"Monitor of Null Output" : L"Null Output"), L"");
  }
  using Shape = audio_testing::TonePlayer::Shape;
  const struct {
    double frequency;  // 0: nothing plays, exact zeros
    Shape shape;
    int level;  // a sine's mean magnitude is 2/pi of its peak: 14 * log10(65536 * 0.6366)
  } cases[] = {{50, Shape::kSquare, 67}, {1000, Shape::kSine, 64}, {0, Shape::kSine, INT_MIN}};
  for (const auto& c : cases) {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(!c.frequency || tone.Start(L"Null Output", c.frequency, 1.0, c.shape));
    audio_testing::Recorder levels;  // the third 600 ms report: the first may hold the stream's start
    AudioDeviceTest test(&levels);
    test.Start(L"Monitor of Null Output");
    EXPECT_TRUE(levels.Wait([&] { return levels.levels.size() >= 3; }, 10000));
    test.Stop();
    EXPECT_EQ(std::make_pair(levels.levels.at(2), levels.levels.back()),
              std::make_pair(c.level, 0));  // stop: 0
  }
}

}  // namespace
