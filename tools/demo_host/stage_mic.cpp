// Stage 5: the microphone test while a tone plays into the default output
// (the sound server's null sink, whose monitor is the default input).
#include <windows.h>
// (after windows.h)
#include <mmsystem.h>

#include <algorithm>

#include "demo.h"

namespace {

class Tone {
 public:
  // A 441 Hz square wave at half scale, `seconds` long, 44.1 kHz mono.
  bool Play(double seconds) {
    WAVEFORMATEX format = {};
    format.wFormatTag = WAVE_FORMAT_PCM;
    format.nChannels = 1;
    format.nSamplesPerSec = 44100;
    format.wBitsPerSample = 16;
    format.nBlockAlign = 2;
    format.nAvgBytesPerSec = 88200;
    if (waveOutOpen(&device_, WAVE_MAPPER, &format, 0, 0, CALLBACK_NULL) != MMSYSERR_NOERROR) {
      device_ = nullptr;
      return false;
    }
    samples_.resize(static_cast<size_t>(44100 * seconds));
    for (size_t i = 0; i < samples_.size(); ++i) samples_[i] = ((i / 50) % 2) ? 16000 : -16000;
    header_ = WAVEHDR();
    header_.lpData = reinterpret_cast<LPSTR>(samples_.data());
    header_.dwBufferLength = static_cast<DWORD>(samples_.size() * sizeof(int16_t));
    return waveOutPrepareHeader(device_, &header_, sizeof(header_)) == MMSYSERR_NOERROR &&
           waveOutWrite(device_, &header_, sizeof(header_)) == MMSYSERR_NOERROR;
  }
  ~Tone() {
    if (!device_) return;
    waveOutReset(device_);
    waveOutUnprepareHeader(device_, &header_, sizeof(header_));
    waveOutClose(device_);
  }

 private:
  HWAVEOUT device_ = nullptr;
  WAVEHDR header_ = {};
  std::vector<int16_t> samples_;
};

}  // namespace

bool RunMicTest(RTCEngine* engine, EngineEvents* events, Results* results) {
  Print("mic: the microphone test while the desktop is shared and a tone plays (6 s)");
  Tone tone;
  const bool playing = tone.Play(8.0);
  if (!playing) Print("mic: no audio output to play the tone on");
  engine->EnableCaptureDesktopVideo(true);
  engine->StartMicDeviceTest();
  for (int i = 1; i <= 6; ++i) {
    Sleep(1000);
    std::lock_guard<std::mutex> hold(events->levels_mutex);
    Print("mic: %d s, levels so far: %s", i,
          events->levels.empty() ? "none" : std::to_string(events->levels.back()).c_str());
  }
  engine->StopMicDeviceTest();
  engine->EnableCaptureDesktopVideo(false);
  {
    std::lock_guard<std::mutex> hold(events->levels_mutex);
    results->levels = events->levels;
  }
  const bool heard = std::any_of(results->levels.begin(), results->levels.end(), [](int v) { return v > 0; });
  if (!heard) {
    results->failures.push_back("mic: no level above 0 reached the host (is a sound server running?)");
    return false;
  }
  return true;
}
