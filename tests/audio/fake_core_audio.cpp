#include "audio/fake_core_audio.h"

#include <cmath>
#include <cstring>
#include <stdexcept>

#include "audio/core_audio.h"

namespace fake_audio {
namespace {

FakeAudioSystem* g_system = nullptr;

HRESULT Fail(HRESULT hr) {
  if (hr == kThrow) throw std::runtime_error("scripted exception");
  return hr;
}

// Reference counting shared by every fake.
template <typename Interface>
class Counted : public Interface {
 public:
  Counted() { ++g_system->live_objects_; }
  virtual ~Counted() { --g_system->live_objects_; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (iid == IID_IUnknown || iid == __uuidof(Interface)) {
      *object = static_cast<Interface*>(this);
      AddRef();
      return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }

 private:
  std::atomic<ULONG> refs_{1};
};

class FakePropertyStore : public Counted<IPropertyStore> {
 public:
  FakePropertyStore(const std::wstring& name, bool has_name) : name_(name), has_name_(has_name) {}
  HRESULT STDMETHODCALLTYPE GetCount(DWORD* count) override {
    *count = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetAt(DWORD, PROPERTYKEY*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    PropVariantInit(value);
    static const GUID kFriendlyNameFormat = {
        0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}};
    if (!has_name_ || key.fmtid != kFriendlyNameFormat || key.pid != 14) return S_OK;
    size_t bytes = (name_.size() + 1) * sizeof(wchar_t);
    value->vt = VT_LPWSTR;
    value->pwszVal = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    memcpy(value->pwszVal, name_.c_str(), bytes);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY, REFPROPVARIANT) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Commit() override { return E_NOTIMPL; }

 private:
  std::wstring name_;
  bool has_name_;
};

class FakeCaptureClient : public Counted<IAudioCaptureClient> {
 public:
  explicit FakeCaptureClient(WORD channels) : channels_(channels) {}
  HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* position,
                                      UINT64* qpc_position) override {
    FakeAudioSystem* system = g_system;
    if (HRESULT hr = system->Check(Step::kGetBuffer)) return Fail(hr);
    std::lock_guard<std::mutex> lock(system->mutex());
    if (system->packets().empty()) return AUDCLNT_S_BUFFER_EMPTY;
    held_ = system->packets().front();
    *data = reinterpret_cast<BYTE*>(held_.data());
    *frames = static_cast<UINT32>(held_.size() / channels_);
    *flags = 0;
    if (position) *position = 0;
    if (qpc_position) *qpc_position = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override {
    FakeAudioSystem* system = g_system;
    {
      std::lock_guard<std::mutex> lock(system->mutex());
      if (!system->packets().empty()) system->packets().pop_front();
    }
    system->Log(L"capture ReleaseBuffer(" + std::to_wstring(frames) + L")");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* frames) override {
    FakeAudioSystem* system = g_system;
    if (HRESULT hr = system->Check(Step::kGetNextPacketSize)) return Fail(hr);
    std::lock_guard<std::mutex> lock(system->mutex());
    if (system->invalidated()) return AUDCLNT_E_DEVICE_INVALIDATED;
    *frames =
        system->packets().empty() ? 0 : static_cast<UINT32>(system->packets().front().size() / channels_);
    return S_OK;
  }

 private:
  WORD channels_;
  std::vector<float> held_;
};

class FakeRenderClient : public Counted<IAudioRenderClient> {
 public:
  explicit FakeRenderClient(UINT32 block_align) : block_align_(block_align) {}
  HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 frames, BYTE** data) override {
    if (HRESULT hr = g_system->Check(Step::kRenderGetBuffer)) return Fail(hr);
    buffer_.assign(static_cast<size_t>(frames) * block_align_, 0xCD);
    *data = buffer_.data();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames, DWORD flags) override {
    bool zeroed = !buffer_.empty();
    for (BYTE b : buffer_) zeroed = zeroed && b == 0;
    g_system->Log(L"render ReleaseBuffer(" + std::to_wstring(frames) + L"," + std::to_wstring(flags) + L")" +
                  (zeroed ? L" zeroed" : L" not zeroed"));
    return S_OK;
  }

