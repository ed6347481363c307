// What only the library's own heap and inner state show.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "../base/allocation_counter.h"
#include "common/refuse_threads.h"
#include "engine/rtc_engine_impl.h"
#include "engine_test_support.h"

class RTCEngineImplTestPeer {
 public:
  static DWORD TaskThread(RTCEngineImpl* engine) { return engine->task_thread_id_; }
  static HANDLE StopEvent(RTCEngineImpl* engine) { return engine->stop_event_.get(); }
};

namespace engine_test {
namespace {

// Without a task thread the engine is harmless and the next one starts; the level reaches a listener.
TEST_F(EngineTest, AnEngineWhoseThreadWasRefusedIsHarmless) {
  Run("release; forget");
  {
    testing_support::RefuseThreads refuse;
    engine_ = CreaeRTCEngine();
  }
  Run("every; Initialize; every; release; create");
  EXPECT_EQ(Log()[1], L"CreateThread failed!");
  EXPECT_EQ(SdkCalls(task_),
            Split("getTRTCShareInstance()@T|getMicDevicesList()@T|getCameraDevicesList()@T"));
  AudioDeviceTestEvent* test = static_cast<RTCEngineImpl*>(engine_);
  test->OnAudioLevel(3);
  Run("Initialize");
  test->OnAudioLevel(67);
  Run("UnInitialize");
  test->OnAudioLevel(5);
  EXPECT_EQ(events_.Count("=<false>"), 6);
  EXPECT_EQ(events_.Of().back(), "OnMicTestVolume(67)");
}
// Device records behind the loop's end are freed with it, one that can't be posted by its poster.
TEST(EngineUnit, RecordsQueuedBehindTheEndOfTheTaskLoopAreFreed) {
  RecordingEvents events;
  for (UINT end : {9000u, static_cast<UINT>(WM_QUIT)}) {
    delete new RTCEngineImpl();  // what the runtime keeps after first use
    const int64_t live = testing_support::LiveAllocations();
    RTCEngineImpl* engine = new RTCEngineImpl();
    engine->Initialize(nullptr, &events);
    ASSERT_TRUE(PostThreadMessageW(RTCEngineImplTestPeer::TaskThread(engine), end, 0, 0));
    for (int32_t type : {TRTCDeviceTypeMic, TRTCDeviceTypeCamera, TRTCDeviceTypeSpeaker})
      engine->onDeviceChange("usb", type, 0);
    ASSERT_EQ(WaitForSingleObject(RTCEngineImplTestPeer::StopEvent(engine), 5000), WAIT_OBJECT_0);
    EXPECT_EQ(RTCEngineImplTestPeer::TaskThread(engine), 0u);
    engine->onDeviceChange("usb", TRTCDeviceTypeMic, 0);
    delete engine;
    EXPECT_EQ(testing_support::LiveAllocations(), live) << end;
  }
}
// Runs on the thread that first writes into a guarded page, amid the write.
std::function<void()> g_on_guard_page;
LONG CALLBACK OnGuardPage(EXCEPTION_POINTERS* info) {
  if (info->ExceptionRecord->ExceptionCode != STATUS_GUARD_PAGE_VIOLATION) return EXCEPTION_CONTINUE_SEARCH;
  g_on_guard_page();
  return EXCEPTION_CONTINUE_EXECUTION;  // the page is plain memory again
}
// A push reuses a pulled frame, allocating nothing; kept frames go back at UnInitialize and stream stop.
TEST(EngineUnit, DesktopFramesAreReusedAndGoBackWhenTheHostLeavesOrTheStreamStops) {
  RTCEngine* engine = CreaeRTCEngine();
  const int width = 1920, height = 1080, size = width * height * 3 / 2;
  std::vector<uint8_t> picture(size, 7), buffer(size);
  void* page = VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
  g_on_guard_page = [&] { engine->EnableCaptureDesktopVideo(false); };
  void* handler = AddVectoredExceptionHandler(1, &OnGuardPage);
  TRTCVideoFrame frame;
  for (int round = 0; round < 2; ++round) {  // the first makes what the runtime keeps after first use
    engine->EnableCaptureDesktopVideo(true);
    const int64_t live = testing_support::LiveAllocations();
    auto expect_live = [&](int64_t more, const char* when) {
      EXPECT_EQ(round ? testing_support::LiveAllocations() - live : more, more) << when;
    };
    for (int i = 0; i < 3; ++i) engine->PushDesktopFrame(picture.data(), 0, width, height, i);
    for (int i = 0; i < 3; ++i) LiteavPullVideoFrame(buffer.data(), size, &frame);
    engine->PushDesktopFrame(picture.data(), 0, width, height, 3);
    expect_live(6, "three frames of two blocks, and a push that takes one of them");
    LiteavPullVideoFrame(buffer.data(), size, &frame);
    engine->UnInitialize();
    expect_live(0, "kept after UnInitialize");
    for (int i = 0; i < 2; ++i) engine->PushDesktopFrame(picture.data(), 0, width, height, i);
    LiteavPullVideoFrame(buffer.data(), size, &frame);
    DWORD protection = 0;
    VirtualProtect(page, 4096, PAGE_READWRITE | PAGE_GUARD, &protection);
    EXPECT_EQ(LiteavPullVideoFrame(page, size, &frame), size);
    expect_live(0, "kept after the stream stopped");
  }
  RemoveVectoredExceptionHandler(handler);
  VirtualFree(page, 0, MEM_RELEASE);
  ReleaseRTCEngine();
}

}  // namespace
}  // namespace engine_test
