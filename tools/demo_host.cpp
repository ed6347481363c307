// Demo host: drives roomcore.dll the way the meeting and whiteboard
// application does, printing what the library reports. Against the stand-in
// SDKs it runs a whole meeting: devices, room, desktop frames, whiteboard
// data through the IM group. Exits non-zero when an expected event never
// comes.
//
//   demo_host.exe [--engine-only | --im-only] [--frames N]
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "roomcore/clock.h"
#include "roomcore/im_manager.h"
#include "roomcore/rtc_engine.h"

namespace {

std::mutex g_print_mutex;

void Print(const char* format, ...) {
  std::lock_guard<std::mutex> hold(g_print_mutex);
  va_list args;
  va_start(args, format);
  std::printf("[%6lld ms] ", static_cast<long long>(TimeMilliseconds() % 1000000));
  std::vprintf(format, args);
  std::printf("\n");
  std::fflush(stdout);
  va_end(args);
}

// A manual-reset event a callback signals and the script waits for.
class Signal {
 public:
  Signal() : handle_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  ~Signal() { CloseHandle(handle_); }
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;
  void Set() { SetEvent(handle_); }
  void Reset() { ResetEvent(handle_); }
  bool Wait(DWORD ms) { return WaitForSingleObject(handle_, ms) == WAIT_OBJECT_0; }

 private:
  HANDLE handle_;
};

class EngineEvents : public RTCEngineEvent {
 public:
  Signal entered, exited;
  std::atomic<int> enter_result{-1};
  std::atomic<int> local_frames{0};

  void OnError(int32_t code, const char* message) override { Print("engine: OnError %d %s", code, message); }
  void OnEnterRoom(int32_t result, const char* message) override {
    Print("engine: OnEnterRoom result=%d %s", result, message ? message : "");
    enter_result = result;
    entered.Set();
  }
  void OnExitRoom(int32_t result, const char* message) override {
    Print("engine: OnExitRoom result=%d %s", result, message ? message : "");
    exited.Set();
  }
  void OnUserEnter(const char* usr_id) override { Print("engine: OnUserEnter %s", usr_id); }
  void OnUserExit(const char* usr_id, int32_t reason) override {
    Print("engine: OnUserExit %s reason=%d", usr_id, reason);
  }
  void OnTryToReconnect() override { Print("engine: OnTryToReconnect"); }
  void OnConnectionLost() override { Print("engine: OnConnectionLost"); }
  void OnConnectionRecovery() override { Print("engine: OnConnectionRecovery"); }
  void OnLocalVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) override {
    ++local_frames;
  }
  void OnRemoteVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) override {}
  void OnDeviceChanged(int32_t kind) override { Print("engine: OnDeviceChanged %d", kind); }
  void OnUserVideoAvailable(const char* usr_id, bool available) override {
    Print("engine: OnUserVideoAvailable %s %d", usr_id, available);
  }
  void OnUserSubStreamAvailable(const char* usr_id, bool available) override {
    Print("engine: OnUserSubStreamAvailable %s %d", usr_id, available);
  }
  void OnUserAudioAvailable(const char* usr_id, bool available) override {
    Print("engine: OnUserAudioAvailable %s %d", usr_id, available);
  }
  void OnUserVoiceVolume(const VolumeRecord*, uint32_t) override {}
  void OnMicTestVolume(int32_t volume) override { Print("engine: OnMicTestVolume %d", volume); }
  void OnStatistics(const EngineStatistics* s) override {
    Print("engine: OnStatistics rtt=%u send=%d KB/s recv=%d KB/s", s->rtt, s->send_rate, s->recv_rate);
  }
  void OnNetworkQuality(const int32_t* status) override { Print("engine: OnNetworkQuality %d", *status); }
};

void PrintDevices(const char* kind, bool ok, DeviceRecord* devices, int32_t count) {
  Print("engine: %s devices (%s): %d", kind, ok ? "ok" : "failed", ok ? count : 0);
  for (int32_t i = 0; ok && i < count; ++i) Print("          %d: %s", i, devices[i].name);
}

// One I420 picture of a moving gradient, packed as the capture produces it.
std::vector<uint8_t> MakeFrame(int width, int height, int n) {
  const int cw = (width + 1) / 2, ch = (height + 1) / 2;
  std::vector<uint8_t> frame(width * height + 2 * cw * ch);
  for (int y = 0; y < height; ++y) {
    std::memset(&frame[y * width], 16 + ((y + n * 8) % 220), width);
  }
  std::memset(&frame[width * height], 128, 2 * cw * ch);
  return frame;
}

