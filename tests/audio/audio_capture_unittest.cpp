// The capture engine against scripted Core Audio: opens, drain, conversion, retries, starts, its own events.
#include <objbase.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <sstream>
#include <thread>

#include "audio/core_audio.h"
#include "audio/fake_core_audio.h"
#include "base/clock_internal.h"
#include "base/thread_start.h"

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

TEST_F(AudioTest, OpensEachKindOfStreamInOrderAsAnAudioProTask) {
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
    EXPECT_EQ(Journal(), journals[is_input]);
  }
  audio::SetMmThreadFunctionsForTesting(nullptr);
  EXPECT_EQ(recorder.stop_ticks.size(), 2u);
}

DWORD WINAPI FrozenTick() { return 5000000; }

// The default format is the host test's (audio_test.cpp).
TEST_F(AudioTest, ConvertsEachPacketToTheAskedFormatAndTimesItsFirstSample) {
  static const base::ClockPlatform kFrozen = {&FrozenTick, &Sleep};
  base::SetClockPlatformForTesting(&kFrozen);
  const struct {
    int rate, channels, bits, frames, size;            // of a block; 0: not checked
    double samples, peak;                              // per channel; of full scale
  } cases[] = {{44100, 1, 32, 4800, 0, 4410, 0.7071},  // stereo folds to mono at -3 dB a channel
               {48000, 2, 16, 480, 480 * 2, 0, 0.5},   // converted * (bits / 8): one channel's samples
               {48000, 1, 24, 480, 480 * 3, 0, 0}};    // 16-bit samples, yet 24 reported
  for (const auto& c : cases) {
    capture->SetOutputFormat(c.rate, c.channels, c.bits);
    Journal();
    Run(true, L"mic1");
    if (c.rate != 48000) Queue(Sine(1));  // kept in the resampler's filter: released, no block
    Queue(Sine(c.frames));
    ASSERT_TRUE(WaitFor(L"ReleaseBuffer(" + std::to_wstring(c.frames) + L")", 1));
    capture->Stop();
    ASSERT_EQ(recorder.blocks.size(), 1u);
    const audio_testing::Block& b = recorder.blocks[0];
    EXPECT_TRUE(b.bits == c.bits && b.rate == c.rate && b.channels == c.channels && b.user_data == &recorder);
    EXPECT_TRUE(b.thread != GetCurrentThreadId() &&
                b.timestamp == 5000000000LL - c.frames * 1000000LL / 48000);
    EXPECT_TRUE(!c.size || b.bytes.size() == size_t(c.size)) << b.bytes.size();
    const size_t n = b.bytes.size() / (b.bits == 32 ? 4 : 2);
    double peak = 0;
    for (size_t i = n / 2; i < n; ++i) {
      peak = std::max(
          peak, std::fabs(b.bits == 32 ? reinterpret_cast<const float*>(b.bytes.data())[i]
                                       : reinterpret_cast<const int16_t*>(b.bytes.data())[i] / 32768.0));
    }
    EXPECT_TRUE(!c.samples || std::fabs(n - c.samples) < 200) << n;
    EXPECT_TRUE(!c.peak || std::fabs(peak - c.peak) < 0.03) << peak;
    recorder.blocks.clear();
  }
  base::SetClockPlatformForTesting(nullptr);
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
    if (!c.is_input) {
      AudioCapture::Release(capture);
      capture = new AudioCaptureImpl();
      capture->SetCaptureEvent(&recorder, nullptr);
    }
    Locked([&] { defaults[1] = L"mic1"; });
    Journal();
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
    if (i >= n) Add(mixes[i - n]);
    Journal();
    ASSERT_TRUE(capture->StartDevice(is_input, is_input ? L"mic1" : L"spk1"));
    ASSERT_TRUE(WaitFor(L"CreateEnumerator", 3));  // three whole tries
    EXPECT_TRUE(capture->IsRunning() && !capture->IsActive() && recorder.stop_ticks.empty());
    EXPECT_EQ(Count(L"client1 Start") + Count(L"client1 Stop"), 0);
    Fail();
    Add({L"mic1", L"Microphone"});
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
      EXPECT_EQ(Journal().substr(0, c.calls.size()), c.calls);
    }
  })
      .join();
  EXPECT_TRUE(!capture->IsRunning() && capture->device_id() == L"spk1");
}

