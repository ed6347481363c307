#include "audio/tone_player.h"

#include <mmdeviceapi.h>
#include <mmsystem.h>

#include <cmath>
#include <cstring>

namespace audio_testing {
namespace {

// Not every test program links winmm.
BOOL PlaySoundNow(LPCWSTR sound, DWORD flags) {
  using PlaySoundFunction = BOOL(WINAPI*)(LPCWSTR, HMODULE, DWORD);
  static const auto play = reinterpret_cast<PlaySoundFunction>(
      reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(L"winmm.dll"), "PlaySoundW")));
  return play(sound, nullptr, flags);
}

}  // namespace

// Ten seconds of 16-bit stereo at 44100 Hz, a whole number of periods for
// whole-hertz tones, as a WAVE file in memory.
bool TonePlayer::Start(const std::wstring& endpoint_name, double frequency, double amplitude, Shape shape) {
  Stop();
  if (!HasEndpoint(false, endpoint_name)) return false;
  const uint32_t rate = 44100, frames = rate * 10, bytes = frames * 4;
  const uint32_t header[] = {
      0x46464952, 36 + bytes, 0x45564157, 0x20746d66, 16,   0x00020001,
      rate,       rate * 4,   0x00100004, 0x61746164, bytes};  // RIFF, WAVE, fmt: PCM 2 x 16 bits, data
  wave_.assign(reinterpret_cast<const char*>(header), reinterpret_cast<const char*>(header) + sizeof(header));
  for (uint32_t i = 0; i < frames; ++i) {
    const double phase = std::fmod(frequency * i / rate, 1.0);
    const double v =
        shape == Shape::kSquare ? (phase < 0.5 ? 1 : -1) : std::sin(2 * 3.141592653589793 * phase);
    const int16_t s[2] = {static_cast<int16_t>(std::lround(v * amplitude * 32767)), s[0]};
    wave_.insert(wave_.end(), reinterpret_cast<const char*>(s), reinterpret_cast<const char*>(s + 2));
  }
  return PlaySoundNow(reinterpret_cast<LPCWSTR>(wave_.data()),
                      SND_MEMORY | SND_ASYNC | SND_LOOP | SND_NODEFAULT);
}

void TonePlayer::Stop() {
  if (!wave_.empty()) PlaySoundNow(nullptr, 0);
  wave_.clear();
}

bool HasEndpoint(bool is_input, const std::wstring& name) {
  const HRESULT com = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  const PROPERTYKEY kName = {{0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}},
                             14};
  bool found = false;
  IMMDeviceEnumerator* enumerator = nullptr;
  IMMDeviceCollection* list = nullptr;
  UINT count = 0;
  if (SUCCEEDED(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL,
                                 __uuidof(IMMDeviceEnumerator), reinterpret_cast<void**>(&enumerator))) &&
      SUCCEEDED(enumerator->EnumAudioEndpoints(is_input ? eCapture : eRender, DEVICE_STATE_ACTIVE, &list))) {
    list->GetCount(&count);
  }
  for (UINT i = 0; i < count && !found; ++i) {
    IMMDevice* device = nullptr;
    IPropertyStore* store = nullptr;
    PROPVARIANT value;
    PropVariantInit(&value);
    if (SUCCEEDED(list->Item(i, &device)) && SUCCEEDED(device->OpenPropertyStore(STGM_READ, &store)) &&
        SUCCEEDED(store->GetValue(kName, &value)) && value.vt == VT_LPWSTR) {
      found = name == value.pwszVal;
    }
    PropVariantClear(&value);
    if (store) store->Release();
    if (device) device->Release();
  }
  if (list) list->Release();
  if (enumerator) enumerator->Release();
  if (SUCCEEDED(com)) CoUninitialize();
  return found;
}

}  // namespace audio_testing
