#include "audio/audio_capture_impl.h"

#include <avrt.h>

#include <cstring>
#include <exception>

#include "audio/core_audio.h"
#include "base/thread_start.h"
#include "roomcore/clock.h"

namespace {

// 5 seconds in 100 ns units: a shared-mode buffer long enough that a late
// wake-up loses nothing.
constexpr REFERENCE_TIME kStreamBufferDuration = 50000000;

// Frees GetMixFormat's record on every path.
class ScopedMixFormat {
 public:
  ScopedMixFormat() = default;
  ~ScopedMixFormat() { CoTaskMemFree(format_); }
  ScopedMixFormat(const ScopedMixFormat&) = delete;
  ScopedMixFormat& operator=(const ScopedMixFormat&) = delete;
  WAVEFORMATEX** Receive() { return &format_; }
  WAVEFORMATEX* get() const { return format_; }

 private:
  WAVEFORMATEX* format_ = nullptr;
};

}  // namespace

AudioCapture* AudioCapture::Create() { return new AudioCaptureImpl(); }

void AudioCapture::Release(AudioCapture* capture) { delete capture; }

AudioCaptureImpl::AudioCaptureImpl() : enumerator_(AudioDeviceEnumerator::GetInstance()) {
  thread_done_event_.Reset(CreateEventW(nullptr, TRUE, TRUE, nullptr));
  stop_event_.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  audio_ready_event_.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
}

AudioCaptureImpl::~AudioCaptureImpl() {
  Stop();
  ReleaseStream();
  audio::FreeResampler(&resampler_);
  delete[] out_buffer_;
}

void AudioCaptureImpl::SetCaptureEvent(AudioCaptureEvent* event, void* user_data) {
  event_.store(event);
  user_data_.store(user_data);
}

void AudioCaptureImpl::SetOutputFormat(int sample_rate, int channels, int bits_per_sample) {
  sample_rate_.store(sample_rate);
  channels_.store(channels);
  bits_per_sample_.store(bits_per_sample);
}

void AudioCaptureImpl::SetBlockDuration(int milliseconds) { block_duration_.store(milliseconds); }

bool AudioCaptureImpl::StartDevice(bool is_input, const std::wstring& device_id) {
  // One capture thread at a time. A thread already on this endpoint (running
  // or waiting to retry) is left alone; one on another endpoint or direction
  // is stopped first.
  if (running_.load()) {
    if (is_input == is_input_.load() && device_id == this->device_id()) return true;
    Stop();
  }
  is_input_.store(is_input);
  {
    base::AutoLock lock(id_lock_);
    device_id_ = device_id;
  }
  base::AutoLock lock(mutex_);
  if (running_.load()) return true;  // another caller started it meanwhile
  running_.store(true);
  ResetEvent(stop_event_.get());
  // Reset here, not only on the thread: a Stop right after this start must
  // wait for the thread, not see the event of the previous one.
  ResetEvent(thread_done_event_.get());
  DWORD thread_id = 0;
  base::ScopedHandle thread(base::StartThread(&AudioCaptureImpl::CaptureThread, this, &thread_id));
  if (!thread) {
    // Nothing will run: leave the engine idle rather than claim a thread that
    // Stop would wait for in vain.
    running_.store(false);
    SetEvent(thread_done_event_.get());
    return false;
  }
  return true;
}

bool AudioCaptureImpl::StartDeviceByName(bool is_input, const std::wstring& device_name) {
  std::wstring id = enumerator_->FindDeviceId(is_input, device_name);
  if (id.empty()) {
    AudioDeviceInfo info;
    enumerator_->GetDefaultDevice(is_input, info);
    id = info.id;
  }
  if (id.empty()) return false;
  return StartDevice(is_input, id);
}

bool AudioCaptureImpl::Stop() {
  base::AutoLock lock(mutex_);
  if (!running_.load()) return true;
  running_.store(false);
  SetEvent(stop_event_.get());
  WaitForSingleObject(thread_done_event_.get(), kStopWaitMs);
  return true;
}

