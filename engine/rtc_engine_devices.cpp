// Device lists, choice, open/close, volumes, hot-plug and the device tests.
#include <cstring>

#include "engine/engine_util.h"
#include "engine/rtc_engine_impl.h"

using engine::CopyText;
using engine::FieldText;
using engine::Wide;

namespace {

// Gives a device info back to the SDK when it goes out of scope.
class DeviceInfoHolder {
 public:
  explicit DeviceInfoHolder(ITRTCDeviceInfo* info) : info_(info) {}
  ~DeviceInfoHolder() {
    if (info_) info_->release();
  }
  DeviceInfoHolder(const DeviceInfoHolder&) = delete;
  DeviceInfoHolder& operator=(const DeviceInfoHolder&) = delete;
  ITRTCDeviceInfo* get() const { return info_; }

 private:
  ITRTCDeviceInfo* info_;
};

class CollectionHolder {
 public:
  explicit CollectionHolder(ITRTCDeviceCollection* collection) : collection_(collection) {}
  ~CollectionHolder() {
    if (collection_) collection_->release();
  }
  CollectionHolder(const CollectionHolder&) = delete;
  CollectionHolder& operator=(const CollectionHolder&) = delete;
  ITRTCDeviceCollection* get() const { return collection_; }

 private:
  ITRTCDeviceCollection* collection_;
};

DeviceRecord MakeRecord(const char* name) {
  DeviceRecord record;
  memset(&record, 0, sizeof(record));
  CopyText(record.name, sizeof(record.name), name);
  return record;
}

}  // namespace

// Lists.

void RTCEngineImpl::LoadDevices(ITRTCDeviceCollection* collection, std::vector<DeviceRecord>* list) {
  CollectionHolder holder(collection);
  list->clear();
  if (!collection) return;
  const uint32_t count = collection->getCount();
  for (uint32_t i = 0; i < count; ++i) list->push_back(MakeRecord(collection->getDeviceName(i)));
}

void RTCEngineImpl::LoadMicDevices() {
  const CloudRef cloud(this);
  base::AutoLock hold(lock_);
  LoadDevices(cloud ? cloud->getMicDevicesList() : nullptr, &mic_devices_);
}

void RTCEngineImpl::LoadCameraDevices() {
  const CloudRef cloud(this);
  base::AutoLock hold(lock_);
  LoadDevices(cloud ? cloud->getCameraDevicesList() : nullptr, &camera_devices_);
}

bool RTCEngineImpl::CopyDevices(const std::vector<DeviceRecord>& list, DeviceRecord** devices,
                                int32_t* count) {
  if (list.empty()) {
    *devices = nullptr;
    *count = 0;
    return false;
  }
  DeviceRecord* array = new DeviceRecord[list.size()]();
  for (size_t i = 0; i < list.size(); ++i) memcpy(array[i].name, list[i].name, sizeof(array[i].name));
  *devices = array;
  *count = static_cast<int32_t>(list.size());
  return true;
}

bool RTCEngineImpl::GetMicDevices(DeviceRecord** devices, int32_t* count) {
  if (!devices || !count) return false;
  base::AutoLock hold(lock_);
  return CopyDevices(mic_devices_, devices, count);
}

bool RTCEngineImpl::GetCameraDevices(DeviceRecord** devices, int32_t* count) {
  if (!devices || !count) return false;
  base::AutoLock hold(lock_);
  return CopyDevices(camera_devices_, devices, count);
}

bool RTCEngineImpl::GetSpeakerDevices(DeviceRecord** devices, int32_t* count) {
  const CloudRef cloud(this);
  if (!devices || !count) return false;
  *devices = nullptr;
  *count = 0;
  if (!cloud) return false;
  CollectionHolder collection(cloud->getSpeakerDevicesList());
  if (!collection.get()) return false;
  const uint32_t n = collection.get()->getCount();
  if (n == 0) return false;
  DeviceRecord* array = new DeviceRecord[n]();
  for (uint32_t i = 0; i < n; ++i) {
    CopyText(array[i].name, sizeof(array[i].name), collection.get()->getDeviceName(i));
  }
  *devices = array;
  *count = static_cast<int32_t>(n);
  return true;
}

