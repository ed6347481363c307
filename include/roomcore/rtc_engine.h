// The real-time engine: one object through which the host reaches the TRTC
// SDK (room, devices, remote views, desktop stream, device tests).
#pragma once

#include <windows.h>

#include <cstdint>

#include "roomcore_export.h"

// A device as it crosses the interface, in both directions. Only `name`
// (NUL-terminated UTF-8, the SDK's device name) is used.
struct DeviceRecord {
  char reserved[512];
  char name[512];
};
static_assert(sizeof(DeviceRecord) == 1024, "DeviceRecord is 1024 bytes");

// One entry of OnUserVoiceVolume.
struct VolumeRecord {
  char usr_id[128];
  uint32_t volume;
};

// One remote user's entry of EngineStatistics.
struct RemoteStatistics {
  char usr_id[256];
  uint32_t final_loss;
  int32_t video_type;  // 1 camera (main or small stream), 2 sub stream
};

struct EngineStatistics {
  uint32_t rtt;
  uint32_t quality;   // 0 to 3
  int32_t send_rate;  // kilobytes a second
  int32_t recv_rate;  // kilobytes a second
  uint32_t up_loss;
  uint32_t down_loss;
  uint32_t app_cpu;
  uint32_t system_cpu;
  RemoteStatistics* remotes;  // null when there are none
  int32_t reserved;           // always 0
};

// Implemented by the host. Events come on the engine's threads: the SDK's
// callback threads, the engine's task thread (OnDeviceChanged). Arrays and
// buffers are valid for the call only.
class RTCEngineEvent {
 public:
  virtual void OnError(int32_t code, const char* message) = 0;
  virtual void OnEnterRoom(int32_t result, const char* message) = 0;
  virtual void OnExitRoom(int32_t result, const char* message) = 0;
  virtual void OnUserEnter(const char* usr_id) = 0;
  virtual void OnUserExit(const char* usr_id, int32_t reason) = 0;
  virtual void OnTryToReconnect() = 0;
  virtual void OnConnectionLost() = 0;
  virtual void OnConnectionRecovery() = 0;
  virtual void OnLocalVideoFrame(const char* usr_id, const void* data, int32_t size, int32_t width,
                                 int32_t height, int32_t video_type) = 0;
  virtual void OnRemoteVideoFrame(const char* usr_id, const void* data, int32_t size, int32_t width,
                                  int32_t height, int32_t video_type) = 0;
  // kind: 0 camera, 1 microphone.
  virtual void OnDeviceChanged(int32_t kind) = 0;
  virtual void OnUserVideoAvailable(const char* usr_id, bool available) = 0;
  virtual void OnUserSubStreamAvailable(const char* usr_id, bool available) = 0;
  virtual void OnUserAudioAvailable(const char* usr_id, bool available) = 0;
  virtual void OnUserVoiceVolume(const VolumeRecord* volumes, uint32_t count) = 0;
  virtual void OnMicTestVolume(int32_t volume) = 0;
  virtual void OnStatistics(const EngineStatistics* statistics) = 0;
  // *status: 1 for a bad network, else 0.
  virtual void OnNetworkQuality(const int32_t* status) = 0;

 protected:
  ~RTCEngineEvent() = default;
};

class ROOMCORE_API RTCEngine {
 public:
  RTCEngine(const RTCEngine&) = default;
  RTCEngine& operator=(const RTCEngine&) = default;

  virtual void Initialize(void* reserved, RTCEngineEvent* event) = 0;
  virtual void UnInitialize() = 0;
  virtual bool EnterRoom(const char* app_id, const char* room_id, const char* usr_id,
                         const char* usr_sign) = 0;
  virtual bool ReEnterRoom() = 0;
  virtual bool ExitRoom() = 0;
  virtual bool IsInRoom() = 0;
  // The arrays of the three getters belong to the caller: free them with
  // FreeDeviceRecords.
  virtual bool GetMicDevices(DeviceRecord** devices, int32_t* count) = 0;
  virtual bool GetSpeakerDevices(DeviceRecord** devices, int32_t* count) = 0;
  virtual bool GetCameraDevices(DeviceRecord** devices, int32_t* count) = 0;
  virtual void SetCameraDevice(const DeviceRecord* device) = 0;
  virtual void OpenCamera(HWND view) = 0;
  virtual void CloseCamera() = 0;
  virtual void EnableCaptureDesktopVideo(bool enable) = 0;
  // `data`: an I420 picture of width x height without gaps; the caller keeps it.
  virtual bool PushDesktopFrame(const void* data, int32_t size, int32_t width, int32_t height,
                                int64_t pts) = 0;
  virtual void OpenMicDevice(const DeviceRecord* device) = 0;
  virtual void CloseMicDevice() = 0;
  virtual void Reserved1(int32_t value) = 0;  // does nothing
  virtual uint32_t GetMicVolume() = 0;
  virtual void EnableCaptureSystemAudio(bool enable) = 0;
  virtual void SetSpeakerDevice(const DeviceRecord* device) = 0;
  virtual void Reserved2() = 0;  // does nothing
  virtual void SetSpeakerVolume(int32_t volume) = 0;
  virtual uint32_t GetSpeakerVolume() = 0;
  virtual void EnableLocalAudio(bool enable) = 0;
  virtual void EnableLocalVideo(bool enable) = 0;
  virtual void MuteRemoteAudio(const char* usr_id, bool mute) = 0;
  virtual void MuteAllRemoteAudio(bool enable) = 0;
  virtual void StartRemoteCameraView(const char* usr_id, HWND view) = 0;
  virtual void StopRemoteCameraView(const char* usr_id) = 0;
  virtual void StartAllRemoteVidw() = 0;
  virtual void StopAllRemoteView() = 0;
  virtual void StartRemoteDesktopView(const char* usr_id, HWND view) = 0;
  virtual void StopRemoteDesktopView(const char* usr_id) = 0;
  virtual void Reserved3(int32_t value) = 0;  // does nothing
  virtual void SetRemoteStreamType(const char* usr_id, int32_t type) = 0;
  virtual void StartCameraDeviceTest(HWND view) = 0;
  virtual void StopCameraDeviceTest() = 0;
  virtual void StartMicDeviceTest() = 0;
  virtual void StopMicDeviceTest() = 0;

 protected:
  RTCEngine() = default;
  virtual ~RTCEngine() = default;
};

extern "C" {
// The one engine, made at the first call; blocks until its task thread has
// made the SDK object and loaded the device lists.
ROOMCORE_API RTCEngine* CreaeRTCEngine();
// Ends the engine; blocks until its task thread has ended. Not from inside an
// event.
ROOMCORE_API void ReleaseRTCEngine();
// Frees an array that GetMicDevices, GetCameraDevices or GetSpeakerDevices
// returned. Null does nothing.
ROOMCORE_API void FreeDeviceRecords(DeviceRecord* devices);
}
