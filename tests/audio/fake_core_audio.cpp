#include "audio/fake_core_audio.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "audio/core_audio.h"

#define NOT_USED(...) \
  HRESULT STDMETHODCALLTYPE __VA_ARGS__ override { return E_NOTIMPL; }

namespace fake_audio {
namespace {

FakeAudio* g = nullptr;

template <typename... Interfaces>
class Counted : public Interfaces... {
 public:
  Counted() {
    g->Update([] { ++g->live; });
  }
  virtual ~Counted() {
    g->Update([] { --g->live; });
  }
  NOT_USED(QueryInterface(REFIID, void**))
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }
  template <typename T>
  T* Ref() {
    AddRef();
    return this;
  }

 private:
  std::atomic<ULONG> refs_{0};
};

LPWSTR CoText(const std::wstring& text) {
  const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
  return static_cast<LPWSTR>(memcpy(CoTaskMemAlloc(bytes), text.c_str(), bytes));
}

int Matching(const std::vector<std::wstring>& calls, const std::wstring& prefix) {
  return static_cast<int>(
      std::count_if(calls.begin(), calls.end(), [&](auto& c) { return !c.find(prefix); }));
}

Endpoint Get(const std::wstring& id) {
  std::lock_guard<std::mutex> lock(g->mutex_);
  Endpoint* e = g->Find(id);
  return e ? *e : Endpoint();
}

// One stream client ("client1", "client2" in the order of activation) with
// its capture and render services.
class Stream : public Counted<IAudioClient, IAudioCaptureClient, IAudioRenderClient> {
 public:
  Stream(const Endpoint& endpoint, const std::wstring& name) : e_(endpoint), name_(name + L" ") {}
  HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME duration,
                                       REFERENCE_TIME period, const WAVEFORMATEX* format,
                                       LPCGUID session) override {
    wchar_t text[128];
    swprintf(text, 128, L"Initialize(%d,0x%lx,%lld,%lld,%d,%d)", mode, flags, duration, period,
             format ? format->nChannels : 0, session != nullptr);
    return g->Call(name_ + text);
  }
  HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* frames) override {
    *frames = 4800;
    return g->Call(name_ + L"GetBufferSize");
  }
  NOT_USED(GetStreamLatency(REFERENCE_TIME*))
  NOT_USED(GetCurrentPadding(UINT32*))
  NOT_USED(IsFormatSupported(AUDCLNT_SHAREMODE, const WAVEFORMATEX*, WAVEFORMATEX**))
  NOT_USED(GetDevicePeriod(REFERENCE_TIME*, REFERENCE_TIME*))
  NOT_USED(Reset())
  HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) override {
    if (HRESULT hr = g->Call(name_ + L"GetMixFormat")) return hr;
    auto* mix = static_cast<WAVEFORMATEXTENSIBLE*>(CoTaskMemAlloc(sizeof(WAVEFORMATEXTENSIBLE)));
    mix->Format = {e_.tag, e_.channels, e_.rate, e_.rate * Align(), Align(), e_.bits, 22};
    mix->SubFormat = {e_.is_float ? 3u : 1u, 0, 0x10, {0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71}};
    *format = &mix->Format;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Start() override { return g->Call(name_ + L"Start"); }
  HRESULT STDMETHODCALLTYPE Stop() override { return g->Call(name_ + L"Stop"); }
  HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) override {
    g->Update([event] { g->event = event; });
    return g->Call(name_ + L"SetEventHandle");
  }
  HRESULT STDMETHODCALLTYPE GetService(REFIID iid, void** service) override {
    const bool capture = iid == __uuidof(IAudioCaptureClient);
    *service = nullptr;
    if (HRESULT hr = g->Call(name_ + (capture ? L"GetService(capture)" : L"GetService(render)"))) return hr;
    *service = capture ? static_cast<void*>(Ref<IAudioCaptureClient>()) : Ref<IAudioRenderClient>();
    return S_OK;
  }
  // Capture: the queued packets.
  HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* frames) override {
    if (HRESULT hr = g->Call(L"GetNextPacketSize", true)) return hr;
    std::lock_guard<std::mutex> lock(g->mutex_);
    *frames = g->packets.empty() ? 0 : static_cast<UINT32>(g->packets.front().size() / e_.channels);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64*, UINT64*) override {
    if (HRESULT hr = g->Call(L"GetBuffer", true)) return hr;
    std::lock_guard<std::mutex> lock(g->mutex_);
    held_ = g->packets.front();
    *data = reinterpret_cast<BYTE*>(held_.data());
    *frames = static_cast<UINT32>(held_.size() / e_.channels);
    *flags = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override {
    g->Update([] { g->packets.erase(g->packets.begin()); });
    return g->Call(L"ReleaseBuffer(" + std::to_wstring(frames) + L")");
  }
  // Render: the silent stream.
  HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 frames, BYTE** data) override {
    written_.assign(frames * Align(), '\xCD');
    *data = reinterpret_cast<BYTE*>(&written_[0]);
    return g->Call(L"render GetBuffer(" + std::to_wstring(frames) + L")");
  }
  HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames, DWORD flags) override {
    const bool zeroed = written_.find_first_not_of('\0') == std::string::npos;
    return g->Call(L"render ReleaseBuffer(" + std::to_wstring(frames) + L"," + std::to_wstring(flags) +
                   (zeroed ? L") zeroed" : L")"));
  }

 private:
  WORD Align() const { return static_cast<WORD>(e_.bits / 8 * e_.channels); }
  Endpoint e_;
  std::wstring name_;
  std::vector<float> held_;
  std::string written_;
};