// Choice.

std::string RTCEngineImpl::MicDeviceName() {
  base::AutoLock hold(device_lock_);
  return mic_device_.name;
}

std::string RTCEngineImpl::CameraDeviceName() {
  base::AutoLock hold(device_lock_);
  return camera_device_.name;
}

void RTCEngineImpl::SetCameraDevice(const DeviceRecord* device) {
  const CloudRef cloud(this);
  if (!device) return;
  const std::string name = FieldText(device->name, sizeof(device->name));
  RTC_LOG(L"SetCameraDevice:%s", Wide(name).c_str());
  if (cloud) cloud->setCurrentCameraDevice(name.c_str());
  base::AutoLock hold(device_lock_);
  CopyText(camera_device_.name, sizeof(camera_device_.name), name.c_str());
}

void RTCEngineImpl::SetSpeakerDevice(const DeviceRecord* device) {
  const CloudRef cloud(this);
  if (!device || !cloud) return;
  const std::string name = FieldText(device->name, sizeof(device->name));
  cloud->setCurrentSpeakerDevice(name.c_str());
}

// Camera.

void RTCEngineImpl::ApplyVideoParams() {
  const CloudRef cloud(this);
  if (!cloud) return;
  TRTCVideoEncParam param = {};
  param.video_resolution = 56;
  param.res_mode = 0;
  param.video_fps = 12;
  param.video_bitrate = 250;
  cloud->setVideoEncoderParam(param);
  TRTCNetworkQosParam qos = {};
  qos.preference = 1;
  qos.control_mode = 1;
  cloud->setNetworkQosParam(qos);
  cloud->setLocalViewMirror(true);
  cloud->setBeautyStyle(0, 2, 2, 1);
}

void RTCEngineImpl::OpenCamera(HWND view) {
  const CloudRef cloud(this);
  RTC_LOG(L"OpenCamera");
  ApplyVideoParams();
  if (!is_open_camera_) {
    RTC_LOG(L"startLocalPreview");
    if (cloud) cloud->startLocalPreview(view);
  }
  is_open_camera_ = true;
}

void RTCEngineImpl::CloseCamera() {
  const CloudRef cloud(this);
  RTC_LOG(L"CloseCamera");
  if (is_open_camera_ && !is_camera_test_) {
    RTC_LOG(L"stopLocalPreview");
    if (cloud) cloud->stopLocalPreview();
  }
  is_open_camera_ = false;
}

void RTCEngineImpl::EnableLocalVideo(bool enable) {
  const CloudRef cloud(this);
  RTC_LOG(L"EnableLocalVideo:%d", enable ? 1 : 0);
  if (cloud) cloud->muteLocalVideo(!enable);
}

// Microphone and speaker.

void RTCEngineImpl::OpenMicDevice(const DeviceRecord* device) {
  if (!device) {
    RTC_LOG(L"OpenMicDevice:null.default device.");
  } else {
    const std::string name = FieldText(device->name, sizeof(device->name));
    RTC_LOG(L"OpenMicDevice:%s", Wide(name).c_str());
    if (!name.empty()) {
      base::AutoLock hold(device_lock_);
      CopyText(mic_device_.name, sizeof(mic_device_.name), name.c_str());
    }
  }
  Post(kTaskOpenMicDevice, 0);
}

void RTCEngineImpl::OnOpenMicDeviceTask() {
  const CloudRef cloud(this);
  RTC_LOG(L"OnOpenMicDeviceTask, is_in_room_: %d, is_open_mic_: %d", is_in_room_ ? 1 : 0,
          is_open_mic_ ? 1 : 0);
  const std::string name = MicDeviceName();
  if (name.empty() || !cloud) return;
  cloud->setCurrentMicDevice(name.c_str());
  DeviceInfoHolder info(cloud->getCurrentMicDevice());
  if (info.get()) {
    RTC_LOG(L"OnOpenMicDeviceTask, set_dev: %s, get_dev: %s", Wide(name).c_str(),
            Wide(info.get()->getDeviceName()).c_str());
  }
}

