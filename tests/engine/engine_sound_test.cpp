// The library's own level meter while sharing, on the null sink's monitor: a full-scale tone measures 67.
#include <windows.h>

#include <atomic>
#include <thread>

#include "audio/tone_player.h"
#include "engine_test_support.h"

namespace engine_test {
namespace {

// The stop goes where the desktop flag points now and ends the library's capture; a room's end restarts it.
TEST_F(EngineTest, TheLibrarysTestRunsWhileSharingAndEndsWithTheStop) {
  audio_testing::TonePlayer tone;
  ASSERT_TRUE(tone.Start(L"Null Output", 50.0, 1.0, audio_testing::TonePlayer::Shape::kSquare))
      << "no null sink: run through scripts/test-env.sh, which starts the sound server";
  Run("StartMicDeviceTest; EnableCaptureDesktopVideo(1); StopMicDeviceTest; EnterRoom(1400,1234,alice,sig); "
      "StartMicDeviceTest");
  ASSERT_TRUE(events_.WaitFor("OnMicTestVolume(67)", 1, 10000)) << testing::PrintToString(events_.Of());
  liteav_control::FireCloud([](ITRTCCloudCallback* sdk) { sdk->onExitRoom(0); });
  ASSERT_TRUE(events_.WaitFor("OnMicTestVolume(0)"));  // the old capture's end, then the new one's reports
  ASSERT_TRUE(events_.WaitFor("OnMicTestVolume(67)", events_.Count("OnMicTestVolume(67)") + 1, 10000));
  Run("EnableCaptureDesktopVideo(0); StopMicDeviceTest");
  EXPECT_EQ(events_.Of().back(), "OnMicTestVolume(0)") << "the stopped capture reports 0";
  EXPECT_EQ(LiteavCountCalls("startMicDeviceTest(400)") + LiteavCountCalls("stopMicDeviceTest()"), 2);
  EXPECT_EQ(SdkCalls(0).back(), "stopMicDeviceTest()");
  // No report comes in the next two intervals although the tone plays on.
  EXPECT_FALSE(events_.WaitFor("OnMicTestVolume(67)", events_.Count("OnMicTestVolume(67)") + 1, 1300));
}
// A stop from inside the level event holds up neither the capture thread nor later calls nor the release.
TEST_F(EngineTest, AHandlerThatStopsTheTestHoldsNothingUp) {
  audio_testing::TonePlayer tone;
  ASSERT_TRUE(tone.Start(L"Null Output", 50.0, 1.0, audio_testing::TonePlayer::Shape::kSquare));
  base::ScopedHandle returned(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::atomic<bool> stopped{false};
  events_.on_event = [&](const std::string& text) {
    if (text == "OnMicTestVolume(67)" && !stopped.exchange(true))
      Run("StopMicDeviceTest"), SetEvent(returned.get());
  };
  Run("EnableCaptureDesktopVideo(1); StartMicDeviceTest");
  ASSERT_EQ(WaitForSingleObject(returned.get(), 10000), WAIT_OBJECT_0) << "the stop inside the event hangs";
  HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);  // left behind should the calls hang
  std::thread([this, done] {
    Run("StartMicDeviceTest; StopMicDeviceTest; release"), SetEvent(done);
  }).detach();
  EXPECT_EQ(WaitForSingleObject(done, 10000), WAIT_OBJECT_0) << "a later call or the release hangs";
}

}  // namespace
}  // namespace engine_test
