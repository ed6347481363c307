// Scripted Core Audio for the unit tests, handed to the library through its
// enumerator factory: endpoints with any mix format, packets, unplugging and
// a failure (or exception) at any call. Calls are logged by name, such as
// "GetDevice(mic1)" or "client1 Initialize(mode=0,flags=0x40000,...)", and a
// script decides each one's result by that name.
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

struct Endpoint {
  std::wstring id, name;  // an empty name: the endpoint has none
  bool is_input = true;
  DWORD state = DEVICE_STATE_ACTIVE, rate = 48000;
  WORD channels = 2, bits = 32, tag = WAVE_FORMAT_EXTENSIBLE;
  bool is_float = true;  // the extensible subformat
};

class FakeAudio : public audio_testing::Monitor {
 public:
  FakeAudio();  // installs itself; the destructor restores the system's
  ~FakeAudio();
  void Add(const Endpoint& endpoint);  // or replace, in place
  void SetDefault(bool is_input, const std::wstring& id) {
    Update([&] { default_id_[is_input] = id; });
  }
  void SetState(const std::wstring& id, DWORD state) {
    Update([&] { endpoints_[id].state = state; });
  }
  void Script(std::function<HRESULT(const std::wstring& call)> script);
  // One packet of interleaved float frames; signalled as the system does.
  void Queue(const std::vector<float>& samples, bool signal = true);
  void Signal() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (event) SetEvent(event);
  }
  int Count(const std::wstring& prefix);  // logged calls that begin so
  bool WaitFor(const std::wstring& prefix, int times = 1, int timeout_ms = 5000);

  // For the fakes: logs `call` (unless quiet) and gives the script's result.
  HRESULT Call(const std::wstring& call, bool quiet = false);
  Endpoint Get(const std::wstring& id);
  std::wstring Default(bool is_input) {
    std::lock_guard<std::mutex> lock(mutex_);
    return default_id_[is_input];
  }
  std::vector<std::wstring> Ids(bool is_input, DWORD state_mask);

  // Guarded by mutex_.
  std::vector<std::wstring> calls;
  std::vector<std::vector<float>> packets;
  HANDLE event = nullptr;
  IMMNotificationClient* client_ = nullptr;
  int live_ = 0;  // references held on the fakes

 private:
  int CountLocked(const std::wstring& prefix);
  std::vector<std::wstring> order_;
  std::map<std::wstring, Endpoint> endpoints_;
  std::wstring default_id_[2];
  std::function<HRESULT(const std::wstring&)> script_;
};

// Interleaved frames of a 1 kHz sine at 48 kHz.
std::vector<float> Sine(int frames, int channels, double amplitude);

}  // namespace fake_audio

// The one fixture of the unit tests: two microphones and a speaker, the
// defaults mic1 and spk1, and a capture that retries after 20 ms.
class AudioTest : public ::testing::Test {
 protected:
  AudioTest() {
    audio.Add({L"mic1", L"Microphone"});
    audio.Add({L"mic2", L"Headset"});
    audio.Add({L"spk1", L"Speakers", false});
    audio.SetDefault(true, L"mic1");
    audio.SetDefault(false, L"spk1");
    capture->SetCaptureEvent(&recorder, &recorder);
    capture->SetRetryIntervalForTesting(20);
  }
  ~AudioTest() override {
    AudioCapture::Release(capture);
    EXPECT_TRUE(audio.Wait([this] { return audio.live_ == 0; }))
        << "a Core Audio reference outlived its owner";
  }
  // Starts, and waits for the `opens`-th stream to run.
  void Run(bool is_input, const std::wstring& id, int opens = 1) {
    ASSERT_TRUE(capture->StartDevice(is_input, id));
    ASSERT_TRUE(audio.WaitFor(L"client1 Start", opens));
  }
  void Clear() {
    audio.Update([this] { audio.calls.clear(); });
  }
  std::vector<std::wstring> Calls() {
    std::lock_guard<std::mutex> lock(audio.mutex_);
    return audio.calls;
  }

  fake_audio::FakeAudio audio;
  audio_testing::Recorder recorder;
  AudioCaptureImpl* capture = new AudioCaptureImpl();
};
