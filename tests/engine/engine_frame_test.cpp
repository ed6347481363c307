// Creation, the task thread and its queue, registration and release.
#include <objbase.h>

#include <thread>

#include "engine_test_support.h"

namespace engine_test {
namespace {

using testing_support::LogCapture;

class EngineFrame : public EngineTest {};

TEST_F(EngineFrame, TwoCreatesGiveOneEngineAndOneTaskThread) {
  const int instances = LiteavInstanceCount();
  EXPECT_EQ(CreaeRTCEngine(), engine_);
  EXPECT_EQ(LiteavInstanceCount(), instances);
  EXPECT_EQ(log_.Count(L"DoTaskCore Enter", L"RTCEngineImpl"), 0);
}

// Create blocks until the task thread has made the SDK object and loaded the
// lists; release unregisters, destroys the SDK object last from the host's
// thread, and waits for the task thread.
TEST(EngineLifecycle, CreateInitializeRelease) {
  LogCapture log;
  LiteavReset();
  liteav_control::SetDevices(TRTCDeviceTypeCamera, {"C1", "C2"});
  RecordingEvents events;
  RTCEngine* engine = CreaeRTCEngine();
  const std::vector<std::string> created = {"getTRTCShareInstance()", "getMicDevicesList()",
                                            "getCameraDevicesList()"};
  EXPECT_EQ(liteav_control::Calls(), created);
  EXPECT_NE(LiteavInstanceThreadId(), GetCurrentThreadId());
  base::ScopedHandle thread(OpenThread(SYNCHRONIZE, FALSE, LiteavInstanceThreadId()));
  ASSERT_TRUE(thread);
  EXPECT_EQ(ListNames(engine, &RTCEngine::GetCameraDevices), (std::vector<std::string>{"C1", "C2"}));
  engine->Initialize(nullptr, &events);
  // The SDK's log lines go to the TRTC log.
  liteav_control::RunOnCallbackThread([] { LiteavLogCallback()->onLog(u8"caf\u00e9 ready", 2, "mod"); });
  EXPECT_TRUE(log.Contains(L"caf\u00e9 ready", L"TRTC"));
  ReleaseRTCEngine();
  EXPECT_EQ(WaitForSingleObject(thread.get(), 5000), WAIT_OBJECT_0);
  std::vector<std::string> calls = created;
  calls.insert(calls.end(), {"setLogLevel(1)", "setLogCallback(callback)", "addCallback(callback)",
                             "setLocalVideoRenderCallback(3,1,callback)", "removeCallback(callback)",
                             "destroyTRTCShareInstance()"});
  EXPECT_EQ(liteav_control::Calls(), calls);
  DWORD destroyer = 0;
  LiteavGetCall(LiteavCallCount() - 1, nullptr, 0, &destroyer);
  EXPECT_EQ(destroyer, GetCurrentThreadId());
  const std::vector<std::wstring> lines = log.Messages(L"RTCEngineImpl");
  ASSERT_GE(lines.size(), 5u);
  EXPECT_EQ(std::vector<std::wstring>(lines.begin(), lines.begin() + 3),
            (std::vector<std::wstring>{L"PreInitialize", L"DoTaskCore Enter", L"DoTaskCore Enter2"}));
  EXPECT_EQ(std::vector<std::wstring>(lines.end() - 2, lines.end()),
            (std::vector<std::wstring>{L"~RTCEngineImpl", L"UnInitialize"}));
}

TEST(EngineLifecycle, CreateReleaseCreateGivesNewThreadAndReloadedLists) {
  LiteavReset();
  liteav_control::SetDevices(TRTCDeviceTypeMic, {"Old mic"});
  CreaeRTCEngine();
  const DWORD first_thread = LiteavInstanceThreadId();
  const int instances = LiteavInstanceCount();
  ReleaseRTCEngine();
  EXPECT_FALSE(LiteavInstanceAlive());
  ReleaseRTCEngine();  // nothing left to release
  liteav_control::SetDevices(TRTCDeviceTypeMic, {"New mic 1", "New mic 2"});
  RTCEngine* engine = CreaeRTCEngine();
  EXPECT_EQ(LiteavInstanceCount(), instances + 1);
  EXPECT_NE(LiteavInstanceThreadId(), first_thread);
  EXPECT_EQ(ListNames(engine, &RTCEngine::GetMicDevices),
            (std::vector<std::string>{"New mic 1", "New mic 2"}));
  ReleaseRTCEngine();
}

TEST(EngineLifecycle, PostRightAfterCreateIsNotLost) {
  LogCapture log;
  LiteavReset();
  for (int i = 0; i < 10; ++i) {
    RTCEngine* engine = CreaeRTCEngine();
    engine->EnableCaptureSystemAudio(true);
    EXPECT_TRUE(log.WaitFor(L"OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0", i + 1));
    ReleaseRTCEngine();
  }
}

TEST_F(EngineFrame, PostsRunInOrder) {
  std::vector<std::wstring> expected, served;
  for (int i = 0; i < 40; ++i) {
    engine_->EnableCaptureSystemAudio(i % 3 == 0);
    expected.push_back(std::wstring(L"OnEnableCaptureSystemAudioTask, enable: ") +
                       (i % 3 == 0 ? L"1" : L"0") + L", is_record_system_voice_: 0");
  }
  DrainTaskThread();
  for (const std::wstring& line : log_.Messages(L"RTCEngineImpl")) {
    if (line.rfind(L"OnEnableCaptureSystemAudioTask, enable:", 0) == 0) served.push_back(line);
  }
  EXPECT_EQ(served, expected);
}

TEST_F(EngineFrame, ForeignMessageNumbersAreOnlyDispatched) {
  const DWORD task = TaskThreadId();
  // Were 8999 or 9008 taken for device messages, these parameters would be
  // freed as records; were either taken for 9000, the thread would end.
  ASSERT_TRUE(PostThreadMessageW(task, 8999, 0x10, 0));
  ASSERT_TRUE(PostThreadMessageW(task, 9008, 0x20, 0));
  DrainTaskThread();
  EXPECT_EQ(LiteavCallCount(), 0);
  EXPECT_TRUE(events_.Events().empty());
}

// (That it hands what else reaches it to DispatchMessageW every drain of the
// fixture shows: DrainTaskThread posts a WM_TIMER carrying a procedure.)
TEST_F(EngineFrame, TaskThreadRunsInAComApartment) {
  HRESULT com = E_FAIL;
  events_.on_device_changed = [&](int32_t) {
    com = CoInitialize(nullptr);  // S_FALSE: COM was already initialised on this thread
    if (SUCCEEDED(com)) CoUninitialize();
  };
  Fire([](ITRTCCloudCallback* cb) { cb->onDeviceChange("Mic A", TRTCDeviceTypeMic, TRTCDeviceStateAdd); });
  ASSERT_TRUE(events_.WaitFor("OnDeviceChanged(1)"));
  EXPECT_EQ(com, S_FALSE);
}

TEST_F(EngineFrame, WmQuitEndsTheLoop) {
  base::ScopedHandle thread(OpenThread(SYNCHRONIZE, FALSE, TaskThreadId()));
  ASSERT_TRUE(thread);
  ASSERT_TRUE(PostThreadMessageW(TaskThreadId(), WM_QUIT, 0, 0));
  EXPECT_EQ(WaitForSingleObject(thread.get(), 5000), WAIT_OBJECT_0);
  engine_->EnableCaptureSystemAudio(true);
  // Release must not wait for a thread that is gone.
  ReleaseRTCEngine();
  EXPECT_FALSE(log_.Contains(L"OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0"));
}

TEST_F(EngineFrame, EventsStopAfterUnInitializeWhileSdkWorkGoesOn) {
  engine_->UnInitialize();
  EXPECT_TRUE(log_.Contains(L"UnInitialize"));
  Fire([](ITRTCCloudCallback* cb) {
    cb->onUserEnter("bob");
    cb->onEnterRoom(10);
    cb->onError(-1, "boom", nullptr);
    cb->onNetworkQuality({"", 6}, nullptr, 0);
    cb->onDeviceChange("Cam A", TRTCDeviceTypeCamera, TRTCDeviceStateRemove);
    cb->onTestMicVolume(5);
    TRTCVolumeInfo volume = {"", 10};
    cb->onUserVoiceVolume(&volume, 1, 10);
  });
  TRTCVideoFrame frame = {};
  frame.video_format = TRTCVideoPixelFormat_BGRA32;
  frame.width = 2;
  frame.height = 2;
  frame.rotation = 1;
  liteav_control::RunOnCallbackThread(
      [&] { LiteavLocalRenderCallback()->onRenderVideoFrame("", 0, &frame); });
  DrainTaskThread();
  EXPECT_TRUE(events_.Events().empty());
  // The work round the events went on: the user's stream, the room state.
  EXPECT_EQ(LiteavCountCalls("startRemoteView(bob,0)"), 1);
  EXPECT_EQ(LiteavCountCalls("enableAudioVolumeEvaluation(600)"), 1);
  EXPECT_TRUE(engine_->IsInRoom());
  // Frames and device events are dropped whole: no rotation, no log, no reload.
  EXPECT_EQ(LiteavCountCalls("setLocalViewRotation"), 0);
  EXPECT_FALSE(log_.Contains(L"onDeviceChange: Cam A , camera state is 1"));
  EXPECT_EQ(LiteavCountCalls("getCameraDevicesList"), 0);
}

}  // namespace
}  // namespace engine_test

