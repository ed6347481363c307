#include "audio/audio_device_test.h"

#include <climits>
#include <cmath>

#include "roomcore/clock.h"

AudioDeviceTest::AudioDeviceTest(AudioDeviceTestEvent* event) : event_(event) {}

AudioDeviceTest::~AudioDeviceTest() {
  base::AutoLock lock(lock_);
  AudioCapture::Release(capture_);
  capture_ = nullptr;
}

void AudioDeviceTest::Start(const std::wstring& device_name) {
  base::AutoLock lock(lock_);
  // The old capture first: a block it delivers while ending must not use up
  // the new test's first report.
  if (capture_) AudioCapture::Release(capture_);
  // The next block is measured whatever its time.
  last_report_.store(0);
  capture_ = AudioCapture::Create();
  capture_->SetCaptureEvent(this, this);
  // The default output format, mono 16-bit at 44100 Hz, is what OnAudioData
  // reads.
  capture_->StartDeviceByName(true, device_name);
}

bool AudioDeviceTest::Stop() {
  base::AutoLock lock(lock_);
  if (capture_) capture_->Stop();
  return true;
}

void AudioDeviceTest::OnAudioData(void* /*user_data*/, const void* data, int size, int /*bits_per_sample*/,
                                  int /*sample_rate*/, int /*channels*/, int64_t /*timestamp*/) {
  if (!event_) return;
  const int64_t now = TimeMilliseconds();
  if (now - last_report_.load() < report_interval_) return;
  last_report_.store(now);
  event_->OnAudioLevel(Level(static_cast<const int16_t*>(data), size / 2));
}

void AudioDeviceTest::OnCaptureStopped() {
  if (event_) event_->OnAudioLevel(0);
}

int AudioDeviceTest::Level(const int16_t* samples, int count) {
  double sum = 0.0;
  for (int i = 0; i < count; ++i) {
    const double s = samples[i];
    sum += s > 0 ? s * 65536.0 / 32767.0 : -s * 65536.0 / 32768.0;
  }
  const double level = std::log10(sum / count) * 14.0;
  // Truncation toward zero as the x87/SSE conversion does it: anything out
  // of range, minus infinity included, becomes INT_MIN.
  if (!(level > static_cast<double>(INT_MIN) - 1.0 && level < static_cast<double>(INT_MAX) + 1.0))
    return INT_MIN;
  return static_cast<int>(level);
}
