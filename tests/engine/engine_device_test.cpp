// Device lists, choice, open/close, volumes, hot-plug and device tests.
#include <atomic>
#include <thread>

#include "engine_test_support.h"

namespace engine_test {
namespace {

class EngineDevice : public EngineTest {};

TEST_F(EngineDevice, ListsComeFromTheCacheAsNewArraysAndRecordsAreReadWithinTheirField) {
  DeviceRecord* mics = nullptr;
  int32_t count = 0;
  ASSERT_TRUE(engine_->GetMicDevices(&mics, &count));
  ASSERT_EQ(count, 2);
  EXPECT_STREQ(mics[1].name, "Mic B");
  for (char c : mics[0].reserved) ASSERT_EQ(c, 0);
  FreeDeviceRecords(mics);
  FreeDeviceRecords(nullptr);
  EXPECT_EQ(LiteavCountCalls("getMicDevicesList"), 0);  // the cache, not the SDK
  EXPECT_EQ(ListNames(engine_, &RTCEngine::GetSpeakerDevices), std::vector<std::string>{"Speaker A"});
  // A host record without a NUL is read within its field.
  LiteavReset();
  DeviceRecord record;
  memset(&record, 'z', sizeof(record));
  engine_->SetSpeakerDevice(&record);
  EXPECT_EQ(liteav_control::Calls(),
            std::vector<std::string>{"setCurrentSpeakerDevice(" + std::string(512, 'z') + ")"});
}

// Engines of their own: empty lists give false, null and 0; an overlong name
// is cut with a NUL on a character boundary.
TEST(EngineDeviceLists, EmptyListsAndOverlongNames) {
  LiteavReset();
  RTCEngine* engine = CreaeRTCEngine();
  for (ListFn list :
       {&RTCEngine::GetMicDevices, &RTCEngine::GetCameraDevices, &RTCEngine::GetSpeakerDevices}) {
    DeviceRecord* devices = reinterpret_cast<DeviceRecord*>(0x1);
    int32_t count = 5;
    EXPECT_FALSE((engine->*list)(&devices, &count));
    EXPECT_EQ(devices, nullptr);
    EXPECT_EQ(count, 0);
  }
  ReleaseRTCEngine();
  // 510 ASCII bytes then a 3-byte character: 513 bytes, which can't fit 511.
  liteav_control::SetDevices(TRTCDeviceTypeCamera, {std::string(510, 'n') + "\xE2\x82\xAC"});
  EXPECT_EQ(ListNames(CreaeRTCEngine(), &RTCEngine::GetCameraDevices),
            std::vector<std::string>{std::string(510, 'n')});
  ReleaseRTCEngine();
}

// Opening twice starts the preview once, closing twice stops it once.
TEST_F(EngineDevice, CameraAndCameraTestKeepThePictureForEachOther) {
  const HWND view = reinterpret_cast<HWND>(0x1234);
  engine_->OpenCamera(view);
  engine_->OpenCamera(view);
  EXPECT_EQ(LiteavCountCalls("startLocalPreview(4660)"), 1);
  // The encoder settings are applied on every open, the same each time.
  for (const char* call : {"setVideoEncoderParam(56,0,12,250)", "setNetworkQosParam(1,1)",
                           "setLocalViewMirror(1)", "setBeautyStyle(0,2,2,1)"})
    EXPECT_EQ(LiteavCountCalls(call), 2) << call;
  engine_->CloseCamera();
  engine_->CloseCamera();
  EXPECT_EQ(LiteavCountCalls("stopLocalPreview"), 1);

  LiteavReset();
  engine_->OpenCamera(nullptr);
  engine_->StartCameraDeviceTest(nullptr);
  engine_->StartCameraDeviceTest(nullptr);
  EXPECT_EQ(LiteavCountCalls("startCameraDeviceTest"), 1);
  engine_->CloseCamera();  // the test still shows the picture
  EXPECT_EQ(LiteavCountCalls("stopLocalPreview"), 0);
  engine_->StopCameraDeviceTest();
  EXPECT_EQ(LiteavCountCalls("stopCameraDeviceTest"), 1);
  EXPECT_TRUE(log_.Contains(L"inner stopCameraDeviceTest"));

  LiteavReset();
  engine_->StartCameraDeviceTest(nullptr);
  engine_->OpenCamera(nullptr);
  engine_->StopCameraDeviceTest();  // the open camera keeps it
  EXPECT_EQ(LiteavCountCalls("stopCameraDeviceTest"), 0);
  engine_->StartCameraDeviceTest(nullptr);  // cleared: starts again
  EXPECT_EQ(LiteavCountCalls("startCameraDeviceTest"), 2);
}

TEST_F(EngineDevice, MicTestUsesTheSdkOnlyWhileDesktopCaptureIsOff) {
  engine_->StopMicDeviceTest();
  EXPECT_TRUE(log_.Messages(L"RTCEngineImpl").empty());
  engine_->StartMicDeviceTest();
  engine_->StopMicDeviceTest();
  EXPECT_EQ(liteav_control::Calls(),
            (std::vector<std::string>{"startMicDeviceTest(400)", "stopMicDeviceTest()"}));
  EXPECT_EQ(log_.Messages(L"RTCEngineImpl"),
            (std::vector<std::wstring>{L"StartMicDeviceTest", L"StopMicDeviceTest"}));
  Fire([](ITRTCCloudCallback* cb) { cb->onTestMicVolume(42); });
  EXPECT_EQ(events_.Texts(), std::vector<std::string>{"OnMicTestVolume(42)"});

  engine_->EnableCaptureDesktopVideo(true);
  LiteavReset();
  log_.Clear();
  engine_->StartMicDeviceTest();
  engine_->StopMicDeviceTest();
  EXPECT_EQ(LiteavCallCount(), 0);
  EXPECT_EQ(log_.Messages(L"RTCEngineImpl"), std::vector<std::wstring>{L"StopMicDeviceTest"});
}

TEST_F(EngineDevice, OpenMicDeviceChoosesOnTheTaskThread) {
  engine_->OpenMicDevice(nullptr);  // nothing chosen yet: only logs
  DrainTaskThread();
  EXPECT_EQ(LiteavCallCount(), 0);
  log_.Clear();
  DeviceRecord record = {};
  strcpy(record.name, "Mic B");
  engine_->OpenMicDevice(&record);
  DeviceRecord empty = {};
  engine_->OpenMicDevice(&empty);  // keeps the choice, still posts
  engine_->OpenMicDevice(nullptr);
  DrainTaskThread();
  EXPECT_EQ(LiteavCountCalls("setCurrentMicDevice(Mic B)"), 3);
  DWORD thread = 0;
  LiteavGetCall(0, nullptr, 0, &thread);
  EXPECT_EQ(thread, TaskThreadId());
  EXPECT_EQ(log_.Count(L"OpenMicDevice:Mic B"), 1);
  EXPECT_EQ(log_.Count(L"OpenMicDevice:"), 1);
  EXPECT_EQ(log_.Count(L"OpenMicDevice:null.default device."), 1);
  EXPECT_EQ(log_.Count(L"OnOpenMicDeviceTask, is_in_room_: 0, is_open_mic_: 0"), 3);
  EXPECT_EQ(log_.Count(L"OnOpenMicDeviceTask, set_dev: Mic B, get_dev: Mic B"), 3);
}

TEST_F(EngineDevice, CaptureSystemAudioTaskAsksForTheSpeaker) {
  const std::wstring asked = L"OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0";
  const std::wstring named = L"OnEnableCaptureSystemAudioTask, getCurrentSpeakerDevice: Speaker A";
  const std::wstring unnamed = L"OnEnableCaptureSystemAudioTask, getCurrentSpeakerDevice: nulllptr";
  engine_->EnableCaptureSystemAudio(true);  // no current speaker
  DrainTaskThread();
  EXPECT_EQ(log_.Messages(L"RTCEngineImpl"),
            (std::vector<std::wstring>{L"EnableCaptureSystemAudio:1", asked}));
  LiteavSetCurrentDevice(TRTCDeviceTypeSpeaker, "Speaker A", false);
  engine_->EnableCaptureSystemAudio(true);
  DrainTaskThread();
  LiteavSetCurrentDevice(TRTCDeviceTypeSpeaker, nullptr, true);
  engine_->EnableCaptureSystemAudio(true);
  DrainTaskThread();
  EXPECT_EQ(log_.Count(asked), 3);
  EXPECT_EQ(log_.Count(named), 1);
  EXPECT_EQ(log_.Count(unnamed), 1);
  EXPECT_EQ(liteav_control::Calls(), std::vector<std::string>(3, "getCurrentSpeakerDevice()"));
}

TEST_F(EngineDevice, VolumesOutOfRangeAreDropped) {
  for (int volume : {101, -1, 100, 0}) engine_->SetSpeakerVolume(volume);
  EXPECT_EQ(liteav_control::Calls(),
            (std::vector<std::string>{"setCurrentSpeakerVolume(100)", "setCurrentSpeakerVolume(0)"}));
  EXPECT_TRUE(log_.Messages(L"RTCEngineImpl").empty());
}

// Hot-plug.

TEST_F(EngineDevice, MicHotPlugReloadsThenTellsTheHostOnTheTaskThread) {
  LiteavSetCurrentDevice(TRTCDeviceTypeMic, "Mic A", false);
  std::vector<std::string> seen;
  // The fresh list, from inside the event, without colliding with the engine.
  events_.on_device_changed = [&](int32_t) { seen = ListNames(engine_, &RTCEngine::GetMicDevices); };
  liteav_control::SetDevices(TRTCDeviceTypeMic, {"Mic B", "Mic C"});
  for (int state : {0, 1, 2}) {
    Fire([state](ITRTCCloudCallback* cb) { cb->onDeviceChange("Mic C", TRTCDeviceTypeMic, state); });
    ASSERT_TRUE(events_.WaitFor("OnDeviceChanged(1)", state + 1));
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"Mic B", "Mic C"}));
  EXPECT_EQ(events_.ThreadOf("OnDeviceChanged(1)"), TaskThreadId());
  EXPECT_TRUE(log_.Contains(L"onDeviceChange: Mic C , mic state is 0"));
  EXPECT_TRUE(log_.Contains(L"onDeviceChange: Mic C , mic state is 2"));
  EXPECT_EQ(log_.Count(L"OnMicChangedTask, get_dev: Mic A"), 3);
  EXPECT_EQ(LiteavCountCalls("getMicDevicesList"), 3);
}

