// A stand-in for the TRTC SDK: it records every call, answers the room calls,
// reports the devices a test sets, runs callbacks on a thread of its own and
// pulls the custom stream. It carries no media.
//
// Locking: `lock` guards the recorded state; no callback and no call into a
// stream source is ever made while it is held. `pull_lock` only serialises
// the pulls and their buffer; nothing the engine calls takes it.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "liteav/ITRTCCloud.h"
#include "liteav_control.h"

namespace {

// Closes a thread handle that nothing waits on.
class ThreadHandle {
 public:
  explicit ThreadHandle(HANDLE handle) : handle_(handle) {}
  ~ThreadHandle() {
    if (handle_) CloseHandle(handle_);
  }
  ThreadHandle(const ThreadHandle&) = delete;
  ThreadHandle& operator=(const ThreadHandle&) = delete;
  explicit operator bool() const { return handle_ != nullptr; }

 private:
  HANDLE handle_;
};

struct Call {
  std::string text;
  DWORD thread_id;
};

struct Device {
  bool present = false;
  bool null_name = false;
  std::string name;
};

const uint32_t kPullBufferSize = 3840 * 2160 * 3 / 2;

struct State {
  std::mutex lock;
  std::condition_variable changed;
  std::vector<Call> calls;
  std::vector<std::string> devices[3];
  Device current[2];  // microphone, speaker
  uint32_t volume[2] = {0, 0};
  bool auto_answer = true;
  std::string held;  // calls that match wait in Record

  int instance_count = 0;
  DWORD instance_thread = 0;
  ITRTCCloud* cloud = nullptr;

  std::vector<ITRTCCloudCallback*> callbacks;
  ITRTCVideoRenderCallback* local_render = nullptr;
  std::map<std::string, ITRTCVideoRenderCallback*> remote_render;
  ITRTCAudioFrameCallback* audio_frame = nullptr;
  ITRTCLogCallback* log = nullptr;

  // Callback thread.
  std::deque<std::function<void()>> tasks;
  bool task_running = false;
  bool callback_thread_started = false;
  std::atomic<DWORD> callback_thread_id{0};

  // Custom stream.
  ILiteAVStreamDataSource* source = nullptr;
  int destroyed_sources = 0;
  uint32_t pull_rate = 0;
  bool pull_thread_running = false;
  HANDLE pull_wake = nullptr;  // lives as long as the process