 private:
  UINT32 block_align_;
  std::vector<BYTE> buffer_;
};

class FakeAudioClient : public Counted<IAudioClient> {
 public:
  FakeAudioClient(const Endpoint& endpoint, int index) : endpoint_(endpoint), index_(index) {}
  HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME duration,
                                       REFERENCE_TIME periodicity, const WAVEFORMATEX* format,
                                       LPCGUID session) override {
    flags_ = flags;
    const bool render = (flags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) == 0;
    wchar_t text[160];
    swprintf(text, 160, L"%lsInitialize(mode=%d,flags=0x%lx,duration=%lld,period=%lld,rate=%lu,session=%d)",
             Prefix(), static_cast<int>(mode), flags, static_cast<long long>(duration),
             static_cast<long long>(periodicity), format ? format->nSamplesPerSec : 0UL, session ? 1 : 0);
    g_system->Log(text);
    if (HRESULT hr = g_system->Check(render ? Step::kRenderInitialize : Step::kInitialize)) return Fail(hr);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* frames) override {
    if (HRESULT hr = g_system->Check(Step::kRenderGetBufferSize)) return Fail(hr);
    *frames = endpoint_.rate * 5;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE, const WAVEFORMATEX*,
                                              WAVEFORMATEX**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) override {
    if (HRESULT hr = g_system->Check(Step::kGetMixFormat)) return Fail(hr);
    WAVEFORMATEXTENSIBLE* mix =
        static_cast<WAVEFORMATEXTENSIBLE*>(CoTaskMemAlloc(sizeof(WAVEFORMATEXTENSIBLE)));
    memset(mix, 0, sizeof(*mix));
    mix->Format.wFormatTag = endpoint_.extensible ? WAVE_FORMAT_EXTENSIBLE
                             : endpoint_.is_float ? WAVE_FORMAT_IEEE_FLOAT
                                                  : WAVE_FORMAT_PCM;
    mix->Format.nChannels = endpoint_.channels;
    mix->Format.nSamplesPerSec = endpoint_.rate;
    mix->Format.wBitsPerSample = endpoint_.bits;
    mix->Format.nBlockAlign = static_cast<WORD>(endpoint_.bits / 8 * endpoint_.channels);
    mix->Format.nAvgBytesPerSec = mix->Format.nBlockAlign * endpoint_.rate;
    mix->Format.cbSize = endpoint_.extensible ? 22 : 0;
    mix->SubFormat = {endpoint_.is_float ? 3u : 1u, 0, 0x10, {0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71}};
    *format = &mix->Format;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME*, REFERENCE_TIME*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Start() override {
    g_system->Log(std::wstring(Prefix()) + L"Start");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Stop() override {
    g_system->Log(std::wstring(Prefix()) + L"Stop");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Reset() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) override {
    if (HRESULT hr = g_system->Check(Step::kSetEventHandle)) return Fail(hr);
    g_system->set_event(event);
    g_system->Log(std::wstring(Prefix()) + L"SetEventHandle");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetService(REFIID iid, void** service) override {
    *service = nullptr;
    if (iid == __uuidof(IAudioCaptureClient)) {
      g_system->Log(std::wstring(Prefix()) + L"GetService(capture)");
      if (HRESULT hr = g_system->Check(Step::kCaptureService)) return Fail(hr);
      *service = static_cast<IAudioCaptureClient*>(new FakeCaptureClient(endpoint_.channels));
      return S_OK;
    }
    if (iid == __uuidof(IAudioRenderClient)) {
      g_system->Log(std::wstring(Prefix()) + L"GetService(render)");
      if (HRESULT hr = g_system->Check(Step::kRenderGetService)) return Fail(hr);
      *service = static_cast<IAudioRenderClient*>(new FakeRenderClient(4 * endpoint_.channels));
      return S_OK;
    }
    return E_NOINTERFACE;
  }

 private:
  // "client1 " for the first client activated on an endpoint in an open,
  // "client2 " for the second.
  const wchar_t* Prefix() const { return index_ == 1 ? L"client1 " : L"client2 "; }
  Endpoint endpoint_;
  int index_;
  DWORD flags_ = 0;
};

class FakeDevice : public Counted<IMMDevice> {
 public:
  explicit FakeDevice(const std::wstring& id) : id_(id) {}
  HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD context, PROPVARIANT* params, void** object) override {
    *object = nullptr;
    ++activations_;
    g_system->Log(L"Activate(" + std::to_wstring(activations_) + L",ctx=" + std::to_wstring(context) +
                  (params ? L",params)" : L")"));
    if (HRESULT hr = g_system->Check(activations_ == 1 ? Step::kActivate : Step::kRenderActivate)) {
      return Fail(hr);
    }
    if (iid != __uuidof(IAudioClient)) return E_NOINTERFACE;
    *object = static_cast<IAudioClient*>(new FakeAudioClient(endpoint(), activations_));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore** store) override {
    Endpoint e = endpoint();
    *store = new FakePropertyStore(e.name, e.has_name);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override {
    size_t bytes = (id_.size() + 1) * sizeof(wchar_t);
    *id = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    memcpy(*id, id_.c_str(), bytes);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
    *state = endpoint().state;
    g_system->Log(L"GetState");
    return S_OK;
  }

 private:
  Endpoint endpoint() {
    std::lock_guard<std::mutex> lock(g_system->mutex());
    return g_system->endpoints()[id_];
  }
  std::wstring id_;
  int activations_ = 0;
};

class FakeCollection : public Counted<IMMDeviceCollection> {
 public:
  explicit FakeCollection(std::vector<std::wstring> ids) : ids_(std::move(ids)) {}
  HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
    *count = static_cast<UINT>(ids_.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Item(UINT index, IMMDevice** device) override {
    if (index >= ids_.size()) return E_INVALIDARG;
    *device = new FakeDevice(ids_[index]);
    return S_OK;
  }

 private:
  std::vector<std::wstring> ids_;
};

class FakeEnumerator : public Counted<IMMDeviceEnumerator> {
 public:
  HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD mask,
                                               IMMDeviceCollection** devices) override {
    std::vector<std::wstring> ids;
    {
      std::lock_guard<std::mutex> lock(g_system->mutex());
      for (const std::wstring& id : g_system->order()) {
        const Endpoint& e = g_system->endpoints()[id];
        if (e.is_input == (flow == eCapture) && (e.state & mask)) ids.push_back(id);
      }
    }
    *devices = new FakeCollection(ids);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice** device) override {
    *device = nullptr;
    g_system->Log(L"GetDefaultAudioEndpoint(" + std::to_wstring(flow) + L"," + std::to_wstring(role) + L")");
    if (g_system->on_get_default) g_system->on_get_default();
    if (HRESULT hr = g_system->Check(Step::kGetDefault)) return Fail(hr);
    std::wstring id = g_system->default_id(flow == eCapture);
    if (id.empty()) return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    *device = new FakeDevice(id);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) override {
    *device = nullptr;
    g_system->Log(L"GetDevice(" + std::wstring(id) + L")");
    if (HRESULT hr = g_system->Check(Step::kGetDevice)) return Fail(hr);
    {
      std::lock_guard<std::mutex> lock(g_system->mutex());
      if (!g_system->endpoints().count(id)) return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    }
    *device = new FakeDevice(id);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    g_system->set_notification_client(client);
    g_system->Log(L"Register");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    g_system->Log(client == g_system->notification_client() ? L"Unregister" : L"Unregister(other)");
    g_system->set_notification_client(nullptr);
    return S_OK;
  }
};

HRESULT CreateFakeEnumerator(IMMDeviceEnumerator** enumerator) {
  g_system->Log(L"CreateEnumerator");
  // As CoCreateInstance: nothing on a thread without COM.
  APTTYPE type;
  APTTYPEQUALIFIER qualifier;
  if (FAILED(CoGetApartmentType(&type, &qualifier))) return CO_E_NOTINITIALIZED;
  if (HRESULT hr = g_system->Check(Step::kCreateEnumerator)) return Fail(hr);
  *enumerator = new FakeEnumerator();
  return S_OK;
}

}  // namespace

FakeAudioSystem::FakeAudioSystem() {
  g_system = this;
  audio::SetDeviceEnumeratorFactoryForTesting(&CreateFakeEnumerator);
}

FakeAudioSystem::~FakeAudioSystem() {
  audio::SetDeviceEnumeratorFactoryForTesting(nullptr);
  g_system = nullptr;
}

FakeAudioSystem* FakeAudioSystem::current() { return g_system; }

void FakeAudioSystem::AddEndpoint(const Endpoint& endpoint) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!endpoints_.count(endpoint.id)) order_.push_back(endpoint.id);
  endpoints_[endpoint.id] = endpoint;
}

void FakeAudioSystem::SetDefault(bool is_input, const std::wstring& id) {
  std::lock_guard<std::mutex> lock(mutex_);
  (is_input ? default_input_ : default_output_) = id;
}

void FakeAudioSystem::SetState(const std::wstring& id, DWORD state) {
  std::lock_guard<std::mutex> lock(mutex_);
  endpoints_[id].state = state;
}

void FakeAudioSystem::FailAt(Step step, HRESULT hr) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (hr == S_OK) {
    failures_.erase(step);
  } else {
    failures_[step] = hr;
  }
}