TEST_F(EngineDevice, LossOfTheChosenCameraAloneClosesItThenReloadsAndTells) {
  DeviceRecord record = {};
  strcpy(record.name, "Cam A");
  engine_->SetCameraDevice(&record);
  engine_->OpenCamera(nullptr);
  engine_->StartCameraDeviceTest(nullptr);
  engine_->StopCameraDeviceTest();  // camera open: SDK test stays
  engine_->StartCameraDeviceTest(nullptr);
  LiteavReset();
  log_.Clear();
  Fire([](ITRTCCloudCallback* cb) {
    cb->onDeviceChange("Cam B", TRTCDeviceTypeCamera, TRTCDeviceStateRemove);
    cb->onDeviceChange("Cam A", TRTCDeviceTypeCamera, TRTCDeviceStateAdd);
    cb->onDeviceChange("Cam A", TRTCDeviceTypeCamera, TRTCDeviceStateActive);
  });
  ASSERT_TRUE(events_.WaitFor("OnDeviceChanged(0)", 3));
  EXPECT_EQ(liteav_control::Calls(), std::vector<std::string>(3, "getCameraDevicesList()"));
  EXPECT_FALSE(log_.Contains(L"CloseCamera"));

  LiteavReset();
  log_.Clear();
  std::vector<std::string> seen;
  events_.on_device_changed = [&](int32_t) { seen = ListNames(engine_, &RTCEngine::GetCameraDevices); };
  liteav_control::SetDevices(TRTCDeviceTypeCamera, {"Cam B"});
  Fire([](ITRTCCloudCallback* cb) {
    cb->onDeviceChange("Cam A", TRTCDeviceTypeCamera, TRTCDeviceStateRemove);
  });
  ASSERT_TRUE(events_.WaitFor("OnDeviceChanged(0)", 4));
  EXPECT_EQ(events_.ThreadOf("OnDeviceChanged(0)"), TaskThreadId());
  EXPECT_EQ(seen, std::vector<std::string>{"Cam B"});
  // The camera test kept the preview at CloseCamera; its stop then ended the test.
  EXPECT_EQ(liteav_control::Calls(),
            (std::vector<std::string>{"stopCameraDeviceTest()", "getCameraDevicesList()"}));
  EXPECT_EQ(
      log_.Messages(L"RTCEngineImpl"),
      (std::vector<std::wstring>{L"onDeviceChange: Cam A , camera state is 1", L"OnCameraChangedTask",
                                 L"CloseCamera", L"StopCameraDeviceTest", L"inner stopCameraDeviceTest"}));
}