  std::mutex pull_lock;
  std::vector<char> pull_buffer;
};

// A host running against the stand-in alone (the demo) can ask for a few
// devices to list with LITEAV_STANDIN_DEVICES=1; tests set their own.
void AddDemoDevices(State* state) {
  char flag[8];
  DWORD n = GetEnvironmentVariableA("LITEAV_STANDIN_DEVICES", flag, sizeof(flag));
  if (n == 0 || n >= sizeof(flag)) return;
  state->devices[0] = {"Stand-in Microphone", "Stand-in Line In"};
  state->devices[1] = {"Stand-in Speakers"};
  state->devices[2] = {"Stand-in HD Camera", "Stand-in Document Camera"};
  state->current[0].present = true;
  state->current[0].name = "Stand-in Microphone";
  state->current[1].present = true;
  state->current[1].name = "Stand-in Speakers";
  state->volume[0] = 80;
  state->volume[1] = 60;
}

// Never destroyed: threads of the stand-in may still wait on it at exit.
State& S() {
  static State* state = [] {
    State* fresh = new State;
    AddDemoDevices(fresh);
    return fresh;
  }();
  return *state;
}

std::string Text(const char* text) { return text ? text : "(null)"; }
std::string Num(long long value) { return std::to_string(value); }
std::string View(HWND view) { return std::to_string(reinterpret_cast<uintptr_t>(view)); }

bool Matches(const std::string& call, const std::string& pattern) {
  if (pattern.find('(') != std::string::npos) return call == pattern;
  return call.compare(0, pattern.size() + 1, pattern + "(") == 0;
}

void Record(const std::string& name, const std::vector<std::string>& args = {}) {
  std::string text = name + "(";
  for (size_t i = 0; i < args.size(); ++i) text += (i ? "," : "") + args[i];
  text += ")";
  State& s = S();
  {
    std::unique_lock<std::mutex> guard(s.lock);
    s.calls.push_back({text, GetCurrentThreadId()});
    s.changed.notify_all();
    s.changed.wait(guard, [&] { return s.held.empty() || !Matches(text, s.held); });
  }
}

// The callback thread: runs queued tasks one at a time, in order.
DWORD WINAPI CallbackThread(LPVOID) {
  State& s = S();
  s.callback_thread_id = GetCurrentThreadId();
  for (;;) {
    std::function<void()> task;
    {
      std::unique_lock<std::mutex> guard(s.lock);
      s.changed.wait(guard, [&] { return !s.tasks.empty(); });
      task = std::move(s.tasks.front());
      s.tasks.pop_front();
      s.task_running = true;
    }
    task();
    {
      std::lock_guard<std::mutex> guard(s.lock);
      s.task_running = false;
    }
    s.changed.notify_all();
  }
}

// Call with `lock` held.
void EnsureCallbackThreadLocked(State& s) {
  if (s.callback_thread_started) return;
  s.callback_thread_started = true;
  DWORD id = 0;
  ThreadHandle thread(CreateThread(nullptr, 0, &CallbackThread, nullptr, 0, &id));
  s.callback_thread_id = id;
}

void Queue(std::function<void()> task) {
  State& s = S();
  {
    std::lock_guard<std::mutex> guard(s.lock);
    EnsureCallbackThreadLocked(s);
    s.tasks.push_back(std::move(task));
  }
  s.changed.notify_all();
}

ITRTCCloudCallback* CurrentCallback() {
  State& s = S();
  std::lock_guard<std::mutex> guard(s.lock);
  return s.callbacks.empty() ? nullptr : s.callbacks.back();
}

void OnSourceDestroyed(void* context) {
  State& s = S();
  std::lock_guard<std::mutex> guard(s.lock);
  ++s.destroyed_sources;
  if (s.source == context) s.source = nullptr;
}

// Takes the current source's mutex without ever blocking while `lock` is
// held: the source's destructor holds its mutex while it tells us (through
// OnSourceDestroyed, which needs `lock`) that it is gone.
ILiteAVStreamDataSource* AcquireSource() {
  State& s = S();
  for (;;) {
    {
      std::lock_guard<std::mutex> guard(s.lock);
      if (!s.source) return nullptr;
      DWORD wait = WaitForSingleObject(s.source->mutex, 0);
      if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) return s.source;
    }
    Sleep(1);
  }
}

int32_t Pull(void* buffer, uint32_t capacity, TRTCVideoFrame* frame) {
  *frame = TRTCVideoFrame();
  frame->data = static_cast<char*>(buffer);
  frame->length = capacity;
  ILiteAVStreamDataSource* source = AcquireSource();
  if (!source) return LiteavNoSource;
  int32_t result = source->onPullVideo(frame);
  ReleaseMutex(source->mutex);
  return result;
}

// A host running against the stand-in alone (the demo) can ask it to act a
// little more like a room, through the environment:
//   LITEAV_STANDIN_REMOTE_USER=name  a remote user enters after each enterRoom,
//                                    with camera video, and sends frames to the
//                                    render callback registered for it;
//   LITEAV_STANDIN_PULL_FPS=n        the custom stream is pulled n times a second
//                                    from the first instance on;
//   LITEAV_STANDIN_Y4M=path          every pulled picture is appended to a Y4M
//                                    file, as a transport would send it on
//                                    (LITEAV_STANDIN_Y4M_RATE: its nominal rate).
std::string Env(const char* name) {
  char value[1024];
  DWORD n = GetEnvironmentVariableA(name, value, sizeof(value));
  return (n == 0 || n >= sizeof(value)) ? std::string() : std::string(value, n);
}

