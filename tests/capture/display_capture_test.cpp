// Display capture as a host drives it: the test display's content is a
// top-most window that covers the whole screen.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "capture_test_support.h"
#include "roomcore/capture.h"

namespace capture_test {
namespace {

class DisplayCaptureTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture_ = DisplayCapture::Create();
    ASSERT_NE(capture_, nullptr);
    ASSERT_GE(capture_->GetDisplayCount(), 1);
    display_ = capture_->GetDisplay(0);
    ASSERT_NE(display_, nullptr);
    capture_->SetCaptureEvent(&recorder_);
    capture_->SetDrawCursor(false);
  }
  void TearDown() override {
    DisplayCapture::Release(capture_);
    cover_.reset();
  }
  // Covers the display with the test pattern (the window's own corner is
  // the display's).
  void Cover() {
    cover_.reset(new TestWindow(display_->monitor_rect.left, display_->monitor_rect.top, display_->width,
                                display_->height, true));
  }
  Frame FreshFrame() {
    EXPECT_TRUE(recorder_.WaitFrames(recorder_.FrameCount() + 2));
    return recorder_.LastFrame();
  }
  std::vector<int64_t> Intervals() {
    std::vector<int64_t> out;
    const std::vector<Frame> frames = recorder_.Frames();
    for (size_t i = 1; i < frames.size(); ++i) out.push_back(frames[i].timestamp - frames[i - 1].timestamp);
    return out;
  }
  // Pacing cases grab a small corner of the screen: a full grab under Wine
  // costs tens of milliseconds, which would blur the timestamps.
  void SelectSmallArea() {
    small_.width = 320;
    small_.height = 240;
    small_.monitor_rect = {0, 0, 320, 240};
    capture_->SelectDisplay(&small_);
  }
  static int64_t Median(std::vector<int64_t> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
  }

  DisplayCapture* capture_ = nullptr;
  const DisplayInfo* display_ = nullptr;
  DisplayRecorder recorder_;
  std::unique_ptr<TestWindow> cover_;
  DisplayInfo small_;
};

TEST_F(DisplayCaptureTest, TheListDescribesTheTestDisplayAndRefusesIndexesOutOfRange) {
  EXPECT_EQ(DisplayCapture::Create(), capture_);
  const int count = capture_->GetDisplayCount();
  EXPECT_EQ(capture_->GetDisplay(-1), nullptr);
  EXPECT_EQ(capture_->GetDisplay(count), nullptr);
  EXPECT_EQ(display_->index, 0);
  EXPECT_GT(display_->width, 0);
  EXPECT_EQ(display_->width, display_->monitor_rect.right - display_->monitor_rect.left);
  EXPECT_EQ(display_->height, display_->monitor_rect.bottom - display_->monitor_rect.top);
  EXPECT_TRUE(display_->is_primary);
  EXPECT_NE(display_->monitor, nullptr);
  EXPECT_FALSE(display_->device_name.empty());
  capture_->RefreshDisplays();
  EXPECT_EQ(capture_->GetDisplayCount(), count);
  capture_->SelectDisplay(nullptr);  // changes nothing
}

TEST_F(DisplayCaptureTest, FramesCarryTheScreenContentFittedIntoTheOutputSize) {
  Cover();
  capture_->SetOutputSize(display_->width, display_->height);
  ASSERT_TRUE(capture_->Start());
  const Frame frame = FreshFrame();
  EXPECT_EQ(frame.width, display_->width);
  EXPECT_EQ(frame.height, display_->height);
  EXPECT_EQ(frame.reserved, 0);
  const int cx = display_->width / 2;
  const int cy = display_->height / 2;
  EXPECT_LUMA(frame, 0, cy / 2, kYellow);
  EXPECT_LUMA(frame, 8, cy / 2, kMagenta);
  EXPECT_LUMA(frame, cx - 1, cy / 2, kRed);
  EXPECT_LUMA(frame, cx, cy / 2, kGreen);
  EXPECT_LUMA(frame, cx / 2, cy - 1, kRed);
  EXPECT_LUMA(frame, cx / 2, cy, kBlue);
  EXPECT_LUMA(frame, cx + cx / 2, cy + cy / 2, kWhite);

  // A new picture on screen shows in the next frames.
  cover_->Fill(kGreen);
  EXPECT_LUMA(FreshFrame(), 20, 20, kGreen);
  capture_->Stop();
  const std::vector<Status> statuses = recorder_.Statuses();
  ASSERT_EQ(statuses.size(), 2u);
  EXPECT_EQ(statuses[0].status, 1);
  EXPECT_EQ(statuses[1].status, 2);
}

TEST_F(DisplayCaptureTest, CaptureImageIsAStillOfTheDisplaysOwnSize) {
  Cover();
  DibImage* image = capture_->CaptureImage(display_);
  ASSERT_NE(image, nullptr);
  const BITMAPINFOHEADER& header = image->bitmap_info()->bmiHeader;
  EXPECT_EQ(header.biWidth, display_->width);
  EXPECT_EQ(header.biHeight, -display_->height);  // top line first
  EXPECT_EQ(header.biSizeImage, static_cast<DWORD>(display_->width * display_->height * 4));
  auto pixel = [&](DibImage* picture, int x, int y) {
    const uint8_t* p = picture->bits_data() + (static_cast<size_t>(y) * display_->width + x) * 4;
    return RGB(p[2], p[1], p[0]);
  };
  EXPECT_EQ(pixel(image, 0, 0), kYellow);
  EXPECT_EQ(pixel(image, 20, 20), kRed);
  EXPECT_EQ(pixel(image, display_->width - 20, display_->height - 20), kWhite);

  // The next call replaces the picture.
  cover_->Fill(kBlue);
  DibImage* next = capture_->CaptureImage(display_);
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(pixel(next, 20, 20), kBlue);
  EXPECT_FALSE(capture_->IsCapturing());
}

