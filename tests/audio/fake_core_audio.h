// Scripted Core Audio behind the library's enumerator factory: calls are journalled by name
// ("GetDevice(mic1)", "client1 Initialize(0,0x40000,...)") and `fail` decides their results.
#pragma once

#include <windows.h>

#include <audioclient.h>
#include <gtest/gtest.h>
#include <mmdeviceapi.h>

#include <map>

#include "audio/audio_capture_impl.h"
#include "audio/audio_testing.h"

namespace fake_audio {

constexpr HRESULT kThrow = static_cast<HRESULT>(0xDEADBEEF);  // thrown, not returned
constexpr HRESULT kPause = static_cast<HRESULT>(0xDEADBEE0);  // counted in `pauses`; succeeds once unscripted

struct Endpoint {
  std::wstring id, name;  // an empty name: the endpoint has none
  bool is_input = true;
  DWORD state = DEVICE_STATE_ACTIVE, rate = 48000;
  WORD channels = 2, bits = 32, tag = WAVE_FORMAT_EXTENSIBLE;
  bool is_float = true;  // the extensible subformat
};

// The members are guarded by mutex_.
class FakeAudio : public audio_testing::Monitor {
 public:
  FakeAudio();  // installs itself; the destructor restores the system's
  ~FakeAudio();
  void Add(const Endpoint& endpoint);  // or replace, in place
  Endpoint* Find(const std::wstring& id);
  // Every call that begins with a key gives its result.
  void Fail(std::map<std::wstring, HRESULT> results = {}) {
    Locked([&] { fail = results; });
  }
  // One packet of interleaved float frames (none: a wake-up only), signalled as the system does.
  void Queue(const std::vector<float>& samples = {}, bool signal = true);
  int Count(const std::wstring& prefix);  // journalled calls that begin so
  bool WaitFor(const std::wstring& prefix, int times = 1, int timeout_ms = 5000);
  HRESULT Call(const std::wstring& call, bool quiet = false);  // journals `call` unless quiet
  bool Released() {
    return Wait([this] { return live == 0; });
  }

  std::vector<Endpoint> endpoints = {
      {L"mic1", L"Microphone"}, {L"mic2", L"Headset"}, {L"spk1", L"Speakers", false}};
  std::wstring defaults[2] = {L"spk1", L"mic1"};  // by is_input
  std::map<std::wstring, HRESULT> fail;
  std::vector<std::wstring> calls;
  std::vector<std::vector<float>> packets;
  HANDLE event = nullptr;
  IMMNotificationClient* client = nullptr;
  int live = 0, pauses = 0;  // references held on the fakes; paused calls
};

std::vector<float> Sine(int frames = 480);  // stereo, 1 kHz at 48 kHz, half scale

}  // namespace fake_audio

// The folder's one fixture: mic1 (default), mic2 and spk1 (default), and a capture that retries after 20 ms.
class AudioTest : public ::testing::Test {
 protected:
  AudioTest() {
    capture->SetCaptureEvent(&recorder, &recorder);
    capture->SetRetryIntervalForTesting(20);
  }
  ~AudioTest() override {
    AudioCapture::Release(capture);
    EXPECT_TRUE(audio.Released()) << "a Core Audio reference outlived its owner";
  }
  // Starts, and waits for the `opens`-th stream to run.
  void Run(bool is_input, const std::wstring& id, int opens = 1) {
    ASSERT_TRUE(capture->StartDevice(is_input, id));
    ASSERT_TRUE(audio.WaitFor(L"client1 Start", opens));
  }
  std::wstring Journal() {  // and empties it
    std::wstring text;
    audio.Locked([&] {
      for (const std::wstring& call : audio.calls) text += call + L"; ";
      audio.calls.clear();
    });
    return text;
  }

  fake_audio::FakeAudio audio;
  audio_testing::Recorder recorder;
  AudioCaptureImpl* capture = new AudioCaptureImpl();
};
