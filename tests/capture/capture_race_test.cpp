// Orderings a host can produce: windows that die during grabs, selections
// that change under a running capture, Start and Stop from two threads, and
// a Stop whose wait runs out.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "capture_test_support.h"
#include "roomcore/capture.h"

namespace capture_test {
namespace {

// A run that ended before its capture was released or restarted: every
// start status has its end status, and nothing came after Stop returned.
template <typename Rec>
void ExpectQuietAfterStop(Rec& recorder) {
  const size_t frames = recorder.FrameCount();
  Sleep(100);  // several periods of the fastest rate used here
  EXPECT_EQ(recorder.FrameCount(), frames);
}

TEST(CaptureRace, WindowsDestroyedInTheMiddleOfGrabs) {
  WindowCapture* capture = WindowCapture::Create();
  WindowRecorder recorder;
  capture->SetCaptureEvent(&recorder);
  capture->SetOutputSize(320, 240);
  capture->SetFrameRate(100);
  ASSERT_TRUE(capture->Start());
  std::mt19937 random(7);
  std::vector<std::unique_ptr<TestWindow>> windows;
  for (int i = 0; i < 200; ++i) {
    windows.emplace_back(new TestWindow(20 + i % 50, 20, 200 + i % 300, 150 + i % 200));
    capture->SelectWindow(windows.back()->hwnd());
    Sleep(random() % 12);
    windows.back()->DestroyAsync();
  }
  capture->Stop();
  ExpectQuietAfterStop(recorder);
  EXPECT_GT(recorder.FrameCount(), 0u);
  EXPECT_GT(recorder.StatusCount(0), 0u);
  EXPECT_EQ(recorder.StatusCount(3), 1u);
  WindowCapture::Release(capture);
}

TEST(CaptureRace, SelectionsChangeUnderARunningCapture) {
  DisplayCapture* display = DisplayCapture::Create();
  DisplayRecorder display_events;
  display->SetCaptureEvent(&display_events);
  display->SetOutputSize(160, 90);
  display->SetFrameRate(60);
  ASSERT_TRUE(display->Start());
  DisplayInfo small;
  small.width = 64;
  small.height = 48;
  small.monitor_rect = {10, 10, 74, 58};
  small.device_name = std::wstring(300, L'x');  // a record too long to copy in one store
  const DisplayInfo whole = *display->GetDisplay(0);
  for (int i = 0; i < 300; ++i) display->SelectDisplay(i % 2 ? &small : &whole);
  ASSERT_TRUE(display_events.WaitFrames(display_events.FrameCount() + 2));
  display->Stop();
  ExpectQuietAfterStop(display_events);
  for (const Frame& frame : display_events.Frames()) {
    EXPECT_EQ(frame.width, 160);
    EXPECT_EQ(frame.size, 160u * 90u * 3u / 2u);
  }
  DisplayCapture::Release(display);

  TestWindow first(30, 30, 300, 200);
  TestWindow second(400, 300, 500, 400);
  WindowCapture* window = WindowCapture::Create();
  WindowRecorder window_events;
  window->SetCaptureEvent(&window_events);
  window->SetOutputSize(160, 90);
  window->SetFrameRate(60);
  ASSERT_TRUE(window->Start());
  for (int i = 0; i < 60; ++i) window->SelectWindow(i % 2 ? first.hwnd() : second.hwnd());
  ASSERT_TRUE(window_events.WaitFrames(window_events.FrameCount() + 2));
  window->Stop();
  ExpectQuietAfterStop(window_events);
  WindowCapture::Release(window);
}

TEST(CaptureRace, StartAndStopFromTwoThreads) {
  DisplayCapture* capture = DisplayCapture::Create();
  DisplayRecorder recorder;
  capture->SetCaptureEvent(&recorder);
  capture->SetOutputSize(160, 90);
  DisplayInfo small;
  small.width = 64;
  small.height = 48;
  small.monitor_rect = {0, 0, 64, 48};
  capture->SelectDisplay(&small);
  std::atomic<int> started{0};
  auto churn = [&] {
    for (int i = 0; i < 60; ++i) {
      if (capture->Start()) ++started;
      if (i % 3 == 0) Sleep(1);
      capture->Stop();
    }
  };
  std::thread a(churn);
  std::thread b(churn);
  a.join();
  b.join();
  EXPECT_FALSE(capture->IsCapturing());
  ExpectQuietAfterStop(recorder);
  EXPECT_GT(started.load(), 0);
  // Every run that began has ended, one after the other.
  EXPECT_EQ(recorder.StatusCount(1), static_cast<size_t>(started.load()));
  EXPECT_EQ(recorder.StatusCount(2), static_cast<size_t>(started.load()));
  int open = 0;
  for (const Status& s : recorder.Statuses()) {
    open += s.status == 1 ? 1 : -1;
    EXPECT_TRUE(open == 0 || open == 1);
  }
  DisplayCapture::Release(capture);
}

// The host holds the capture thread in its event beyond Stop's 10 seconds.
class StuckEventTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture_ = DisplayCapture::Create();
    recorder_.on_frame = [this](size_t number) {
      if (number == 0) WaitForSingleObject(release_event_, 20000);
    };
    release_event_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    capture_->SetCaptureEvent(&recorder_);
    capture_->SetOutputSize(160, 90);
    ASSERT_TRUE(capture_->Start());
    ASSERT_TRUE(recorder_.WaitFrames(1));
    const int64_t before = TimeMicroseconds();
    EXPECT_TRUE(capture_->Stop());
    EXPECT_GE(TimeMicroseconds() - before, 9900000);
    EXPECT_FALSE(capture_->IsCapturing());
    EXPECT_EQ(recorder_.StatusCount(2), 0u);  // the old thread is still in the event
  }
  void TearDown() override {
    SetEvent(release_event_);
    if (capture_) DisplayCapture::Release(capture_);
    CloseHandle(release_event_);
  }
  // Lets the stuck event return after `delay_ms`, from another thread.
  std::thread ReleaseLater(DWORD delay_ms) {
    return std::thread([this, delay_ms] {
      Sleep(delay_ms);
      SetEvent(release_event_);
    });
  }

  DisplayCapture* capture_ = nullptr;
  DisplayRecorder recorder_;
  HANDLE release_event_ = nullptr;
};

TEST_F(StuckEventTest, ReleaseWaitsForTheOldThreadToEnd) {
  std::thread later = ReleaseLater(300);
  DisplayCapture::Release(capture_);
  capture_ = nullptr;
  // The thread's end came before the object went.
  EXPECT_EQ(recorder_.StatusCount(2), 1u);
  later.join();
}

TEST_F(StuckEventTest, ANewStartDoesNotRunBesideTheOldThread) {
  std::thread later = ReleaseLater(300);
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitStatus(1, 2));
  later.join();
  capture_->Stop();
  const std::vector<Status> statuses = recorder_.Statuses();
  ASSERT_EQ(statuses.size(), 4u);
  EXPECT_EQ(statuses[0].status, 1);
  EXPECT_EQ(statuses[1].status, 2);  // the old run ended before the new one began
  EXPECT_EQ(statuses[2].status, 1);
  EXPECT_EQ(statuses[3].status, 2);
}

}  // namespace
}  // namespace capture_test