// Writes pulled I420 pictures into one Y4M file; pictures of a size other
// than the first one's can't go into the same stream and are counted instead.
class Y4mRecorder {
 public:
  void Write(const TRTCVideoFrame& frame) {
    if (frame.width <= 0 || frame.height <= 0 || !frame.data) return;
    const uint32_t size = static_cast<uint32_t>(frame.width * frame.height +
                                                2 * ((frame.width + 1) / 2) * ((frame.height + 1) / 2));
    if (frame.length < size) return;
    if (!file_) {
      const std::string path = Env("LITEAV_STANDIN_Y4M");
      if (path.empty() || failed_) return;
      file_ = std::fopen(path.c_str(), "wb");
      if (!file_) {
        failed_ = true;
        return;
      }
      std::string rate = Env("LITEAV_STANDIN_Y4M_RATE");
      if (rate.empty()) rate = "12";
      width_ = frame.width;
      height_ = frame.height;
      std::fprintf(file_, "YUV4MPEG2 W%d H%d F%s:1 Ip A1:1 C420jpeg\n", width_, height_, rate.c_str());
    }
    if (frame.width != width_ || frame.height != height_) return;
    std::fputs("FRAME\n", file_);
    std::fwrite(frame.data, 1, size, file_);
    std::fflush(file_);
  }

 private:
  std::FILE* file_ = nullptr;
  bool failed_ = false;
  int width_ = 0;
  int height_ = 0;
};

Y4mRecorder& Recorder() {
  static Y4mRecorder* recorder = new Y4mRecorder;  // used by the pull thread until exit
  return *recorder;
}

// The remote user's camera: a 320x180 picture with a bar that moves, sent
// 15 times a second on the callback thread while the user is in the room.
std::atomic<bool> g_peer_in_room{false};

void SendPeerFrame(const std::string& user, int n) {
  const int width = 320, height = 180;
  static std::vector<char> picture(width * height * 3 / 2);
  std::memset(picture.data(), 40, width * height);
  for (int y = 0; y < height; ++y) std::memset(&picture[y * width + (n * 4) % (width - 16)], 220, 16);
  std::memset(&picture[width * height], 128, width * height / 2);
  ITRTCVideoRenderCallback* render = nullptr;
  {
    std::lock_guard<std::mutex> guard(S().lock);
    auto it = S().remote_render.find(user);
    if (it != S().remote_render.end()) render = it->second;
  }
  if (!render) return;
  TRTCVideoFrame frame = TRTCVideoFrame();
  frame.video_format = TRTCVideoPixelFormat_I420;
  frame.buffer_type = TRTCVideoBufferType_Buffer;
  frame.data = picture.data();
  frame.length = static_cast<uint32_t>(picture.size());
  frame.width = width;
  frame.height = height;
  frame.timestamp = GetTickCount();
  render->onRenderVideoFrame(user.c_str(), TRTCVideoStreamTypeBig, &frame);
}

DWORD WINAPI PeerThread(LPVOID) {
  const std::string user = Env("LITEAV_STANDIN_REMOTE_USER");
  for (int n = 0; g_peer_in_room; ++n) {
    Queue([user, n] {
      if (g_peer_in_room) SendPeerFrame(user, n);
    });
    Sleep(66);
  }
  return 0;
}

void PeerEnters() {
  const std::string user = Env("LITEAV_STANDIN_REMOTE_USER");
  if (user.empty() || g_peer_in_room.exchange(true)) return;
  Queue([user] {
    if (ITRTCCloudCallback* callback = CurrentCallback()) {
      callback->onUserEnter(user.c_str());
      callback->onUserVideoAvailable(user.c_str(), true);
      callback->onUserAudioAvailable(user.c_str(), true);
    }
  });
  ThreadHandle thread(CreateThread(nullptr, 0, &PeerThread, nullptr, 0, nullptr));
}

