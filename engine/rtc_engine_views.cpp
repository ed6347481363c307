// Remote views, remote audio switches, frame delivery to the host, and the
// desktop stream.
#include <atomic>

#include "engine/desktop_data_source.h"
#include "engine/engine_util.h"
#include "engine/rtc_engine_impl.h"

using engine::Wide;

namespace {

// Never reset: they only thin out the log lines of the per-frame paths.
std::atomic<int64_t> g_local_frames{0};
std::atomic<int64_t> g_remote_frames{0};
std::atomic<int32_t> g_captured_audio_frames{0};
std::atomic<int32_t> g_played_audio_frames{0};

}  // namespace

void RTCEngineImpl::StartRemoteCameraView(const char* usr_id, HWND view) {
  const CloudRef cloud(this);
  if (!usr_id) {
    RTC_LOG(L"StartRemoteCameraView:usr_id is null.failed!");
    return;
  }
  RTC_LOG(L"StartRemoteCameraView:%s", Wide(usr_id).c_str());
  if (cloud) cloud->startRemoteView(usr_id, view);
}

void RTCEngineImpl::StopRemoteCameraView(const char* usr_id) {
  const CloudRef cloud(this);
  if (!usr_id) {
    RTC_LOG(L"StopRemoteCameraView:usr_id is null.failed!");
    return;
  }
  RTC_LOG(L"StopRemoteCameraView:%s", Wide(usr_id).c_str());
  if (cloud) cloud->stopRemoteView(usr_id);
}

void RTCEngineImpl::StartAllRemoteVidw() { RTC_LOG(L"StartAllRemoteVidw"); }

void RTCEngineImpl::StopAllRemoteView() {
  const CloudRef cloud(this);
  RTC_LOG(L"StopAllRemoteView");
  if (cloud) cloud->stopAllRemoteView();
}

void RTCEngineImpl::StartRemoteDesktopView(const char* usr_id, HWND view) {
  const CloudRef cloud(this);
  if (!usr_id) {
    RTC_LOG(L"StartRemoteDesktopView:usr_id is null.failed!");
    return;
  }
  RTC_LOG(L"StartRemoteDesktopView:%s", Wide(usr_id).c_str());
  Store(&remote_desktop_usr_id_, usr_id);
  if (cloud) cloud->startRemoteSubStreamView(usr_id, view);
}

void RTCEngineImpl::StopRemoteDesktopView(const char* usr_id) {
  const CloudRef cloud(this);
  if (!usr_id) {
    RTC_LOG(L"StopRemoteDesktopView:usr_id is null.failed!");
    return;
  }
  RTC_LOG(L"StopRemoteDesktopView:%s", Wide(usr_id).c_str());
  if (cloud) cloud->stopRemoteSubStreamView(usr_id);
}

void RTCEngineImpl::MuteRemoteAudio(const char* usr_id, bool mute) {
  const CloudRef cloud(this);
  if (!usr_id) {
    RTC_LOG(L"MuteRemoteAudio:UserID is Null, bMute=%d.Failed!", mute ? 1 : 0);
    return;
  }
  RTC_LOG(L"MuteRemoteAudio:UserID=%s, bMute=%d", Wide(usr_id).c_str(), mute ? 1 : 0);
  if (cloud) cloud->muteRemoteAudio(usr_id, mute);
}

void RTCEngineImpl::MuteAllRemoteAudio(bool enable) {
  const CloudRef cloud(this);
  RTC_LOG(L"MuteAllRemoteAudio:enable=%d", enable ? 1 : 0);
  if (cloud) cloud->muteAllRemoteAudio(enable);
}

void RTCEngineImpl::SetRemoteStreamType(const char* usr_id, int32_t type) {
  const CloudRef cloud(this);
  if (!cloud) return;
  if (!usr_id) {
    cloud->setPriorRemoteVideoStreamType(type);
  } else {
    cloud->setRemoteVideoStreamType(usr_id, type);
  }
}

