// Where the engine meets its own microphone test (used while desktop capture
// is on). The test object is not part of this build yet: the engine keeps a
// null audio_device_test_ and these do nothing then.
#include "engine/rtc_engine_impl.h"

void RTCEngineImpl::CreateAudioDeviceTest() { audio_device_test_ = nullptr; }

void RTCEngineImpl::DestroyAudioDeviceTest() { audio_device_test_ = nullptr; }

void RTCEngineImpl::StartAudioDeviceTest(const std::wstring& /*device_name*/) {
  if (!audio_device_test_) return;
}

void RTCEngineImpl::StopAudioDeviceTest() {
  if (!audio_device_test_) return;
}