TEST_F(EngineDevice, SpeakerChangesSteerSystemAudioCapture) {
  struct Case {
    int state;
    std::vector<std::wstring> lines;
  } cases[] = {
      {TRTCDeviceStateRemove,
       {L"onDeviceChange: Speaker A , speaker state is 1", L"OnSpeakChangeTask",
        L"EnableCaptureSystemAudio:0", L"EnableCaptureSystemAudio:0",
        L"OnEnableCaptureSystemAudioTask, enable: 0, is_record_system_voice_: 0"}},
      {TRTCDeviceStateAdd,
       {L"onDeviceChange: Speaker A , speaker state is 0", L"OnSpeakChangeTask",
        L"EnableCaptureSystemAudio:1", L"EnableCaptureSystemAudio:1",
        L"OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0"}},
      {TRTCDeviceStateActive, {L"onDeviceChange: Speaker A , speaker state is 2", L"OnSpeakChangeTask"}},
  };
  for (const Case& c : cases) {
    log_.Clear();
    const int state = c.state;
    Fire([state](ITRTCCloudCallback* cb) { cb->onDeviceChange("Speaker A", TRTCDeviceTypeSpeaker, state); });
    ASSERT_TRUE(log_.WaitFor(c.lines.back()));
    DrainTaskThread();
    std::vector<std::wstring> lines = log_.Messages(L"RTCEngineImpl");
    EXPECT_EQ(lines, c.lines) << state;
  }
  // A device type the engine doesn't know is freed without a word.
  log_.Clear();
  Fire([](ITRTCCloudCallback* cb) { cb->onDeviceChange("Thing", 7, TRTCDeviceStateAdd); });
  DrainTaskThread();
  EXPECT_TRUE(log_.Messages(L"RTCEngineImpl").empty());
  EXPECT_TRUE(events_.Events().empty());  // no host event for a speaker
}

}  // namespace
}  // namespace engine_test