void PeerLeaves() {
  const std::string user = Env("LITEAV_STANDIN_REMOTE_USER");
  if (user.empty() || !g_peer_in_room.exchange(false)) return;
  Queue([user] {
    if (ITRTCCloudCallback* callback = CurrentCallback()) callback->onUserExit(user.c_str(), 0);
  });
}

DWORD WINAPI PullThread(LPVOID) {
  State& s = S();
  for (;;) {
    uint32_t rate;
    {
      std::lock_guard<std::mutex> guard(s.lock);
      rate = s.pull_rate;
      if (rate == 0) {
        s.pull_thread_running = false;
        return 0;
      }
    }
    WaitForSingleObject(s.pull_wake, 1000 / rate);
    std::lock_guard<std::mutex> pull_guard(s.pull_lock);
    if (s.pull_buffer.size() < kPullBufferSize) s.pull_buffer.resize(kPullBufferSize);
    // What comes out goes nowhere: a transport would send it on.
    TRTCVideoFrame frame;
    if (Pull(s.pull_buffer.data(), kPullBufferSize, &frame) > 0) Recorder().Write(frame);
  }
}

class Collection : public ITRTCDeviceCollection {
 public:
  explicit Collection(std::vector<std::string> names) : names_(std::move(names)) {}
  uint32_t getCount() override { return static_cast<uint32_t>(names_.size()); }
  const char* getDeviceName(uint32_t index) override {
    return index < names_.size() ? names_[index].c_str() : "";
  }
  const char* getDevicePID(uint32_t index) override { return getDeviceName(index); }
  void release() override { delete this; }

 private:
  std::vector<std::string> names_;
};

class Info : public ITRTCDeviceInfo {
 public:
  explicit Info(const Device& device) : device_(device) {}
  const char* getDeviceName() override { return device_.null_name ? nullptr : device_.name.c_str(); }
  const char* getDevicePID() override { return getDeviceName(); }
  void release() override { delete this; }

 private:
  Device device_;
};

class Cloud : public ITRTCCloud {
 public:
  ~Cloud() override = default;

  void enterRoom(const TRTCParams& p, int32_t scene) override {
    Record("enterRoom", {Num(p.sdk_app_id), Num(p.room_id), Text(p.user_id), Text(p.user_sig), Num(p.role),
                         Text(p.str_room_id), Text(p.private_map_key), Text(p.business_info), Num(scene)});
    if (AutoAnswer()) {
      Queue([] {
        if (ITRTCCloudCallback* callback = CurrentCallback()) callback->onEnterRoom(20);
      });
      PeerEnters();
    }
  }
  void exitRoom() override {
    Record("exitRoom");
    PeerLeaves();
    if (AutoAnswer()) {
      Queue([] {
        if (ITRTCCloudCallback* callback = CurrentCallback()) callback->onExitRoom(0);
      });
    }
  }

