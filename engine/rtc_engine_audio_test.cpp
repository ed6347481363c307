// Where the engine meets its own microphone test, which it uses while desktop
// capture is on (the SDK's own test runs otherwise).
#include "audio/audio_device_test.h"
#include "engine/rtc_engine_impl.h"

void RTCEngineImpl::CreateAudioDeviceTest() { audio_device_test_ = new AudioDeviceTest(this); }

void RTCEngineImpl::DestroyAudioDeviceTest() {
  // Stops a running test first: its capture thread reports to this engine.
  delete audio_device_test_;
  audio_device_test_ = nullptr;
}

void RTCEngineImpl::StartAudioDeviceTest(const std::wstring& device_name) {
  if (!audio_device_test_) return;
  audio_test_running_ = true;
  audio_device_test_->Start(device_name);
}

void RTCEngineImpl::StopAudioDeviceTest() {
  if (audio_test_running_.exchange(false) && audio_device_test_) audio_device_test_->Stop();
}
