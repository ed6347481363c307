// The capture engine against scripted Core Audio objects: open sequences,
// the drain, the retry cycle, the conversion and the start policies.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <thread>

#include "audio/audio_capture_impl.h"
#include "audio/capture_recorder.h"
#include "audio/fake_core_audio.h"
#include "base/clock_internal.h"
#include "base/thread_start.h"
#include "common/log_capture.h"

namespace {

using audio_testing::Block;
using audio_testing::CaptureRecorder;
using fake_audio::Endpoint;
using fake_audio::FakeAudioSystem;
using fake_audio::Step;

const wchar_t kOpenInput[] = L"client1 Start";

class AudioCaptureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    system_.AddEndpoint({L"mic1", L"Microphone", true});
    system_.AddEndpoint({L"mic2", L"Headset", true});
    system_.AddEndpoint({L"spk1", L"Speakers", false});
    system_.SetDefault(true, L"mic1");
    system_.SetDefault(false, L"spk1");
    capture_ = new AudioCaptureImpl();
    capture_->SetCaptureEvent(&recorder_, &recorder_);
    capture_->SetRetryIntervalForTesting(20);
  }
  void TearDown() override {
    AudioCapture::Release(capture_);
    EXPECT_EQ(system_.live_objects(), 0) << "a Core Audio reference outlived the capture";
  }
  // Starts and waits for the stream to run.
  void StartRunning(bool is_input, const std::wstring& id) {
    ASSERT_TRUE(capture_->StartDevice(is_input, id));
    ASSERT_TRUE(system_.WaitFor(kOpenInput));
    // Active is set just after the stream's Start returns.
    ASSERT_TRUE(testing_support::WaitUntil([&] { return capture_->IsActive(); }));
  }
  std::vector<std::wstring> CallsWithout(const std::wstring& prefix) {
    std::vector<std::wstring> calls;
    for (const std::wstring& c : system_.Calls()) {
      if (c.compare(0, prefix.size(), prefix) != 0) calls.push_back(c);
    }
    return calls;
  }

  FakeAudioSystem system_;
  CaptureRecorder recorder_;
  AudioCaptureImpl* capture_ = nullptr;
};

TEST_F(AudioCaptureTest, InputOpensOneEventDrivenClientAndStopEndsItOnce) {
  StartRunning(true, L"mic1");
  EXPECT_TRUE(capture_->IsRunning());
  EXPECT_EQ(system_.Calls(),
            (std::vector<std::wstring>{
                L"CreateEnumerator", L"GetDevice(mic1)", L"Activate(1,ctx=23)",
                L"client1 Initialize(mode=0,flags=0x40000,duration=50000000,period=0,rate=48000,session=0)",
                L"client1 GetService(capture)", L"client1 SetEventHandle", L"client1 Start"}));
  EXPECT_TRUE(capture_->Stop());
  EXPECT_FALSE(capture_->IsActive());
  EXPECT_FALSE(capture_->IsRunning());
  EXPECT_EQ(recorder_.stopped(), 1);
  EXPECT_EQ(system_.Count(L"client1 Stop"), 1);
  EXPECT_TRUE(capture_->Stop());  // idle: at once, nothing more
  EXPECT_EQ(recorder_.stopped(), 1);
}

TEST_F(AudioCaptureTest, LoopbackKeepsASilentNeverStartedRenderStreamOnTheSameEndpoint) {
  StartRunning(false, L"spk1");
  EXPECT_EQ(system_.Calls(),
            (std::vector<std::wstring>{
                L"CreateEnumerator", L"GetDevice(spk1)", L"Activate(1,ctx=23)",
                L"client1 Initialize(mode=0,flags=0x60000,duration=50000000,period=0,rate=48000,session=0)",
                L"Activate(2,ctx=23)",
                L"client2 Initialize(mode=0,flags=0x0,duration=50000000,period=0,rate=48000,session=0)",
                L"client2 GetService(render)", L"render ReleaseBuffer(240000,0) zeroed",
                L"client1 GetService(capture)", L"client1 SetEventHandle", L"client1 Start"}));
  capture_->Stop();
  EXPECT_EQ(system_.Count(L"client2 Start"), 0);
  EXPECT_EQ(recorder_.stopped(), 1);
}

