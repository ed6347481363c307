#include "audio/tone_player.h"

#include <audioclient.h>
#include <mmdeviceapi.h>

#include <cmath>
#include <vector>

namespace audio_testing {
namespace {

const PROPERTYKEY kFriendlyName = {
    {0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}}, 14};

template <typename T>
struct Ref {
  T* p = nullptr;
  ~Ref() {
    if (p) p->Release();
  }
};

// The active endpoint of this direction and name, or null.
IMMDevice* FindEndpoint(bool is_input, const std::wstring& name, std::vector<std::wstring>* names) {
  Ref<IMMDeviceEnumerator> enumerator;
  if (FAILED(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                              __uuidof(IMMDeviceEnumerator), reinterpret_cast<void**>(&enumerator.p)))) {
    return nullptr;
  }
  Ref<IMMDeviceCollection> collection;
  if (FAILED(enumerator.p->EnumAudioEndpoints(is_input ? eCapture : eRender, DEVICE_STATE_ACTIVE,
                                              &collection.p))) {
    return nullptr;
  }
  UINT count = 0;
  collection.p->GetCount(&count);
  for (UINT i = 0; i < count; ++i) {
    IMMDevice* device = nullptr;
    if (FAILED(collection.p->Item(i, &device))) continue;
    Ref<IPropertyStore> store;
    std::wstring found;
    if (SUCCEEDED(device->OpenPropertyStore(STGM_READ, &store.p))) {
      PROPVARIANT value;
      PropVariantInit(&value);
      if (SUCCEEDED(store.p->GetValue(kFriendlyName, &value)) && value.vt == VT_LPWSTR) found = value.pwszVal;
      PropVariantClear(&value);
    }
    if (names) names->push_back(found);
    if (!names && found == name) return device;
    device->Release();
  }
  return nullptr;
}

}  // namespace

std::wstring ListEndpoints(bool is_input) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  std::vector<std::wstring> names;
  FindEndpoint(is_input, L"", &names);
  std::wstring text;
  for (const std::wstring& n : names) text += L"\"" + n + L"\" ";
  return text;
}

bool HasEndpoint(bool is_input, const std::wstring& name) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  IMMDevice* device = FindEndpoint(is_input, name, nullptr);
  if (!device) return false;
  device->Release();
  return true;
}

bool TonePlayer::Start(const std::wstring& endpoint_name, double frequency, double amplitude, Shape shape) {
  Stop();
  endpoint_name_ = endpoint_name;
  frequency_ = frequency;
  amplitude_ = amplitude;
  shape_ = shape;
  started_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  stop_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  done_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE thread = CreateThread(nullptr, 0, &TonePlayer::Thread, this, 0, nullptr);
  if (!thread) return false;
  CloseHandle(thread);
  WaitForSingleObject(started_, 10000);
  return ok_.load();
}

void TonePlayer::Stop() {
  if (!done_) return;
  SetEvent(stop_);
  WaitForSingleObject(done_, 10000);
  CloseHandle(started_);
  CloseHandle(stop_);
  CloseHandle(done_);
  started_ = stop_ = done_ = nullptr;
}

DWORD WINAPI TonePlayer::Thread(LPVOID param) {
  TonePlayer* self = static_cast<TonePlayer*>(param);
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  if (!self->Play()) SetEvent(self->started_);
  CoUninitialize();
  SetEvent(self->done_);
  return 0;
}

bool TonePlayer::Play() {
  Ref<IMMDevice> device;
  device.p = FindEndpoint(false, endpoint_name_, nullptr);
  if (!device.p) return false;
  Ref<IAudioClient> client;
  if (FAILED(device.p->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr,
                                reinterpret_cast<void**>(&client.p)))) {
    return false;
  }
  WAVEFORMATEX* format = nullptr;
  if (FAILED(client.p->GetMixFormat(&format))) return false;
  const int channels = format->nChannels;
  rate_ = static_cast<int>(format->nSamplesPerSec);
  // The mix is float under Wine's PulseAudio driver; anything else isn't
  // what these tests expect.
  const bool is_float = format->wBitsPerSample == 32;
  HRESULT hr = client.p->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 2000000, 0, format, nullptr);
  CoTaskMemFree(format);
  if (FAILED(hr) || !is_float) return false;
  UINT32 buffer_frames = 0;
  client.p->GetBufferSize(&buffer_frames);
  Ref<IAudioRenderClient> render;
  if (FAILED(client.p->GetService(__uuidof(IAudioRenderClient), reinterpret_cast<void**>(&render.p))))
    return false;
  uint64_t position = 0;
  auto fill = [&]() {
    UINT32 padding = 0;
    if (FAILED(client.p->GetCurrentPadding(&padding))) return;
    UINT32 frames = buffer_frames - padding;
    if (frames == 0) return;
    BYTE* data = nullptr;
    if (FAILED(render.p->GetBuffer(frames, &data))) return;
    float* out = reinterpret_cast<float*>(data);
    for (UINT32 i = 0; i < frames; ++i, ++position) {
      double phase = std::fmod(frequency_ * static_cast<double>(position) / rate_, 1.0);
      double v =
          shape_ == Shape::kSine ? std::sin(2.0 * 3.141592653589793 * phase) : (phase < 0.5 ? 1.0 : -1.0);
      for (int c = 0; c < channels; ++c) out[i * channels + c] = static_cast<float>(amplitude_ * v);
    }
    render.p->ReleaseBuffer(frames, 0);
  };
  fill();
  if (FAILED(client.p->Start())) return false;
  ok_.store(true);
  SetEvent(started_);
  while (WaitForSingleObject(stop_, 20) == WAIT_TIMEOUT) fill();
  client.p->Stop();
  return true;
}

}  // namespace audio_testing