void RTCEngineImpl::CloseMicDevice() {
  RTC_LOG(L"CloseMicDevice");
  Post(kTaskCloseMicDevice, 0);
}

void RTCEngineImpl::OnCloseMicDeviceTask() {
  const CloudRef cloud(this);
  RTC_LOG(L"OnCloseMicDeviceTask: %d", is_open_mic_ ? 1 : 0);
  if (is_open_mic_ && cloud) cloud->stopLocalAudio();
  is_open_mic_ = false;
}

void RTCEngineImpl::EnableLocalAudio(bool enable) {
  const CloudRef cloud(this);
  RTC_LOG(L"EnableLocalAudio: %d, is_in_room_: %d", enable ? 1 : 0, is_in_room_ ? 1 : 0);
  if (!cloud) return;
  if (enable) {
    cloud->startLocalAudio();
  } else {
    cloud->stopLocalAudio();
  }
  DeviceInfoHolder info(cloud->getCurrentMicDevice());
  if (info.get()) RTC_LOG(L"EnableLocalAudio, get_dev: %s", Wide(info.get()->getDeviceName()).c_str());
}

void RTCEngineImpl::EnableCaptureSystemAudio(bool enable) {
  RTC_LOG(L"EnableCaptureSystemAudio:%d", enable ? 1 : 0);
  Post(kTaskEnableCaptureSystemAudio, enable ? 1 : 0);
}

void RTCEngineImpl::OnEnableCaptureSystemAudioTask(bool enable) {
  const CloudRef cloud(this);
  RTC_LOG(L"OnEnableCaptureSystemAudioTask, enable: %d, is_record_system_voice_: %d", enable ? 1 : 0,
          is_record_system_voice_ ? 1 : 0);
  if (!cloud) return;
  DeviceInfoHolder info(cloud->getCurrentSpeakerDevice());
  if (!info.get()) return;
  const char* name = info.get()->getDeviceName();
  if (name) {
    RTC_LOG(L"OnEnableCaptureSystemAudioTask, getCurrentSpeakerDevice: %s", Wide(name).c_str());
  } else {
    RTC_LOG(L"OnEnableCaptureSystemAudioTask, getCurrentSpeakerDevice: nulllptr");
  }
}

uint32_t RTCEngineImpl::GetMicVolume() {
  const CloudRef cloud(this);
  return cloud ? cloud->getCurrentMicDeviceVolume() : 0;
}

uint32_t RTCEngineImpl::GetSpeakerVolume() {
  const CloudRef cloud(this);
  return cloud ? cloud->getCurrentSpeakerVolume() : 0;
}

void RTCEngineImpl::SetSpeakerVolume(int32_t volume) {
  const CloudRef cloud(this);
  if (volume < 0 || volume > 100 || !cloud) return;
  cloud->setCurrentSpeakerVolume(static_cast<uint32_t>(volume));
}

// Hot-plug. The SDK thread only packs the event and posts it; lists, lock_
// and the host's event are the task thread's.

void RTCEngineImpl::onDeviceChange(const char* device_id, int32_t type, int32_t state) {
  const CloudRef in_flight(this);
  if (!event_) return;
  DeviceChange* change = new DeviceChange{device_id ? device_id : "", type, state};
  UINT message = 0;
  switch (type) {
    case TRTCDeviceTypeMic:
      RTC_LOG(L"onDeviceChange: %s , mic state is %d", Wide(change->device_id).c_str(), state);
      message = kTaskMicChanged;
      break;
    case TRTCDeviceTypeCamera:
      RTC_LOG(L"onDeviceChange: %s , camera state is %d", Wide(change->device_id).c_str(), state);
      message = kTaskCameraChanged;
      break;
    case TRTCDeviceTypeSpeaker:
      RTC_LOG(L"onDeviceChange: %s , speaker state is %d", Wide(change->device_id).c_str(), state);
      message = kTaskSpeakerChanged;
      break;
    default:
      break;
  }
  // A record that no task will receive is freed here.
  if (message == 0 || !Post(message, reinterpret_cast<WPARAM>(change))) delete change;
}

