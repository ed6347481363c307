#include "audio/audio_capture_impl.h"

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

void AudioCapture::Release(AudioCapture* capture) {
  if (capture) static_cast<AudioCaptureImpl*>(capture)->Destroy();
}

namespace {

// The capture whose thread this is, if any: a host's event handler may stop,
// restart or release the capture that is calling it.
thread_local const AudioCaptureImpl* t_current_capture = nullptr;

}  // namespace

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

void AudioCaptureImpl::Destroy() {
  if (!OnCaptureThread()) {
    delete this;
    return;
  }
  // From inside one of its own events: the thread can't be waited for here,
  // and it still uses the object. It ends as soon as the event returns,
  // tells nobody anything more, and destroys the object last.
  event_.store(nullptr);
  base::AutoLock state(state_lock_);
  release_at_end_ = true;
  restart_ = false;
  running_.store(false);
  SetEvent(stop_event_.get());
}

bool AudioCaptureImpl::OnCaptureThread() const { return t_current_capture == this; }

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
  if (OnCaptureThread()) {
    // From inside an event: the thread itself starts over once the event
    // returns, so that there is never a second one.
    base::AutoLock state(state_lock_);
    if (!release_at_end_) ClaimStart(is_input, device_id);
    return true;
  }
  // A running stream on another endpoint ends before this returns.
  if (active_.load()) {
    bool same;
    {
      base::AutoLock state(state_lock_);
      same = is_input == is_input_ && device_id == device_id_;
    }
    if (!same) Stop();
  }
  base::AutoLock lock(mutex_);
  {
    base::AutoLock state(state_lock_);
    if (!ClaimStart(is_input, device_id)) return true;
  }
  // A thread that stopped itself from its own event may still be releasing
  // its stream: the next one begins after that.
  WaitForSingleObject(thread_done_event_.get(), kStopWaitMs);
  ResetEvent(stop_event_.get());
  // Reset here, not only on the thread: a Stop right after this start must
  // wait for the thread, not see the event of the previous one.
  ResetEvent(thread_done_event_.get());
  DWORD thread_id = 0;
  base::ScopedHandle thread(base::StartThread(&AudioCaptureImpl::CaptureThread, this, &thread_id));
  if (!thread) {
    // Nothing will run: leave the engine idle rather than claim a thread that
    // Stop would wait for in vain.
    {
      base::AutoLock state(state_lock_);
      running_.store(false);
      thread_alive_ = false;
    }
    SetEvent(thread_done_event_.get());
    return false;
  }
  return true;
}

bool AudioCaptureImpl::ClaimStart(bool is_input, const std::wstring& device_id) {
  const bool same = is_input == is_input_ && device_id == device_id_;
  // The thread on this endpoint (streaming, opening or waiting to retry) is
  // left alone.
  if (running_.load() && same) return false;
  if (!same) {
    is_input_ = is_input;
    device_id_ = device_id;
    ++id_generation_;
  }
  running_.store(true);
  if (thread_alive_) {
    // Opening, waiting to retry, or on its way out: the thread ends what it
    // does and starts over on this endpoint at once.
    restart_ = true;
    SetEvent(stop_event_.get());
    return false;
  }
  thread_alive_ = true;
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
  if (OnCaptureThread()) {
    // From inside an event: waiting would wait for this very thread. It ends
    // as soon as the event returns.
    RequestStop();
    return true;
  }
  base::AutoLock lock(mutex_);
  RequestStop();
  // Also a thread that stopped itself from its own event is gone when this
  // returns; with no thread the event is already signalled.
  WaitForSingleObject(thread_done_event_.get(), kStopWaitMs);
  return true;
}

void AudioCaptureImpl::RequestStop() {
  base::AutoLock state(state_lock_);
  if (!running_.load()) return;
  running_.store(false);
  restart_ = false;
  SetEvent(stop_event_.get());
}

bool AudioCaptureImpl::IsActive() { return active_.load(); }

bool AudioCaptureImpl::IsRunning() { return running_.load(); }

std::wstring AudioCaptureImpl::device_id() const {
  base::AutoLock state(state_lock_);
  return device_id_;
}

