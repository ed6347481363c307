// Stage 1: the engine and the room. The stand-in's remote user enters and
// sends camera frames.
#include <string>

#include "demo.h"

void EngineEvents::OnError(int32_t code, const char* message) {
  Print("engine: OnError %d %s", code, message ? message : "");
}

void EngineEvents::OnEnterRoom(int32_t result, const char*) {
  enter_result = result;
  entered.Set();
}

void EngineEvents::OnUserEnter(const char* usr_id) {
  Print("engine: remote user %s entered", usr_id);
  remote_entered.Set();
}

void EngineEvents::OnUserExit(const char* usr_id, int32_t) { Print("engine: remote user %s left", usr_id); }

void EngineEvents::OnRemoteVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) {
  if (++remote_frames >= 5) remote_frame.Set();
}

void EngineEvents::OnMicTestVolume(int32_t volume) {
  std::lock_guard<std::mutex> hold(levels_mutex);
  levels.push_back(volume);
}

namespace {

int ListDevices(RTCEngine* engine, bool (RTCEngine::*get)(DeviceRecord**, int32_t*), const char* kind) {
  DeviceRecord* devices = nullptr;
  int32_t count = 0;
  if (!(engine->*get)(&devices, &count)) return -1;
  std::string names;
  for (int32_t i = 0; i < count; ++i) names += std::string(i ? ", " : "") + devices[i].name;
  Print("engine: %d %s device(s)%s%s", count, kind, count ? ": " : "", names.c_str());
  FreeDeviceRecords(devices);
  return count;
}

}  // namespace

bool RunEnterRoom(RTCEngine* engine, EngineEvents* events, Results* results) {
  ListDevices(engine, &RTCEngine::GetCameraDevices, "camera");
  ListDevices(engine, &RTCEngine::GetMicDevices, "microphone");
  ListDevices(engine, &RTCEngine::GetSpeakerDevices, "speaker");
  engine->EnterRoom("1400000001", "20261123", "demo_user", "demo_signature");
  if (!events->entered.Wait(10000) || events->enter_result < 0) {
    results->failures.push_back("engine: no successful OnEnterRoom");
    return false;
  }
  Print("engine: in the room (%d)", static_cast<int>(events->enter_result));
  const bool remote = events->remote_entered.Wait(5000) && events->remote_frame.Wait(5000);
  if (!remote) results->failures.push_back("engine: no remote user or no remote frames");
  Print("engine: %d remote frame(s) so far", static_cast<int>(events->remote_frames));
  return true;  // in the room, whatever the remote user did
}
