// The engine behind RTCEngine: its task thread, room membership, devices,
// remote views, desktop stream and device tests over the TRTC SDK.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/audio_device_test_event.h"
#include "base/lock.h"
#include "base/scoped_handle.h"
#include "engine/engine_util.h"
#include "liteav/ITRTCCloud.h"
#include "roomcore/rtc_engine.h"

class AudioDeviceTest;
class DesktopDataSource;

// Thread messages of the task thread.
enum : UINT {
  kTaskQuit = 9000,
  kTaskEnterRoom = 9001,
  kTaskOpenMicDevice = 9002,
  kTaskCloseMicDevice = 9003,
  kTaskMicChanged = 9004,
  kTaskCameraChanged = 9005,
  kTaskSpeakerChanged = 9006,
  kTaskEnableCaptureSystemAudio = 9007,
};

// One device event, made on an SDK thread and owned by the message that
// carries it to the task thread.
struct DeviceChange {
  std::string device_id;
  int32_t type;
  int32_t state;
};

class RTCEngineImpl : public RTCEngine,
                      public ITRTCCloudCallback,
                      public ITRTCVideoRenderCallback,
                      public AudioDeviceTestEvent,
                      public ITRTCLogCallback,
                      public ITRTCAudioFrameCallback {
 public:
  RTCEngineImpl();
  ~RTCEngineImpl() override;
  RTCEngineImpl(const RTCEngineImpl&) = delete;
  RTCEngineImpl& operator=(const RTCEngineImpl&) = delete;

  // RTCEngine.
  void Initialize(void* reserved, RTCEngineEvent* event) override;
  void UnInitialize() override;
  bool EnterRoom(const char* app_id, const char* room_id, const char* usr_id, const char* usr_sign) override;
  bool ReEnterRoom() override;
  bool ExitRoom() override;
  bool IsInRoom() override;
  bool GetMicDevices(DeviceRecord** devices, int32_t* count) override;
  bool GetSpeakerDevices(DeviceRecord** devices, int32_t* count) override;
  bool GetCameraDevices(DeviceRecord** devices, int32_t* count) override;
  void SetCameraDevice(const DeviceRecord* device) override;
  void OpenCamera(HWND view) override;
  void CloseCamera() override;
  void EnableCaptureDesktopVideo(bool enable) override;
  bool PushDesktopFrame(const void* data, int32_t size, int32_t width, int32_t height, int64_t pts) override;
  void OpenMicDevice(const DeviceRecord* device) override;
  void CloseMicDevice() override;
  void Reserved1(int32_t /*value*/) override {}
  uint32_t GetMicVolume() override;
  void EnableCaptureSystemAudio(bool enable) override;
  void SetSpeakerDevice(const DeviceRecord* device) override;
  void Reserved2() override {}
  void SetSpeakerVolume(int32_t volume) override;
  uint32_t GetSpeakerVolume() override;
  void EnableLocalAudio(bool enable) override;
  void EnableLocalVideo(bool enable) override;
  void MuteRemoteAudio(const char* usr_id, bool mute) override;
  void MuteAllRemoteAudio(bool enable) override;
  void StartRemoteCameraView(const char* usr_id, HWND view) override;
  void StopRemoteCameraView(const char* usr_id) override;
  void StartAllRemoteVidw() override;
  void StopAllRemoteView() override;
  void StartRemoteDesktopView(const char* usr_id, HWND view) override;
  void StopRemoteDesktopView(const char* usr_id) override;
  void Reserved3(int32_t /*value*/) override {}
  void SetRemoteStreamType(const char* usr_id, int32_t type) override;
  void StartCameraDeviceTest(HWND view) override;
  void StopCameraDeviceTest() override;
  void StartMicDeviceTest() override;
  void StopMicDeviceTest() override;

  // ITRTCCloudCallback.
  void onError(int32_t code, const char* message, void* extra) override;
  void onWarning(int32_t code, const char* message, void* extra) override;
  void onEnterRoom(int64_t result) override;
  void onExitRoom(int32_t reason) override;
  void onUserEnter(const char* usr_id) override;
  void onUserExit(const char* usr_id, int32_t reason) override;
  void onUserVideoAvailable(const char* usr_id, bool available) override;
  void onUserSubStreamAvailable(const char* usr_id, bool available) override;
  void onUserAudioAvailable(const char* usr_id, bool available) override;
  void onUserVoiceVolume(TRTCVolumeInfo* volumes, uint32_t count, uint32_t total) override;
  void onNetworkQuality(TRTCQualityInfo local, TRTCQualityInfo* remotes, uint32_t count) override;
  void onStatistics(const TRTCStatistics& stats) override;
  void onConnectionLost() override;
  void onTryToReconnect() override;
  void onConnectionRecovery() override;
  void onCameraDidReady() override;
  void onMicDidReady() override;
  void onDeviceChange(const char* device_id, int32_t type, int32_t state) override;
  void onTestMicVolume(uint32_t volume) override;

  // ITRTCVideoRenderCallback.
  void onRenderVideoFrame(const char* usr_id, int32_t stream_type, TRTCVideoFrame* frame) override;

  // AudioDeviceTestEvent.
  void OnAudioLevel(int level) override;

  // ITRTCLogCallback.
  void onLog(const char* log, int32_t level, const char* module) override;

  // ITRTCAudioFrameCallback.
  void onCapturedAudioFrame(TRTCAudioFrame* frame) override;
  void onPlayAudioFrame(TRTCAudioFrame* frame, const char* usr_id) override;
  void onMixedPlayAudioFrame(TRTCAudioFrame* /*frame*/) override {}

 private:
  // Reaches the task thread's id and end for unit tests.
  friend class RTCEngineImplTestPeer;

  // The SDK object for one use, read once. Every SDK callback holds one for
  // its whole run, and every other use of the object goes through one: the
  // destructor clears the pointer, waits for the uses under way, and only
  // then destroys the object, so no thread calls it after that has begun.
  class CloudRef {
   public:
    explicit CloudRef(RTCEngineImpl* engine) : users_(engine->cloud_users_) {
      users_.Enter();
      cloud_ = engine->trtc_cloud_.load();
    }
    ~CloudRef() { users_.Leave(); }
    CloudRef(const CloudRef&) = delete;
    CloudRef& operator=(const CloudRef&) = delete;
    explicit operator bool() const { return cloud_ != nullptr; }
    ITRTCCloud* operator->() const { return cloud_; }

   private:
    engine::UseCount& users_;
    ITRTCCloud* cloud_ = nullptr;
  };

  // Immutable text, replaced as a whole: SDK and task threads read it while
  // a host thread may store a new value.
  using SharedText = std::shared_ptr<const std::string>;

  static DWORD WINAPI DoTaskCore(LPVOID param);
  void PreInitialize();
  void RunTaskLoop();
  // False when there is no task thread or the post failed.
  bool Post(UINT message, WPARAM param);
  // On the task thread when its loop has ended: no post lands after it, and
  // what was queued behind the end is freed.
  void CloseTaskQueue();
  static int32_t VideoTypeOf(int32_t stream_type);

  // The desktop-capture branch of the microphone test.
  void CreateAudioDeviceTest();
  void DestroyAudioDeviceTest();
  void StartAudioDeviceTest(const std::wstring& device_name);
  void StopAudioDeviceTest();

  // Task handlers.
  void OnEnterRoomTask();
  void OnOpenMicDeviceTask();
  void OnCloseMicDeviceTask();
  void OnMicChangedTask(DeviceChange* change);
  void OnCameraChangedTask(DeviceChange* change);
  void OnSpeakChangeTask(DeviceChange* change);
  void OnEnableCaptureSystemAudioTask(bool enable);

  void LoadMicDevices();
  void LoadCameraDevices();
  void LoadDevices(ITRTCDeviceCollection* collection, std::vector<DeviceRecord>* list);
  bool CopyDevices(const std::vector<DeviceRecord>& list, DeviceRecord** devices, int32_t* count);
  void ApplyVideoParams();
  void ApplyRoomVideoParams();
  std::string MicDeviceName();
  std::string CameraDeviceName();

  static SharedText Load(const SharedText& text) { return std::atomic_load(&text); }
  static void Store(SharedText* text, const char* value) {
    std::atomic_store(text, std::make_shared<const std::string>(value ? value : ""));
  }

  std::atomic<RTCEngineEvent*> event_{nullptr};
  SharedText app_id_;
  SharedText room_id_;
  SharedText usr_id_;
  SharedText usr_sign_;
  base::Lock lock_;
  SharedText remote_desktop_usr_id_;
  // Set on the task thread and cleared by the destructor; read only through
  // CloudRef.
  std::atomic<ITRTCCloud*> trtc_cloud_{nullptr};
  std::atomic<bool> is_in_room_{false};
  std::atomic<bool> is_capture_desktop_{false};
  DesktopDataSource* data_source_ = nullptr;
  std::atomic<uint32_t> net_quality_{0};
  std::atomic<bool> is_open_camera_{false};
  std::atomic<bool> is_camera_test_{false};
  std::atomic<bool> is_open_mic_{false};
  std::atomic<bool> is_mic_test_{false};
  DeviceRecord camera_device_;                // guarded by device_lock_
  DeviceRecord mic_device_;                   // guarded by device_lock_
  std::vector<DeviceRecord> mic_devices_;     // guarded by lock_
  std::vector<DeviceRecord> camera_devices_;  // guarded by lock_
  std::atomic<int64_t> last_stats_time_ms_{0};
  std::atomic<int64_t> last_received_bytes_{0};
  std::atomic<int64_t> last_sent_bytes_{0};
  AudioDeviceTest* audio_device_test_ = nullptr;
  std::atomic<bool> is_record_system_voice_{false};
  base::ScopedHandle stop_event_;
  // Set by the task thread once its queue exists and cleared when its loop
  // ends; SDK threads post through it.
  std::atomic<DWORD> task_thread_id_{0};
  std::atomic<int> posts_in_progress_{0};
  // Uses of trtc_cloud_ under way (CloudRef).
  engine::UseCount cloud_users_;
  // Whether the library's own microphone test has a capture running.
  std::atomic<bool> audio_test_running_{false};
  base::ScopedHandle ready_event_;

  // The chosen device names. A leaf lock: held only to copy a name in or out,
  // never together with lock_ and never across a call.
  base::Lock device_lock_;
};
