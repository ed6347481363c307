// The exported endpoint listener. It is its own IMMNotificationClient, but
// without a reference count: Create and Release alone rule its life, and the
// audio system's hold on it ends with the unregistering in the destructor.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

#include <atomic>

#include "audio/scoped_com.h"
#include "roomcore/audio.h"

class AudioDeviceListener : public IMMNotificationClient, public IAudioDeviceListener {
 public:
  AudioDeviceListener();
  ~AudioDeviceListener() override;
  AudioDeviceListener(const AudioDeviceListener&) = delete;
  AudioDeviceListener& operator=(const AudioDeviceListener&) = delete;

  // IAudioDeviceListener.
  void SetListenerEvent(AudioDeviceListenerEvent* event) override;

  // IUnknown, without counting.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  // IMMNotificationClient: only the state change goes on.
  HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR device_id, DWORD new_state) override;
  HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR device_id) override;
  HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR device_id) override;
  HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role, LPCWSTR device_id) override;
  HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR device_id, const PROPERTYKEY key) override;

 private:
  // Set by the host, read on the audio system's notification thread.
  std::atomic<AudioDeviceListenerEvent*> event_{nullptr};
  audio::ScopedComPtr<IMMDeviceEnumerator> enumerator_;
};
