// The library's own microphone test: records a named input device and turns
// its blocks into a rough loudness number, reported at most every 600 ms.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "audio/audio_device_test_event.h"
#include "base/lock.h"
#include "roomcore/audio.h"

class AudioDeviceTest : public AudioCaptureEvent {
 public:
  static constexpr int64_t kReportIntervalMs = 600;

  // `event` may be null: the level then goes nowhere. Not owned.
  explicit AudioDeviceTest(AudioDeviceTestEvent* event);
  ~AudioDeviceTest() override;
  AudioDeviceTest(const AudioDeviceTest&) = delete;
  AudioDeviceTest& operator=(const AudioDeviceTest&) = delete;

  // Ends any earlier test and records `device_name` (the default input when
  // no device has that name) with a fresh capture.
  void Start(const std::wstring& device_name);
  // Stops the capture, which stays for the next Start. Always true.
  bool Stop();

  // AudioCaptureEvent, on the capture thread.
  void OnAudioData(void* user_data, const void* data, int size, int bits_per_sample, int sample_rate,
                   int channels, int64_t timestamp) override;
  void OnCaptureStopped() override;

  // 14 * log10 of the mean magnitude of signed 16-bit samples on a scale
  // whose full scale is 65536 (both 32767 and -32768 map to it). Silence
  // gives INT_MIN.
  static int Level(const int16_t* samples, int count);

 private:
  AudioDeviceTestEvent* const event_;
  // Tests start and stop from host threads, from the SDK's thread at a
  // room's end, and from the capture thread itself (a host's level handler
  // that stops or restarts the test). The lock guards the pointer only and
  // is never held while a capture thread is waited for: that thread may be
  // waiting for the lock itself. Whoever holds a copy keeps the capture
  // alive; the last one releases it.
  base::Lock lock_;
  std::shared_ptr<AudioCapture> capture_;
  // Written by Start before the capture thread exists, then by that thread.
  std::atomic<int64_t> last_report_{0};
  const int64_t report_interval_ = kReportIntervalMs;
};
