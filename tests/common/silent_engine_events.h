// Engine events, all ignored: for programs that use only the desktop stream.
#pragma once

#include "roomcore/rtc_engine.h"

class SilentEngineEvents : public RTCEngineEvent {
 public:
  void OnError(int32_t, const char*) override {}
  void OnEnterRoom(int32_t, const char*) override {}
  void OnExitRoom(int32_t, const char*) override {}
  void OnUserEnter(const char*) override {}
  void OnUserExit(const char*, int32_t) override {}
  void OnTryToReconnect() override {}
  void OnConnectionLost() override {}
  void OnConnectionRecovery() override {}
  void OnLocalVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) override {}
  void OnRemoteVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) override {}
  void OnDeviceChanged(int32_t) override {}
  void OnUserVideoAvailable(const char*, bool) override {}
  void OnUserSubStreamAvailable(const char*, bool) override {}
  void OnUserAudioAvailable(const char*, bool) override {}
  void OnUserVoiceVolume(const VolumeRecord*, uint32_t) override {}
  void OnMicTestVolume(int32_t) override {}
  void OnStatistics(const EngineStatistics*) override {}
  void OnNetworkQuality(const int32_t*) override {}
};
