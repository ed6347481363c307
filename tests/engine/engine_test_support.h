// A host's view of the engine for tests: an RTCEngineEvent that records what
// arrives (and on which thread), and a fixture that runs one engine against
// the liteav.dll stand-in.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "base/scoped_handle.h"
#include "common/log_capture.h"
#include "liteav_control.h"
#include "roomcore/rtc_engine.h"

namespace engine_test {

struct Event {
  std::string text;  // "OnUserEnter(bob)"
  DWORD thread_id;
};

inline std::string Text(const char* text) { return text ? text : "(null)"; }
inline std::string Text(int64_t value) { return std::to_string(value); }
// "Name(a,b,...)"
template <typename... Args>
std::string Call(const char* name, Args... args) {
  std::string text = name;
  const char* separator = "(";
  for (const std::string& arg : {Text(args)...}) {
    text += separator + arg;
    separator = ",";
  }
  return text + ")";
}

class RecordingEvents : public RTCEngineEvent {
 public:
  void OnError(int32_t code, const char* message) override { Add(Call("OnError", code, message)); }
  void OnEnterRoom(int32_t result, const char* message) override {
    Add(Call("OnEnterRoom", result, message));
  }
  void OnExitRoom(int32_t result, const char* message) override { Add(Call("OnExitRoom", result, message)); }
  void OnUserEnter(const char* usr_id) override { Add(Call("OnUserEnter", usr_id)); }
  void OnUserExit(const char* usr_id, int32_t reason) override { Add(Call("OnUserExit", usr_id, reason)); }
  void OnTryToReconnect() override { Add("OnTryToReconnect()"); }
  void OnConnectionLost() override { Add("OnConnectionLost()"); }
  void OnConnectionRecovery() override { Add("OnConnectionRecovery()"); }
  void OnLocalVideoFrame(const char* usr_id, const void* data, int32_t size, int32_t width, int32_t height,
                         int32_t video_type) override {
    Add(Call("OnLocalVideoFrame", usr_id, data ? "data" : nullptr, size, width, height, video_type));
  }
  void OnRemoteVideoFrame(const char* usr_id, const void* data, int32_t size, int32_t width, int32_t height,
                          int32_t video_type) override {
    Add(Call("OnRemoteVideoFrame", usr_id, data ? "data" : nullptr, size, width, height, video_type));
  }
  void OnDeviceChanged(int32_t kind) override {
    if (on_device_changed) on_device_changed(kind);
    Add(Call("OnDeviceChanged", kind));
  }
  void OnUserVideoAvailable(const char* usr_id, bool on) override {
    Add(Call("OnUserVideoAvailable", usr_id, on));
  }
  void OnUserSubStreamAvailable(const char* usr_id, bool on) override {
    Add(Call("OnUserSubStreamAvailable", usr_id, on));
  }
  void OnUserAudioAvailable(const char* usr_id, bool on) override {
    Add(Call("OnUserAudioAvailable", usr_id, on));
  }
  void OnUserVoiceVolume(const VolumeRecord* volumes, uint32_t count) override {
    std::string text = "OnUserVoiceVolume(";
    for (uint32_t i = 0; i < count; ++i) {
      text += (i ? "," : "") + std::string(volumes[i].usr_id) + ":" + std::to_string(volumes[i].volume);
    }
    Add(text + ")");
  }
  void OnMicTestVolume(int32_t volume) override { Add(Call("OnMicTestVolume", volume)); }
  void OnStatistics(const EngineStatistics* s) override {
    std::string text = "OnStatistics(rtt=" + Text(s->rtt) + ",quality=" + Text(s->quality) +
                       ",send=" + Text(s->send_rate) + ",recv=" + Text(s->recv_rate) +
                       ",loss=" + Text(s->up_loss) + "/" + Text(s->down_loss) + ",cpu=" + Text(s->app_cpu) +
                       "/" + Text(s->system_cpu) + ",tenth=" + Text(s->reserved) + ",remotes=";
    if (!s->remotes) text += "null";
    for (int i = 0; s->remotes && i < remote_count_hint; ++i) {
      text += (i ? ";" : "") + std::string(s->remotes[i].usr_id) + ":" + Text(s->remotes[i].final_loss) +
              ":" + Text(s->remotes[i].video_type);
    }
    Add(text + ")");
  }
  void OnNetworkQuality(const int32_t* status) override { Add(Call("OnNetworkQuality", *status)); }