namespace engine_test {
namespace {

class EngineStress : public EngineTest {};

// Host threads, the SDK's callback thread and the task thread all at once:
// the room calls hold lock_ across the SDK, the list reloads take it on the
// task thread, the host reads the lists from inside OnDeviceChanged. Nothing
// may deadlock and every event must arrive whole.
TEST_F(EngineStress, HostSdkAndTaskThreadsTogether) {
  std::atomic<int> lists_seen{0};
  events_.on_device_changed = [&](int32_t) {
    if (ListNames(engine_, &RTCEngine::GetCameraDevices).size() == 2) ++lists_seen;
  };
  std::atomic<bool> stop{false};
  std::thread room([&] {
    for (int i = 0; !stop; ++i) {
      engine_->EnterRoom("1", "2", i % 2 ? "alice" : "bob", "s");
      engine_->OpenCamera(nullptr);
      engine_->ExitRoom();
    }
  });
  std::thread devices([&] {
    DeviceRecord record = {};
    for (int i = 0; !stop; ++i) {
      strcpy(record.name, i % 2 ? "Cam A" : "Cam B");
      engine_->SetCameraDevice(&record);
      engine_->OpenMicDevice(&record);
      ListNames(engine_, &RTCEngine::GetMicDevices);
    }
  });
  for (int i = 0; i < 200; ++i) {
    Fire([i](ITRTCCloudCallback* cb) {
      cb->onDeviceChange(i % 2 ? "Cam A" : "Cam B", TRTCDeviceTypeCamera, i % 3);
      TRTCVolumeInfo volume = {"", static_cast<uint32_t>(i)};
      cb->onUserVoiceVolume(&volume, 1, 0);
    });
  }
  ASSERT_TRUE(events_.WaitFor("OnDeviceChanged(0)", 200, 20000));
  stop = true;
  room.join();
  devices.join();
  EXPECT_EQ(lists_seen, 200);
  for (const std::string& text : events_.Texts("OnUserVoiceVolume")) {
    ASSERT_TRUE(text.rfind("OnUserVoiceVolume(alice:", 0) == 0 ||
                text.rfind("OnUserVoiceVolume(bob:", 0) == 0 || text.rfind("OnUserVoiceVolume(:", 0) == 0)
        << text;
  }
}

}  // namespace
}  // namespace engine_test