bool RunEngine(int frames) {
  Print("engine: CreaeRTCEngine");
  RTCEngine* engine = CreaeRTCEngine();
  if (!engine) return false;
  EngineEvents events;
  engine->Initialize(nullptr, &events);

  DeviceRecord* devices = nullptr;
  int32_t count = 0;
  bool ok = engine->GetCameraDevices(&devices, &count);
  PrintDevices("camera", ok, devices, count);
  if (ok && count > 0) engine->SetCameraDevice(&devices[0]);
  if (ok) FreeDeviceRecords(devices);
  ok = engine->GetMicDevices(&devices, &count);
  PrintDevices("microphone", ok, devices, count);
  if (ok) FreeDeviceRecords(devices);
  ok = engine->GetSpeakerDevices(&devices, &count);
  PrintDevices("speaker", ok, devices, count);
  if (ok) FreeDeviceRecords(devices);
  Print("engine: speaker volume %u, microphone volume %u", engine->GetSpeakerVolume(), engine->GetMicVolume());

  bool success = true;
  Print("engine: EnterRoom");
  engine->EnterRoom("1400000001", "20261122", "demo_user", "demo_signature");
  if (!events.entered.Wait(10000) || events.enter_result < 0) {
    Print("engine: no successful OnEnterRoom");
    success = false;
  } else {
    Print("engine: IsInRoom %d", engine->IsInRoom());
    engine->OpenMicDevice(nullptr);
    engine->EnableCaptureDesktopVideo(true);
    const int width = 1920, height = 1080;
    int pushed = 0;
    for (int n = 0; n < frames; ++n) {
      std::vector<uint8_t> frame = MakeFrame(width, height, n);
      if (engine->PushDesktopFrame(frame.data(), static_cast<int32_t>(frame.size()), width, height,
                                   TimeMicroseconds())) {
        ++pushed;
      }
      SleepAccurate(33);
    }
    Print("engine: pushed %d of %d desktop frames (1920x1080 I420)", pushed, frames);
    if (pushed != frames) success = false;
    engine->EnableCaptureDesktopVideo(false);
    engine->CloseMicDevice();
    Print("engine: ExitRoom");
    engine->ExitRoom();
    if (!events.exited.Wait(10000)) {
      Print("engine: no OnExitRoom");
      success = false;
    }
  }
  engine->UnInitialize();
  Print("engine: ReleaseRTCEngine");
  ReleaseRTCEngine();
  return success;
}

class ImEvents : public ImManagerEvent, public WhiteBoardEvent {
 public:
  Signal logged_in, joined, quit, sent, received;
  std::atomic<int> login_code{-1}, join_code{-1}, send_code{-1};
  std::string received_data;
  std::mutex mutex;

  void OnImEvent(int event, int code, const char* desc) override {
    Print("im: OnImEvent event=%d code=%d desc=%s", event, code, desc ? desc : "");
    if (event == IMEvent_Login) {
      login_code = code;
      if (code == 0) logged_in.Set();
    } else if (event == IMEvent_JoinGroup) {
      join_code = code;
      joined.Set();
    } else if (event == IMEvent_QuitGroup) {
      quit.Set();
    }
  }
  void OnRecvC2CTextMessage(const char* sender, const char* text) override {
    Print("im: C2C text from %s: %s", sender, text);
  }
  void OnRecvGroupTextMessage(const char* group_id, const char* sender, const char* text) override {
    Print("im: group %s text from %s: %s", group_id, sender, text);
  }
  void OnRecvC2CCustomMessage(const char* sender, const char*, int length) override {
    Print("im: C2C custom from %s, %d bytes", sender, length);
  }
  void OnRecvWhiteBoardData(const char* group_id, const char* sender, const char* data, int length) override {
    std::string text(data, length);
    Print("im: whiteboard data in %s from %s: %s", group_id, sender, text.c_str());
    {
      std::lock_guard<std::mutex> hold(mutex);
      received_data = text;
    }
    received.Set();
  }
  void OnSendWhiteBoardDataResult(int code, const char* desc, void* user_data) override {
    Print("im: send result code=%d desc=%s user_data=%p", code, desc ? desc : "", user_data);
    send_code = code;
    sent.Set();
  }
};

bool RunIm() {
  ImManager* im = ImManager::GetImManagerInstance();
  ImEvents events;
  im->SetEventCallback(&events);
  im->SetWhiteBoardCallback(&events);
  Print("im: LogInAndJoinGroup");
  im->LogInAndJoinGroup("1400000001", "36862", "demo_user", "demo_signature", "whiteboard_20261122");
  bool success = true;
  if (!events.logged_in.Wait(15000) || !events.joined.Wait(15000)) {
    Print("im: login or join did not complete");
    success = false;
  } else {
    Print("im: logged in as %s", im->GetUsrId());
    const char* stroke = "{\"type\":\"stroke\",\"points\":[[10,20],[30,40]],\"color\":\"#ff0000\"}";
    static int token = 7;
    im->SendWhiteBoardData(stroke, static_cast<int>(std::strlen(stroke)), &token);
    if (!events.sent.Wait(10000) || events.send_code != 0) {
      Print("im: the whiteboard send was not acknowledged");
      success = false;
    }
    if (events.received.Wait(3000)) {
      Print("im: a peer sent whiteboard data back");
    } else {
      Print("im: no peer answered (the stand-in's echo peer is off)");
    }
    im->LogoutAndQuitGroup();
    if (!events.quit.Wait(10000)) {
      Print("im: no IMEvent_QuitGroup");
      success = false;
    }
  }
  im->SetWhiteBoardCallback(nullptr);
  im->SetEventCallback(nullptr);
  Print("im: DestroyImManagerInstance");
  ImManager::DestroyImManagerInstance();
  return success;
}

}  // namespace

int main(int argc, char** argv) {
  bool engine = true, im = true;
  int frames = 30;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--engine-only") == 0) im = false;
    if (std::strcmp(argv[i], "--im-only") == 0) engine = false;
    if (std::strcmp(argv[i], "--frames") == 0 && i + 1 < argc) frames = std::atoi(argv[++i]);
  }
  bool ok = true;
  if (engine) ok = RunEngine(frames) && ok;
  if (im) ok = RunIm() && ok;
  Print("demo %s", ok ? "finished: every expected event came" : "FAILED");
  return ok ? 0 : 1;
}