  std::vector<Event> Events() {
    std::lock_guard<std::mutex> guard(mutex_);
    return events_;
  }
  std::vector<std::string> Texts(const std::string& prefix = "") {
    std::vector<std::string> out;
    for (const Event& e : Events()) {
      if (e.text.compare(0, prefix.size(), prefix) == 0) out.push_back(e.text);
    }
    return out;
  }
  bool WaitFor(const std::string& text, int times = 1, DWORD timeout_ms = 5000) {
    std::unique_lock<std::mutex> guard(mutex_);
    return changed_.wait_for(guard, std::chrono::milliseconds(timeout_ms), [&] {
      int n = 0;
      for (const Event& e : events_) n += e.text == text ? 1 : 0;
      return n >= times;
    });
  }
  // The thread of the first event equal to `text`, 0 if none.
  DWORD ThreadOf(const std::string& text) {
    for (const Event& e : Events()) {
      if (e.text == text) return e.thread_id;
    }
    return 0;
  }
  void Clear() {
    std::lock_guard<std::mutex> guard(mutex_);
    events_.clear();
  }

  // Set before the event can come; runs on the event's thread.
  std::function<void(int32_t)> on_device_changed;
  // Runs on the event's thread with its text, before it is recorded.
  std::function<void(const std::string&)> on_event;
  int remote_count_hint = 0;

 private:
  void Add(const std::string& text) {
    if (on_event) on_event(text);
    {
      std::lock_guard<std::mutex> guard(mutex_);
      events_.push_back({text, GetCurrentThreadId()});
    }
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Event> events_;
};

// One engine per test, initialised with RecordingEvents, against a stand-in
// with two microphones, two cameras and one speaker.
class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetStandIn();
    engine_ = CreaeRTCEngine();
    ASSERT_NE(engine_, nullptr);
    engine_->Initialize(nullptr, &events_);
    ResetStandIn();  // only the calls made from here on
    log_.Clear();
  }
  static void ResetStandIn() {
    LiteavReset();
    liteav_control::SetDevices(TRTCDeviceTypeMic, {"Mic A", "Mic B"});
    liteav_control::SetDevices(TRTCDeviceTypeCamera, {"Cam A", "Cam B"});
    liteav_control::SetDevices(TRTCDeviceTypeSpeaker, {"Speaker A"});
  }
  void TearDown() override {
    ReleaseRTCEngine();
    LiteavReset();
  }

  // The task thread is the thread that made the SDK object.
  DWORD TaskThreadId() { return LiteavInstanceThreadId(); }

  // Waits until every post made so far has been served by the task thread:
  // the task thread hands a WM_TIMER that carries a procedure to
  // DispatchMessageW, which calls it, in the order of the queue.
  void DrainTaskThread() {
    base::ScopedHandle served(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    ASSERT_TRUE(PostThreadMessageW(TaskThreadId(), WM_TIMER, reinterpret_cast<WPARAM>(served.get()),
                                   reinterpret_cast<LPARAM>(&DrainProc)));
    EXPECT_EQ(WaitForSingleObject(served.get(), 5000), WAIT_OBJECT_0);
  }
  static void CALLBACK DrainProc(HWND, UINT, UINT_PTR served, DWORD) {
    SetEvent(reinterpret_cast<HANDLE>(served));
  }

  // Fires on the stand-in's callback thread and waits for it.
  template <typename F>
  void Fire(F f) {
    ASSERT_TRUE(liteav_control::FireCloud(f));
  }

  void EnterRoomAndWait(const char* usr_id = "alice") {
    ASSERT_TRUE(engine_->EnterRoom("1400000001", "1234", usr_id, "sig"));
    ASSERT_TRUE(events_.WaitFor("OnEnterRoom(0,success)"));
  }

  testing_support::LogCapture log_;
  RecordingEvents events_;
  RTCEngine* engine_ = nullptr;
};

// The names a list operation gives ({"<false>"} when it fails), the array
// freed as a host frees it.
using ListFn = bool (RTCEngine::*)(DeviceRecord**, int32_t*);
inline std::vector<std::string> ListNames(RTCEngine* engine, ListFn list) {
  DeviceRecord* devices = nullptr;
  int32_t count = 0;
  if (!(engine->*list)(&devices, &count)) return {"<false>"};
  std::vector<std::string> names;
  for (int32_t i = 0; i < count; ++i) names.push_back(devices[i].name);
  FreeDeviceRecords(devices);
  return names;
}

}  // namespace engine_test
