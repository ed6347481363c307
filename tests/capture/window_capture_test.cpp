// Window capture as a host drives it, on real windows under the test display.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>

#include "capture_test_support.h"
#include "roomcore/capture.h"

namespace capture_test {
namespace {

constexpr int kWindowWidth = 800;
constexpr int kWindowHeight = 600;
// The trimmed picture of an 800 x 600 window: 16 columns and 14 lines off.
constexpr int kTrimmedWidth = 784;
constexpr int kTrimmedHeight = 586;

class WindowCaptureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture_ = WindowCapture::Create();
    ASSERT_NE(capture_, nullptr);
    capture_->SetCaptureEvent(&recorder_);
    capture_->SetDrawCursor(false);
  }
  void TearDown() override {
    WindowCapture::Release(capture_);
    window_.reset();
  }
  void OpenWindow(int width = kWindowWidth, int height = kWindowHeight) {
    window_.reset(new TestWindow(40, 30, width, height));
  }
  // A frame that was grabbed after everything the test did so far.
  Frame FreshFrame() {
    const size_t next = recorder_.FrameCount() + 2;
    EXPECT_TRUE(recorder_.WaitFrames(next));
    return recorder_.LastFrame();
  }

  WindowCapture* capture_ = nullptr;
  WindowRecorder recorder_;
  std::unique_ptr<TestWindow> window_;
};

TEST_F(WindowCaptureTest, CreateGivesOneObjectAndReleaseOfNullDoesNothing) {
  EXPECT_EQ(WindowCapture::Create(), capture_);
  WindowCapture::Release(nullptr);
  EXPECT_EQ(WindowCapture::Create(), capture_);
  EXPECT_FALSE(capture_->IsCapturing());
  EXPECT_TRUE(capture_->Stop());  // idle: nothing to do
}

TEST_F(WindowCaptureTest, FramesShowTheWindowTrimmedFromColumn8Line7) {
  OpenWindow();
  capture_->SetOutputSize(kTrimmedWidth, kTrimmedHeight);
  capture_->SelectWindow(window_->hwnd());
  ASSERT_TRUE(capture_->Start());
  EXPECT_TRUE(capture_->IsCapturing());
  EXPECT_FALSE(capture_->Start());  // already running
  ASSERT_TRUE(recorder_.WaitFrames(1));
  const Frame frame = recorder_.LastFrame();
  EXPECT_EQ(frame.width, kTrimmedWidth);
  EXPECT_EQ(frame.height, kTrimmedHeight);
  EXPECT_EQ(frame.reserved, 0);
  EXPECT_EQ(frame.size, static_cast<uint32_t>(kTrimmedWidth * kTrimmedHeight + 2 * 392 * 293));
  // The magenta frame lies exactly on the trimmed picture's edges; the
  // yellow outer edge is gone.
  EXPECT_LUMA(frame, 0, 100, kMagenta);
  EXPECT_LUMA(frame, 100, 0, kMagenta);
  EXPECT_LUMA(frame, kTrimmedWidth - 1, 100, kMagenta);
  EXPECT_LUMA(frame, 100, kTrimmedHeight - 1, kMagenta);
  EXPECT_LUMA(frame, 1, 100, kRed);
  // The quadrants split at the window's centre, column 400 and line 300:
  // columns 391/392 and lines 292/293 of the trimmed picture.
  EXPECT_LUMA(frame, 391, 100, kRed);
  EXPECT_LUMA(frame, 392, 100, kGreen);
  EXPECT_LUMA(frame, 100, 292, kRed);
  EXPECT_LUMA(frame, 100, 293, kBlue);
  EXPECT_LUMA(frame, 600, 500, kWhite);
  EXPECT_TRUE(capture_->Stop());
  EXPECT_FALSE(capture_->IsCapturing());
  // The run told its start and its end, and never 1.
  EXPECT_EQ(recorder_.StatusCount(2), 1u);
  EXPECT_EQ(recorder_.StatusCount(3), 1u);
  EXPECT_EQ(recorder_.StatusCount(1), 0u);
}

TEST_F(WindowCaptureTest, AResizedWindowKeepsTheOutputSizeAndShowsTheNewPicture) {
  OpenWindow();
  capture_->SetOutputSize(640, 360);
  capture_->SelectWindow(window_->hwnd());
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(1));
  window_->Resize(1600, 1200);
  window_->Fill(kGreen);
  const Frame frame = FreshFrame();
  EXPECT_EQ(frame.width, 640);
  EXPECT_EQ(frame.height, 360);
  // 1584 x 1186 fitted into 640 x 360: 480 x 359 in the middle, black bars
  // left and right.
  EXPECT_LUMA(frame, 320, 180, kGreen);
  EXPECT_EQ(LumaAt(frame, 10, 180), 1);
  EXPECT_EQ(LumaAt(frame, 630, 180), 1);
}

