// Room membership: entering and leaving, user events, quality, statistics,
// voice volumes.
#include "engine_test_support.h"
#include "roomcore/clock.h"

namespace engine_test {
namespace {

class EngineRoom : public EngineTest {};

TEST_F(EngineRoom, EnterRoomPostsToTheTaskThreadAndTheAnswerComesFromTheSdkThread) {
  ASSERT_TRUE(engine_->EnterRoom("1400000001", "1234", "alice", "sig"));
  EXPECT_TRUE(log_.Contains(L"EnterRoom:app_id:1400000001, room_id:1234, usr_id:alice, usr_sign:sig"));
  ASSERT_TRUE(events_.WaitFor("OnEnterRoom(0,success)"));
  EXPECT_EQ(events_.ThreadOf("OnEnterRoom(0,success)"), LiteavCallbackThreadId());
  EXPECT_TRUE(engine_->IsInRoom());
  EXPECT_EQ(liteav_control::Calls()[0], "enterRoom(1400000001,1234,alice,sig,0,(null),(null),(null),0)");
  DWORD enter_thread = 0;
  LiteavGetCall(0, nullptr, 0, &enter_thread);
  EXPECT_EQ(enter_thread, TaskThreadId());
  // The room's encoder and network settings, every constant, then the volumes.
  EXPECT_EQ(liteav_control::Calls(),
            (std::vector<std::string>{"enterRoom(1400000001,1234,alice,sig,0,(null),(null),(null),0)",
                                      "setVideoEncoderParam(56,0,12,250)", "setNetworkQosParam(1,1)",
                                      "setLocalViewMirror(1)", "setBeautyStyle(0,2,2,1)",
                                      "setSubStreamEncoderParam(114,0,12,400)",
                                      "enableAudioVolumeEvaluation(600)"}));
  // An SDK error reaches the host as it came.
  Fire([](ITRTCCloudCallback* cb) { cb->onError(-1301, "camera failed", nullptr); });
  EXPECT_EQ(events_.Texts("OnError"), std::vector<std::string>{"OnError(-1301,camera failed)"});
  EXPECT_TRUE(log_.Contains(L"onError:camera failed, code=-1301"));
}

TEST_F(EngineRoom, EnterRoomWithNullArgumentsFailsAndKeepsTheLastRoom) {
  EnterRoomAndWait();
  struct Case {
    const char* args[4];
    const wchar_t* message;
  } cases[] = {
      {{nullptr, "2", "bob", "s"}, L"EnterRoom:app_id is null.failed!"},
      {{"1", nullptr, "bob", "s"}, L"EnterRoom:room_id is null.failed!"},
      {{"1", "2", nullptr, "s"}, L"EnterRoom:usr_id is null.failed!"},
      {{"1", "2", "bob", nullptr}, L"EnterRoom:usr_sign is null.failed!"},
      {{nullptr, nullptr, nullptr, nullptr}, L"EnterRoom:app_id is null.failed!"},
  };
  for (const Case& c : cases) {
    log_.Clear();
    EXPECT_FALSE(engine_->EnterRoom(c.args[0], c.args[1], c.args[2], c.args[3]));
    EXPECT_EQ(log_.Messages(L"RTCEngineImpl"), std::vector<std::wstring>{c.message});
  }
  // Nothing was stored: entering again uses the last room's parameters.
  EXPECT_TRUE(engine_->ReEnterRoom());
  ASSERT_TRUE(LiteavWaitForCall("enterRoom", 2, 5000));
  EXPECT_EQ(liteav_control::CallsNamed("enterRoom")[1],
            "enterRoom(1400000001,1234,alice,sig,0,(null),(null),(null),0)");
  // Empty and non-numeric text passes.
  LiteavSetAutoAnswer(false);
  ASSERT_TRUE(engine_->EnterRoom("", "room", "", ""));
  ASSERT_TRUE(LiteavWaitForCall("enterRoom", 3, 5000));
  EXPECT_EQ(liteav_control::CallsNamed("enterRoom")[2], "enterRoom(0,0,,,0,(null),(null),(null),0)");
}

// ExitRoom by the host and a room the SDK ends close camera and microphone
// alike, each once.
TEST_F(EngineRoom, ExitRoomByTheHostOrTheSdkClosesOnce) {
  for (bool by_host : {true, false}) {
    events_.Clear();
    EnterRoomAndWait();
    engine_->OpenCamera(nullptr);
    LiteavReset();
    log_.Clear();
    if (by_host) {
      EXPECT_TRUE(engine_->ExitRoom());
      EXPECT_FALSE(engine_->IsInRoom());
    } else {
      Fire([](ITRTCCloudCallback* cb) { cb->onExitRoom(2); });
    }
    ASSERT_TRUE(events_.WaitFor("OnExitRoom(0,success)")) << by_host;
    EXPECT_FALSE(engine_->IsInRoom());
    DrainTaskThread();
    EXPECT_EQ(log_.Count(L"CloseCamera"), 1) << by_host;
    EXPECT_EQ(log_.Count(L"OnCloseMicDeviceTask: 0"), 1) << by_host;
    EXPECT_EQ(LiteavCountCalls("stopLocalPreview"), 1) << by_host;
    EXPECT_EQ(LiteavCountCalls("exitRoom"), by_host ? 1 : 0);
    const std::vector<std::wstring> lines = log_.Messages(L"RTCEngineImpl");
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[0], by_host ? L"ExitRoom" : L"onExitRoom");
    EXPECT_TRUE(log_.Contains(L"onExitRoom"));
  }
}

TEST_F(EngineRoom, RoomEndRestartsRunningDeviceTests) {
  EnterRoomAndWait();
  engine_->StartMicDeviceTest();
  engine_->StartCameraDeviceTest(reinterpret_cast<HWND>(0x40));
  LiteavReset();
  Fire([](ITRTCCloudCallback* cb) { cb->onExitRoom(0); });
  ASSERT_TRUE(events_.WaitFor("OnExitRoom(0,success)"));
  std::vector<std::string> tests;
  for (const std::string& call : liteav_control::Calls()) {
    if (call.find("DeviceTest") != std::string::npos) tests.push_back(call);
  }
  EXPECT_EQ(tests, (std::vector<std::string>{"stopMicDeviceTest()", "startMicDeviceTest(400)",
                                             "stopCameraDeviceTest()", "startCameraDeviceTest(0)"}));
}

TEST_F(EngineRoom, UserEnterStartsTheRemoteViewAndUserExitStopsIt) {
  Fire([](ITRTCCloudCallback* cb) { cb->onUserEnter("bob"); });
  EXPECT_EQ(events_.Texts(), std::vector<std::string>{"OnUserEnter(bob)"});
  EXPECT_EQ(liteav_control::Calls(),
            (std::vector<std::string>{"setRemoteVideoRenderCallback(bob,3,1,callback)",
                                      "setAudioFrameCallback(callback)", "startRemoteView(bob,0)"}));
  LiteavReset();
  Fire([](ITRTCCloudCallback* cb) { cb->onUserExit("bob", 3); });
  EXPECT_EQ(events_.Texts("OnUserExit"), std::vector<std::string>{"OnUserExit(bob,3)"});
  EXPECT_EQ(liteav_control::Calls(), std::vector<std::string>{"stopRemoteView(bob)"});
  EXPECT_TRUE(log_.Contains(L"onUserEnter:bob"));
  EXPECT_TRUE(log_.Contains(L"onUserExit:bob"));
}

TEST_F(EngineRoom, SubStreamOfTheChosenDesktopUserStartsItsView) {
  engine_->StartRemoteDesktopView("carol", reinterpret_cast<HWND>(0x55));
  engine_->StopRemoteDesktopView("carol");
  LiteavReset();
  log_.Clear();
  Fire([](ITRTCCloudCallback* cb) {
    cb->onUserSubStreamAvailable("carol", false);
    cb->onUserSubStreamAvailable("dave", true);
    cb->onUserSubStreamAvailable("carol", true);
  });
  EXPECT_EQ(liteav_control::Calls(), std::vector<std::string>{"startRemoteSubStreamView(carol,0)"});
  EXPECT_EQ(events_.Texts().size(), 3u);
  EXPECT_EQ(log_.Messages(L"RTCEngineImpl").back(),
            L"onUserSubStreamAvailable call startRemoteSubStreamView:carol");
}

TEST_F(EngineRoom, NetworkQualityMapping) {
  Fire([](ITRTCCloudCallback* cb) {
    for (int q : {1, 2, 3, 4, 5, 6, 0, 7, 1, 0}) cb->onNetworkQuality({"", q}, nullptr, 0);
  });
  std::vector<std::string> expected;
  for (int status : {0, 0, 0, 0, 1, 1, 1, 1, 0, 0})
    expected.push_back("OnNetworkQuality(" + std::to_string(status) + ")");
  EXPECT_EQ(events_.Texts(), expected);
}

TRTCStatistics Stats(int64_t received, int64_t sent) {
  TRTCStatistics stats = {};
  stats.rtt = 45;
  stats.up_loss = 3;
  stats.down_loss = 4;
  stats.app_cpu = 11;
  stats.system_cpu = 37;
  stats.received_bytes = received;
  stats.sent_bytes = sent;
  return stats;
}

// Waits until more than a second (but less than two) has passed since `from`.
void OverASecondSince(int64_t from) {
  ASSERT_TRUE(testing_support::WaitUntil([&] { return TimeMilliseconds() - from >= 1050; }, 3000));
}

// The first statistics only set the baseline; statistics within a second of
// it are swallowed but move it; later ones give rates over whole seconds.
TEST_F(EngineRoom, StatisticsRatesAfterTheBaseline) {
  EnterRoomAndWait();
  Fire([](ITRTCCloudCallback* cb) {
    cb->onNetworkQuality({"", 4}, nullptr, 0);
    cb->onStatistics(Stats(0, 0));
    cb->onStatistics(Stats(1000000, 500000));  // well under a second later
  });
  const int64_t baseline_after = TimeMilliseconds();
  EXPECT_TRUE(events_.Texts("OnStatistics").empty());
  // Over 1 to 2 seconds (truncated to 1) since the second callback, not the
  // first: 2048000 bytes received, 102400 sent.
  OverASecondSince(baseline_after);
  TRTCRemoteStatistics remotes[3] = {};
  remotes[0].user_id = "bob";
  remotes[0].final_loss = 7;
  remotes[1].user_id = "carol";
  remotes[1].final_loss = 8;
  remotes[1].stream_type = 2;
  remotes[2].user_id = "dave";
  remotes[2].stream_type = 1;
  events_.remote_count_hint = 3;
  Fire([&](ITRTCCloudCallback* cb) {
    TRTCStatistics stats = Stats(3048000, 602400);
    stats.remote_statistics_array = remotes;
    stats.remote_statistics_array_size = 3;
    cb->onStatistics(stats);
    cb->onStatistics(Stats(3048000, 602400));  // again at once: swallowed
  });
  EXPECT_EQ(events_.Texts("OnStatistics"),
            std::vector<std::string>{"OnStatistics(rtt=45,quality=2,send=100,recv=2000,loss=3/4,cpu=11/37,"
                                     "tenth=0,remotes=bob:7:1;carol:8:2;dave:0:1)"});
  // A remote count of 0 hands over no array, even where the SDK gave one.
  const int64_t second_baseline = TimeMilliseconds();
  OverASecondSince(second_baseline);
  Fire([&](ITRTCCloudCallback* cb) {
    TRTCStatistics stats = Stats(3048000, 602400);
    stats.remote_statistics_array = remotes;
    stats.remote_statistics_array_size = 0;
    cb->onStatistics(stats);
  });
  const std::vector<std::string> reported = events_.Texts("OnStatistics");
  ASSERT_EQ(reported.size(), 2u);
  EXPECT_NE(reported[1].find(",remotes=null)"), std::string::npos) << reported[1];
}

TEST_F(EngineRoom, StatisticsWithoutHostSetNoBaseline) {
  EnterRoomAndWait();
  engine_->UnInitialize();
  Fire([](ITRTCCloudCallback* cb) { cb->onStatistics(Stats(0, 0)); });
  engine_->Initialize(nullptr, &events_);
  Fire([](ITRTCCloudCallback* cb) { cb->onStatistics(Stats(4096000, 0)); });
  EXPECT_TRUE(events_.Texts("OnStatistics").empty());
}

TEST_F(EngineRoom, VoiceVolumesNameTheLocalUserAndFeedARunningMicTestFirst) {
  EnterRoomAndWait("alice");
  Fire([](ITRTCCloudCallback* cb) {
    TRTCVolumeInfo volumes[2] = {{"", 50}, {"bob", 30}};
    cb->onUserVoiceVolume(volumes, 2, 50);
    cb->onUserVoiceVolume(volumes, 0, 50);
  });
  EXPECT_EQ(events_.Texts("OnUserVoiceVolume"),
            std::vector<std::string>{"OnUserVoiceVolume(alice:50,bob:30)"});
  EXPECT_TRUE(events_.Texts("OnMicTestVolume").empty());
  engine_->StartMicDeviceTest();
  events_.Clear();
  Fire([](ITRTCCloudCallback* cb) {
    TRTCVolumeInfo volumes[2] = {{"bob", 30}, {"", 61}};
    cb->onUserVoiceVolume(volumes, 2, 61);
  });
  EXPECT_EQ(events_.Texts(),
            (std::vector<std::string>{"OnMicTestVolume(61)", "OnUserVoiceVolume(bob:30,alice:61)"}));
}

TEST_F(EngineRoom, OverlongUserIdsAreCutWithANul) {
  const std::string long_id(300, 'x');
  EnterRoomAndWait(long_id.c_str());
  Fire([&](ITRTCCloudCallback* cb) {
    TRTCVolumeInfo volumes[2] = {{"", 1}, {long_id.c_str(), 2}};
    cb->onUserVoiceVolume(volumes, 2, 2);
  });
  const std::string cut(127, 'x');
  EXPECT_EQ(events_.Texts("OnUserVoiceVolume"),
            std::vector<std::string>{"OnUserVoiceVolume(" + cut + ":1," + cut + ":2)"});
}

}  // namespace
}  // namespace engine_test