// The enumerator (no id), a list of endpoints, or one endpoint with its
// properties.
class Node : public Counted<IMMDeviceEnumerator, IMMDeviceCollection, IMMDevice, IPropertyStore> {
 public:
  explicit Node(const std::wstring& id = L"", std::vector<std::wstring> ids = {}) : id_(id), ids_(ids) {}
  HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow flow, DWORD mask,
                                               IMMDeviceCollection** list) override {
    std::vector<std::wstring> ids;
    g->Update([&] {
      for (const Endpoint& e : g->endpoints)
        if (e.is_input == (flow == eCapture) && (e.state & mask)) ids.push_back(e.id);
    });
    *list = (new Node(L"", ids))->Ref<IMMDeviceCollection>();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice** device) override {
    *device = nullptr;
    if (HRESULT hr = g->Call(L"GetDefault(" + std::to_wstring(flow) + L"," + std::to_wstring(role) + L")"))
      return hr;
    std::wstring id;
    g->Update([&] { id = g->defaults[flow == eCapture]; });
    if (id.empty()) return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    *device = (new Node(id))->Ref<IMMDevice>();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR id, IMMDevice** device) override {
    *device = nullptr;
    if (HRESULT hr = g->Call(L"GetDevice(" + std::wstring(id) + L")")) return hr;
    if (Get(id).id.empty()) return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    *device = (new Node(id))->Ref<IMMDevice>();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE RegisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    g->Update([client] { g->client = client; });
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE UnregisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    g->Update([] { g->client = nullptr; });
    return g->Call(client ? L"Unregister" : L"Unregister(null)");
  }
  HRESULT STDMETHODCALLTYPE GetCount(UINT* count) override {
    *count = static_cast<UINT>(ids_.size());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Item(UINT i, IMMDevice** device) override {
    *device = (new Node(ids_[i]))->Ref<IMMDevice>();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Activate(REFIID, DWORD context, PROPVARIANT* params, void** client) override {
    const std::wstring name = L"client" + std::to_wstring(++clients_);
    *client = nullptr;
    if (HRESULT hr = g->Call(name + L" Activate(" + std::to_wstring(context) + (params ? L",params)" : L")")))
      return hr;
    *client = (new Stream(Get(id_), name))->Ref<IAudioClient>();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD, IPropertyStore** store) override {
    *store = Ref<IPropertyStore>();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetId(LPWSTR* id) override {
    *id = CoText(id_);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
    *state = Get(id_).state;
    return g->Call(L"GetState");
  }
  // The friendly name; none for an endpoint whose name is empty.
  HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    const GUID names = {0xa45c254e, 0xdf1c, 0x4efd, {0x80, 0x20, 0x67, 0xd1, 0x46, 0xa8, 0x50, 0xe0}};
    const std::wstring name = Get(id_).name;
    PropVariantInit(value);
    if (name.empty() || key.fmtid != names || key.pid != 14) return S_OK;
    value->vt = VT_LPWSTR;
    value->pwszVal = CoText(name);
    return S_OK;
  }
  NOT_USED(GetCount(DWORD*))
  NOT_USED(GetAt(DWORD, PROPERTYKEY*))
  NOT_USED(SetValue(REFPROPERTYKEY, REFPROPVARIANT))
  NOT_USED(Commit())

 private:
  std::wstring id_;
  std::vector<std::wstring> ids_;
  int clients_ = 0;
};

HRESULT CreateEnumerator(IMMDeviceEnumerator** enumerator) {
  // As CoCreateInstance: nothing on a thread without COM.
  APTTYPE type;
  APTTYPEQUALIFIER qualifier;
  if (FAILED(CoGetApartmentType(&type, &qualifier))) return CO_E_NOTINITIALIZED;
  if (HRESULT hr = g->Call(L"CreateEnumerator")) return hr;
  *enumerator = (new Node())->Ref<IMMDeviceEnumerator>();
  return S_OK;
}

}  // namespace