void RTCEngineImpl::OnMicChangedTask(DeviceChange* change) {
  const CloudRef cloud(this);
  if (cloud) {
    DeviceInfoHolder info(cloud->getCurrentMicDevice());
    if (info.get()) RTC_LOG(L"OnMicChangedTask, get_dev: %s", Wide(info.get()->getDeviceName()).c_str());
  }
  LoadMicDevices();
  delete change;
  if (RTCEngineEvent* event = event_) event->OnDeviceChanged(1);
}

void RTCEngineImpl::OnCameraChangedTask(DeviceChange* change) {
  RTC_LOG(L"OnCameraChangedTask");
  if (change && change->device_id == CameraDeviceName() && change->state == TRTCDeviceStateRemove) {
    CloseCamera();
    StopCameraDeviceTest();
  }
  LoadCameraDevices();
  delete change;
  if (RTCEngineEvent* event = event_) event->OnDeviceChanged(0);
}

void RTCEngineImpl::OnSpeakChangeTask(DeviceChange* change) {
  RTC_LOG(L"OnSpeakChangeTask");
  const int32_t state = change ? change->state : -1;
  if (state == TRTCDeviceStateRemove || is_record_system_voice_) {
    RTC_LOG(L"EnableCaptureSystemAudio:0");
    EnableCaptureSystemAudio(false);
  } else if (state == TRTCDeviceStateAdd) {
    RTC_LOG(L"EnableCaptureSystemAudio:1");
    EnableCaptureSystemAudio(true);
  }
  delete change;
}

void RTCEngineImpl::onCameraDidReady() {
  const CloudRef in_flight(this);
  RTC_LOG(L"onCameraDidReady: ThreadId=%d", static_cast<int>(GetCurrentThreadId()));
}

void RTCEngineImpl::onMicDidReady() {
  const CloudRef in_flight(this);
  RTC_LOG(L"onMicDidReady: ThreadId=%d", static_cast<int>(GetCurrentThreadId()));
}

// Device tests.

void RTCEngineImpl::StartCameraDeviceTest(HWND view) {
  const CloudRef cloud(this);
  RTC_LOG(L"StartCameraDeviceTest");
  ApplyVideoParams();
  if (!is_camera_test_) {
    RTC_LOG(L"inner startCameraDeviceTest");
    if (cloud) cloud->startCameraDeviceTest(view);
  }
  is_camera_test_ = true;
}

void RTCEngineImpl::StopCameraDeviceTest() {
  const CloudRef cloud(this);
  RTC_LOG(L"StopCameraDeviceTest");
  if (is_camera_test_ && !is_open_camera_) {
    RTC_LOG(L"inner stopCameraDeviceTest");
    if (cloud) cloud->stopCameraDeviceTest();
  }
  is_camera_test_ = false;
}

void RTCEngineImpl::StartMicDeviceTest() {
  const CloudRef cloud(this);
  is_mic_test_ = true;
  if (!is_capture_desktop_) {
    RTC_LOG(L"StartMicDeviceTest");
    if (cloud) cloud->startMicDeviceTest(400);
  } else {
    StartAudioDeviceTest(Wide(MicDeviceName()));
  }
}

void RTCEngineImpl::StopMicDeviceTest() {
  const CloudRef cloud(this);
  if (!is_mic_test_) return;
  RTC_LOG(L"StopMicDeviceTest");
  if (!is_capture_desktop_ && cloud) cloud->stopMicDeviceTest();
  // The library's capture is stopped whichever engine the flag names now:
  // the test may have begun while the desktop was shared. It costs the SDK
  // no call.
  StopAudioDeviceTest();
  is_mic_test_ = false;
}

void RTCEngineImpl::onTestMicVolume(uint32_t volume) {
  const CloudRef in_flight(this);
  if (RTCEngineEvent* event = event_) event->OnMicTestVolume(static_cast<int32_t>(volume));
}

// On the capture thread of the library's test: no lock is held here, so the
// host may stop or restart the test from inside its event.
void RTCEngineImpl::OnAudioLevel(int level) {
  if (RTCEngineEvent* event = event_) event->OnMicTestVolume(level);
}
