// The microphone test while the desktop is shared: the library's own level
// meter on the real default input of the test run's sound server, whose
// default source is the null sink's monitor. A tone played into the sink
// reaches the host as OnMicTestVolume.
#include <windows.h>

#include <atomic>
#include <thread>

#include "audio/tone_player.h"
#include "engine_test_support.h"

namespace engine_test {
namespace {

class EngineMicLevel : public EngineTest {
 protected:
  void SetUp() override {
    EngineTest::SetUp();
    ASSERT_TRUE(audio_testing::HasEndpoint(false, L"Null Output"))
        << "no null sink: run through scripts/test-env.sh, which starts the sound server";
  }
  int Count(const std::string& text) {
    int n = 0;
    for (const std::string& t : events_.Texts()) n += t == text;
    return n;
  }
  static std::vector<std::string> SdkTestCalls() {
    std::vector<std::string> calls;
    for (const std::string& call : liteav_control::Calls()) {
      if (call.find("MicDeviceTest") != std::string::npos) calls.push_back(call);
    }
    return calls;
  }
};

TEST_F(EngineMicLevel, ARealToneReachesTheHostWhileTheDesktopIsShared) {
  audio_testing::TonePlayer tone;
  ASSERT_TRUE(tone.Start(L"Null Output", 50.0, 1.0, audio_testing::TonePlayer::Shape::kSquare));
  engine_->EnableCaptureDesktopVideo(true);
  LiteavReset();
  engine_->StartMicDeviceTest();
  // A full-scale square wave measures 67; reports come every 600 ms.
  EXPECT_TRUE(events_.WaitFor("OnMicTestVolume(67)", 1, 10000)) << testing::PrintToString(events_.Texts());
  engine_->StopMicDeviceTest();
  EXPECT_EQ(events_.Texts().back(), "OnMicTestVolume(0)") << "the stopped capture reports 0";
  EXPECT_TRUE(SdkTestCalls().empty());
  // Stopped means stopped: the capture thread is gone, and no report comes
  // in the next two intervals although the tone still plays.
  const int loud = Count("OnMicTestVolume(67)");
  EXPECT_FALSE(events_.WaitFor("OnMicTestVolume(67)", loud + 1, 1300));
}

TEST_F(EngineMicLevel, TheStopGoesToTheEngineThatTheDesktopFlagNamesAndEndsTheLibrarysCapture) {
  // Started on the SDK, stopped while sharing: the SDK hears nothing more.
  engine_->StartMicDeviceTest();
  engine_->EnableCaptureDesktopVideo(true);
  engine_->StopMicDeviceTest();
  EXPECT_EQ(SdkTestCalls(), std::vector<std::string>{"startMicDeviceTest(400)"});

  // Started while sharing, stopped after: the SDK gets the stop, and the
  // library's capture ends too.
  audio_testing::TonePlayer tone;
  ASSERT_TRUE(tone.Start(L"Null Output", 50.0, 1.0, audio_testing::TonePlayer::Shape::kSquare));
  LiteavReset();
  engine_->StartMicDeviceTest();
  ASSERT_TRUE(events_.WaitFor("OnMicTestVolume(67)", 1, 10000));
  engine_->EnableCaptureDesktopVideo(false);
  engine_->StopMicDeviceTest();
  EXPECT_EQ(SdkTestCalls(), std::vector<std::string>{"stopMicDeviceTest()"});
  EXPECT_EQ(events_.Texts().back(), "OnMicTestVolume(0)") << "the stopped capture reports 0";
}

// A host that stops the test from inside its level event holds up neither
// the capture thread nor later calls nor the release.
TEST_F(EngineMicLevel, AHandlerThatStopsTheTestHoldsNothingUp) {
  audio_testing::TonePlayer tone;
  ASSERT_TRUE(tone.Start(L"Null Output", 50.0, 1.0, audio_testing::TonePlayer::Shape::kSquare));
  base::ScopedHandle returned(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  base::ScopedHandle done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::atomic<bool> stopped{false};
  events_.on_event = [&](const std::string& text) {
    if (text != "OnMicTestVolume(67)" || stopped.exchange(true)) return;
    engine_->StopMicDeviceTest();
    SetEvent(returned.get());
  };
  engine_->EnableCaptureDesktopVideo(true);
  engine_->StartMicDeviceTest();
  ASSERT_EQ(WaitForSingleObject(returned.get(), 10000), WAIT_OBJECT_0) << "the stop inside the event hangs";
  // A thread of its own: should the calls hang, the test still ends (and
  // the run with it) rather than waiting for them.
  std::thread([&] {
    engine_->StartMicDeviceTest();
    engine_->StopMicDeviceTest();
    ReleaseRTCEngine();
    SetEvent(done.get());
  }).detach();
  EXPECT_EQ(WaitForSingleObject(done.get(), 10000), WAIT_OBJECT_0) << "a later call or the release hangs";
}

TEST_F(EngineMicLevel, RoomEndRestartsTheLibrarysMicTest) {
  audio_testing::TonePlayer tone;
  ASSERT_TRUE(tone.Start(L"Null Output", 50.0, 1.0, audio_testing::TonePlayer::Shape::kSquare));
  EnterRoomAndWait();
  engine_->EnableCaptureDesktopVideo(true);
  engine_->StartMicDeviceTest();
  ASSERT_TRUE(events_.WaitFor("OnMicTestVolume(67)", 1, 10000));
  Fire([](ITRTCCloudCallback* cb) { cb->onExitRoom(0); });
  ASSERT_TRUE(events_.WaitFor("OnExitRoom(0,success)"));
  // The old capture's end, then the new capture's reports.
  ASSERT_TRUE(events_.WaitFor("OnMicTestVolume(0)"));
  EXPECT_TRUE(events_.WaitFor("OnMicTestVolume(67)", Count("OnMicTestVolume(67)") + 1, 10000));
  EXPECT_TRUE(SdkTestCalls().empty());
  engine_->StopMicDeviceTest();
}

}  // namespace
}  // namespace engine_test