TEST_F(WindowCaptureTest, AMinimisedOrHiddenWindowGivesBlackFramesAtTheCaptureRate) {
  OpenWindow();
  capture_->SetOutputSize(320, 240);
  capture_->SetFrameRate(20);
  capture_->SelectWindow(window_->hwnd());
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(1));
  EXPECT_FALSE(IsBlack(recorder_.LastFrame()));

  window_->Show(SW_MINIMIZE);
  ASSERT_TRUE(IsIconic(window_->hwnd()));
  Frame previous = FreshFrame();
  for (int i = 0; i < 4; ++i) {
    const Frame frame = FreshFrame();
    EXPECT_TRUE(IsBlack(frame));
    EXPECT_GT(frame.timestamp, previous.timestamp);
    previous = frame;
  }
  window_->Show(SW_RESTORE);
  EXPECT_FALSE(IsBlack(FreshFrame()));

  window_->Show(SW_HIDE);
  EXPECT_TRUE(IsBlack(FreshFrame()));
  // Black frames keep the period of 50 ms: no faster.
  const std::vector<Frame> frames = recorder_.Frames();
  const Frame& a = frames[frames.size() - 2];
  const Frame& b = frames.back();
  EXPECT_GE(b.timestamp - a.timestamp, 45000);
}

TEST_F(WindowCaptureTest, ADestroyedWindowGivesRepeatedStatusZeroAndNoFrameUntilAnotherIsSelected) {
  OpenWindow();
  capture_->SetOutputSize(320, 240);
  capture_->SetFrameRate(30);
  capture_->SelectWindow(window_->hwnd());
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(1));
  window_->Destroy();
  ASSERT_TRUE(recorder_.WaitStatus(0, 5));
  const size_t frames = recorder_.FrameCount();
  ASSERT_TRUE(recorder_.WaitStatus(0, 8));
  EXPECT_EQ(recorder_.FrameCount(), frames);
  int64_t last = -1;
  for (const Status& s : recorder_.Statuses()) {
    if (s.status != 0) continue;
    if (last >= 0) {
      EXPECT_GE(s.arrival - last, 49000);  // 50 ms on a 1 ms clock
    }
    last = s.arrival;
  }
  EXPECT_TRUE(capture_->IsCapturing());  // a lost window never ends the run

  TestWindow next(100, 100, 400, 300);
  capture_->SelectWindow(next.hwnd());
  const Frame frame = FreshFrame();
  EXPECT_FALSE(IsBlack(frame));
}

TEST_F(WindowCaptureTest, StartWithoutAWindowReportsStatusZeroOnly) {
  capture_->SelectWindow(nullptr);
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitStatus(0, 3));
  capture_->Stop();
  EXPECT_EQ(recorder_.FrameCount(), 0u);
  const std::vector<Status> statuses = recorder_.Statuses();
  EXPECT_EQ(statuses.front().status, 2);
  EXPECT_EQ(statuses.back().status, 3);
}

TEST_F(WindowCaptureTest, SelectWindowRestoresAndRaisesTheWindowAsAnOrdinaryOne) {
  OpenWindow();
  TestWindow cover(0, 0, 1000, 800);
  window_->Show(SW_MINIMIZE);
  ASSERT_TRUE(IsIconic(window_->hwnd()));
  capture_->SelectWindow(window_->hwnd());
  EXPECT_FALSE(IsIconic(window_->hwnd()));
  EXPECT_EQ(GetWindowLongW(window_->hwnd(), GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
  // Above the window that covered it.
  HWND above = GetWindow(cover.hwnd(), GW_HWNDPREV);
  bool raised = false;
  for (; above; above = GetWindow(above, GW_HWNDPREV)) raised = raised || above == window_->hwnd();
  EXPECT_TRUE(raised);
}

TEST_F(WindowCaptureTest, StopThenNewOutputSizeThenStartGivesFramesOfTheNewSize) {
  OpenWindow();
  capture_->SetOutputSize(320, 240);
  capture_->SelectWindow(window_->hwnd());
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(1));
  capture_->Stop();
  const size_t before = recorder_.FrameCount();
  capture_->SetOutputSize(480, 270);
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(before + 1));
  const Frame frame = recorder_.FrameAt(before);
  EXPECT_EQ(frame.width, 480);
  EXPECT_EQ(frame.height, 270);
  EXPECT_EQ(frame.size, 480u * 270u * 3u / 2u);
  EXPECT_EQ(recorder_.StatusCount(2), 2u);
}

TEST_F(WindowCaptureTest, NoFrameComesAfterStopReturns) {
  OpenWindow();
  capture_->SetOutputSize(320, 240);
  capture_->SetFrameRate(60);
  capture_->SelectWindow(window_->hwnd());
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(capture_->Start());
    ASSERT_TRUE(recorder_.WaitFrames(recorder_.FrameCount() + 1));
    capture_->Stop();
    const size_t frames = recorder_.FrameCount();
    const size_t ends = recorder_.StatusCount(3);
    EXPECT_EQ(ends, static_cast<size_t>(i + 1));  // the end came before Stop returned
    Sleep(30);
    EXPECT_EQ(recorder_.FrameCount(), frames);
  }
}

}  // namespace
}  // namespace capture_test