namespace engine_test {
namespace {

// A callback still under way on an SDK thread when the host releases the
// engine finishes with the SDK object before that object is destroyed. The
// host's event holds the callback until the SDK's destruction begins, or for
// half a second when the release rightly waits for the callback.
TEST_F(EngineFrame, ReleaseLetsACallbackUnderWayFinishBeforeTheSdkGoes) {
  ITRTCCloudCallback* sdk = nullptr;
  liteav_control::RunOnCallbackThread([&] { sdk = LiteavCloudCallback(); });
  base::ScopedHandle in_event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  events_.on_event = [&](const std::string& text) {
    if (text != "OnUserEnter(bob)") return;
    SetEvent(in_event.get());
    LiteavWaitForCall("destroyTRTCShareInstance", 1, 500);
  };
  std::thread sdk_thread([&] { sdk->onUserEnter("bob"); });
  ASSERT_EQ(WaitForSingleObject(in_event.get(), 5000), WAIT_OBJECT_0);
  ReleaseRTCEngine();
  sdk_thread.join();
  const std::vector<std::string> calls = liteav_control::Calls();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ(calls.back(), "destroyTRTCShareInstance()");
  EXPECT_EQ(LiteavCountCalls("startRemoteView(bob,0)"), 1);
}

}  // namespace
}  // namespace engine_test
