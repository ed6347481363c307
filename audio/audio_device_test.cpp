#include "audio/audio_device_test.h"

#include <climits>
#include <cmath>

#include "roomcore/clock.h"

AudioDeviceTest::AudioDeviceTest(AudioDeviceTestEvent* event) : event_(event) {}

AudioDeviceTest::~AudioDeviceTest() {
  std::shared_ptr<AudioCapture> capture;
  {
    base::AutoLock lock(lock_);
    capture.swap(capture_);
  }
}

void AudioDeviceTest::Start(const std::wstring& device_name) {
  std::shared_ptr<AudioCapture> old;
  {
    base::AutoLock lock(lock_);
    old.swap(capture_);
  }
  // The old capture ends first, outside the lock: a block it delivers while
  // ending must not use up the new test's first report. On its own thread
  // the release returns at once and the old capture delivers nothing more.
  old.reset();
  std::shared_ptr<AudioCapture> fresh(AudioCapture::Create(), &AudioCapture::Release);
  fresh->SetCaptureEvent(this, this);
  {
    base::AutoLock lock(lock_);
    // A Start on another thread that got here first is replaced.
    old.swap(capture_);
    // The next block is measured whatever its time.
    last_report_.store(0);
    capture_ = fresh;
    // The default output format, mono 16-bit at 44100 Hz, is what OnAudioData
    // reads. Starting waits for no capture thread, so it may hold the lock.
    capture_->StartDeviceByName(true, device_name);
  }
}

bool AudioDeviceTest::Stop() {
  std::shared_ptr<AudioCapture> capture;
  {
    base::AutoLock lock(lock_);
    capture = capture_;
  }
  if (capture) capture->Stop();
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
