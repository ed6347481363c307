#include "audio/audio_device_enumerator.h"

#include <windows.h>

#include <mmdeviceapi.h>
#include <propidl.h>

#include <atomic>

#include "audio/core_audio.h"
#include "audio/scoped_com.h"

namespace {

// PKEY_Device_FriendlyName, spelled out so that no translation unit has to
// instantiate the system's property-key GUIDs.
const PROPERTYKEY kFriendlyName = {
    {0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 14};

std::atomic<AudioDeviceEnumerator*> g_instance{nullptr};

// GetId's string, freed here; untouched `id` when there is none.
void ReadId(IMMDevice* device, std::wstring* id) {
  LPWSTR text = nullptr;
  if (device->GetId(&text) == S_OK && text) *id = text;
  if (text) CoTaskMemFree(text);
}

// False when the property store can't be opened; an absent or non-text name
// leaves `name` as it is.
bool ReadName(IMMDevice* device, std::wstring* name) {
  audio::ScopedComPtr<IPropertyStore> store;
  if (device->OpenPropertyStore(STGM_READ, store.Receive()) != S_OK || !store) return false;
  PROPVARIANT value;
  PropVariantInit(&value);
  if (SUCCEEDED(store->GetValue(kFriendlyName, &value)) && value.vt == VT_LPWSTR && value.pwszVal) {
    *name = value.pwszVal;
  }
  PropVariantClear(&value);
  return true;
}

}  // namespace

AudioDeviceEnumerator* AudioDeviceEnumerator::GetInstance() {
  AudioDeviceEnumerator* instance = g_instance.load(std::memory_order_acquire);
  if (instance) return instance;
  AudioDeviceEnumerator* made = new AudioDeviceEnumerator();
  AudioDeviceEnumerator* expected = nullptr;
  if (g_instance.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) return made;
  delete made;
  return expected;
}

void AudioDeviceEnumerator::EnumerateDevices(bool is_input, std::vector<AudioDeviceInfo>& devices) {
  devices.clear();
  audio::ScopedComInit com;
  audio::ScopedComPtr<IMMDeviceEnumerator> enumerator;
  if (audio::CreateDeviceEnumerator(enumerator.Receive()) != S_OK || !enumerator) return;
  audio::ScopedComPtr<IMMDeviceCollection> collection;
  if (enumerator->EnumAudioEndpoints(is_input ? eCapture : eRender, DEVICE_STATE_ACTIVE,
                                     collection.Receive()) != S_OK ||
      !collection) {
    return;
  }
  UINT count = 0;
  if (collection->GetCount(&count) != S_OK) return;
  for (UINT i = 0; i < count; ++i) {
    audio::ScopedComPtr<IMMDevice> device;
    if (collection->Item(i, device.Receive()) != S_OK || !device) continue;
    AudioDeviceInfo info;
    info.is_input = is_input;
    ReadId(device.get(), &info.id);
    if (!ReadName(device.get(), &info.name)) continue;
    devices.push_back(info);
  }
}

bool AudioDeviceEnumerator::GetDefaultDevice(bool is_input, AudioDeviceInfo& device) {
  device.is_input = is_input;
  audio::ScopedComInit com;
  audio::ScopedComPtr<IMMDeviceEnumerator> enumerator;
  if (FAILED(audio::CreateDeviceEnumerator(enumerator.Receive())) || !enumerator) return false;
  audio::ScopedComPtr<IMMDevice> endpoint;
  HRESULT hr = is_input ? enumerator->GetDefaultAudioEndpoint(eCapture, eCommunications, endpoint.Receive())
                        : enumerator->GetDefaultAudioEndpoint(eRender, eConsole, endpoint.Receive());
  if (hr != S_OK || !endpoint) return false;
  ReadId(endpoint.get(), &device.id);
  return ReadName(endpoint.get(), &device.name);
}

std::wstring AudioDeviceEnumerator::FindDeviceId(bool is_input, const std::wstring& device_name) {
  std::vector<AudioDeviceInfo> devices;
  EnumerateDevices(is_input, devices);
  for (const AudioDeviceInfo& device : devices) {
    if (device.name == device_name) return device.id;
  }
  return std::wstring();
}