DWORD WINAPI AudioCaptureImpl::CaptureThread(LPVOID param) {
  static_cast<AudioCaptureImpl*>(param)->RunCapture();
  return 0;
}

void AudioCaptureImpl::RunCapture() {
  t_current_capture = this;
  HRESULT com = CoInitialize(nullptr);
  const audio::MmThreadFunctions& mm_thread = audio::MmThread();
  DWORD task_index = 0;
  HANDLE task = mm_thread.set(L"Audio Pro", &task_index);
  delete[] out_buffer_;
  out_buffer_size_ = kOutBufferSize;
  out_buffer_ = new BYTE[out_buffer_size_];

  bool release = false;
  for (;;) {
    RunStreams();
    base::AutoLock state(state_lock_);
    if (restart_ && !release_at_end_) {
      restart_ = false;
      ResetEvent(stop_event_.get());
      continue;
    }
    // From here a start launches a new thread, which waits for this one's
    // done event before it begins.
    thread_alive_ = false;
    release = release_at_end_;
    break;
  }

  active_.store(false);
  delete[] out_buffer_;
  out_buffer_ = nullptr;
  out_buffer_size_ = 0;
  audio::FreeResampler(&resampler_);
  // The stream's objects belong to this thread's apartment: they go before
  // it is left.
  ReleaseStream();
  mm_thread.revert(task);
  if (SUCCEEDED(com)) CoUninitialize();
  t_current_capture = nullptr;
  // Once signalled, Stop may return and the object may be destroyed.
  SetEvent(thread_done_event_.get());
  if (release) delete this;
}

void AudioCaptureImpl::RunStreams() {
  for (;;) {
    bool opened = false;
    try {
      opened = Open();
    } catch (...) {
      opened = false;
    }
    if (opened) {
      const DWORD wait_ms = open_is_input_ ? INFINITE : kLoopbackWaitMs;
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
    if (WaitForSingleObject(stop_event_.get(), retry_interval_ms_.load()) != WAIT_TIMEOUT) return;
  }
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
  std::wstring id;
  unsigned generation;
  {
    base::AutoLock state(state_lock_);
    open_is_input_ = is_input_;
    id = device_id_;
    generation = id_generation_;
  }
  const bool is_input = open_is_input_;

  audio::ScopedComPtr<IMMDeviceEnumerator> enumerator;
  if (FAILED(audio::CreateDeviceEnumerator(enumerator.Receive())) || !enumerator) return false;

  if (id.empty()) {
    // From here on the engine keeps this endpoint, even if the system's
    // default moves on.
    AudioDeviceInfo info;
    enumerator_->GetDefaultDevice(is_input, info);
    id = info.id;
    base::AutoLock state(state_lock_);
    // A start that named another endpoint meanwhile keeps its id; the stop
    // it signalled brings this thread round to it.
    if (generation != id_generation_) return false;
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
    if (!audio::IsPackedFloat(*format.get())) return false;
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
  // Active from before the start: a StartDevice on another thread that sees
  // the stream running must also see it as one to stop.
  active_.store(true);
  audio_client_->Start();
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
  // A block's size counts converted * (bits_per_sample / 8) bytes; the
  // buffer holds that much for every channel, also for a sample size that
  // isn't 16 or 32.
  const int block_bytes_per_sample = open_bits_per_sample_ / 8;
  const int widest = block_bytes_per_sample > bytes_per_sample ? block_bytes_per_sample : bytes_per_sample;
  const int capacity = out_buffer_size_ / (widest * (open_channels_ > 0 ? open_channels_ : 1));
  for (;;) {
    // Stopped, from inside the event or from another thread: the stream
    // ends here, with nothing more delivered.
    if (WaitForSingleObject(stop_event_.get(), 0) == WAIT_OBJECT_0) return false;
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
        // `size` counts the samples of one channel; a multi-channel host
        // multiplies by `channels` (the buffer holds them all, interleaved).
        event->OnAudioData(user_data_.load(), out_buffer_, converted * block_bytes_per_sample,
                           open_bits_per_sample_, open_sample_rate_, open_channels_, timestamp);
      }
    }
    capture_client_->ReleaseBuffer(frames);
  }
}
