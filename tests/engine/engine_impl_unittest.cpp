// The engine's internal face that a host can't reach: the microphone-test
// level callback, and the end of the task loop.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

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

// Runs `action` on the thread that first writes into a guarded page: in the
// middle of whatever does the writing.
std::function<void()> g_on_guard_page;
LONG CALLBACK OnGuardPage(EXCEPTION_POINTERS* info) {
  if (info->ExceptionRecord->ExceptionCode != STATUS_GUARD_PAGE_VIOLATION) return EXCEPTION_CONTINUE_SEARCH;
  g_on_guard_page();
  return EXCEPTION_CONTINUE_EXECUTION;  // the page is plain memory now
}

// The frames kept for reuse go back when the host uninitialises and when
// the stream stops, even one that a pull under way gives back after the
// switch-off.
TEST(RTCEngineImpl, DesktopFramesGoBackWhenTheHostLeavesOrTheStreamStops) {
  LiteavReset();
  RTCEngine* engine = CreaeRTCEngine();
  std::vector<uint8_t> picture(64 * 32 * 3 / 2, 7), buffer(picture.size());
  void* page = VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
  g_on_guard_page = [&] { engine->EnableCaptureDesktopVideo(false); };
  void* handler = AddVectoredExceptionHandler(1, &OnGuardPage);
  // The first round makes what the runtime keeps after first use.
  for (int round = 0; round < 2; ++round) {
    engine->EnableCaptureDesktopVideo(true);
    const int64_t live = testing_support::LiveAllocations();
    TRTCVideoFrame frame;
    for (int i = 0; i < 3; ++i) engine->PushDesktopFrame(picture.data(), 0, 64, 32, i);
    for (int i = 0; i < 3; ++i) LiteavPullVideoFrame(buffer.data(), 3072, &frame);
    EXPECT_TRUE(round == 0 ||
                testing_support::LiveAllocations() == live + 6);  // three frames, two blocks each
    engine->UnInitialize();
    EXPECT_TRUE(round == 0 || testing_support::LiveAllocations() == live) << "kept after UnInitialize";
    // A pull under way when the stream stops: its frame is freed too.
    for (int i = 0; i < 2; ++i) engine->PushDesktopFrame(picture.data(), 0, 64, 32, i);
    LiteavPullVideoFrame(buffer.data(), 3072, &frame);
    DWORD protection = 0;
    VirtualProtect(page, 4096, PAGE_READWRITE | PAGE_GUARD, &protection);
    EXPECT_EQ(LiteavPullVideoFrame(page, 4096, &frame), 3072);
    EXPECT_TRUE(round == 0 || testing_support::LiveAllocations() == live) << "kept after the stream stopped";
  }
  RemoveVectoredExceptionHandler(handler);
  VirtualFree(page, 0, MEM_RELEASE);
  ReleaseRTCEngine();
}

}  // namespace
}  // namespace engine_test