  void addCallback(ITRTCCloudCallback* callback) override {
    Record("addCallback", {callback ? "callback" : "null"});
    std::lock_guard<std::mutex> guard(S().lock);
    std::vector<ITRTCCloudCallback*>& callbacks = S().callbacks;
    if (callback && std::find(callbacks.begin(), callbacks.end(), callback) == callbacks.end()) {
      callbacks.push_back(callback);
    }
  }
  // Returns only when no callback task is running any more, so that the
  // listener may be destroyed afterwards (unless called from a callback).
  void removeCallback(ITRTCCloudCallback* callback) override {
    Record("removeCallback", {callback ? "callback" : "null"});
    State& s = S();
    std::unique_lock<std::mutex> guard(s.lock);
    s.callbacks.erase(std::remove(s.callbacks.begin(), s.callbacks.end(), callback), s.callbacks.end());
    if (GetCurrentThreadId() != s.callback_thread_id) s.changed.wait(guard, [&] { return !s.task_running; });
  }
  int32_t setLocalVideoRenderCallback(int32_t format, int32_t type, ITRTCVideoRenderCallback* cb) override {
    Record("setLocalVideoRenderCallback", {Num(format), Num(type), cb ? "callback" : "null"});
    std::lock_guard<std::mutex> guard(S().lock);
    S().local_render = cb;
    return 0;
  }
  int32_t setRemoteVideoRenderCallback(const char* user_id, int32_t format, int32_t type,
                                       ITRTCVideoRenderCallback* cb) override {
    Record("setRemoteVideoRenderCallback", {Text(user_id), Num(format), Num(type), cb ? "callback" : "null"});
    std::lock_guard<std::mutex> guard(S().lock);
    S().remote_render[Text(user_id)] = cb;
    return 0;
  }
  int32_t setAudioFrameCallback(ITRTCAudioFrameCallback* cb) override {
    Record("setAudioFrameCallback", {cb ? "callback" : "null"});
    std::lock_guard<std::mutex> guard(S().lock);
    S().audio_frame = cb;
    return 0;
  }
  void setLogCallback(ITRTCLogCallback* cb) override {
    Record("setLogCallback", {cb ? "callback" : "null"});
    std::lock_guard<std::mutex> guard(S().lock);
    S().log = cb;
  }
  void setLogLevel(int32_t level) override { Record("setLogLevel", {Num(level)}); }

  void startLocalPreview(HWND view) override { Record("startLocalPreview", {View(view)}); }
  void stopLocalPreview() override { Record("stopLocalPreview"); }
  void muteLocalVideo(bool mute) override { Record("muteLocalVideo", {Num(mute)}); }
  void setVideoEncoderParam(const TRTCVideoEncParam& p) override {
    Record("setVideoEncoderParam",
           {Num(p.video_resolution), Num(p.res_mode), Num(p.video_fps), Num(p.video_bitrate)});
  }
  void setSubStreamEncoderParam(const TRTCVideoEncParam& p) override {
    Record("setSubStreamEncoderParam",
           {Num(p.video_resolution), Num(p.res_mode), Num(p.video_fps), Num(p.video_bitrate)});
  }
  void setNetworkQosParam(const TRTCNetworkQosParam& p) override {
    Record("setNetworkQosParam", {Num(p.preference), Num(p.control_mode)});
  }
  void setLocalViewMirror(bool mirror) override { Record("setLocalViewMirror", {Num(mirror)}); }
  void setBeautyStyle(int32_t style, uint32_t beauty, uint32_t white, uint32_t ruddiness) override {
    Record("setBeautyStyle", {Num(style), Num(beauty), Num(white), Num(ruddiness)});
  }
  void setLocalViewRotation(int32_t rotation) override { Record("setLocalViewRotation", {Num(rotation)}); }

  void startRemoteView(const char* user_id, HWND view) override {
    Record("startRemoteView", {Text(user_id), View(view)});
  }
  void stopRemoteView(const char* user_id) override { Record("stopRemoteView", {Text(user_id)}); }
  void stopAllRemoteView() override { Record("stopAllRemoteView"); }
  void startRemoteSubStreamView(const char* user_id, HWND view) override {
    Record("startRemoteSubStreamView", {Text(user_id), View(view)});
  }
  void stopRemoteSubStreamView(const char* user_id) override {
    Record("stopRemoteSubStreamView", {Text(user_id)});
  }
  void setRemoteViewRotation(const char* user_id, int32_t rotation) override {
    Record("setRemoteViewRotation", {Text(user_id), Num(rotation)});
  }
  int32_t setRemoteVideoStreamType(const char* user_id, int32_t type) override {
    Record("setRemoteVideoStreamType", {Text(user_id), Num(type)});
    return 0;
  }
  int32_t setPriorRemoteVideoStreamType(int32_t type) override {
    Record("setPriorRemoteVideoStreamType", {Num(type)});
    return 0;
  }

