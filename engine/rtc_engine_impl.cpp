// The engine's frame (creation, task thread, registration, destruction) and
// room membership.
#include "engine/rtc_engine_impl.h"

#include <objbase.h>

#include <cstdlib>
#include <vector>

#include "base/thread_start.h"
#include "engine/desktop_data_source.h"
#include "engine/engine_util.h"
#include "roomcore/clock.h"

using engine::CopyText;
using engine::Wide;

namespace {

RTCEngineImpl* g_engine = nullptr;
base::Lock g_engine_lock;

int32_t VideoTypeOfStream(int32_t stream_type) {
  if (stream_type == TRTCVideoStreamTypeBig || stream_type == TRTCVideoStreamTypeSmall) return 1;
  if (stream_type == TRTCVideoStreamTypeSub) return 2;
  return 0;
}

}  // namespace

extern "C" {

RTCEngine* CreaeRTCEngine() {
  base::AutoLock hold(g_engine_lock);
  if (!g_engine) g_engine = new RTCEngineImpl();
  return g_engine;
}

void ReleaseRTCEngine() {
  base::AutoLock hold(g_engine_lock);
  if (!g_engine) return;
  delete g_engine;
  g_engine = nullptr;
}

void FreeDeviceRecords(DeviceRecord* devices) { delete[] devices; }

}  // extern "C"

RTCEngineImpl::RTCEngineImpl() {
  memset(&camera_device_, 0, sizeof(camera_device_));
  memset(&mic_device_, 0, sizeof(mic_device_));
  Store(&app_id_, "");
  Store(&room_id_, "");
  Store(&usr_id_, "");
  Store(&usr_sign_, "");
  Store(&remote_desktop_usr_id_, "");
  PreInitialize();
}

void RTCEngineImpl::PreInitialize() {
  RTC_LOG(L"PreInitialize");
  stop_event_.Reset(CreateEventW(nullptr, TRUE, TRUE, nullptr));
  ready_event_.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  CreateAudioDeviceTest();
  data_source_ = new DesktopDataSource();
  DWORD thread_id = 0;
  // Nothing ever waits on the thread itself: its end is told by stop_event_.
  base::ScopedHandle thread(base::StartThread(&RTCEngineImpl::DoTaskCore, this, &thread_id));
  if (!thread) {
    // No task thread and no SDK object: every operation that would use them
    // finds a null CloudRef or task_thread_id_ 0 and does nothing.
    RTC_LOG(L"CreateThread failed!");
    return;
  }
  thread.Close();
  WaitForSingleObject(ready_event_.get(), INFINITE);
}

DWORD WINAPI RTCEngineImpl::DoTaskCore(LPVOID param) {
  RTCEngineImpl* self = static_cast<RTCEngineImpl*>(param);
  CoInitialize(nullptr);
  RTC_LOG(L"DoTaskCore Enter");
  self->trtc_cloud_ = getTRTCShareInstance();
  RTC_LOG(L"DoTaskCore Enter2");
  self->LoadMicDevices();
  self->LoadCameraDevices();
  // Brings this thread's queue into being before anyone may post to it.
  MSG msg;
  PeekMessageW(&msg, nullptr, WM_USER, WM_USER, PM_NOREMOVE);
  // The thread publishes its own id, so that the id is 0 again only once
  // the loop has ended, never before it began.
  self->task_thread_id_ = GetCurrentThreadId();
  ResetEvent(self->stop_event_.get());
  SetEvent(self->ready_event_.get());
  self->RunTaskLoop();
  self->CloseTaskQueue();
  // The engine may be gone as soon as stop_event_ is signalled.
  HANDLE stop_event = self->stop_event_.get();
  CoUninitialize();
  SetEvent(stop_event);
  return 0;
}

