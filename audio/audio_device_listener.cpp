#include "audio/audio_device_listener.h"

#include "audio/core_audio.h"

IAudioDeviceListener* IAudioDeviceListener::Create() { return new AudioDeviceListener(); }

void IAudioDeviceListener::Release(IAudioDeviceListener* listener) { delete listener; }

AudioDeviceListener::AudioDeviceListener() {
  // Without an enumerator the object still exists; it just never hears
  // anything.
  if (SUCCEEDED(audio::CreateDeviceEnumerator(enumerator_.Receive())) && enumerator_) {
    enumerator_->RegisterEndpointNotificationCallback(this);
  }
}

AudioDeviceListener::~AudioDeviceListener() {
  if (enumerator_) enumerator_->UnregisterEndpointNotificationCallback(this);
  enumerator_.Reset();
}

void AudioDeviceListener::SetListenerEvent(AudioDeviceListenerEvent* event) { event_.store(event); }

HRESULT STDMETHODCALLTYPE AudioDeviceListener::QueryInterface(REFIID iid, void** object) {
  if (iid == IID_IUnknown || iid == __uuidof(IMMNotificationClient)) {
    *object = static_cast<IMMNotificationClient*>(this);
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE AudioDeviceListener::AddRef() { return 1; }

ULONG STDMETHODCALLTYPE AudioDeviceListener::Release() { return 1; }

HRESULT STDMETHODCALLTYPE AudioDeviceListener::OnDeviceStateChanged(LPCWSTR device_id, DWORD /*new_state*/) {
  if (AudioDeviceListenerEvent* event = event_.load()) event->OnDeviceStateChanged(device_id);
  return S_OK;
}

HRESULT STDMETHODCALLTYPE AudioDeviceListener::OnDeviceAdded(LPCWSTR /*device_id*/) { return S_OK; }

HRESULT STDMETHODCALLTYPE AudioDeviceListener::OnDeviceRemoved(LPCWSTR /*device_id*/) { return S_OK; }

HRESULT STDMETHODCALLTYPE AudioDeviceListener::OnDefaultDeviceChanged(EDataFlow /*flow*/, ERole /*role*/,
                                                                      LPCWSTR /*device_id*/) {
  return S_OK;
}

HRESULT STDMETHODCALLTYPE AudioDeviceListener::OnPropertyValueChanged(LPCWSTR /*device_id*/,
                                                                      const PROPERTYKEY /*key*/) {
  return S_OK;
}
