#include "audio/fake_core_audio.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "audio/core_audio.h"

#define COM HRESULT STDMETHODCALLTYPE
#define NOT_USED(...) \
  COM __VA_ARGS__ override { return E_NOTIMPL; }

namespace fake_audio {
namespace {

FakeAudio* g = nullptr;

// Born with the reference it is handed out with.
template <typename... Interfaces>
class Counted : public Interfaces... {
 public:
  Counted() {
    g->Locked([] { ++g->live; });
  }
  virtual ~Counted() {
    g->Locked([] { --g->live; });
  }
  NOT_USED(QueryInterface(REFIID, void**))
  ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --refs_;
    if (left == 0) delete this;
    return left;
  }

 private:
  std::atomic<ULONG> refs_{1};
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
  return g->Locked([&] { return g->Find(id) ? *g->Find(id) : Endpoint(); });
}

std::wstring N(UINT64 n) { return std::to_wstring(n); }

// One stream client ("client1", "client2" in the order of activation) with its capture and render services.
class Stream : public Counted<IAudioClient, IAudioCaptureClient, IAudioRenderClient> {
 public:
  Stream(const Endpoint& endpoint, const std::wstring& name) : e_(endpoint), name_(name + L" ") {}
  COM Initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME duration, REFERENCE_TIME period,
                 const WAVEFORMATEX* format, LPCGUID session) override {
    wchar_t text[128];
    swprintf(text, 128, L"Initialize(%d,0x%lx,%lld,%lld,%d,%d)", mode, flags, duration, period,
             format ? format->nChannels : 0, session != nullptr);
    return g->Call(name_ + text);
  }
  COM GetBufferSize(UINT32* frames) override { return *frames = 4800, g->Call(name_ + L"GetBufferSize"); }
  NOT_USED(GetStreamLatency(REFERENCE_TIME*))
  NOT_USED(GetCurrentPadding(UINT32*))
  NOT_USED(IsFormatSupported(AUDCLNT_SHAREMODE, const WAVEFORMATEX*, WAVEFORMATEX**))
  NOT_USED(GetDevicePeriod(REFERENCE_TIME*, REFERENCE_TIME*))
  NOT_USED(Reset())
  COM GetMixFormat(WAVEFORMATEX** format) override {
    if (HRESULT hr = g->Call(name_ + L"GetMixFormat")) return hr;
    auto* mix = static_cast<WAVEFORMATEXTENSIBLE*>(CoTaskMemAlloc(sizeof(WAVEFORMATEXTENSIBLE)));
    mix->Format = {e_.tag, e_.channels, e_.rate, e_.rate * Align(), Align(), e_.bits, 22};
    mix->SubFormat = {e_.is_float ? 3u : 1u, 0, 0x10, {0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71}};
    return *format = &mix->Format, S_OK;
  }
  COM Start() override { return g->Call(name_ + L"Start"); }
  COM Stop() override { return g->Call(name_ + L"Stop"); }
  COM SetEventHandle(HANDLE event) override {
    g->Locked([&] { g->event = event; });
    return g->Call(name_ + L"SetEventHandle");
  }
  COM GetService(REFIID iid, void** service) override {
    const bool capture = iid == __uuidof(IAudioCaptureClient);
    *service = nullptr;
    if (HRESULT hr = g->Call(name_ + (capture ? L"GetService(capture)" : L"GetService(render)"))) return hr;
    AddRef();
    *service = capture ? static_cast<void*>(static_cast<IAudioCaptureClient*>(this))
                       : static_cast<IAudioRenderClient*>(this);
    return S_OK;
  }
  // The packet calls aren't journalled: how often they come is the capture's affair.
  COM GetNextPacketSize(UINT32* frames) override {
    if (HRESULT hr = g->Call(L"GetNextPacketSize", true)) return hr;
    *frames = g->Locked([&] { return g->packets.empty() ? 0 : UINT32(g->packets[0].size() / e_.channels); });
    return S_OK;
  }
  COM GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64*, UINT64*) override {
    if (HRESULT hr = g->Call(L"GetBuffer", true)) return hr;
    held_ = g->Locked([] { return g->packets.front(); });
    *data = reinterpret_cast<BYTE*>(held_.data());
    *frames = static_cast<UINT32>(held_.size() / e_.channels);
    return *flags = 0, S_OK;
  }
  COM ReleaseBuffer(UINT32 frames) override {
    g->Locked([] { g->packets.erase(g->packets.begin()); });
    return g->Call(L"ReleaseBuffer(" + N(frames) + L")");
  }
  // The silent render stream.
  COM GetBuffer(UINT32 frames, BYTE** data) override {
    written_.assign(frames * Align(), '\xCD');
    *data = reinterpret_cast<BYTE*>(&written_[0]);
    return g->Call(L"render GetBuffer(" + N(frames) + L")");
  }
  COM ReleaseBuffer(UINT32 frames, DWORD flags) override {
    const bool zeroed = written_.find_first_not_of('\0') == std::string::npos;
    return g->Call(L"render ReleaseBuffer(" + N(frames) + L"," + N(flags) + (zeroed ? L") zeroed" : L")"));
  }

 private:
  WORD Align() const { return static_cast<WORD>(e_.bits / 8 * e_.channels); }
  Endpoint e_;
  std::wstring name_;
  std::vector<float> held_;
  std::string written_;
};

