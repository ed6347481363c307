// The TRTC SDK (liteav.dll) as roomcore uses it: the cloud object, its
// callback interfaces, the device lists, the frame and parameter records and
// the custom stream source that the SDK pulls from.
#pragma once

#include <windows.h>

#include <cstdint>

#if defined(LITEAV_BUILD)
#define LITEAV_API __declspec(dllexport)
#else
#define LITEAV_API __declspec(dllimport)
#endif

// Pixel formats of TRTCVideoFrame::video_format.
enum TRTCVideoPixelFormat {
  TRTCVideoPixelFormat_Unknown = 0,
  TRTCVideoPixelFormat_I420 = 1,
  TRTCVideoPixelFormat_Texture_2D = 2,
  TRTCVideoPixelFormat_BGRA32 = 3,
};

// Buffer kinds of TRTCVideoFrame::buffer_type.
enum TRTCVideoBufferType {
  TRTCVideoBufferType_Unknown = 0,
  TRTCVideoBufferType_Buffer = 1,
  TRTCVideoBufferType_Texture = 3,
};

// Stream kinds of a user's pictures.
enum TRTCVideoStreamType {
  TRTCVideoStreamTypeBig = 0,
  TRTCVideoStreamTypeSmall = 1,
  TRTCVideoStreamTypeSub = 2,
};

// Rotation of a picture, clockwise.
enum TRTCVideoRotation {
  TRTCVideoRotation0 = 0,
  TRTCVideoRotation90 = 1,
  TRTCVideoRotation180 = 2,
  TRTCVideoRotation270 = 3,
};

// Types of ITRTCCloudCallback::onDeviceChange.
enum TRTCDeviceType {
  TRTCDeviceTypeMic = 0,
  TRTCDeviceTypeSpeaker = 1,
  TRTCDeviceTypeCamera = 2,
};

// States of ITRTCCloudCallback::onDeviceChange.
enum TRTCDeviceState {
  TRTCDeviceStateAdd = 0,
  TRTCDeviceStateRemove = 1,
  TRTCDeviceStateActive = 2,
};

struct TRTCVideoFrame {
  int32_t video_format;
  int32_t buffer_type;
  char* data;  // the SDK's buffer when pulling, the picture when rendering
  uint32_t length;
  int32_t width;
  int32_t height;
  uint64_t timestamp;
  int32_t rotation;
};

struct TRTCAudioFrame {
  int32_t audio_format;
  char* data;
  uint32_t length;
  uint32_t sample_rate;
  uint32_t channel;
  uint64_t timestamp;
};

struct TRTCParams {
  uint32_t sdk_app_id;
  uint32_t room_id;
  const char* user_id;
  const char* user_sig;
  int32_t role;
  const char* str_room_id;
  const char* private_map_key;
  const char* business_info;
};

struct TRTCVideoEncParam {
  int32_t video_resolution;  // 56: 320x240, 114: 1920x1080
  int32_t res_mode;          // 0 landscape
  uint32_t video_fps;
  uint32_t video_bitrate;  // kbit/s
};

struct TRTCNetworkQosParam {
  int32_t preference;
  int32_t control_mode;
};

struct TRTCVolumeInfo {
  const char* user_id;  // empty for the local user
  uint32_t volume;
};

// quality: 0 unknown, 1 excellent ... 6 down.
struct TRTCQualityInfo {
  const char* user_id;
  int32_t quality;
};

struct TRTCLocalStatistics {
  uint32_t width;
  uint32_t height;
  uint32_t frame_rate;
  uint32_t video_bitrate;
  uint32_t audio_sample_rate;
  uint32_t audio_bitrate;
  int32_t stream_type;
};

struct TRTCRemoteStatistics {
  const char* user_id;
  uint32_t packet_loss;
  uint32_t width;
  uint32_t height;
  uint32_t frame_rate;
  uint32_t video_bitrate;
  uint32_t audio_sample_rate;
  uint32_t audio_bitrate;
  uint32_t jitter_buffer_delay;
  uint32_t final_loss;
  int32_t stream_type;
};

struct TRTCStatistics {
  uint32_t up_loss;
  uint32_t down_loss;
  uint32_t app_cpu;
  uint32_t system_cpu;
  uint32_t rtt;
  int64_t received_bytes;
  int64_t sent_bytes;
  TRTCLocalStatistics* local_statistics_array;
  uint32_t local_statistics_array_size;
  TRTCRemoteStatistics* remote_statistics_array;
  uint32_t remote_statistics_array_size;
};

// One device list; give it back with release().
class ITRTCDeviceCollection {
 public:
  virtual uint32_t getCount() = 0;
  // Valid until release().
  virtual const char* getDeviceName(uint32_t index) = 0;
  virtual const char* getDevicePID(uint32_t index) = 0;
  virtual void release() = 0;

