// An engine whose task thread could not be started: the host still gets an
// object it can drive and release, nothing reaches the SDK, and the next
// engine starts normally.
#include <gtest/gtest.h>

#include "common/log_capture.h"
#include "common/refuse_threads.h"
#include "engine_test_support.h"

namespace engine_test {
namespace {

TEST(EngineWithoutTaskThread, EveryOperationIsHarmlessAndTheNextEngineWorks) {
  LiteavReset();
  const int instances = LiteavInstanceCount();
  testing_support::LogCapture log;
  RTCEngine* engine = nullptr;
  {
    testing_support::RefuseThreads refuse;
    engine = CreaeRTCEngine();
  }
  ASSERT_NE(engine, nullptr);
  EXPECT_EQ(log.Count(L"CreateThread failed!", L"RTCEngineImpl"), 1);

  RecordingEvents events;
  engine->Initialize(nullptr, &events);
  engine->EnterRoom("1400", "room", "alice", "sig");
  engine->ReEnterRoom();
  EXPECT_FALSE(engine->IsInRoom());
  DeviceRecord* devices = reinterpret_cast<DeviceRecord*>(1);
  int32_t count = -1;
  engine->GetMicDevices(&devices, &count);
  EXPECT_EQ(count, 0);
  FreeDeviceRecords(devices);
  devices = nullptr;
  engine->GetSpeakerDevices(&devices, &count);
  FreeDeviceRecords(devices);
  devices = nullptr;
  engine->GetCameraDevices(&devices, &count);
  FreeDeviceRecords(devices);
  DeviceRecord device = {};
  strcpy(device.name, "mic");
  engine->SetCameraDevice(&device);
  engine->OpenCamera(nullptr);
  engine->CloseCamera();
  engine->EnableCaptureDesktopVideo(true);
  std::vector<uint8_t> picture(6, 7);
  engine->PushDesktopFrame(picture.data(), 6, 2, 2, 1);
  engine->EnableCaptureDesktopVideo(false);
  engine->OpenMicDevice(&device);
  engine->CloseMicDevice();
  EXPECT_EQ(engine->GetMicVolume(), 0u);
  engine->EnableCaptureSystemAudio(true);
  engine->SetSpeakerDevice(&device);
  engine->SetSpeakerVolume(50);
  EXPECT_EQ(engine->GetSpeakerVolume(), 0u);
  engine->EnableLocalAudio(true);
  engine->EnableLocalVideo(true);
  engine->MuteRemoteAudio("bob", true);
  engine->MuteAllRemoteAudio(true);
  engine->StartRemoteCameraView("bob", nullptr);
  engine->StopRemoteCameraView("bob");
  engine->StartAllRemoteVidw();
  engine->StopAllRemoteView();
  engine->StartRemoteDesktopView("bob", nullptr);
  engine->StopRemoteDesktopView("bob");
  engine->SetRemoteStreamType("bob", 1);
  engine->StartCameraDeviceTest(nullptr);
  engine->StopCameraDeviceTest();
  engine->StartMicDeviceTest();
  engine->StopMicDeviceTest();
  engine->ExitRoom();
  engine->UnInitialize();
  ReleaseRTCEngine();

  EXPECT_EQ(LiteavCallCount(), 0);
  EXPECT_EQ(LiteavInstanceCount(), instances);
  EXPECT_TRUE(events.Texts().empty());

  // The refusal was for that engine only.
  RTCEngine* next = CreaeRTCEngine();
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(LiteavInstanceCount(), instances + 1);
  next->GetMicDevices(&devices, &count);
  FreeDeviceRecords(devices);
  ReleaseRTCEngine();
  EXPECT_GT(LiteavCallCount(), 0);
}

}  // namespace
}  // namespace engine_test
