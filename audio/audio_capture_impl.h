// The recording engine behind AudioCapture: one capture thread per start,
// which opens the endpoint, drains its packets through the resampler to the
// host, and after a failed open or a lost stream tries the same endpoint
// again every few seconds until it is stopped.
#pragma once

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <string>

#include "audio/audio_device_enumerator.h"
#include "audio/audio_resampling.h"
#include "audio/scoped_com.h"
#include "base/lock.h"
#include "base/scoped_handle.h"
#include "roomcore/audio.h"

class AudioCaptureImpl : public AudioCapture, public AudioDeviceListenerEvent {
 public:
  static constexpr int kOutBufferSize = 0x100000;
  static constexpr DWORD kRetryIntervalMs = 3000;
  static constexpr DWORD kStopWaitMs = 1000000;
  static constexpr DWORD kLoopbackWaitMs = 10;

  AudioCaptureImpl();
  ~AudioCaptureImpl() override;
  AudioCaptureImpl(const AudioCaptureImpl&) = delete;
  AudioCaptureImpl& operator=(const AudioCaptureImpl&) = delete;

  // AudioCapture.
  void SetCaptureEvent(AudioCaptureEvent* event, void* user_data) override;
  void SetOutputFormat(int sample_rate, int channels, int bits_per_sample) override;
  void SetBlockDuration(int milliseconds) override;
  bool StartDevice(bool is_input, const std::wstring& device_id) override;
  bool StartDeviceByName(bool is_input, const std::wstring& device_name) override;
  bool Stop() override;
  bool IsActive() override;
  bool IsRunning() override;

  // AudioDeviceListenerEvent: the engine learns of a lost device from its
  // stream's errors, not from notifications.
  void OnDeviceStateChanged(const wchar_t* /*device_id*/) override {}

  // The endpoint id the capture is on (the real id once a default has been
  // resolved).
  std::wstring device_id() const;
  // Tests shorten the pause between tries instead of sleeping through it.
  void SetRetryIntervalForTesting(DWORD milliseconds) { retry_interval_ms_ = milliseconds; }

 private:
  static DWORD WINAPI CaptureThread(LPVOID param);
  void RunCapture();
  bool Open();
  bool OpenSilentRenderStream();
  // True: go on waiting for packets; false: the stream has ended.
  bool Drain();
  void ReleaseStream();

  base::Lock mutex_;  // starting and stopping the thread; held during Stop's wait
  // The stream: written only by the capture thread, while it runs.
  audio::ScopedComPtr<IMMDevice> device_;
  audio::ScopedComPtr<IAudioClient> audio_client_;
  audio::ScopedComPtr<IAudioCaptureClient> capture_client_;
  audio::ScopedComPtr<IAudioRenderClient> render_client_;
  // Written by StartDevice and by the thread when it resolves the default.
  mutable base::Lock id_lock_;
  std::wstring device_id_;
  std::atomic<bool> is_input_{false};
  std::atomic<bool> active_{false};
  base::ScopedHandle thread_done_event_;  // manual reset, signalled while no thread runs
  base::ScopedHandle stop_event_;         // manual reset
  base::ScopedHandle audio_ready_event_;  // auto reset, signalled by the audio system
  WAVEFORMATEX mix_format_ = {};
  std::atomic<AudioCaptureEvent*> event_{nullptr};
  std::atomic<int64_t> block_duration_{20};
  std::atomic<int> sample_rate_{44100};
  std::atomic<int> channels_{1};
  std::atomic<int> bits_per_sample_{16};
  SwrContext* resampler_ = nullptr;
  AVSampleFormat sample_format_ = AV_SAMPLE_FMT_S16;
  // Output format of the current open, fixed for the stream's life.
  int open_sample_rate_ = 44100;
  int open_channels_ = 1;
  int open_bits_per_sample_ = 16;
  BYTE* out_buffer_ = nullptr;
  int out_buffer_size_ = 0;
  std::atomic<void*> user_data_{nullptr};
  std::atomic<bool> running_{false};
  AudioDeviceEnumerator* enumerator_;
  std::atomic<DWORD> retry_interval_ms_{kRetryIntervalMs};
};
