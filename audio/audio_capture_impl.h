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

  // AudioCapture::Release: at once, or, on the capture's own thread (from
  // inside an event), at that thread's end.
  void Destroy();

 private:
  static DWORD WINAPI CaptureThread(LPVOID param);
  bool OnCaptureThread() const;
  // Under state_lock_: records a new endpoint. True when a thread must be
  // launched; false when none is needed (the same endpoint runs) or the
  // living thread has been asked to start over on the new one.
  bool ClaimStart(bool is_input, const std::wstring& device_id);
  // Asks the thread to end, without waiting.
  void RequestStop();
  void RunCapture();
  // Opens and streams, retrying, until stop_event_.
  void RunStreams();
  bool Open();
  bool OpenSilentRenderStream();
  // True: go on waiting for packets; false: the stream has ended.
  bool Drain();
  void ReleaseStream();

  // Launching a thread, and Stop from other threads; held during Stop's
  // wait, so the capture thread never takes it.
  base::Lock mutex_;
  // The run's state below; never held across a wait or a call out, so the
  // capture thread may take it.
  mutable base::Lock state_lock_;
  std::wstring device_id_;
  bool is_input_ = false;
  // Raised by every new endpoint: a default resolved for an older one is
  // not stored over it.
  unsigned id_generation_ = 0;
  bool thread_alive_ = false;  // a capture thread exists, until its teardown
  bool restart_ = false;       // the living thread starts over instead of ending
  bool release_at_end_ = false;
  // Written under state_lock_, read without it.
  std::atomic<bool> running_{false};
  std::atomic<bool> active_{false};

  // The stream: touched only by the capture thread, while it runs.
  audio::ScopedComPtr<IMMDevice> device_;
  audio::ScopedComPtr<IAudioClient> audio_client_;
  audio::ScopedComPtr<IAudioCaptureClient> capture_client_;
  audio::ScopedComPtr<IAudioRenderClient> render_client_;
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
  // Of the current open, fixed for the stream's life.
  bool open_is_input_ = false;
  int open_sample_rate_ = 44100;
  int open_channels_ = 1;
  int open_bits_per_sample_ = 16;
  BYTE* out_buffer_ = nullptr;
  int out_buffer_size_ = 0;
  std::atomic<void*> user_data_{nullptr};
  AudioDeviceEnumerator* enumerator_;
  std::atomic<DWORD> retry_interval_ms_{kRetryIntervalMs};
};