void RTCEngineImpl::RunTaskLoop() {
  MSG msg;
  for (;;) {
    BOOL got = GetMessageW(&msg, nullptr, 0, 0);
    if (got == 0 || got == -1) break;
    switch (msg.message) {
      case kTaskQuit:
        return;
      case kTaskEnterRoom:
        OnEnterRoomTask();
        break;
      case kTaskOpenMicDevice:
        OnOpenMicDeviceTask();
        break;
      case kTaskCloseMicDevice:
        OnCloseMicDeviceTask();
        break;
      case kTaskMicChanged:
        OnMicChangedTask(reinterpret_cast<DeviceChange*>(msg.wParam));
        break;
      case kTaskCameraChanged:
        OnCameraChangedTask(reinterpret_cast<DeviceChange*>(msg.wParam));
        break;
      case kTaskSpeakerChanged:
        OnSpeakChangeTask(reinterpret_cast<DeviceChange*>(msg.wParam));
        break;
      case kTaskEnableCaptureSystemAudio:
        OnEnableCaptureSystemAudioTask(msg.wParam != 0);
        break;
      default:
        break;
    }
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
}

bool RTCEngineImpl::Post(UINT message, WPARAM param) {
  // posts_in_progress_ tells CloseTaskQueue that a post may still land in
  // the queue; it is raised before the id is read.
  ++posts_in_progress_;
  const DWORD thread_id = task_thread_id_;
  const bool posted = thread_id != 0 && PostThreadMessageW(thread_id, message, param, 0) != FALSE;
  --posts_in_progress_;
  return posted;
}

void RTCEngineImpl::CloseTaskQueue() {
  // From here every Post fails and its caller keeps what it meant to send.
  // A post that read the id before it went to 0 is waited for, so that its
  // record is in the queue for the sweep below.
  task_thread_id_ = 0;
  while (posts_in_progress_ != 0) SwitchToThread();
  // Device records still queued behind the quit have no handler left.
  MSG msg;
  while (PeekMessageW(&msg, nullptr, kTaskMicChanged, kTaskSpeakerChanged, PM_REMOVE))
    delete reinterpret_cast<DeviceChange*>(msg.wParam);
}

void RTCEngineImpl::Initialize(void* /*reserved*/, RTCEngineEvent* event) {
  const CloudRef cloud(this);
  base::AutoLock hold(lock_);
  event_ = event;
  if (!cloud) return;
  cloud->setLogLevel(1);
  cloud->setLogCallback(this);
  cloud->addCallback(this);
  cloud->setLocalVideoRenderCallback(TRTCVideoPixelFormat_BGRA32, TRTCVideoBufferType_Buffer, this);
}

void RTCEngineImpl::UnInitialize() {
  RTC_LOG(L"UnInitialize");
  {
    base::AutoLock hold(lock_);
    event_ = nullptr;
  }
  // Spare frames of the desktop stream go back now; the pictures waiting for
  // the SDK's pull stay as long as the stream is on.
  if (data_source_) data_source_->Trim();
}

RTCEngineImpl::~RTCEngineImpl() {
  RTC_LOG(L"~RTCEngineImpl");
  // The loop may have ended already (a WM_QUIT), and the post then fails;
  // stop_event_ is signalled whenever no task thread runs.
  Post(kTaskQuit, 0);
  WaitForSingleObject(stop_event_.get(), INFINITE);
  stop_event_.Close();
  UnInitialize();
  ITRTCCloud* const cloud = trtc_cloud_.load();
  if (cloud) cloud->removeCallback(this);
  if (data_source_) {
    // The SDK keeps the source until it hears of its destruction.
    data_source_->Disable();
    delete data_source_;
    data_source_ = nullptr;
  }
  // Callbacks and other uses still under way on other threads finish with
  // the object they hold; any that begins from here on finds none.
  trtc_cloud_ = nullptr;
  cloud_users_.WaitUntilIdle();
  if (cloud) destroyTRTCShareInstance();
  DestroyAudioDeviceTest();
  ready_event_.Close();
}

void RTCEngineImpl::onLog(const char* log, int32_t /*level*/, const char* /*module*/) {
  const CloudRef in_flight(this);
  Util::Log::DoTrtcLog(Wide(log).c_str());
}

// Room membership.

bool RTCEngineImpl::EnterRoom(const char* app_id, const char* room_id, const char* usr_id,
                              const char* usr_sign) {
  if (!app_id) {
    RTC_LOG(L"EnterRoom:app_id is null.failed!");
    return false;
  }
  if (!room_id) {
    RTC_LOG(L"EnterRoom:room_id is null.failed!");
    return false;
  }
  if (!usr_id) {
    RTC_LOG(L"EnterRoom:usr_id is null.failed!");
    return false;
  }
  if (!usr_sign) {
    RTC_LOG(L"EnterRoom:usr_sign is null.failed!");
    return false;
  }
  RTC_LOG(L"EnterRoom:app_id:%s, room_id:%s, usr_id:%s, usr_sign:%s", Wide(app_id).c_str(),
          Wide(room_id).c_str(), Wide(usr_id).c_str(), Wide(usr_sign).c_str());
  base::AutoLock hold(lock_);
  net_quality_ = 0;
  last_stats_time_ms_ = 0;
  last_received_bytes_ = 0;
  last_sent_bytes_ = 0;
  Store(&usr_id_, usr_id);
  Store(&app_id_, app_id);
  Store(&room_id_, room_id);
  Store(&usr_sign_, usr_sign);
  Post(kTaskEnterRoom, 0);
  return true;
}

bool RTCEngineImpl::ReEnterRoom() {
  Post(kTaskEnterRoom, 0);
  return true;
}

void RTCEngineImpl::OnEnterRoomTask() {
  const CloudRef cloud(this);
  if (!cloud) return;
  // Snapshots: a host thread may store new parameters meanwhile.
  SharedText app_id = Load(app_id_);
  SharedText room_id = Load(room_id_);
  SharedText usr_id = Load(usr_id_);
  SharedText usr_sign = Load(usr_sign_);
  TRTCParams params = {};
  params.sdk_app_id = static_cast<uint32_t>(atoi(app_id->c_str()));
  params.room_id = static_cast<uint32_t>(atoi(room_id->c_str()));
  params.user_id = usr_id->c_str();
  params.user_sig = usr_sign->c_str();
  cloud->enterRoom(params, 0);
}

bool RTCEngineImpl::ExitRoom() {
  const CloudRef cloud(this);
  RTC_LOG(L"ExitRoom");
  CloseCamera();
  CloseMicDevice();
  base::AutoLock hold(lock_);
  is_in_room_ = false;
  if (cloud) cloud->exitRoom();
  return true;
}

bool RTCEngineImpl::IsInRoom() { return is_in_room_; }

void RTCEngineImpl::ApplyRoomVideoParams() {
  const CloudRef cloud(this);
  ApplyVideoParams();
  if (!cloud) return;
  TRTCVideoEncParam param = {};
  param.video_resolution = 114;
  param.res_mode = 0;
  param.video_fps = 12;
  param.video_bitrate = 400;
  cloud->setSubStreamEncoderParam(param);
}

void RTCEngineImpl::onEnterRoom(int64_t /*result*/) {
  const CloudRef cloud(this);
  RTC_LOG(L"onEnterRoom");
  is_in_room_ = true;
  ApplyRoomVideoParams();
  if (cloud) cloud->enableAudioVolumeEvaluation(600);
  if (RTCEngineEvent* event = event_) event->OnEnterRoom(0, "success");
}

void RTCEngineImpl::onExitRoom(int32_t /*reason*/) {
  const CloudRef in_flight(this);
  RTC_LOG(L"onExitRoom");
  if (is_in_room_) {
    CloseCamera();
    CloseMicDevice();
  }
  if (is_mic_test_) {
    StopMicDeviceTest();
    StartMicDeviceTest();
  }
  if (is_camera_test_) {
    StopCameraDeviceTest();
    StartCameraDeviceTest(nullptr);
  }
  is_in_room_ = false;
  if (RTCEngineEvent* event = event_) event->OnExitRoom(0, "success");
}

void RTCEngineImpl::onError(int32_t code, const char* message, void* /*extra*/) {
  const CloudRef in_flight(this);
  RTC_LOG(L"onError:%s, code=%d", Wide(message).c_str(), code);
  if (RTCEngineEvent* event = event_) event->OnError(code, message);
}

void RTCEngineImpl::onWarning(int32_t code, const char* message, void* /*extra*/) {
  const CloudRef in_flight(this);
  RTC_LOG(L"onWarning:%s, code=%d", Wide(message).c_str(), code);
}

void RTCEngineImpl::onUserEnter(const char* usr_id) {
  const CloudRef cloud(this);
  RTC_LOG(L"onUserEnter:%s", Wide(usr_id).c_str());
  if (RTCEngineEvent* event = event_) event->OnUserEnter(usr_id);
  if (!cloud) return;
  cloud->setRemoteVideoRenderCallback(usr_id, TRTCVideoPixelFormat_BGRA32, TRTCVideoBufferType_Buffer, this);
  cloud->setAudioFrameCallback(this);
  cloud->startRemoteView(usr_id, nullptr);
}

void RTCEngineImpl::onUserExit(const char* usr_id, int32_t reason) {
  const CloudRef cloud(this);
  RTC_LOG(L"onUserExit:%s", Wide(usr_id).c_str());
  if (RTCEngineEvent* event = event_) event->OnUserExit(usr_id, reason);
  if (cloud) cloud->stopRemoteView(usr_id);
}

void RTCEngineImpl::onUserVideoAvailable(const char* usr_id, bool available) {
  const CloudRef in_flight(this);
  RTC_LOG(L"onUserVideoAvailable:%s, available:%d", Wide(usr_id).c_str(), available ? 1 : 0);
  if (RTCEngineEvent* event = event_) event->OnUserVideoAvailable(usr_id, available);
}

void RTCEngineImpl::onUserAudioAvailable(const char* usr_id, bool available) {
  const CloudRef in_flight(this);
  RTC_LOG(L"onUserAudioAvailable:%s, available:%d", Wide(usr_id).c_str(), available ? 1 : 0);
  if (RTCEngineEvent* event = event_) event->OnUserAudioAvailable(usr_id, available);
}

void RTCEngineImpl::onUserSubStreamAvailable(const char* usr_id, bool available) {
  const CloudRef cloud(this);
  RTC_LOG(L"onUserSubStreamAvailable:%s, available:%d", Wide(usr_id).c_str(), available ? 1 : 0);
  SharedText desktop_usr_id = Load(remote_desktop_usr_id_);
  if (available && usr_id && *desktop_usr_id == usr_id) {
    RTC_LOG(L"onUserSubStreamAvailable call startRemoteSubStreamView:%s", Wide(usr_id).c_str());
    if (cloud) cloud->startRemoteSubStreamView(usr_id, nullptr);
  }
  if (RTCEngineEvent* event = event_) event->OnUserSubStreamAvailable(usr_id, available);
}

void RTCEngineImpl::onConnectionLost() {
  const CloudRef in_flight(this);
  RTC_LOG(L"onConnectionLost");
  if (RTCEngineEvent* event = event_) event->OnConnectionLost();
}

void RTCEngineImpl::onTryToReconnect() {
  const CloudRef in_flight(this);
  RTC_LOG(L"onTryToReconnect");
  if (RTCEngineEvent* event = event_) event->OnTryToReconnect();
}

void RTCEngineImpl::onConnectionRecovery() {
  const CloudRef in_flight(this);
  RTC_LOG(L"onConnectionRecovery");
  if (RTCEngineEvent* event = event_) event->OnConnectionRecovery();
}

void RTCEngineImpl::onNetworkQuality(TRTCQualityInfo local, TRTCQualityInfo* /*remotes*/,
                                     uint32_t /*count*/) {
  const CloudRef in_flight(this);
  switch (local.quality) {
    case 1:
    case 2:
      net_quality_ = 1;
      break;
    case 3:
    case 4:
      net_quality_ = 2;
      break;
    case 5:
    case 6:
      net_quality_ = 3;
      break;
    default:
      break;
  }
  int32_t status = net_quality_ > 2 ? 1 : 0;
  if (RTCEngineEvent* event = event_) event->OnNetworkQuality(&status);
}

void RTCEngineImpl::onUserVoiceVolume(TRTCVolumeInfo* volumes, uint32_t count, uint32_t /*total*/) {
  const CloudRef in_flight(this);
  RTCEngineEvent* event = event_;
  if (!event || count == 0 || !volumes) return;
  std::vector<VolumeRecord> records(count);
  memset(records.data(), 0, sizeof(VolumeRecord) * count);
  for (uint32_t i = 0; i < count; ++i) {
    const TRTCVolumeInfo& info = volumes[i];
    if (!info.user_id || !*info.user_id) {
      SharedText usr_id = Load(usr_id_);
      CopyText(records[i].usr_id, sizeof(records[i].usr_id), usr_id->c_str());
      if (is_mic_test_) event->OnMicTestVolume(static_cast<int32_t>(info.volume));
    } else {
      CopyText(records[i].usr_id, sizeof(records[i].usr_id), info.user_id);
    }
    records[i].volume = info.volume;
  }
  event->OnUserVoiceVolume(records.data(), count);
}

void RTCEngineImpl::onStatistics(const TRTCStatistics& stats) {
  const CloudRef in_flight(this);
  RTCEngineEvent* event = event_;
  if (!event) return;
  const int64_t now = TimeMilliseconds();
  const int64_t last_time = last_stats_time_ms_;
  const int64_t elapsed = now - last_time;
  if (last_time != 0 && elapsed >= 1000) {
    EngineStatistics record = {};
    const int64_t seconds = elapsed / 1000;
    record.recv_rate = static_cast<int32_t>(((stats.received_bytes - last_received_bytes_) / 1024) / seconds);
    record.send_rate = static_cast<int32_t>(((stats.sent_bytes - last_sent_bytes_) / 1024) / seconds);
    record.rtt = stats.rtt;
    record.quality = net_quality_;
    record.up_loss = stats.up_loss;
    record.down_loss = stats.down_loss;
    record.app_cpu = stats.app_cpu;
    record.system_cpu = stats.system_cpu;
    std::vector<RemoteStatistics> remotes;
    const uint32_t remote_count = stats.remote_statistics_array ? stats.remote_statistics_array_size : 0;
    if (remote_count > 0) {
      remotes.resize(remote_count);
      memset(remotes.data(), 0, sizeof(RemoteStatistics) * remote_count);
      for (uint32_t i = 0; i < remote_count; ++i) {
        const TRTCRemoteStatistics& remote = stats.remote_statistics_array[i];
        CopyText(remotes[i].usr_id, sizeof(remotes[i].usr_id), remote.user_id);
        remotes[i].final_loss = remote.final_loss;
        remotes[i].video_type = VideoTypeOfStream(remote.stream_type);
      }
      record.remotes = remotes.data();
    }
    event->OnStatistics(&record);
  }
  last_received_bytes_ = stats.received_bytes;
  last_sent_bytes_ = stats.sent_bytes;
  last_stats_time_ms_ = now;
}

int32_t RTCEngineImpl::VideoTypeOf(int32_t stream_type) { return VideoTypeOfStream(stream_type); }