// The enumerator (no id), a list of endpoints, or one endpoint with its properties.
class Node : public Counted<IMMDeviceEnumerator, IMMDeviceCollection, IMMDevice, IPropertyStore> {
 public:
  explicit Node(const std::wstring& id = L"", std::vector<std::wstring> ids = {}) : id_(id), ids_(ids) {}
  COM EnumAudioEndpoints(EDataFlow flow, DWORD mask, IMMDeviceCollection** list) override {
    std::vector<std::wstring> ids;
    for (const Endpoint& e : g->Locked([] { return g->endpoints; }))
      if (e.is_input == (flow == eCapture) && (e.state & mask)) ids.push_back(e.id);
    return *list = new Node(L"", ids), S_OK;
  }
  COM GetDefaultAudioEndpoint(EDataFlow flow, ERole role, IMMDevice** device) override {
    const std::wstring id = g->Locked([&] { return g->defaults[flow == eCapture]; });
    return Open(L"GetDefault(" + N(flow) + L"," + N(role) + L")", id, device);
  }
  COM GetDevice(LPCWSTR id, IMMDevice** device) override {
    return Open(L"GetDevice(" + std::wstring(id) + L")", Get(id).id, device);
  }
  COM RegisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    g->Locked([&] { g->client = client; });
    return S_OK;
  }
  COM UnregisterEndpointNotificationCallback(IMMNotificationClient* client) override {
    g->Locked([] { g->client = nullptr; });
    return g->Call(client ? L"Unregister" : L"Unregister(null)");
  }
  COM GetCount(UINT* count) override { return *count = UINT(ids_.size()), S_OK; }
  COM Item(UINT i, IMMDevice** device) override { return *device = new Node(ids_[i]), S_OK; }
  COM Activate(REFIID, DWORD context, PROPVARIANT* params, void** client) override {
    const std::wstring name = L"client" + N(++clients_);
    *client = nullptr;
    if (HRESULT hr = g->Call(name + L" Activate(" + N(context) + (params ? L",params)" : L")"))) return hr;
    return *client = static_cast<IAudioClient*>(new Stream(Get(id_), name)), S_OK;
  }
  COM OpenPropertyStore(DWORD, IPropertyStore** store) override { return AddRef(), *store = this, S_OK; }
  COM GetId(LPWSTR* id) override { return *id = CoText(id_), S_OK; }
  COM GetState(DWORD* state) override { return *state = Get(id_).state, g->Call(L"GetState"); }
  // The friendly name, the one property read; none for an endpoint whose name is empty.
  COM GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
    const std::wstring name = Get(id_).name;
    PropVariantInit(value);
    if (name.empty() || key.pid != 14) return S_OK;
    value->vt = VT_LPWSTR;
    return value->pwszVal = CoText(name), S_OK;
  }
  NOT_USED(GetCount(DWORD*))
  NOT_USED(GetAt(DWORD, PROPERTYKEY*))
  NOT_USED(SetValue(REFPROPERTYKEY, REFPROPVARIANT))
  NOT_USED(Commit())

 private:
  HRESULT Open(const std::wstring& call, const std::wstring& id, IMMDevice** device) {
    *device = nullptr;
    if (HRESULT hr = g->Call(call)) return hr;
    return id.empty() ? HRESULT_FROM_WIN32(ERROR_NOT_FOUND) : (*device = new Node(id), S_OK);
  }
  std::wstring id_;
  std::vector<std::wstring> ids_;
  int clients_ = 0;
};

HRESULT CreateEnumerator(IMMDeviceEnumerator** enumerator) {
  APTTYPE type;  // as CoCreateInstance: nothing on a thread without COM
  APTTYPEQUALIFIER qualifier;
  if (FAILED(CoGetApartmentType(&type, &qualifier))) return CO_E_NOTINITIALIZED;
  if (HRESULT hr = g->Call(L"CreateEnumerator")) return hr;
  return *enumerator = new Node(), S_OK;
}

}  // namespace

FakeAudio::FakeAudio() {
  g = this;
  audio::SetDeviceEnumeratorFactoryForTesting(&CreateEnumerator);
}

FakeAudio::~FakeAudio() { audio::SetDeviceEnumeratorFactoryForTesting(nullptr); }

Endpoint* FakeAudio::Find(const std::wstring& id) {
  auto it = std::find_if(endpoints.begin(), endpoints.end(), [&](const Endpoint& e) { return e.id == id; });
  return it == endpoints.end() ? nullptr : &*it;
}

void FakeAudio::Add(const Endpoint& e) {
  Locked([&] { Find(e.id) ? void(*Find(e.id) = e) : endpoints.push_back(e); });
}

void FakeAudio::Queue(const std::vector<float>& samples, bool signal) {
  Locked([&] {
    if (!samples.empty()) packets.push_back(samples);
    if (signal && event) SetEvent(event);
  });
}

int FakeAudio::Count(const std::wstring& prefix) {
  return Locked([&] { return Matching(calls, prefix); });
}

bool FakeAudio::WaitFor(const std::wstring& prefix, int times, int timeout_ms) {
  return Wait([&] { return Matching(calls, prefix) >= times; }, timeout_ms);
}

HRESULT FakeAudio::Call(const std::wstring& call, bool quiet) {
  HRESULT hr = S_OK;
  Locked([&] {
    if (!quiet) calls.push_back(call);
    for (const auto& f : fail) hr = call.find(f.first) ? hr : f.second;
    pauses += hr == kPause;
  });
  if (hr == kThrow) throw std::runtime_error("scripted");
  if (hr == kPause) Wait([&] { return fail.empty(); });
  return hr == kPause ? S_OK : hr;
}

std::vector<float> Sine(int frames) {
  std::vector<float> samples;
  for (int i = 0; i < frames * 2; ++i)
    samples.push_back(float(0.5 * std::sin(3.141592653589793 * (i / 2) / 24)));
  return samples;
}

}  // namespace fake_audio