 protected:
  virtual ~ITRTCDeviceCollection() {}
};

// One device; give it back with release().
class ITRTCDeviceInfo {
 public:
  virtual const char* getDeviceName() = 0;
  virtual const char* getDevicePID() = 0;
  virtual void release() = 0;

 protected:
  virtual ~ITRTCDeviceInfo() {}
};

// Events of the cloud object. Every operation is empty here; a listener
// overrides what it acts on. Calls come on the SDK's threads.
class ITRTCCloudCallback {
 public:
  virtual ~ITRTCCloudCallback() {}
  virtual void onError(int32_t /*code*/, const char* /*message*/, void* /*extra*/) {}
  virtual void onWarning(int32_t /*code*/, const char* /*message*/, void* /*extra*/) {}
  virtual void onEnterRoom(int64_t /*result*/) {}
  virtual void onExitRoom(int32_t /*reason*/) {}
  virtual void onSwitchRole(int32_t /*code*/, const char* /*message*/) {}
  virtual void onUserEnter(const char* /*user_id*/) {}
  virtual void onUserExit(const char* /*user_id*/, int32_t /*reason*/) {}
  virtual void onUserVideoAvailable(const char* /*user_id*/, bool /*available*/) {}
  virtual void onUserSubStreamAvailable(const char* /*user_id*/, bool /*available*/) {}
  virtual void onUserAudioAvailable(const char* /*user_id*/, bool /*available*/) {}
  virtual void onFirstVideoFrame(const char* /*user_id*/, int32_t /*stream_type*/, int32_t /*width*/,
                                 int32_t /*height*/) {}
  virtual void onFirstAudioFrame(const char* /*user_id*/) {}
  virtual void onSendFirstLocalVideoFrame(int32_t /*stream_type*/) {}
  virtual void onSendFirstLocalAudioFrame() {}
  virtual void onUserVoiceVolume(TRTCVolumeInfo* /*volumes*/, uint32_t /*count*/, uint32_t /*total*/) {}
  virtual void onNetworkQuality(TRTCQualityInfo /*local*/, TRTCQualityInfo* /*remotes*/, uint32_t /*count*/) {
  }
  virtual void onStatistics(const TRTCStatistics& /*stats*/) {}
  virtual void onConnectionLost() {}
  virtual void onTryToReconnect() {}
  virtual void onConnectionRecovery() {}
  virtual void onCameraDidReady() {}
  virtual void onMicDidReady() {}
  virtual void onDeviceChange(const char* /*device_id*/, int32_t /*type*/, int32_t /*state*/) {}
  virtual void onTestMicVolume(uint32_t /*volume*/) {}
  virtual void onTestSpeakerVolume(uint32_t /*volume*/) {}
};

class ITRTCVideoRenderCallback {
 public:
  virtual ~ITRTCVideoRenderCallback() {}
  // user_id is empty for the local user.
  virtual void onRenderVideoFrame(const char* user_id, int32_t stream_type, TRTCVideoFrame* frame) = 0;
};

class ITRTCAudioFrameCallback {
 public:
  virtual ~ITRTCAudioFrameCallback() {}
  virtual void onCapturedAudioFrame(TRTCAudioFrame* frame) = 0;
  virtual void onPlayAudioFrame(TRTCAudioFrame* frame, const char* user_id) = 0;
  virtual void onMixedPlayAudioFrame(TRTCAudioFrame* frame) = 0;
};

class ITRTCLogCallback {
 public:
  virtual ~ITRTCLogCallback() {}
  virtual void onLog(const char* log, int32_t level, const char* module) = 0;
};

// The custom stream: the SDK pulls pictures from it on a thread of its own.
//
// The SDK side holds `mutex` while it calls into the source, and may install
// `on_destroy`: the base destructor runs it under `mutex`, after the derived
// class is gone, which is how the SDK learns that it must not pull again.
class ILiteAVStreamDataSource {
 public:
  ILiteAVStreamDataSource() : mutex(CreateMutexW(nullptr, FALSE, nullptr)) {}
  ILiteAVStreamDataSource(const ILiteAVStreamDataSource&) = delete;
  ILiteAVStreamDataSource& operator=(const ILiteAVStreamDataSource&) = delete;

  virtual void onStart() = 0;
  virtual void onStop() = 0;
  // Fills `frame` (whose data and length name the SDK's buffer); returns the
  // bytes written, 0 for no picture now, below 0 for no support.
  virtual int32_t onPullVideo(TRTCVideoFrame* /*frame*/) { return -1; }
  virtual int32_t onPullAudio(TRTCAudioFrame* /*frame*/) { return -1; }

