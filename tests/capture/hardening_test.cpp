// What a careless or unlucky host does to a capture: output sizes past what a
// frame can hold, a release from inside the capture's own event, a Create
// while another thread releases.
#include <string>

#include "capture_fixture.h"
#include "common/log_capture.h"

namespace capture_suite {
namespace {

TEST_F(CaptureTest, OutputSizesPastAFramesSizeGiveNoFrameAndOneLogLine) {
  const SIZE sizes[] = {{65536, 43691}, {1 << 20, 1 << 20}};  // just past 4 GiB; far beyond any memory
  for (Kind kind : {kDisplay, kWindow}) {
    for (const SIZE& size : sizes) {
      SCOPED_TRACE(Name(kind) + std::to_string(size.cx));
      host_.Clear();
      Capture& capture = Open(kind, size.cx, size.cy);
      const std::wstring failure = L"CaptureThread, no output frame of width: " + std::to_wstring(size.cx) +
                                   L", height: " + std::to_wstring(size.cy);
      ASSERT_TRUE(capture.Start());
      ASSERT_TRUE(host_.WaitLog(failure));
      ASSERT_TRUE(host_.WaitLog(L"CaptureThread, width: ", host_.LogCount(L"CaptureThread, width: ") + 3));
      capture.Stop();
      EXPECT_EQ(host_.FrameCount(), 0u);
      EXPECT_EQ(host_.LogCount(failure), 1u);
      capture.Release();
    }
  }
}

TEST_F(CaptureTest, AReleaseInsideTheCapturesOwnEventEndsTheRunWithoutWaiting) {
  for (Kind kind : {kDisplay, kWindow}) {
    SCOPED_TRACE(Name(kind));
    host_.Clear();
    Capture& capture = Open(kind);
    void* old = capture.object();
    std::atomic<int64_t> took{-1};
    Capture fresh(kind, false);  // made inside the event, while the old object still lives
    host_.on_frame = [&](size_t number) {
      if (number != 0) return;
      const int64_t before = TimeMicroseconds();
      capture.Release();
      took = TimeMicroseconds() - before;
      fresh.Create();
    };
    ASSERT_TRUE(capture.Start());
    ASSERT_TRUE(host_.WaitStatus(capture.ended()));
    host_.on_frame = nullptr;
    EXPECT_LT(took.load(), 5000000);  // not Stop's 10 seconds
    EXPECT_NE(fresh.object(), old);
    EXPECT_EQ(Capture(kind).object(), fresh.object());
    fresh.SetCaptureEvent(&host_);
    fresh.SetOutputSize(160, 90);
    if (kind == kWindow) fresh.window()->SelectWindow(window_->hwnd());
    ASSERT_TRUE(fresh.Start());
    EXPECT_TRUE(host_.WaitFrames(host_.FrameCount() + 1));
    fresh.Release();
  }
}

TEST_F(CaptureTest, ACreateDuringALongReleaseMakesANewObject) {
  for (Kind kind : {kDisplay, kWindow}) {
    SCOPED_TRACE(Name(kind));
    host_.Clear();
    Capture& capture = Open(kind);
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    host_.on_frame = [&](size_t number) {
      if (number == 0) WaitForSingleObject(go, 20000);
    };
    ASSERT_TRUE(capture.Start());
    ASSERT_TRUE(host_.WaitFrames(1));
    void* const old = capture.object();
    std::thread releaser([&] { capture.Release(); });
    Capture other(kind, false);
    EXPECT_TRUE(testing_support::WaitUntil([&] { return other.Create() != old; }));
    SetEvent(go);
    releaser.join();
    host_.on_frame = nullptr;
    other.Release();
    CloseHandle(go);
  }
}

}  // namespace
}  // namespace capture_suite