std::atomic<int> g_launches{0};
bool g_refuse = false;
HANDLE WINAPI CountLaunch(LPSECURITY_ATTRIBUTES a, SIZE_T s, LPTHREAD_START_ROUTINE r, LPVOID p, DWORD f,
                          LPDWORD id) {
  ++g_launches;
  return g_refuse ? nullptr : CreateThread(a, s, r, p, f, id);
}

TEST_F(AudioTest, OneThreadAtATimeAndAnotherEndpointReplacesIt) {
  base::SetThreadStarterForTesting(&CountLaunch);
  Run(true, L"mic1");
  EXPECT_TRUE(capture->StartDevice(true, L"mic1"));  // the same: left alone
  EXPECT_EQ(g_launches, 1);
  EXPECT_TRUE(capture->StartDevice(true, L"mic2"));  // the stream ends before this returns
  EXPECT_EQ(recorder.stop_ticks.size(), 1u);
  ASSERT_TRUE(WaitFor(L"GetDevice(mic2)"));
  capture->Stop();
  // A thread waiting to retry is left alone for its endpoint and turned at once to another, by no second
  // thread.
  capture->SetRetryIntervalForTesting(600000);
  Fail({{L"GetDevice(mic1)", E_FAIL}});
  ASSERT_TRUE(capture->StartDevice(true, L"mic1"));
  ASSERT_TRUE(WaitFor(L"GetDevice(mic1)", 2));
  EXPECT_TRUE(capture->StartDevice(true, L"mic1"));
  Fail();
  ASSERT_TRUE(capture->StartDevice(true, L"mic2"));
  ASSERT_TRUE(WaitFor(L"client1 Start", 3));
  EXPECT_EQ(g_launches, 3);
  capture->Stop();
  g_refuse = true;  // a refused thread leaves the engine idle
  EXPECT_FALSE(capture->StartDevice(true, L"mic1"));
  g_refuse = false;
  base::SetThreadStarterForTesting(nullptr);
  EXPECT_TRUE(!capture->IsRunning() && capture->Stop());
  Run(true, L"mic1", 4);
  // A start that names an endpoint while the default is looked up keeps it: the default is stored for its own
  // start.
  capture->Stop();
  Journal();
  Fail({{L"GetDefault(1,2)", kPause}});
  ASSERT_TRUE(capture->StartDevice(true, L""));
  ASSERT_TRUE(Wait([this] { return pauses == 1; }));
  ASSERT_TRUE(capture->StartDevice(true, L"mic2"));
  Fail();
  ASSERT_TRUE(WaitFor(L"client1 Start"));
  EXPECT_TRUE(capture->device_id() == L"mic2" && Count(L"GetDevice(mic1)") == 0);
}

// A host's handler may restart the capture that calls it (a stop or release from it: the level handler's
// test).
TEST_F(AudioTest, ItsOwnEventMayRestartIt) {
  g_launches = 0;
  base::SetThreadStarterForTesting(&CountLaunch);
  recorder.action = [this] { capture->StartDevice(true, L"mic2"); };
  Run(true, L"mic1");
  Queue(Sine());
  ASSERT_TRUE(WaitFor(L"client1 Start", 2)) << "the call waited for its own thread";
  base::SetThreadStarterForTesting(nullptr);
  EXPECT_TRUE(Journal().find(L"client1 Stop; CreateEnumerator; GetDevice(mic2); ") != std::wstring::npos);
  EXPECT_TRUE(capture->device_id() == L"mic2" && capture->IsRunning() && g_launches == 1);
  EXPECT_TRUE(recorder.stop_ticks.size() == 1 && recorder.blocks.size() == 1);
}

}  // namespace
