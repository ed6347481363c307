// Scripted Core Audio behind the library's enumerator factory: calls journalled ("client1 Start"), `fail`ed.
#pragma once

#include <windows.h>

#include <audioclient.h>
#include <gtest/gtest.h>
#include <mmdeviceapi.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>

#include "audio/audio_capture_impl.h"
#include "audio/audio_testing.h"
#include "audio/core_audio.h"
#include "base/clock_internal.h"

#define COM HRESULT STDMETHODCALLTYPE
#define NOT_USED(...) \
  COM __VA_ARGS__ override { return E_NOTIMPL; }

class AudioTest;
namespace fake_audio {
inline HRESULT CreateEnumerator(IMMDeviceEnumerator** enumerator);
inline ::AudioTest* g = nullptr;
}  // namespace fake_audio

// The one fixture: the Core Audio it scripts (mic1, mic2, spk1; the defaults mic1, spk1) under the journal's
// lock, a capture that retries after 20 ms, and a host's endpoint listener.
class AudioTest : public ::testing::Test,
                  public testing_support::WideJournal,
                  public AudioDeviceListenerEvent {
 public:
  // Scripted results: thrown, not returned; counted in `pauses` and successful once unscripted.
  static constexpr HRESULT kThrow = HRESULT(0xDEADBEEF), kPause = HRESULT(0xDEADBEE0);
  struct Endpoint {
    std::wstring id, name;  // an empty name: the endpoint has none
    bool is_input = true;
    DWORD state = DEVICE_STATE_ACTIVE, rate = 48000;
    WORD channels = 2, bits = 32, tag = WAVE_FORMAT_EXTENSIBLE;
    bool is_float = true;  // the extensible subformat
  };
  AudioTest() {
    audio::SetDeviceEnumeratorFactoryForTesting(&fake_audio::CreateEnumerator), fake_audio::g = this;
    capture->SetCaptureEvent(&recorder, &recorder);
    capture->SetRetryIntervalForTesting(20);
  }
  ~AudioTest() override {
    AudioCapture::Release(capture);
    EXPECT_TRUE(Wait([this] { return live == 0; })) << "a Core Audio reference outlived its owner";
    audio::SetDeviceEnumeratorFactoryForTesting(nullptr), audio::SetMmThreadFunctionsForTesting(nullptr);
    base::SetClockPlatformForTesting(nullptr);
  }
  void Run(bool is_input, const std::wstring& id, int opens = 1) {  // and waits for the `opens`-th stream
    ASSERT_TRUE(capture->StartDevice(is_input, id));
    ASSERT_TRUE(WaitFor(L"client1 Start", opens));
  }
  void OnDeviceStateChanged(const wchar_t* id) override { Add(L"Changed(" + std::wstring(id) + L")"); }
  std::wstring Calls() {  // and forgets them
    std::wstring text;
    for (const std::wstring& call : Take()) text += call + L"; ";
    return text;
  }
  void Plug(const Endpoint& e) {  // or replace, in place
    Locked([&] { Find(e.id) ? void(*Find(e.id) = e) : endpoints.push_back(e); });
  }
  Endpoint* Find(const std::wstring& id) {
    auto it = std::find_if(endpoints.begin(), endpoints.end(), [&](auto& e) { return e.id == id; });
    return it == endpoints.end() ? nullptr : &*it;
  }
  void Fail(std::map<std::wstring, HRESULT> results = {}) {  // a call that begins with a key gives its result
    Locked([&] { fail = results; });
  }
  // One packet of interleaved float frames (none: a wake-up only), signalled as the system does.
  void Queue(const std::vector<float>& samples = {}, bool signal = true) {
    Locked([&] {
      if (!samples.empty()) packets.push_back(samples);
      if (signal && event) SetEvent(event);
    });
  }
  HRESULT Call(const std::wstring& call, bool quiet = false) {  // journals `call` unless quiet
    HRESULT hr = S_OK;
    Locked([&] {
      if (!quiet) lines_.push_back(call);
      for (const auto& f : fail) hr = call.find(f.first) ? hr : f.second;
      pauses += hr == kPause;
    });
    if (hr == kThrow) throw std::runtime_error("scripted");
    if (hr == kPause) Wait([&] { return fail.empty(); });
    return hr == kPause ? S_OK : hr;
  }
  void Live(int delta) {
    Locked([&] { live += delta; });
  }
  static std::vector<float> Sine(int frames = 480) {  // stereo, 1 kHz at 48 kHz, half scale
    std::vector<float> samples;
    for (int i = 0; i < frames * 2; ++i)
      samples.push_back(float(0.5 * std::sin(3.141592653589793 * (i / 2) / 24)));
    return samples;
  }
  std::vector<Endpoint> endpoints = {
      {L"mic1", L"Microphone"}, {L"mic2", L"Headset"}, {L"spk1", L"Speakers", false}};
  std::wstring defaults[2] = {L"spk1", L"mic1"};  // by is_input
  std::map<std::wstring, HRESULT> fail;
  std::vector<std::vector<float>> packets;
  HANDLE event = nullptr;
  IMMNotificationClient* client = nullptr;
  int live = 0, pauses = 0;  // references held on the fakes; paused calls
  audio_testing::Recorder recorder;
  AudioCaptureImpl* capture = new AudioCaptureImpl();
};

namespace fake_audio {

// Born with the reference it is handed out with.
template <typename... Interfaces>
class Counted : public Interfaces... {
 public:
  Counted() { g->Live(1); }
  virtual ~Counted() { g->Live(-1); }
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

inline LPWSTR CoText(const std::wstring& text) {
  const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
  return static_cast<LPWSTR>(memcpy(CoTaskMemAlloc(bytes), text.c_str(), bytes));
}

inline AudioTest::Endpoint Get(const std::wstring& id) {
  return g->Locked([&] { return g->Find(id) ? *g->Find(id) : AudioTest::Endpoint(); });
}

inline std::wstring N(UINT64 n) { return std::to_wstring(n); }

// One stream client ("client1", "client2" in the order of activation) with its capture and render services.
class Stream : public Counted<IAudioClient, IAudioCaptureClient, IAudioRenderClient> {
 public:
  Stream(const AudioTest::Endpoint& endpoint, const std::wstring& name) : e_(endpoint), name_(name + L" ") {}
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
  AudioTest::Endpoint e_;
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
    for (const AudioTest::Endpoint& e : g->Locked([] { return g->endpoints; }))
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

inline HRESULT CreateEnumerator(IMMDeviceEnumerator** enumerator) {
  APTTYPE type;  // as CoCreateInstance: nothing on a thread without COM
  APTTYPEQUALIFIER qualifier;
  if (FAILED(CoGetApartmentType(&type, &qualifier))) return CO_E_NOTINITIALIZED;
  if (HRESULT hr = g->Call(L"CreateEnumerator")) return hr;
  return *enumerator = new Node(), S_OK;
}

}  // namespace fake_audio