TEST_F(AudioCaptureTest, LoopbackPollsWithoutASignal) {
  StartRunning(false, L"spk1");
  // No SetEvent from the system: the 10 ms wait finds the packet anyway.
  {
    std::lock_guard<std::mutex> lock(system_.mutex());
    system_.packets().push_back(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  }
  EXPECT_TRUE(recorder_.WaitForBlocks(1));
}

TEST_F(AudioCaptureTest, DefaultFormatIsMono16BitAt44100FromAStereoFloatMix) {
  StartRunning(true, L"mic1");
  const int kPackets = 20;
  for (int i = 0; i < kPackets; ++i) system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  ASSERT_TRUE(system_.WaitFor(L"capture ReleaseBuffer(480)", kPackets));
  std::vector<Block> blocks = recorder_.blocks();
  ASSERT_FALSE(blocks.empty());
  for (const Block& b : blocks) {
    EXPECT_EQ(b.bits_per_sample, 16);
    EXPECT_EQ(b.sample_rate, 44100);
    EXPECT_EQ(b.channels, 1);
    EXPECT_EQ(b.user_data, &recorder_);
    EXPECT_EQ(b.size % 2, 0);
    EXPECT_NE(b.thread_id, GetCurrentThreadId());
  }
  std::vector<int16_t> samples = audio_testing::Samples16(blocks);
  // 200 ms at 48 kHz becomes about 200 ms at 44.1 kHz (less what the
  // resampler still holds).
  EXPECT_NEAR(static_cast<double>(samples.size()), 8820.0, 200.0);
  int peak = 0;
  for (size_t i = samples.size() / 2; i < samples.size(); ++i)
    peak = std::max(peak, std::abs(int(samples[i])));
  EXPECT_NEAR(peak, 16384, 800);
}

TEST_F(AudioCaptureTest, ThirtyTwoBitOutputGivesFloats) {
  capture_->SetOutputFormat(44100, 1, 32);
  StartRunning(true, L"mic1");
  for (int i = 0; i < 10; ++i) system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  ASSERT_TRUE(system_.WaitFor(L"capture ReleaseBuffer(480)", 10));
  std::vector<Block> blocks = recorder_.blocks();
  ASSERT_FALSE(blocks.empty());
  float peak = 0;
  for (const Block& b : blocks) {
    EXPECT_EQ(b.bits_per_sample, 32);
    ASSERT_EQ(b.size % 4, 0);
    const float* f = reinterpret_cast<const float*>(b.bytes.data());
    for (int i = 0; i < b.size / 4; ++i) {
      ASSERT_LE(std::fabs(f[i]), 1.0f);
      peak = std::max(peak, std::fabs(f[i]));
    }
  }
  // libswresample folds stereo to mono at -3 dB a channel, and scales that
  // down only for integer output (where the sum could clip): two channels at
  // 0.5 give 0.707 here, 0.5 in 16 bits.
  EXPECT_NEAR(peak, 0.7071f, 0.03f);
}

TEST_F(AudioCaptureTest, BlockSizeCountsTheSamplesOfOneChannel) {
  // Same rate and layout: the resampler passes frames through one for one.
  capture_->SetOutputFormat(48000, 2, 16);
  StartRunning(true, L"mic1");
  system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  ASSERT_TRUE(recorder_.WaitForBlocks(1));
  Block b = recorder_.blocks()[0];
  EXPECT_EQ(b.channels, 2);
  EXPECT_EQ(b.size, 480 * 2);
}

TEST_F(AudioCaptureTest, AnUnusualSampleSizeConvertsTo16BitAndReportsWhatWasAsked) {
  capture_->SetOutputFormat(48000, 1, 24);
  StartRunning(true, L"mic1");
  system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  ASSERT_TRUE(recorder_.WaitForBlocks(1));
  Block b = recorder_.blocks()[0];
  EXPECT_EQ(b.bits_per_sample, 24);
  EXPECT_EQ(b.size, 480 * 3);  // converted * (bits_per_sample / 8)
}

std::atomic<DWORD> g_fake_tick{0};
DWORD WINAPI FakeTick() { return g_fake_tick.load(); }

TEST_F(AudioCaptureTest, TimestampIsThatOfThePacketsFirstSample) {
  static const base::ClockPlatform kFrozen = {&FakeTick, &Sleep};
  g_fake_tick = 5000000;
  base::SetClockPlatformForTesting(&kFrozen);
  capture_->SetOutputFormat(48000, 1, 16);
  StartRunning(true, L"mic1");
  system_.QueuePacket(fake_audio::Sine(4800, 2, 1000, 48000, 0.5));  // 100 ms
  ASSERT_TRUE(recorder_.WaitForBlocks(1));
  base::SetClockPlatformForTesting(nullptr);
  EXPECT_EQ(recorder_.blocks()[0].timestamp, 5000000LL * 1000 - 100000);
}

TEST_F(AudioCaptureTest, WithoutAnEventPacketsAreStillReadAndReleased) {
  capture_->SetCaptureEvent(nullptr, nullptr);
  StartRunning(true, L"mic1");
  for (int i = 0; i < 3; ++i) system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  EXPECT_TRUE(system_.WaitFor(L"capture ReleaseBuffer(480)", 3));
  capture_->Stop();
  EXPECT_EQ(recorder_.stopped(), 0);
}

TEST_F(AudioCaptureTest, APacketThatConvertsToNothingIsReleasedWithoutABlock) {
  StartRunning(true, L"mic1");
  // One frame at 48 kHz: the resampler keeps it for its filter and gives
  // nothing yet.
  system_.QueuePacket(fake_audio::Sine(1, 2, 1000, 48000, 0.5));
  ASSERT_TRUE(system_.WaitFor(L"capture ReleaseBuffer(1)"));
  system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  ASSERT_TRUE(system_.WaitFor(L"capture ReleaseBuffer(480)"));
  EXPECT_EQ(recorder_.blocks().size(), 1u);
}

TEST_F(AudioCaptureTest, InvalidatedButStillActiveGoesOn) {
  StartRunning(true, L"mic1");
  system_.SetInvalidated(true);
  system_.Signal();
  ASSERT_TRUE(system_.WaitFor(L"GetState"));
  system_.SetInvalidated(false);
  system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  EXPECT_TRUE(recorder_.WaitForBlocks(1));
  EXPECT_EQ(recorder_.stopped(), 0);
  EXPECT_TRUE(capture_->IsActive());
}

TEST_F(AudioCaptureTest, StreamErrorsEndTheStreamOnceAndTheSameDeviceComesBack) {
  struct Case {
    const char* name;
    Step step;
    HRESULT hr;
    bool unplug;
  };
  const Case cases[] = {
      {"invalidated and unplugged", Step::kGetNextPacketSize, AUDCLNT_E_DEVICE_INVALIDATED, true},
      {"another packet-size error", Step::kGetNextPacketSize, E_FAIL, false},
      {"GetBuffer fails", Step::kGetBuffer, E_FAIL, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CaptureRecorder recorder;
    capture_->SetCaptureEvent(&recorder, nullptr);
    system_.ClearCalls();
    StartRunning(true, L"mic1");
    if (c.unplug) system_.SetState(L"mic1", DEVICE_STATE_UNPLUGGED);
    // Gone until the test brings it back: the retries fail meanwhile.
    system_.FailAt(Step::kGetDevice, HRESULT_FROM_WIN32(ERROR_NOT_FOUND));
    system_.FailAt(c.step, c.hr);
    system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
    ASSERT_TRUE(recorder.WaitForStopped(1));
    EXPECT_TRUE(system_.WaitFor(L"client1 Stop"));
    EXPECT_FALSE(capture_->IsActive());
    EXPECT_TRUE(capture_->IsRunning());
    // Back again, with no call from the host, on the same id.
    system_.SetState(L"mic1", DEVICE_STATE_ACTIVE);
    ASSERT_TRUE(system_.WaitFor(L"GetDevice(mic1)", 2));  // a failed retry
    EXPECT_EQ(recorder.stopped(), 1);
    system_.FailAt(c.step, S_OK);
    system_.FailAt(Step::kGetDevice, S_OK);
    {
      std::lock_guard<std::mutex> lock(system_.mutex());
      system_.packets().clear();
    }
    ASSERT_TRUE(system_.WaitFor(kOpenInput, 2));
    EXPECT_TRUE(testing_support::WaitUntil([&] { return capture_->IsActive(); }));
    EXPECT_EQ(system_.Count(L"GetDevice(mic1)"), system_.CountPrefix(L"GetDevice("));
    capture_->Stop();
    EXPECT_EQ(recorder.stopped(), 2);
  }
}

struct OpenFailure {
  const char* name;
  bool is_input;
  Step step;
  HRESULT hr;
};

class AudioCaptureOpenFailure : public AudioCaptureTest, public ::testing::WithParamInterface<OpenFailure> {};

TEST_P(AudioCaptureOpenFailure, RetriesWithoutEventsUntilTheStepSucceeds) {
  const OpenFailure& f = GetParam();
  const std::wstring id = f.is_input ? L"mic1" : L"spk1";
  system_.FailAt(f.step, f.hr);
  ASSERT_TRUE(capture_->StartDevice(f.is_input, id));
  // Three tries at least, each a whole new open.
  ASSERT_TRUE(testing_support::WaitUntil([&] {
    return system_.Count(L"GetDevice(" + id + L")") >= 3 || system_.Count(L"CreateEnumerator") >= 3;
  }));
  EXPECT_TRUE(capture_->IsRunning());
  EXPECT_FALSE(capture_->IsActive());
  EXPECT_EQ(system_.Count(L"client1 Stop"), 0);
  EXPECT_EQ(system_.Count(L"client1 Start"), 0);
  EXPECT_EQ(recorder_.stopped(), 0);
  system_.FailAt(f.step, S_OK);
  ASSERT_TRUE(system_.WaitFor(kOpenInput));
  ASSERT_TRUE(testing_support::WaitUntil([&] { return capture_->IsActive(); }));
  system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
  EXPECT_TRUE(recorder_.WaitForBlocks(1));
  capture_->Stop();
  EXPECT_EQ(recorder_.stopped(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    EachStep, AudioCaptureOpenFailure,
    ::testing::Values(
        OpenFailure{"CreateEnumerator", true, Step::kCreateEnumerator, REGDB_E_CLASSNOTREG},
        OpenFailure{"GetDevice", true, Step::kGetDevice, E_FAIL},
        OpenFailure{"Activate", true, Step::kActivate, E_FAIL},
        OpenFailure{"ActivateThrows", true, Step::kActivate, fake_audio::kThrow},
        OpenFailure{"GetMixFormat", true, Step::kGetMixFormat, E_FAIL},
        OpenFailure{"Initialize", true, Step::kInitialize, AUDCLNT_E_UNSUPPORTED_FORMAT},
        OpenFailure{"CaptureService", true, Step::kCaptureService, AUDCLNT_E_WRONG_ENDPOINT_TYPE},
        OpenFailure{"SetEventHandle", true, Step::kSetEventHandle, E_FAIL},
        OpenFailure{"LoopbackCaptureService", false, Step::kCaptureService, AUDCLNT_E_WRONG_ENDPOINT_TYPE},
        OpenFailure{"RenderActivate", false, Step::kRenderActivate, E_FAIL},
        OpenFailure{"RenderInitialize", false, Step::kRenderInitialize, E_FAIL},
        OpenFailure{"RenderGetBufferSize", false, Step::kRenderGetBufferSize, E_FAIL},
        OpenFailure{"RenderGetService", false, Step::kRenderGetService, E_FAIL},
        OpenFailure{"RenderGetBuffer", false, Step::kRenderGetBuffer, E_FAIL}),
    [](const ::testing::TestParamInfo<OpenFailure>& info) { return std::string(info.param.name); });

TEST_F(AudioCaptureTest, AnUnknownIdKeepsRunningInactiveUntilStop) {
  ASSERT_TRUE(capture_->StartDevice(true, L"no such id"));
  ASSERT_TRUE(system_.WaitFor(L"GetDevice(no such id)", 2));
  EXPECT_TRUE(capture_->IsRunning());
  EXPECT_FALSE(capture_->IsActive());
  EXPECT_TRUE(capture_->Stop());
  EXPECT_FALSE(capture_->IsRunning());
  EXPECT_EQ(recorder_.stopped(), 0);
}

TEST_F(AudioCaptureTest, AnEmptyIdResolvesTheDefaultOnceAndStaysOnIt) {
  ASSERT_TRUE(capture_->StartDevice(true, L""));
  ASSERT_TRUE(system_.WaitFor(kOpenInput));
  EXPECT_EQ(system_.Count(L"GetDefaultAudioEndpoint(1,2)"), 1);
  EXPECT_EQ(capture_->device_id(), L"mic1");
  // The system's default moves; the device is lost and comes back.
  system_.SetDefault(true, L"mic2");
  system_.FailAt(Step::kGetNextPacketSize, E_FAIL);
  system_.Signal();
  ASSERT_TRUE(recorder_.WaitForStopped(1));
  system_.FailAt(Step::kGetNextPacketSize, S_OK);
  ASSERT_TRUE(system_.WaitFor(kOpenInput, 2));
  EXPECT_EQ(system_.Count(L"GetDevice(mic1)"), 2);
  EXPECT_EQ(system_.Count(L"GetDevice(mic2)"), 0);
  EXPECT_EQ(system_.Count(L"GetDefaultAudioEndpoint(1,2)"), 1);
}

TEST_F(AudioCaptureTest, StartDeviceByNameFindsFallsBackOrChangesNothing) {
  ASSERT_TRUE(capture_->StartDeviceByName(true, L"Headset"));
  ASSERT_TRUE(system_.WaitFor(L"GetDevice(mic2)"));
  capture_->Stop();
  // No such name: the default of the direction (capture: communications).
  ASSERT_TRUE(capture_->StartDeviceByName(true, L"Nothing"));
  ASSERT_TRUE(system_.WaitFor(L"GetDevice(mic1)"));
  EXPECT_EQ(system_.Count(L"GetDefaultAudioEndpoint(1,2)"), 1);
  capture_->Stop();
  ASSERT_TRUE(capture_->StartDeviceByName(false, L""));
  ASSERT_TRUE(system_.WaitFor(L"GetDevice(spk1)"));
  EXPECT_EQ(system_.Count(L"GetDefaultAudioEndpoint(0,0)"), 1);
  capture_->Stop();
  // An inactive endpoint isn't found by name.
  system_.SetState(L"mic2", DEVICE_STATE_DISABLED);
  ASSERT_TRUE(capture_->StartDeviceByName(true, L"Headset"));
  ASSERT_TRUE(system_.WaitFor(L"GetDevice(mic1)", 2));
  capture_->Stop();
  // Neither the name nor a default: false, and nothing moved.
  const std::wstring before = capture_->device_id();
  system_.SetDefault(true, L"");
  system_.ClearCalls();
  EXPECT_FALSE(capture_->StartDeviceByName(true, L"Nothing"));
  EXPECT_FALSE(capture_->IsRunning());
  EXPECT_EQ(capture_->device_id(), before);
  EXPECT_EQ(system_.CountPrefix(L"GetDevice("), 0);
}

TEST_F(AudioCaptureTest, ASecondStartOnTheSameEndpointLeavesTheRunningThreadAlone) {
  StartRunning(true, L"mic1");
  EXPECT_TRUE(capture_->StartDevice(true, L"mic1"));
  EXPECT_EQ(recorder_.stopped(), 0);
  EXPECT_EQ(system_.Count(L"client1 Start"), 1);
  // Also while it waits to retry: still one thread, no second open at once.
  AudioCapture::Release(capture_);
  capture_ = new AudioCaptureImpl();
  capture_->SetRetryIntervalForTesting(60000);
  system_.FailAt(Step::kGetDevice, E_FAIL);
  system_.ClearCalls();
  ASSERT_TRUE(capture_->StartDevice(true, L"mic2"));
  ASSERT_TRUE(system_.WaitFor(L"GetDevice(mic2)"));
  EXPECT_TRUE(capture_->StartDevice(true, L"mic2"));
  Sleep(50);  // a second thread would have opened by now; none may
  EXPECT_EQ(system_.Count(L"GetDevice(mic2)"), 1);
}

TEST_F(AudioCaptureTest, AStartOnAnotherEndpointStopsTheFirstStream) {
  StartRunning(true, L"mic1");
  ASSERT_TRUE(capture_->StartDevice(true, L"mic2"));
  EXPECT_EQ(recorder_.stopped(), 1);
  ASSERT_TRUE(system_.WaitFor(kOpenInput, 2));
  EXPECT_EQ(system_.Count(L"GetDevice(mic2)"), 1);
  // Also a thread that only waits to retry is replaced at once.
  system_.FailAt(Step::kGetDevice, E_FAIL);
  capture_->SetRetryIntervalForTesting(60000);
  ASSERT_TRUE(capture_->StartDevice(true, L"spk9"));
  ASSERT_TRUE(system_.WaitFor(L"GetDevice(spk9)"));
  const DWORD start = GetTickCount();
  system_.FailAt(Step::kGetDevice, S_OK);
  ASSERT_TRUE(capture_->StartDevice(true, L"mic1"));
  ASSERT_TRUE(system_.WaitFor(kOpenInput, 3));
  EXPECT_LT(GetTickCount() - start, 30000u);
}

HANDLE WINAPI RefuseThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

TEST_F(AudioCaptureTest, ARefusedThreadLeavesTheEngineIdle) {
  base::SetThreadStarterForTesting(&RefuseThread);
  EXPECT_FALSE(capture_->StartDevice(true, L"mic1"));
  base::SetThreadStarterForTesting(nullptr);
  EXPECT_FALSE(capture_->IsRunning());
  const DWORD start = GetTickCount();
  EXPECT_TRUE(capture_->Stop());
  EXPECT_LT(GetTickCount() - start, 1000u);
  StartRunning(true, L"mic1");  // and it can start later
}

TEST_F(AudioCaptureTest, ReleaseWhileRunningStopsAndDropsEveryReference) {
  StartRunning(false, L"spk1");
  AudioCapture::Release(capture_);
  capture_ = nullptr;
  EXPECT_EQ(recorder_.stopped(), 1);
  EXPECT_EQ(system_.live_objects(), 0);
  AudioCapture::Release(nullptr);
}

// Runs `action` from inside its first block, on the capture thread.
class ActingRecorder : public CaptureRecorder {
 public:
  ActingRecorder() : acted_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  ~ActingRecorder() override { CloseHandle(acted_); }
  void OnAudioData(void* user_data, const void* data, int size, int bits_per_sample, int sample_rate,
                   int channels, int64_t timestamp) override {
    CaptureRecorder::OnAudioData(user_data, data, size, bits_per_sample, sample_rate, channels, timestamp);
    if (!action) return;
    std::function<void()> act = std::move(action);
    action = nullptr;
    act();
    SetEvent(acted_);
  }
  bool WaitActed() { return WaitForSingleObject(acted_, 5000) == WAIT_OBJECT_0; }
  std::function<void()> action;  // set before the start

 private:
  HANDLE acted_;
};

TEST_F(AudioCaptureTest, ItsOwnEventMayStopRestartOrReleaseIt) {
  enum class Action { kStop, kStartOther, kRelease };
  for (Action action : {Action::kStop, Action::kStartOther, Action::kRelease}) {
    SCOPED_TRACE(static_cast<int>(action));
    system_.ClearCalls();
    ActingRecorder recorder;
    AudioCaptureImpl* capture = new AudioCaptureImpl();
    capture->SetCaptureEvent(&recorder, nullptr);
    recorder.action = [&] {
      bool result = true;
      if (action == Action::kStop) result = capture->Stop();
      if (action == Action::kStartOther) result = capture->StartDevice(true, L"mic2");
      if (action == Action::kRelease) AudioCapture::Release(capture);
      EXPECT_TRUE(result);
    };
    ASSERT_TRUE(capture->StartDevice(true, L"mic1"));
    ASSERT_TRUE(system_.WaitFor(kOpenInput));
    system_.QueuePacket(fake_audio::Sine(480, 2, 1000, 48000, 0.5));
    ASSERT_TRUE(recorder.WaitActed()) << "the call waited for the thread that made it";
    if (action == Action::kRelease) {
      // Destroyed at the thread's end, with nothing more told to the host.
      EXPECT_TRUE(testing_support::WaitUntil([&] { return system_.live_objects() == 0; }));
      EXPECT_EQ(recorder.stopped(), 0);
      continue;
    }
    ASSERT_TRUE(recorder.WaitForStopped(1));
    if (action == Action::kStartOther) {
      // The same thread starts over on the other endpoint.
      ASSERT_TRUE(system_.WaitFor(kOpenInput, 2));
      EXPECT_EQ(system_.Count(L"GetDevice(mic2)"), 1);
      EXPECT_EQ(capture->device_id(), L"mic2");
      EXPECT_TRUE(capture->IsRunning());
    } else {
      EXPECT_FALSE(capture->IsRunning());
    }
    AudioCapture::Release(capture);
    EXPECT_EQ(recorder.stopped(), action == Action::kStartOther ? 2 : 1);
    EXPECT_EQ(recorder.blocks().size(), 1u);
  }
}

TEST_F(AudioCaptureTest, MixFormatsTheResamplerCantReadFailTheOpen) {
  struct Case {
    const char* name;
    DWORD rate;
    WORD channels, bits;
    bool is_float, extensible;
    int out_channels;
  };
  const Case cases[] = {
      {"16-bit PCM", 48000, 2, 16, false, false, 1},
      {"extensible 16-bit PCM", 48000, 2, 16, false, true, 1},
      {"extensible 32-bit integers", 48000, 2, 32, false, true, 1},
      {"plain 64-bit float", 48000, 2, 64, true, false, 1},
      {"nine channels", 48000, 9, 32, true, true, 1},
      {"rate 0", 0, 2, 32, true, false, 1},
      {"no output channel", 48000, 2, 32, true, true, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Endpoint odd{L"odd", L"Odd", true};
    odd.rate = c.rate;
    odd.channels = c.channels;
    odd.bits = c.bits;
    odd.is_float = c.is_float;
    odd.extensible = c.extensible;
    system_.AddEndpoint(odd);
    system_.ClearCalls();
    capture_->SetOutputFormat(44100, c.out_channels, 16);
    ASSERT_TRUE(capture_->StartDevice(true, L"odd"));
    ASSERT_TRUE(system_.WaitFor(L"GetDevice(odd)", 2));  // a failed open, retried
    EXPECT_EQ(system_.Count(kOpenInput), 0);
    EXPECT_FALSE(capture_->IsActive());
    EXPECT_TRUE(capture_->IsRunning());
    capture_->Stop();
    EXPECT_EQ(recorder_.stopped(), 0);
  }
}

TEST_F(AudioCaptureTest, ByNameOnAThreadWithoutComLeavesItWithout) {
  HRESULT before = S_OK, after = S_OK;
  bool started = false;
  std::thread([&] {
    APTTYPE type;
    APTTYPEQUALIFIER qualifier;
    before = CoGetApartmentType(&type, &qualifier);
    started = capture_->StartDeviceByName(true, L"Headset");
    after = CoGetApartmentType(&type, &qualifier);
  }).join();
  EXPECT_EQ(before, CO_E_NOTINITIALIZED) << "no apartment in the process may stand in for the call's own";
  EXPECT_TRUE(started);
  EXPECT_TRUE(system_.WaitFor(L"GetDevice(mic2)"));
  EXPECT_EQ(after, CO_E_NOTINITIALIZED);
}

TEST_F(AudioCaptureTest, AStartDuringTheDefaultsLookupKeepsItsEndpoint) {
  HANDLE in_lookup = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  system_.on_get_default = [&] {
    SetEvent(in_lookup);
    WaitForSingleObject(go, 5000);
  };
  ASSERT_TRUE(capture_->StartDevice(true, L""));
  ASSERT_EQ(WaitForSingleObject(in_lookup, 5000), WAIT_OBJECT_0);
  ASSERT_TRUE(capture_->StartDevice(true, L"mic2"));
  SetEvent(go);
  ASSERT_TRUE(system_.WaitFor(kOpenInput));
  EXPECT_EQ(capture_->device_id(), L"mic2");
  EXPECT_EQ(system_.Count(L"GetDevice(mic1)"), 0);
  capture_->Stop();
  system_.on_get_default = nullptr;
  CloseHandle(in_lookup);
  CloseHandle(go);
}

// The one test that waits the real pause between tries: a loopback device is
// unplugged, noticed by the 10 ms poll without any signal, and plugged back;
// the stream returns about 3 s later on the same id with no host call.
TEST(AudioCaptureRetry, ALostLoopbackDeviceReturnsAfterThreeSeconds) {
  FakeAudioSystem system;
  system.AddEndpoint({L"spk1", L"Speakers", false});
  CaptureRecorder recorder;
  AudioCapture* capture = AudioCapture::Create();
  capture->SetCaptureEvent(&recorder, nullptr);
  ASSERT_TRUE(capture->StartDevice(false, L"spk1"));
  ASSERT_TRUE(system.WaitFor(kOpenInput));
  system.SetState(L"spk1", DEVICE_STATE_UNPLUGGED);
  system.SetInvalidated(true);
  const DWORD lost = GetTickCount();
  ASSERT_TRUE(recorder.WaitForStopped(1, 2000));
  EXPECT_LT(recorder.stop_times()[0] - lost, 500u) << "the poll should notice within a few 10 ms steps";
  system.SetInvalidated(false);
  system.SetState(L"spk1", DEVICE_STATE_ACTIVE);
  ASSERT_TRUE(system.WaitFor(kOpenInput, 2, 10000));
  const DWORD back = GetTickCount() - recorder.stop_times()[0];
  EXPECT_GE(back, 2900u);
  EXPECT_LT(back, 4500u);
  EXPECT_EQ(system.Count(L"GetDevice(spk1)"), 2);
  EXPECT_TRUE(testing_support::WaitUntil([&] { return capture->IsActive(); }));
  AudioCapture::Release(capture);
  EXPECT_EQ(recorder.stopped(), 2);
}

}  // namespace