HRESULT FakeAudioSystem::Check(Step step) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = failures_.find(step);
  return it == failures_.end() ? S_OK : it->second;
}

void FakeAudioSystem::QueuePacket(const std::vector<float>& samples) {
  HANDLE event;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    packets_.push_back(samples);
    event = event_;
  }
  if (event) SetEvent(event);
}

void FakeAudioSystem::Signal() {
  HANDLE event;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    event = event_;
  }
  if (event) SetEvent(event);
}

void FakeAudioSystem::SetInvalidated(bool invalidated) {
  std::lock_guard<std::mutex> lock(mutex_);
  invalidated_ = invalidated;
}

IMMNotificationClient* FakeAudioSystem::notification_client() {
  std::lock_guard<std::mutex> lock(mutex_);
  return client_;
}

void FakeAudioSystem::Log(const std::wstring& call) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(call);
  }
  changed_.notify_all();
}

std::vector<std::wstring> FakeAudioSystem::Calls() {
  std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

int FakeAudioSystem::Count(const std::wstring& call) {
  std::lock_guard<std::mutex> lock(mutex_);
  int n = 0;
  for (const std::wstring& c : calls_) n += c == call;
  return n;
}

int FakeAudioSystem::CountPrefix(const std::wstring& prefix) {
  std::lock_guard<std::mutex> lock(mutex_);
  int n = 0;
  for (const std::wstring& c : calls_) n += c.compare(0, prefix.size(), prefix) == 0;
  return n;
}

bool FakeAudioSystem::WaitFor(const std::wstring& call, int times, DWORD timeout_ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
    int n = 0;
    for (const std::wstring& c : calls_) n += c == call;
    return n >= times;
  });
}

void FakeAudioSystem::ClearCalls() {
  std::lock_guard<std::mutex> lock(mutex_);
  calls_.clear();
}

size_t FakeAudioSystem::Pending() {
  std::lock_guard<std::mutex> lock(mutex_);
  return packets_.size();
}

std::vector<float> Sine(int frames, int channels, double frequency, double rate, double amplitude) {
  std::vector<float> samples(static_cast<size_t>(frames) * channels);
  for (int i = 0; i < frames; ++i) {
    float v = static_cast<float>(amplitude * std::sin(2.0 * 3.141592653589793 * frequency * i / rate));
    for (int c = 0; c < channels; ++c) samples[static_cast<size_t>(i) * channels + c] = v;
  }
  return samples;
}

}  // namespace fake_audio
