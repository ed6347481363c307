#include "audio/tone_player.h"

#include <mmsystem.h>

#include <cmath>

namespace audio_testing {
namespace {

// Not every test program links winmm.
template <typename F>
F Winmm(const char* name) {
  return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryW(L"winmm.dll"), name)));
}

BOOL PlaySoundNow(LPCWSTR sound, DWORD flags) {
  static const auto play = Winmm<BOOL(WINAPI*)(LPCWSTR, HMODULE, DWORD)>("PlaySoundW");
  return play(sound, nullptr, flags);
}

}  // namespace

// Ten seconds of 16-bit stereo at 44100 Hz (whole periods of whole-hertz tones), as a WAVE file in memory.
bool TonePlayer::Start(const std::wstring& endpoint_name, double frequency, double amplitude, Shape shape) {
  Stop();
  static const auto count = Winmm<UINT(WINAPI*)()>("waveOutGetNumDevs");
  static const auto caps = Winmm<MMRESULT(WINAPI*)(UINT_PTR, LPWAVEOUTCAPSW, UINT)>("waveOutGetDevCapsW");
  WAVEOUTCAPSW out;
  bool found = false;  // winmm names its devices after the Core Audio endpoints
  for (UINT d = 0; d < count(); ++d)
    found |= caps(d, &out, sizeof(out)) == MMSYSERR_NOERROR && endpoint_name == out.szPname;
  if (!found) return false;
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

}  // namespace audio_testing