  void startLocalAudio() override { Record("startLocalAudio"); }
  void stopLocalAudio() override { Record("stopLocalAudio"); }
  void muteRemoteAudio(const char* user_id, bool mute) override {
    Record("muteRemoteAudio", {Text(user_id), Num(mute)});
  }
  void muteAllRemoteAudio(bool mute) override { Record("muteAllRemoteAudio", {Num(mute)}); }
  void enableAudioVolumeEvaluation(uint32_t interval) override {
    Record("enableAudioVolumeEvaluation", {Num(interval)});
  }

  ITRTCDeviceCollection* getCameraDevicesList() override { return List("getCameraDevicesList", 2); }
  ITRTCDeviceCollection* getMicDevicesList() override { return List("getMicDevicesList", 0); }
  ITRTCDeviceCollection* getSpeakerDevicesList() override { return List("getSpeakerDevicesList", 1); }
  ITRTCDeviceInfo* getCurrentMicDevice() override { return Current("getCurrentMicDevice", 0); }
  ITRTCDeviceInfo* getCurrentSpeakerDevice() override { return Current("getCurrentSpeakerDevice", 1); }
  void setCurrentCameraDevice(const char* id) override { Record("setCurrentCameraDevice", {Text(id)}); }
  void setCurrentMicDevice(const char* id) override {
    Record("setCurrentMicDevice", {Text(id)});
    SetCurrent(0, id);
  }
  void setCurrentSpeakerDevice(const char* id) override {
    Record("setCurrentSpeakerDevice", {Text(id)});
    SetCurrent(1, id);
  }
  uint32_t getCurrentMicDeviceVolume() override {
    Record("getCurrentMicDeviceVolume");
    std::lock_guard<std::mutex> guard(S().lock);
    return S().volume[0];
  }
  uint32_t getCurrentSpeakerVolume() override {
    Record("getCurrentSpeakerVolume");
    std::lock_guard<std::mutex> guard(S().lock);
    return S().volume[1];
  }
  void setCurrentSpeakerVolume(uint32_t volume) override {
    Record("setCurrentSpeakerVolume", {Num(volume)});
    std::lock_guard<std::mutex> guard(S().lock);
    S().volume[1] = volume;
  }

  void startCameraDeviceTest(HWND view) override { Record("startCameraDeviceTest", {View(view)}); }
  void stopCameraDeviceTest() override { Record("stopCameraDeviceTest"); }
  void startMicDeviceTest(uint32_t interval) override { Record("startMicDeviceTest", {Num(interval)}); }
  void stopMicDeviceTest() override { Record("stopMicDeviceTest"); }

  int32_t setStreamDataSource(ILiteAVStreamDataSource* source, int32_t type) override {
    Record("setStreamDataSource", {source ? "source" : "null", Num(type)});
    State& s = S();
    ILiteAVStreamDataSource* old;
    if (source) {
      source->on_destroy = &OnSourceDestroyed;
      source->on_destroy_context = source;
    }
    {
      std::lock_guard<std::mutex> guard(s.lock);
      old = s.source;
      s.source = source;
    }
    if (old && old != source) old->onStop();
    if (source && source != old) source->onStart();
    return 0;
  }

 private:
  static bool AutoAnswer() {
    std::lock_guard<std::mutex> guard(S().lock);
    return S().auto_answer;
  }
  static ITRTCDeviceCollection* List(const char* name, int kind) {
    Record(name);
    std::lock_guard<std::mutex> guard(S().lock);
    return new Collection(S().devices[kind]);
  }
  static ITRTCDeviceInfo* Current(const char* name, int kind) {
    Record(name);
    std::lock_guard<std::mutex> guard(S().lock);
    if (!S().current[kind].present) return nullptr;
    return new Info(S().current[kind]);
  }
  static void SetCurrent(int kind, const char* id) {
    std::lock_guard<std::mutex> guard(S().lock);
    S().current[kind].present = true;
    S().current[kind].null_name = false;
    S().current[kind].name = id ? id : "";
  }
};

}  // namespace