void RTCEngineImpl::onRenderVideoFrame(const char* usr_id, int32_t stream_type, TRTCVideoFrame* frame) {
  const CloudRef cloud(this);
  RTCEngineEvent* event = event_;
  if (!event || !frame) return;
  const int32_t video_type = VideoTypeOf(stream_type);
  int32_t size = 0;
  if (frame->video_format == TRTCVideoPixelFormat_I420) {
    const uint32_t pixels = static_cast<uint32_t>(frame->width) * static_cast<uint32_t>(frame->height);
    size = static_cast<int32_t>(pixels * 1.5);
  } else if (frame->video_format == TRTCVideoPixelFormat_BGRA32) {
    size = frame->width * frame->height * 4;
  }
  int32_t rotate = 0;
  switch (frame->rotation) {
    case TRTCVideoRotation90:
      rotate = 3;
      break;
    case TRTCVideoRotation180:
      rotate = 2;
      break;
    case TRTCVideoRotation270:
      rotate = 1;
      break;
    default:
      break;
  }
  if (!usr_id || !*usr_id) {
    if (rotate != 0 && cloud) cloud->setLocalViewRotation(rotate);
    if (g_local_frames.fetch_add(1) % 60 == 0) {
      RTC_LOG(L"OnLocalVideoFrame:thread=%u, w=%d, h=%d, pts=%lld, video_type=%d",
              static_cast<unsigned>(GetCurrentThreadId()), frame->width, frame->height,
              static_cast<long long>(frame->timestamp), video_type);
    }
    if (video_type == 2) return;
    SharedText local_usr_id = Load(usr_id_);
    event->OnLocalVideoFrame(local_usr_id->c_str(), frame->data, size, frame->width, frame->height,
                             video_type);
    return;
  }
  if (rotate != 0 && cloud) cloud->setRemoteViewRotation(usr_id, rotate);
  if (g_remote_frames.fetch_add(1) % 60 == 0) {
    RTC_LOG(L"OnRemoteVideoFrame:thread=%u, usr_id:%s, w=%d, h=%d, pts=%lld, video_type=%d",
            static_cast<unsigned>(GetCurrentThreadId()), Wide(usr_id).c_str(), frame->width, frame->height,
            static_cast<long long>(frame->timestamp), video_type);
  }
  event->OnRemoteVideoFrame(usr_id, frame->data, size, frame->width, frame->height, video_type);
}

void RTCEngineImpl::onCapturedAudioFrame(TRTCAudioFrame* frame) {
  const CloudRef in_flight(this);
  if (!frame) return;
  if ((g_captured_audio_frames.fetch_add(1) + 1) % 100 == 0) {
    RTC_LOG(L"onCapturedAudioFrame: length=%u", frame->length);
  }
}

void RTCEngineImpl::onPlayAudioFrame(TRTCAudioFrame* frame, const char* usr_id) {
  const CloudRef in_flight(this);
  if (!frame || !usr_id) return;
  if ((g_played_audio_frames.fetch_add(1) + 1) % 100 == 0) {
    RTC_LOG(L"onPlayAudioFrame:ThreadId=%d, usr_id:%s, length=%u", static_cast<int>(GetCurrentThreadId()),
            Wide(usr_id).c_str(), frame->length);
  }
}

// Desktop stream.

void RTCEngineImpl::EnableCaptureDesktopVideo(bool enable) {
  const CloudRef cloud(this);
  RTC_LOG(L"EnableCaptureDesktopVideo:%d", enable ? 1 : 0);
  is_capture_desktop_ = enable;
  if (!data_source_) return;
  if (enable) {
    if (cloud) cloud->setStreamDataSource(data_source_, 0);
    data_source_->Enable();
  } else {
    if (cloud) cloud->setStreamDataSource(nullptr, 0);
    data_source_->Disable();
  }
}

bool RTCEngineImpl::PushDesktopFrame(const void* data, int32_t size, int32_t width, int32_t height,
                                     int64_t pts) {
  if (!is_capture_desktop_ || !data_source_) return false;
  data_source_->PushFrame(data, size, width, height, pts);
  return true;
}