bool AudioCaptureImpl::IsActive() { return active_.load(); }

bool AudioCaptureImpl::IsRunning() { return running_.load(); }

std::wstring AudioCaptureImpl::device_id() const {
  base::AutoLock lock(id_lock_);
  return device_id_;
}

DWORD WINAPI AudioCaptureImpl::CaptureThread(LPVOID param) {
  static_cast<AudioCaptureImpl*>(param)->RunCapture();
  return 0;
}

void AudioCaptureImpl::RunCapture() {
  HRESULT com = CoInitialize(nullptr);
  DWORD task_index = 0;
  HANDLE task = AvSetMmThreadCharacteristicsW(L"Audio Pro", &task_index);
  ResetEvent(thread_done_event_.get());
  delete[] out_buffer_;
  out_buffer_size_ = kOutBufferSize;
  out_buffer_ = new BYTE[out_buffer_size_];

  for (;;) {
    bool opened = false;
    try {
      opened = Open();
    } catch (...) {
      opened = false;
    }
    if (opened) {
      const DWORD wait_ms = is_input_.load() ? INFINITE : kLoopbackWaitMs;
      const HANDLE events[2] = {audio_ready_event_.get(), stop_event_.get()};
      for (;;) {
        DWORD result = WaitForMultipleObjects(2, events, FALSE, wait_ms);
        if (result != WAIT_OBJECT_0 && result != WAIT_TIMEOUT) break;
        if (!Drain()) break;
      }
      audio_client_->Stop();
      active_.store(false);
      if (AudioCaptureEvent* event = event_.load()) event->OnCaptureStopped();
    }
    if (WaitForSingleObject(stop_event_.get(), retry_interval_ms_.load()) != WAIT_TIMEOUT) break;
  }

  active_.store(false);
  running_.store(false);
  delete[] out_buffer_;
  out_buffer_ = nullptr;
  out_buffer_size_ = 0;
  audio::FreeResampler(&resampler_);
  // The stream's objects belong to this thread's apartment: they go before
  // it is left.
  ReleaseStream();
  if (task) AvRevertMmThreadCharacteristics(task);
  if (SUCCEEDED(com)) CoUninitialize();
  // Last: once signalled, Stop may return and the object may be destroyed.
  SetEvent(thread_done_event_.get());
}

void AudioCaptureImpl::ReleaseStream() {
  capture_client_.Reset();
  render_client_.Reset();
  audio_client_.Reset();
  device_.Reset();
}

bool AudioCaptureImpl::Open() {
  // The output format is read once per open: a host's change takes effect at
  // the next one.
  open_sample_rate_ = sample_rate_.load();
  open_channels_ = channels_.load();
  open_bits_per_sample_ = bits_per_sample_.load();
  sample_format_ = audio::SampleFormatFor(open_bits_per_sample_);
  const bool is_input = is_input_.load();

  audio::ScopedComPtr<IMMDeviceEnumerator> enumerator;
  if (FAILED(audio::CreateDeviceEnumerator(enumerator.Receive())) || !enumerator) return false;

  std::wstring id = device_id();
  if (id.empty()) {
    // From here on the engine keeps this endpoint, even if the system's
    // default moves on.
    AudioDeviceInfo info;
    enumerator_->GetDefaultDevice(is_input, info);
    id = info.id;
    base::AutoLock lock(id_lock_);
    device_id_ = id;
  }
  if (FAILED(enumerator->GetDevice(id.c_str(), device_.Receive())) || !device_) return false;
  if (FAILED(device_->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, audio_client_.ReceiveVoid())) ||
      !audio_client_) {
    return false;
  }
  {
    ScopedMixFormat format;
    if (FAILED(audio_client_->GetMixFormat(format.Receive())) || !format.get()) return false;
    mix_format_ = *format.get();
    DWORD flags = AUDCLNT_STREAMFLAGS_EVENTCALLBACK;
    if (!is_input) flags |= AUDCLNT_STREAMFLAGS_LOOPBACK;
    if (FAILED(audio_client_->Initialize(AUDCLNT_SHAREMODE_SHARED, flags, kStreamBufferDuration, 0,
                                         format.get(), nullptr))) {
      return false;
    }
  }
  if (!is_input && !OpenSilentRenderStream()) return false;
  if (!audio::ConfigureResampler(&resampler_, mix_format_, open_sample_rate_, open_channels_,
                                 sample_format_)) {
    return false;
  }
  if (FAILED(audio_client_->GetService(__uuidof(IAudioCaptureClient), capture_client_.ReceiveVoid())) ||
      !capture_client_) {
    return false;
  }
  if (FAILED(audio_client_->SetEventHandle(audio_ready_event_.get()))) return false;
  audio_client_->Start();
  active_.store(true);
  return true;
}