FakeAudio::FakeAudio() {
  g = this;
  audio::SetDeviceEnumeratorFactoryForTesting(&CreateEnumerator);
}

FakeAudio::~FakeAudio() {
  audio::SetDeviceEnumeratorFactoryForTesting(nullptr);
  g = nullptr;
}

Endpoint* FakeAudio::Find(const std::wstring& id) {
  auto it = std::find_if(endpoints.begin(), endpoints.end(), [&](const Endpoint& e) { return e.id == id; });
  return it == endpoints.end() ? nullptr : &*it;
}

void FakeAudio::Add(const Endpoint& e) {
  Update([&] { Find(e.id) ? void(*Find(e.id) = e) : endpoints.push_back(e); });
}

void FakeAudio::Queue(const std::vector<float>& samples, bool signal) {
  Update([&] {
    if (!samples.empty()) packets.push_back(samples);
  });
  std::lock_guard<std::mutex> lock(mutex_);
  if (signal && event) SetEvent(event);
}

int FakeAudio::Count(const std::wstring& prefix) {
  std::lock_guard<std::mutex> lock(mutex_);
  return Matching(calls, prefix);
}

bool FakeAudio::WaitFor(const std::wstring& prefix, int times, int timeout_ms) {
  return Wait([&] { return Matching(calls, prefix) >= times; }, timeout_ms);
}

HRESULT FakeAudio::Call(const std::wstring& call, bool quiet) {
  HRESULT hr = S_OK;
  Update([&] {
    if (!quiet) calls.push_back(call);
    for (const auto& f : fail) hr = call.find(f.first) ? hr : f.second;
    pauses += hr == kPause;
  });
  if (hr == kThrow) throw std::runtime_error("scripted");
  if (hr == kPause) Wait([&] { return fail.empty(); });
  return hr == kPause ? S_OK : hr;
}

std::vector<float> Sine(int frames, int channels, double amplitude) {
  std::vector<float> samples;
  for (int i = 0; i < frames * channels; ++i)
    samples.push_back(static_cast<float>(amplitude * std::sin(2 * 3.141592653589793 * (i / channels) / 48)));
  return samples;
}

}  // namespace fake_audio