extern "C" {

// The demo's pull starts with the first instance (see LITEAV_STANDIN_PULL_FPS).
static void StartDemoPull() {
  static std::atomic<bool> started{false};
  const std::string fps = Env("LITEAV_STANDIN_PULL_FPS");
  if (!fps.empty() && !started.exchange(true))
    LiteavSetPullRate(static_cast<uint32_t>(std::atoi(fps.c_str())));
}

ITRTCCloud* getTRTCShareInstance() {
  Record("getTRTCShareInstance");
  StartDemoPull();
  State& s = S();
  std::lock_guard<std::mutex> guard(s.lock);
  if (!s.cloud) {
    s.cloud = new Cloud;
    ++s.instance_count;
    s.instance_thread = GetCurrentThreadId();
  }
  return s.cloud;
}

void destroyTRTCShareInstance() {
  Record("destroyTRTCShareInstance");
  State& s = S();
  std::lock_guard<std::mutex> guard(s.lock);
  // The object itself is never freed: a call that comes after this one is
  // recorded, for tests to find, rather than landing in freed memory.
  s.cloud = nullptr;
  s.callbacks.clear();
  s.local_render = nullptr;
  s.remote_render.clear();
  s.audio_frame = nullptr;
  s.log = nullptr;
  s.source = nullptr;
}

void LiteavReset() {
  State& s = S();
  std::lock_guard<std::mutex> guard(s.lock);
  s.calls.clear();
  for (auto& list : s.devices) list.clear();
  s.current[0] = Device();
  s.current[1] = Device();
  s.volume[0] = s.volume[1] = 0;
  s.auto_answer = true;
  s.held.clear();
  s.changed.notify_all();
  s.pull_rate = 0;
  if (s.pull_wake) SetEvent(s.pull_wake);
}

int LiteavCallCount() {
  std::lock_guard<std::mutex> guard(S().lock);
  return static_cast<int>(S().calls.size());
}

int LiteavGetCall(int index, char* buffer, int buffer_size, DWORD* thread_id) {
  std::lock_guard<std::mutex> guard(S().lock);
  if (index < 0 || index >= static_cast<int>(S().calls.size())) return -1;
  const Call& call = S().calls[index];
  if (buffer && buffer_size > 0) {
    size_t n = std::min(call.text.size(), static_cast<size_t>(buffer_size - 1));
    memcpy(buffer, call.text.data(), n);
    buffer[n] = '\0';
  }
  if (thread_id) *thread_id = call.thread_id;
  return static_cast<int>(call.text.size());
}

static int CountLocked(const std::string& pattern) {
  int count = 0;
  for (const Call& call : S().calls) count += Matches(call.text, pattern) ? 1 : 0;
  return count;
}

int LiteavCountCalls(const char* call) {
  std::lock_guard<std::mutex> guard(S().lock);
  return CountLocked(Text(call));
}

bool LiteavWaitForCall(const char* call, int times, DWORD timeout_ms) {
  State& s = S();
  std::unique_lock<std::mutex> guard(s.lock);
  return s.changed.wait_for(guard, std::chrono::milliseconds(timeout_ms),
                            [&] { return CountLocked(Text(call)) >= times; });
}

void LiteavSetDevices(int kind, const char* const* names, int count) {
  if (kind < 0 || kind > 2) return;
  std::lock_guard<std::mutex> guard(S().lock);
  S().devices[kind].clear();
  for (int i = 0; i < count; ++i) S().devices[kind].push_back(Text(names[i]));
}

void LiteavSetCurrentDevice(int kind, const char* name, bool null_name) {
  if (kind < 0 || kind > 1) return;
  std::lock_guard<std::mutex> guard(S().lock);
  Device& device = S().current[kind];
  device.present = name != nullptr || null_name;
  device.null_name = null_name;
  device.name = name ? name : "";
}

void LiteavSetVolume(int kind, uint32_t volume) {
  if (kind < 0 || kind > 1) return;
  std::lock_guard<std::mutex> guard(S().lock);
  S().volume[kind] = volume;
}

void LiteavHoldCalls(const char* call) {
  std::lock_guard<std::mutex> guard(S().lock);
  S().held = call ? call : "";
  S().changed.notify_all();
}

void LiteavSetAutoAnswer(bool enabled) {
  std::lock_guard<std::mutex> guard(S().lock);
  S().auto_answer = enabled;
}

int LiteavInstanceCount() {
  std::lock_guard<std::mutex> guard(S().lock);
  return S().instance_count;
}

DWORD LiteavInstanceThreadId() {
  std::lock_guard<std::mutex> guard(S().lock);
  return S().instance_thread;
}

bool LiteavInstanceAlive() {
  std::lock_guard<std::mutex> guard(S().lock);
  return S().cloud != nullptr;
}

DWORD LiteavCallbackThreadId() {
  State& s = S();
  {
    std::lock_guard<std::mutex> guard(s.lock);
    EnsureCallbackThreadLocked(s);
  }
  return s.callback_thread_id;
}

void LiteavRunOnCallbackThread(LiteavTask task, void* context, bool wait) {
  State& s = S();
  if (wait && GetCurrentThreadId() == s.callback_thread_id) {
    task(context);
    return;
  }
  if (!wait) {
    Queue([task, context] { task(context); });
    return;
  }
  auto done = std::make_shared<bool>(false);
  Queue([task, context, done] {
    task(context);
    std::lock_guard<std::mutex> guard(S().lock);
    *done = true;
  });
  std::unique_lock<std::mutex> guard(s.lock);
  s.changed.wait(guard, [&] { return *done; });
}

ITRTCCloudCallback* LiteavCloudCallback() { return CurrentCallback(); }

ITRTCVideoRenderCallback* LiteavLocalRenderCallback() {
  std::lock_guard<std::mutex> guard(S().lock);
  return S().local_render;
}

ITRTCVideoRenderCallback* LiteavRemoteRenderCallback(const char* user_id) {
  std::lock_guard<std::mutex> guard(S().lock);
  auto it = S().remote_render.find(Text(user_id));
  return it == S().remote_render.end() ? nullptr : it->second;
}

ITRTCAudioFrameCallback* LiteavAudioFrameCallback() {
  std::lock_guard<std::mutex> guard(S().lock);
  return S().audio_frame;
}

ITRTCLogCallback* LiteavLogCallback() {
  std::lock_guard<std::mutex> guard(S().lock);
  return S().log;
}

void LiteavSetPullRate(uint32_t fps) {
  State& s = S();
  std::lock_guard<std::mutex> guard(s.lock);
  s.pull_rate = std::min<uint32_t>(fps, 1000);
  if (!s.pull_wake) s.pull_wake = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  SetEvent(s.pull_wake);
  if (s.pull_rate > 0 && !s.pull_thread_running) {
    s.pull_thread_running = true;
    ThreadHandle thread(CreateThread(nullptr, 0, &PullThread, nullptr, 0, nullptr));
    if (!thread) s.pull_thread_running = false;
  }
}

int32_t LiteavPullVideoFrame(void* buffer, uint32_t capacity, TRTCVideoFrame* frame) {
  std::lock_guard<std::mutex> pull_guard(S().pull_lock);
  return Pull(buffer, capacity, frame);
}

bool LiteavHasSource() {
  std::lock_guard<std::mutex> guard(S().lock);
  return S().source != nullptr;
}

int LiteavDestroyedSourceCount() {
  std::lock_guard<std::mutex> guard(S().lock);
  return S().destroyed_sources;
}

}  // extern "C"
