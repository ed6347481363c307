// Scriptable Core Audio objects for the unit tests: an endpoint enumerator
// that the library gets through its enumerator factory, and the endpoints,
// stream clients and services reached from it. What Wine can't show is
// scripted here: loopback, unplugging, invalidated devices, a failure at any
// step of an open. Every call that matters is written to a log.
#pragma once

#include <windows.h>

#include <audioclient.h>
#include <mmdeviceapi.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace fake_audio {

// The points at which an open can be made to fail.
enum class Step {
  kCreateEnumerator,
  kGetDevice,
  kActivate,
  kGetMixFormat,
  kInitialize,
  kRenderActivate,
  kRenderInitialize,
  kRenderGetBufferSize,
  kRenderGetService,
  kRenderGetBuffer,
  kCaptureService,
  kSetEventHandle,
  kGetDefault,
  kGetNextPacketSize,
  kGetBuffer,
};

// A failure that is thrown as a C++ exception instead of returned.
constexpr HRESULT kThrow = static_cast<HRESULT>(0xDEADBEEF);

struct Endpoint {
  std::wstring id;
  std::wstring name;
  bool is_input = false;
  DWORD state = DEVICE_STATE_ACTIVE;
  bool has_name = true;
  DWORD rate = 48000;
  WORD channels = 2;
  WORD bits = 32;
  bool is_float = true;
  bool extensible = true;
};

class FakeAudioSystem {
 public:
  // Installs itself as the library's enumerator factory; the destructor
  // restores CoCreateInstance.
  FakeAudioSystem();
  ~FakeAudioSystem();
  static FakeAudioSystem* current();

  void AddEndpoint(const Endpoint& endpoint);
  void SetDefault(bool is_input, const std::wstring& id);
  void SetState(const std::wstring& id, DWORD state);
  // Makes `step` give `hr` until cleared (S_OK clears).
  void FailAt(Step step, HRESULT hr);

  // Queues one packet of interleaved float samples for the open capture
  // stream and signals its event.
  void QueuePacket(const std::vector<float>& samples);
  // Signals the stream's event without a packet (as the system does when a
  // device goes away).
  void Signal();
  // From now on GetNextPacketSize fails with AUDCLNT_E_DEVICE_INVALIDATED;
  // false restores it.
  void SetInvalidated(bool invalidated);
  // Runs inside GetDefaultAudioEndpoint, on the caller's thread.
  std::function<void()> on_get_default;
  // Notifications to the registered client.
  IMMNotificationClient* notification_client();

  std::vector<std::wstring> Calls();
  int Count(const std::wstring& call);
  int CountPrefix(const std::wstring& prefix);
  // Waits until `call` has been logged `times` times.
  bool WaitFor(const std::wstring& call, int times = 1, DWORD timeout_ms = 5000);
  void ClearCalls();
  // Packets still queued.
  size_t Pending();
  // COM objects of this system still alive.
  int live_objects() const { return live_objects_; }

  // For the fakes.
  void Log(const std::wstring& call);
  HRESULT Check(Step step);
  std::mutex& mutex() { return mutex_; }
  std::map<std::wstring, Endpoint>& endpoints() { return endpoints_; }
  std::vector<std::wstring>& order() { return order_; }
  std::wstring default_id(bool is_input) { return is_input ? default_input_ : default_output_; }
  std::deque<std::vector<float>>& packets() { return packets_; }
  bool invalidated() const { return invalidated_; }
  void set_event(HANDLE event) { event_ = event; }
  void set_notification_client(IMMNotificationClient* client) { client_ = client; }
  std::atomic<int> live_objects_{0};

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<std::wstring, Endpoint> endpoints_;
  std::vector<std::wstring> order_;
  std::wstring default_input_;
  std::wstring default_output_;
  std::map<Step, HRESULT> failures_;
  std::deque<std::vector<float>> packets_;
  bool invalidated_ = false;
  HANDLE event_ = nullptr;
  IMMNotificationClient* client_ = nullptr;
  std::vector<std::wstring> calls_;
};

// Interleaved float samples of a sine: `frames` frames of `channels`.
std::vector<float> Sine(int frames, int channels, double frequency, double rate, double amplitude);

}  // namespace fake_audio