// A render endpoint in loopback delivers packets only while something plays
// on it, so the capture keeps a silent output stream open on the same
// endpoint. It is filled with silence once and never started.
bool AudioCaptureImpl::OpenSilentRenderStream() {
  audio::ScopedComPtr<IAudioClient> client;
  if (FAILED(device_->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, client.ReceiveVoid())) ||
      !client) {
    return false;
  }
  ScopedMixFormat format;
  if (FAILED(client->GetMixFormat(format.Receive())) || !format.get()) return false;
  if (FAILED(
          client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, kStreamBufferDuration, 0, format.get(), nullptr))) {
    return false;
  }
  UINT32 frames = 0;
  if (FAILED(client->GetBufferSize(&frames))) return false;
  if (FAILED(client->GetService(__uuidof(IAudioRenderClient), render_client_.ReceiveVoid())) ||
      !render_client_) {
    return false;
  }
  BYTE* data = nullptr;
  if (FAILED(render_client_->GetBuffer(frames, &data))) return false;
  if (data) memset(data, 0, static_cast<size_t>(frames) * format.get()->nBlockAlign);
  if (FAILED(render_client_->ReleaseBuffer(frames, 0))) return false;
  return true;
}

bool AudioCaptureImpl::Drain() {
  UINT32 packet_frames = 0;
  const int bytes_per_sample = av_get_bytes_per_sample(sample_format_);
  const int capacity = out_buffer_size_ / (bytes_per_sample * (open_channels_ > 0 ? open_channels_ : 1));
  for (;;) {
    HRESULT hr = capture_client_->GetNextPacketSize(&packet_frames);
    if (FAILED(hr)) {
      if (hr != AUDCLNT_E_DEVICE_INVALIDATED) return false;
      // An invalidated device that still calls itself active goes on.
      DWORD state = 0;
      if (FAILED(device_->GetState(&state)) || !(state & DEVICE_STATE_ACTIVE)) return false;
    }
    if (packet_frames == 0) return true;

    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 position = 0;
    UINT64 qpc_position = 0;
    if (FAILED(capture_client_->GetBuffer(&data, &frames, &flags, &position, &qpc_position))) return false;
    const int converted =
        audio::ConvertPacket(resampler_, data, static_cast<int>(frames), out_buffer_, capacity);
    if (converted > 0) {
      const int64_t timestamp =
          TimeMicroseconds() - static_cast<int64_t>(frames) * 1000000 / mix_format_.nSamplesPerSec;
      if (AudioCaptureEvent* event = event_.load()) {
        // Every channel's samples count: a multi-channel block's size is its
        // whole length in bytes.
        event->OnAudioData(user_data_.load(), out_buffer_, converted * open_channels_ * bytes_per_sample,
                           open_bits_per_sample_, open_sample_rate_, open_channels_, timestamp);
      }
    }
    capture_client_->ReleaseBuffer(frames);
  }
}
