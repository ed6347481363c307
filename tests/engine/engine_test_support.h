// The folder's fixture: scripts of host calls and SDK callbacks against the liteav.dll stand-in.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>
#include <objbase.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/scoped_handle.h"
#include "common/log_capture.h"
#include "liteav_control.h"
#include "roomcore/rtc_engine.h"

namespace engine_test {

using Strings = std::vector<std::string>;
using Lines = std::vector<std::wstring>;

inline std::string Text(const char* text) { return text ? text : "null"; }
inline std::string Text(int64_t value) { return std::to_string(value); }
template <typename... Args>
std::string Call(const char* name, Args... args) {
  std::string text;
  ((text += "," + Text(args)), ...);
  return std::string(name) + "(" + (text.empty() ? text : text.substr(1)) + ")";
}
// The parts between separators, empty ones too, none for ""; "c*n" stands for n times c.
inline Strings Split(const std::string& text, char separator = '|') {
  Strings parts(text.empty() ? 0 : 1);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == separator) {
      parts.emplace_back();
    } else if (i + 2 < text.size() && text[i + 1] == '*' && isdigit(text[i + 2])) {
      size_t digits = 0;
      parts.back().append(std::stoi(text.substr(i + 2), &digits), text[i]);
      i += 1 + digits;
    } else {
      parts.back() += text[i];
    }
  }
  return parts;
}
// The texts of what arrives, "@T" added to those that come on `task_thread`.
class RecordingEvents : public RTCEngineEvent, public testing_support::Journal {
 public:
#define EVENT(name, params, ...) \
  void name params override { Add(Call(#name, ##__VA_ARGS__)); }
  EVENT(OnError, (int32_t code, const char* text), code, text)
  EVENT(OnEnterRoom, (int32_t result, const char* text), result, text)
  EVENT(OnExitRoom, (int32_t result, const char* text), result, text)
  EVENT(OnUserEnter, (const char* id), id)
  EVENT(OnUserExit, (const char* id, int32_t reason), id, reason)
  EVENT(OnTryToReconnect, ())
  EVENT(OnConnectionLost, ())
  EVENT(OnConnectionRecovery, ())
  EVENT(OnLocalVideoFrame, (const char* id, const void* d, int32_t n, int32_t w, int32_t h, int32_t type), id,
        d ? "data" : nullptr, n, w, h, type)
  EVENT(OnRemoteVideoFrame, (const char* id, const void* d, int32_t n, int32_t w, int32_t h, int32_t type),
        id, d ? "data" : nullptr, n, w, h, type)
  EVENT(OnDeviceChanged, (int32_t kind), kind)
  EVENT(OnUserVideoAvailable, (const char* id, bool on), id, on)
  EVENT(OnUserSubStreamAvailable, (const char* id, bool on), id, on)
  EVENT(OnUserAudioAvailable, (const char* id, bool on), id, on)
  EVENT(OnMicTestVolume, (int32_t volume), volume)
  EVENT(OnNetworkQuality, (const int32_t* status), *status)
#undef EVENT
  void OnUserVoiceVolume(const VolumeRecord* v, uint32_t count) override {
    std::string text;
    for (uint32_t i = 0; i < count; ++i) text += "," + Text(v[i].usr_id) + ":" + Text(v[i].volume);
    Add("OnUserVoiceVolume(" + text.substr(1) + ")");
  }
  void OnStatistics(const EngineStatistics* s) override {
    std::string text = Call("OnStatistics", s->rtt, s->quality, s->send_rate, s->recv_rate, s->up_loss,
                            s->down_loss, s->app_cpu, s->system_cpu, s->reserved);
    for (int i = 0; s->remotes && i < remote_count; ++i)
      text += "," + Call(s->remotes[i].usr_id, s->remotes[i].final_loss, s->remotes[i].video_type);
    Add(s->remotes ? text : text + ",null");
  }
  // A result of the host's own calls, in line with the events.
  void Note(const std::string& text) { Add("=" + text); }
  // Runs on the event's thread with its text before it is recorded.
  std::function<void(const std::string&)> on_event;
  DWORD task_thread = 0;
  int remote_count = 0;

 private:
  void Add(std::string text) {
    if (GetCurrentThreadId() == task_thread) text += "@T";
    if (on_event) on_event(text);
    testing_support::Journal::Add(std::move(text));
  }
};
// The SDK's calls so far, "@T" added to those made on `task_thread`.
inline Strings SdkCalls(DWORD task_thread) {
  Strings calls;
  for (int i = 0; i < LiteavCallCount(); ++i) {
    char text[1024];
    DWORD thread = 0;
    LiteavGetCall(i, text, sizeof(text), &thread);
    calls.push_back(text + std::string(thread == task_thread ? "@T" : ""));
  }
  return calls;
}
// A list operation's names joined with "/", or "<false>" with null and 0; reserved halves all zero.
using ListFn = bool (RTCEngine::*)(DeviceRecord**, int32_t*);
inline std::string Names(RTCEngine* engine, ListFn list) {
  DeviceRecord* devices = reinterpret_cast<DeviceRecord*>(1);
  int32_t count = -1;
  if (!(engine->*list)(&devices, &count)) return devices || count ? "<junk>" : "<false>";
  std::string names;
  for (int32_t i = 0; i < count; ++i) {
    names += (i ? "/" : "") + std::string(devices[i].name);
    EXPECT_EQ(std::string(devices[i].reserved, 512), std::string(512, '\0'));
  }
  FreeDeviceRecords(devices);
  return names;
}
// One pull as the SDK makes it: the picture, or "<n>" for a result without one; nothing written past it.
inline std::string Pull(TRTCVideoFrame* frame) {
  static std::vector<uint8_t> buffer(1920 * 1080 * 3 / 2 + 1);
  std::fill(buffer.begin(), buffer.end(), 0xEE);
  const int32_t n = LiteavPullVideoFrame(buffer.data(), static_cast<uint32_t>(buffer.size()), frame);
  EXPECT_EQ(buffer[std::max(n, 0)], 0xEE);
  EXPECT_TRUE(n > 0 || (frame->width == 0 && frame->length == buffer.size())) << "a pull without a picture";
  return n > 0 ? std::string(buffer.begin(), buffer.begin() + n) : "<" + std::to_string(n) + ">";
}
// A script's argument as the parameter's type: "null" a null pointer, "*" a record without its NUL.
struct Arg {
  const std::string& text;
  mutable DeviceRecord record;
  operator const char*() const { return text == "null" ? nullptr : text.c_str(); }
  operator HWND() const { return reinterpret_cast<HWND>(static_cast<intptr_t>(std::stoi(text))); }
  operator void*() const { return nullptr; }
  operator TRTCStatistics() const { return {}; }
  operator const DeviceRecord*() const {
    memset(&record, text == "*" ? 'z' : 0, sizeof(record));
    if (text != "*") strncpy(record.name, text.c_str(), sizeof(record.name) - 1);
    return text == "null" ? nullptr : &record;
  }
  template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T>>>
  operator T() const {
    return static_cast<T>(std::stoll(text));
  }
};
// A fresh engine, initialised, over two mics, two cameras, a speaker; `answer`: room calls answered.
class EngineTest : public ::testing::Test {
 protected:
  void SetUp() override { Start(); }
  void TearDown() override { ReleaseRTCEngine(), LiteavReset(); }
  void Start(bool answer = true) {
    Run("release; forget; create; Initialize; forget");
    LiteavSetAutoAnswer(answer);
  }
  // The calls, log lines and events so far; the devices as at the start.
  void Forget() {
    LiteavReset();
    Run("devices(0,Mic A,Mic B); devices(2,Cam A,Cam B); devices(1,Speaker A)");
    log_.Clear(), events_.Clear();
  }
  // Waits until the task thread has served every post so far and what those posted (a WM_TIMER dispatched).
  void Drain() {
    for (int round = 0; round < 2; ++round) {
      base::ScopedHandle served(CreateEventW(nullptr, TRUE, FALSE, nullptr));
      ASSERT_TRUE(PostThreadMessageW(task_, WM_TIMER, reinterpret_cast<WPARAM>(served.get()),
                                     reinterpret_cast<LPARAM>(&Served)));
      ASSERT_EQ(WaitForSingleObject(served.get(), 5000), WAIT_OBJECT_0);
    }
  }
  static void CALLBACK Served(HWND, UINT, UINT_PTR event, DWORD) {
    SetEvent(reinterpret_cast<HANDLE>(event));
  }
  // The engine's lines, and others after their module's name.
  Lines Log() {
    Lines lines;
    for (const testing_support::LogLine& line : log_.Lines())
      lines.push_back(line.module == L"RTCEngineImpl" ? line.message : line.module + L":" + line.message);
    return lines;
  }
  // Runs "Operation(a,b); onCallback(c); step": operations (results noted), callbacks, steps; "every" op.
  void Run(const std::string& script) {
    for (const std::string& statement : Split(script, ';')) {
      const size_t open = statement.find('('), begin = statement.find_first_not_of(' ');
      const std::string name = statement.substr(begin, open - begin);
      const std::string args = open == std::string::npos ? "" : statement.substr(open + 1);
      Step(name,
           args.size() > 1 ? Split(args.substr(0, args.size() - 1), ',') : Strings(open != args.npos, ""));
    }
  }
  // Calls `function` on `*self` with the arguments in `a`, noting its result.
  template <typename T, typename R, typename... P>
  std::function<void()> Op(const Strings& a, T* const* self, R (T::*function)(P...)) {
    return [=, &a] { Apply(a, *self, function, std::index_sequence_for<P...>()); };
  }
  template <typename T, typename R, typename... P, size_t... i>
  void Apply(const Strings& a, T* self, R (T::*function)(P...), std::index_sequence<i...>) {
    static const std::string none;
    if constexpr (std::is_void_v<R>) (self->*function)(Arg{i < a.size() ? a[i] : none, {}}...);
    if constexpr (!std::is_void_v<R>)
      events_.Note(Text((self->*function)(Arg{i < a.size() ? a[i] : none, {}}...)));
  }
  void Step(const std::string& name, Strings a) {
    const auto I = [&](size_t i) { return std::stoi(a.at(i)); };
    static const char kPicture[6] = {};
    // clang-format off
#define E(name) {#name, Op(a, &engine_, &RTCEngine::name)}
#define C(name) {#name, Op(a, &sdk_, &ITRTCCloudCallback::name)}
#define L(name) {#name, [&] { events_.Note(Names(engine_, &RTCEngine::name)); }}
    const std::map<std::string, std::function<void()>> steps = {
      E(UnInitialize), E(IsInRoom), E(EnterRoom), E(ReEnterRoom), E(ExitRoom), E(SetCameraDevice),
      E(OpenCamera), E(CloseCamera), E(OpenMicDevice), E(EnableCaptureDesktopVideo), E(CloseMicDevice),
      E(Reserved1), E(GetMicVolume), E(Reserved2), E(EnableCaptureSystemAudio), E(SetSpeakerDevice),
      E(SetSpeakerVolume), E(GetSpeakerVolume), E(EnableLocalAudio), E(EnableLocalVideo), E(MuteRemoteAudio),
      E(MuteAllRemoteAudio), E(StartRemoteCameraView), E(StopRemoteCameraView), E(StartAllRemoteVidw),
      E(StopAllRemoteView), E(StartRemoteDesktopView), E(StopRemoteDesktopView), E(Reserved3),
      E(SetRemoteStreamType), E(StartCameraDeviceTest), E(StopCameraDeviceTest), E(StartMicDeviceTest),
      E(StopMicDeviceTest), L(GetMicDevices), L(GetSpeakerDevices), L(GetCameraDevices),
      {"PushDesktopFrame", [&] {  // "width,height,pts", a fourth argument for no data
        events_.Note(Text(engine_->PushDesktopFrame(a.size() > 3 ? nullptr : kPicture, 6, I(0), I(1), I(2))));
      }},
      {"pull", [&] { TRTCVideoFrame frame; events_.Note(Pull(&frame)); }},
      {"Initialize", [&] { engine_->Initialize(nullptr, &events_), sdk_ = LiteavCloudCallback(); }},
      C(onEnterRoom), C(onExitRoom), C(onError), C(onWarning), C(onUserEnter), C(onUserExit), C(onStatistics),
      C(onUserVideoAvailable), C(onUserSubStreamAvailable), C(onUserAudioAvailable), C(onConnectionLost),
      C(onTryToReconnect), C(onConnectionRecovery), C(onCameraDidReady), C(onMicDidReady), C(onDeviceChange),
      C(onTestMicVolume),
      {"onNetworkQuality", [&] { sdk_->onNetworkQuality({"", I(0)}, nullptr, 0); }},
      {"onUserVoiceVolume", [&] {  // "id:volume,..."
        std::vector<TRTCVolumeInfo> volumes;
        for (std::string& entry : a) {
          if (entry.empty()) continue;
          volumes.push_back({entry.c_str(), uint32_t(std::stoi(entry.substr(entry.rfind(':') + 1)))});
          entry[entry.rfind(':')] = '\0';
        }
        sdk_->onUserVoiceVolume(volumes.data(), static_cast<uint32_t>(volumes.size()), 0);
      }},
      {"render", [&] {  // "id,stream,format,width,height[,rotation]" as the SDK renders it, with pts 77
        static char pixels[16];
        TRTCVideoFrame frame = {I(2), 0, pixels, 1, I(3), I(4), 77, a.size() > 5 ? I(5) : 0};
        (a[0].empty() ? LiteavLocalRenderCallback() : LiteavRemoteRenderCallback(a[0].c_str()))
            ->onRenderVideoFrame(a[0].c_str(), I(1), &frame);
      }},
      {"entered", [&] { Run("EnterRoom(1400,1234,alice,sig); drain; onEnterRoom(20); forget"); }},
      {"drain", [&] { Drain(); }}, {"forget", [&] { Forget(); }},
      {"volume", [&] { LiteavSetVolume(I(0), I(1)); }},
      {"release", [&] { ReleaseRTCEngine(), engine_ = nullptr; }},
      {"create", [&] { engine_ = CreaeRTCEngine(), events_.task_thread = task_ = LiteavInstanceThreadId(); }},
      {"post", [&] { ASSERT_TRUE(PostThreadMessageW(task_, I(0), 0x10, 0)); }},
      {"log", [&] { LiteavLogCallback()->onLog(a.at(0).c_str(), 2, "module"); }},
      {"devices", [&] { liteav_control::SetDevices(I(0), Strings(a.begin() + 1, a.end())); }},
      {"current", [&] { LiteavSetCurrentDevice(I(0), Arg{a.at(1), {}}, a.size() > 2); }},
      {"watch", [&] {  // notes the list of the kind (0 cameras, 1 microphones) at each change of it
        const ListFn list = I(0) ? &RTCEngine::GetMicDevices : &RTCEngine::GetCameraDevices;
        events_.on_event = [=, change = "OnDeviceChanged(" + a[0] + ")@T"](const std::string& text) {
          if (text == change) events_.Note(Names(engine_, list));
        };
      }},
      {"com", [&] {  // notes at the next event whether its thread has COM already
        events_.on_event = [&, done = std::make_shared<bool>(false)](const std::string&) {
          if (std::exchange(*done, true)) return;
          const HRESULT com = CoInitialize(nullptr);
          if (SUCCEEDED(com)) CoUninitialize();
          events_.Note(com == S_FALSE ? "apartment" : "none");
        };
      }},
    };
    // clang-format on
#undef E
#undef C
#undef L
    ASSERT_TRUE(name == "every" || steps.count(name)) << name;
    if (name == "every") a = Strings(4, "7");
    for (const auto& [step, run] : steps) {
      if (name == "every" ? isupper(step[0]) && step != "Initialize" : step == name) run();
    }
  }
  testing_support::LogCapture log_;
  RecordingEvents events_;
  RTCEngine* engine_ = nullptr;
  ITRTCCloudCallback* sdk_ = nullptr;
  DWORD task_ = 0;
};

}  // namespace engine_test
