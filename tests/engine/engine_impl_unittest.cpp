// The engine's internal face that a host can't reach: the microphone-test
// level callback, and the end of the task loop.
#include <gtest/gtest.h>

#include "../base/allocation_counter.h"
#include "engine/rtc_engine_impl.h"
#include "engine_test_support.h"

class RTCEngineImplTestPeer {
 public:
  static DWORD TaskThread(RTCEngineImpl* engine) { return engine->task_thread_id_; }
  static bool WaitForTaskEnd(RTCEngineImpl* engine) {
    return WaitForSingleObject(engine->stop_event_.get(), 5000) == WAIT_OBJECT_0;
  }
};

namespace engine_test {
namespace {

TEST(RTCEngineImpl, AudioLevelsBecomeMicTestVolumesWhileAHostListens) {
  LiteavReset();
  RecordingEvents events;
  RTCEngineImpl* engine = new RTCEngineImpl();
  AudioDeviceTestEvent* test_event = engine;
  test_event->OnAudioLevel(3);  // no host yet
  engine->Initialize(nullptr, &events);
  test_event->OnAudioLevel(67);
  engine->UnInitialize();
  test_event->OnAudioLevel(5);
  delete engine;
  EXPECT_EQ(events.Texts(), std::vector<std::string>{"OnMicTestVolume(67)"});
}

// Device records posted behind the loop's end are freed with it, and once
// the loop has ended the id is 0, so that no post goes to a thread that is
// gone; a record that can't be posted is freed by the poster.
TEST(RTCEngineImpl, RecordsQueuedBehindTheEndOfTheTaskLoopAreFreed) {
  LiteavReset();
  RecordingEvents events;
  for (UINT end : {static_cast<UINT>(kTaskQuit), static_cast<UINT>(WM_QUIT)}) {
    delete new RTCEngineImpl();  // first-use allocations of the runtime stay
    const int64_t live = testing_support::LiveAllocations();
    RTCEngineImpl* engine = new RTCEngineImpl();
    engine->Initialize(nullptr, &events);
    ASSERT_TRUE(PostThreadMessageW(RTCEngineImplTestPeer::TaskThread(engine), end, 0, 0));
    for (int32_t type : {TRTCDeviceTypeMic, TRTCDeviceTypeCamera, TRTCDeviceTypeSpeaker})
      engine->onDeviceChange("usb", type, TRTCDeviceStateAdd);
    ASSERT_TRUE(RTCEngineImplTestPeer::WaitForTaskEnd(engine));
    EXPECT_EQ(RTCEngineImplTestPeer::TaskThread(engine), 0u);
    engine->onDeviceChange("usb", TRTCDeviceTypeMic, TRTCDeviceStateAdd);
    delete engine;
    EXPECT_EQ(testing_support::LiveAllocations(), live) << end;
  }
}

}  // namespace
}  // namespace engine_test