  virtual ~ILiteAVStreamDataSource() {
    WaitForSingleObject(mutex, INFINITE);
    if (on_destroy) on_destroy(on_destroy_context);
    ReleaseMutex(mutex);
    CloseHandle(mutex);
  }

  HANDLE mutex;
  void (*on_destroy)(void* context) = nullptr;
  void* on_destroy_context = nullptr;
};

// The cloud object. Calls are accepted from any thread.
class ITRTCCloud {
 public:
  // Room.
  virtual void enterRoom(const TRTCParams& params, int32_t scene) = 0;
  virtual void exitRoom() = 0;

  // Registration.
  virtual void addCallback(ITRTCCloudCallback* callback) = 0;
  virtual void removeCallback(ITRTCCloudCallback* callback) = 0;
  virtual int32_t setLocalVideoRenderCallback(int32_t pixel_format, int32_t buffer_type,
                                              ITRTCVideoRenderCallback* callback) = 0;
  virtual int32_t setRemoteVideoRenderCallback(const char* user_id, int32_t pixel_format, int32_t buffer_type,
                                               ITRTCVideoRenderCallback* callback) = 0;
  virtual int32_t setAudioFrameCallback(ITRTCAudioFrameCallback* callback) = 0;
  virtual void setLogCallback(ITRTCLogCallback* callback) = 0;
  virtual void setLogLevel(int32_t level) = 0;

  // Local video.
  virtual void startLocalPreview(HWND view) = 0;
  virtual void stopLocalPreview() = 0;
  virtual void muteLocalVideo(bool mute) = 0;
  virtual void setVideoEncoderParam(const TRTCVideoEncParam& param) = 0;
  virtual void setSubStreamEncoderParam(const TRTCVideoEncParam& param) = 0;
  virtual void setNetworkQosParam(const TRTCNetworkQosParam& param) = 0;
  virtual void setLocalViewMirror(bool mirror) = 0;
  virtual void setBeautyStyle(int32_t style, uint32_t beauty, uint32_t white, uint32_t ruddiness) = 0;
  virtual void setLocalViewRotation(int32_t rotation) = 0;

  // Remote video.
  virtual void startRemoteView(const char* user_id, HWND view) = 0;
  virtual void stopRemoteView(const char* user_id) = 0;
  virtual void stopAllRemoteView() = 0;
  virtual void startRemoteSubStreamView(const char* user_id, HWND view) = 0;
  virtual void stopRemoteSubStreamView(const char* user_id) = 0;
  virtual void setRemoteViewRotation(const char* user_id, int32_t rotation) = 0;
  virtual int32_t setRemoteVideoStreamType(const char* user_id, int32_t type) = 0;
  virtual int32_t setPriorRemoteVideoStreamType(int32_t type) = 0;

  // Audio.
  virtual void startLocalAudio() = 0;
  virtual void stopLocalAudio() = 0;
  virtual void muteRemoteAudio(const char* user_id, bool mute) = 0;
  virtual void muteAllRemoteAudio(bool mute) = 0;
  virtual void enableAudioVolumeEvaluation(uint32_t interval_ms) = 0;

  // Devices.
  virtual ITRTCDeviceCollection* getCameraDevicesList() = 0;
  virtual ITRTCDeviceCollection* getMicDevicesList() = 0;
  virtual ITRTCDeviceCollection* getSpeakerDevicesList() = 0;
  virtual ITRTCDeviceInfo* getCurrentMicDevice() = 0;
  virtual ITRTCDeviceInfo* getCurrentSpeakerDevice() = 0;
  virtual void setCurrentCameraDevice(const char* device_id) = 0;
  virtual void setCurrentMicDevice(const char* device_id) = 0;
  virtual void setCurrentSpeakerDevice(const char* device_id) = 0;
  virtual uint32_t getCurrentMicDeviceVolume() = 0;
  virtual uint32_t getCurrentSpeakerVolume() = 0;
  virtual void setCurrentSpeakerVolume(uint32_t volume) = 0;

  // Device tests.
  virtual void startCameraDeviceTest(HWND view) = 0;
  virtual void stopCameraDeviceTest() = 0;
  virtual void startMicDeviceTest(uint32_t interval_ms) = 0;
  virtual void stopMicDeviceTest() = 0;

  // Custom stream; null ends it.
  virtual int32_t setStreamDataSource(ILiteAVStreamDataSource* source, int32_t type) = 0;

 protected:
  virtual ~ITRTCCloud() {}
};

extern "C" {
// The one cloud object, made at the first call.
LITEAV_API ITRTCCloud* getTRTCShareInstance();
LITEAV_API void destroyTRTCShareInstance();
}