TEST_F(DisplayCaptureTest, TheFirstFrameComesAtOnceAndTheRestAtThePeriod) {
  SelectSmallArea();
  capture_->SetOutputSize(320, 240);
  capture_->SetFrameRate(2);  // 500 ms: a first frame after one period shows
  const int64_t start = TimeMicroseconds();
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(3));
  capture_->Stop();
  const std::vector<Frame> frames = recorder_.Frames();
  EXPECT_LT(frames[0].timestamp - start, 250000);
  // Timestamps follow the fetch: the first pass also builds the scaler.
  for (int64_t interval : Intervals()) {
    EXPECT_GE(interval, 440000);
    EXPECT_LE(interval, 600000);
  }
}

TEST_F(DisplayCaptureTest, ASlowPassIsFollowedByOneFrameAtOnceAndNoBurst) {
  SelectSmallArea();
  capture_->SetOutputSize(320, 240);
  capture_->SetFrameRate(12);
  recorder_.on_frame = [](size_t number) {
    if (number == 2) Sleep(400);  // a grab that overruns the period five times
  };
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(7));
  capture_->Stop();
  const std::vector<Frame> frames = recorder_.Frames();
  // Frame 3 comes right after the slow pass; from there the period holds
  // again: nothing is made up.
  EXPECT_GE(frames[3].timestamp - frames[2].timestamp, 400000);
  EXPECT_LE(frames[3].timestamp - frames[2].timestamp, 400000 + 83333);
  for (size_t i = 4; i < frames.size(); ++i) {
    EXPECT_GE(frames[i].timestamp - frames[i - 1].timestamp, 83333 - 15000) << "frame " << i;
  }
}

TEST_F(DisplayCaptureTest, TheFrameRateCountsFromTheNextStart) {
  SelectSmallArea();
  capture_->SetOutputSize(320, 240);
  capture_->SetFrameRate(5);  // 200 ms
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(2));
  capture_->SetFrameRate(25);  // 40 ms, but not for this run
  ASSERT_TRUE(recorder_.WaitFrames(5));
  for (int64_t interval : Intervals()) EXPECT_GE(interval, 170000);
  capture_->Stop();
  recorder_.Clear();
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(6));
  capture_->Stop();
  EXPECT_LT(Median(Intervals()), 100000);
}

TEST_F(DisplayCaptureTest, StopThenNewOutputSizeThenStartGivesTheNewSize) {
  capture_->SetOutputSize(320, 240);
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(1));
  EXPECT_FALSE(capture_->Start());
  capture_->Stop();
  EXPECT_TRUE(capture_->Stop());
  recorder_.Clear();
  capture_->SetOutputSize(160, 90);
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(1));
  const Frame frame = recorder_.LastFrame();
  EXPECT_EQ(frame.width, 160);
  EXPECT_EQ(frame.height, 90);
  EXPECT_EQ(frame.size, 160u * 90u * 3u / 2u);
}

TEST_F(DisplayCaptureTest, AnEmptyOutputSizeGivesNoFrameButTheRunGoesOn) {
  capture_->SetOutputSize(0, 0);
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitStatus(1));
  Sleep(300);  // several periods: nothing to wait for when nothing comes
  capture_->Stop();
  EXPECT_EQ(recorder_.FrameCount(), 0u);
  EXPECT_EQ(recorder_.StatusCount(2), 1u);
}

TEST_F(DisplayCaptureTest, StopFromInsideAnEventWaitsItsFullTimeAndTheObjectCanStillBeReleased) {
  capture_->SetOutputSize(160, 90);
  std::atomic<int64_t> stop_took{-1};
  recorder_.on_frame = [&](size_t number) {
    if (number != 0) return;
    const int64_t before = TimeMicroseconds();
    capture_->Stop();
    stop_took.store(TimeMicroseconds() - before);
  };
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitStatus(2, 1, 20000));
  EXPECT_GE(stop_took.load(), 9900000);
  EXPECT_EQ(recorder_.FrameCount(), 1u);
  EXPECT_FALSE(capture_->IsCapturing());
  // Release in TearDown: the run has ended, nothing waits.
}

TEST_F(DisplayCaptureTest, SelectDisplayDuringACaptureIsTakenByTheNextGrab) {
  capture_->SetOutputSize(160, 90);
  ASSERT_TRUE(capture_->Start());
  ASSERT_TRUE(recorder_.WaitFrames(1));
  // A display record without size: the run idles without frames.
  DisplayInfo empty;
  capture_->SelectDisplay(&empty);
  const size_t frames = recorder_.FrameCount();
  Sleep(300);
  EXPECT_LE(recorder_.FrameCount(), frames + 1);  // at most the grab in flight
  const size_t idle = recorder_.FrameCount();
  capture_->SelectDisplay(display_);
  ASSERT_TRUE(recorder_.WaitFrames(idle + 1));
  capture_->Stop();
}

}  // namespace
}  // namespace capture_test
