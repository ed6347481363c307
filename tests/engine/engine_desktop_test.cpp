// The desktop stream: pictures pushed through the engine come out of the
// SDK's pull.
#include <random>
#include <thread>

#include "engine_test_support.h"

namespace engine_test {
namespace {

std::vector<uint8_t> Picture(int width, int height, uint32_t seed) {
  const size_t size = static_cast<size_t>(width) * height + 2 * (((width + 1) / 2) * ((height + 1) / 2));
  std::vector<uint8_t> bytes(size);
  std::mt19937 random(seed);
  for (uint8_t& b : bytes) b = static_cast<uint8_t>(random());
  return bytes;
}

class EngineDesktop : public EngineTest {
 protected:
  // One synchronous pull through the stand-in.
  int32_t Pull(TRTCVideoFrame* frame) {
    buffer_.assign(1920 * 1080 * 3 / 2, 0xEE);
    return LiteavPullVideoFrame(buffer_.data(), static_cast<uint32_t>(buffer_.size()), frame);
  }
  std::vector<uint8_t> buffer_;
};

TEST_F(EngineDesktop, TheSwitchRegistersTheSourceAndPushesCountOnlyWhileOn) {
  std::vector<uint8_t> picture = Picture(8, 8, 3);
  EXPECT_FALSE(engine_->PushDesktopFrame(picture.data(), 96, 8, 8, 1));
  engine_->EnableCaptureDesktopVideo(true);
  EXPECT_TRUE(LiteavHasSource());
  TRTCVideoFrame frame;
  EXPECT_EQ(Pull(&frame), 0);  // nothing was queued
  ASSERT_TRUE(engine_->PushDesktopFrame(picture.data(), 96, 8, 8, 1));
  engine_->EnableCaptureDesktopVideo(false);
  EXPECT_FALSE(LiteavHasSource());
  EXPECT_FALSE(engine_->PushDesktopFrame(picture.data(), 96, 8, 8, 2));
  EXPECT_EQ(Pull(&frame), LiteavNoSource);
  engine_->EnableCaptureDesktopVideo(true);
  EXPECT_EQ(Pull(&frame), 0);  // switching off emptied the queue
  EXPECT_EQ(liteav_control::Calls(),
            (std::vector<std::string>{"setStreamDataSource(source,0)", "setStreamDataSource(null,0)",
                                      "setStreamDataSource(source,0)"}));
}

TEST_F(EngineDesktop, APushedPictureComesOutByteForByteWithItsPts) {
  engine_->EnableCaptureDesktopVideo(true);
  // Full HD twice (the second lands in the frame the first pull gave back),
  // then an odd size whose stated length (999999) is not believed, then a
  // size the kept frame doesn't fit.
  struct Case {
    int width, height, length;
    uint64_t pts;
    uint32_t seed;
  } cases[] = {
      {1920, 1080, 0, 0x123456789AULL, 7}, {1920, 1080, 0, 2, 8}, {5, 3, 999999, 9, 9}, {6, 2, 18, 10, 10}};
  for (const Case& c : cases) {
    std::vector<uint8_t> picture = Picture(c.width, c.height, c.seed);
    ASSERT_TRUE(engine_->PushDesktopFrame(picture.data(), c.length, c.width, c.height, c.pts));
    TRTCVideoFrame frame;
    ASSERT_EQ(Pull(&frame), static_cast<int32_t>(picture.size()));
    EXPECT_EQ(frame.video_format, TRTCVideoPixelFormat_I420);
    EXPECT_EQ(frame.buffer_type, TRTCVideoBufferType_Buffer);
    EXPECT_EQ(frame.width, c.width);
    EXPECT_EQ(frame.height, c.height);
    EXPECT_EQ(frame.length, picture.size());
    EXPECT_EQ(frame.timestamp, c.pts);
    EXPECT_TRUE(std::equal(picture.begin(), picture.end(), buffer_.begin()));
    if (picture.size() < buffer_.size()) {
      EXPECT_EQ(buffer_[picture.size()], 0xEE);  // nothing written past the picture
    }
    EXPECT_EQ(Pull(&frame), 0);  // the queue is empty again
  }
}

// Pictures the full queue drops make room for later ones; at any pull rate
// each picture comes out at most once, oldest first, with its own bytes.
TEST_F(EngineDesktop, ThirteenPushesKeepTheNewestTwelve) {
  engine_->EnableCaptureDesktopVideo(true);
  for (int i = 1; i <= 13; ++i) {
    ASSERT_TRUE(engine_->PushDesktopFrame(Picture(32, 16, i).data(), 768, 32, 16, i));
  }
  TRTCVideoFrame frame;
  for (int i = 2; i <= 13; ++i) {
    ASSERT_EQ(Pull(&frame), 768);
    EXPECT_EQ(frame.timestamp, static_cast<uint64_t>(i));
    EXPECT_EQ(std::vector<uint8_t>(buffer_.begin(), buffer_.begin() + 768), Picture(32, 16, i)) << i;
  }
  EXPECT_EQ(Pull(&frame), 0);
  for (int rate : {2, 4}) {
    uint64_t last = 0;
    for (int i = 0; i < 100; ++i) {
      const uint32_t pts = 1000 * rate + i;
      ASSERT_TRUE(engine_->PushDesktopFrame(Picture(32, 16, pts).data(), 768, 32, 16, pts));
      if (i % rate != rate - 1) continue;
      ASSERT_EQ(Pull(&frame), 768);
      EXPECT_GT(frame.timestamp, last);
      last = frame.timestamp;
      EXPECT_EQ(std::vector<uint8_t>(buffer_.begin(), buffer_.begin() + 768),
                Picture(32, 16, static_cast<uint32_t>(frame.timestamp)));
    }
    // Drops took the oldest: the queue ends with the newest twelve.
    while (Pull(&frame) == 768) last = frame.timestamp;
    EXPECT_EQ(last, static_cast<uint64_t>(1000 * rate + 99));
  }
}

TEST_F(EngineDesktop, NoPullAfterTheSourceIsGone) {
  const int destroyed = LiteavDestroyedSourceCount();
  engine_->EnableCaptureDesktopVideo(true);
  LiteavSetPullRate(1000);
  std::atomic<bool> stop{false};
  std::atomic<int> sync_pulls{0};
  // A second SDK-side puller on its own thread, racing the release.
  std::thread puller([&] {
    std::vector<char> buffer(64 * 32 * 3 / 2);
    while (!stop) {
      TRTCVideoFrame frame;
      LiteavPullVideoFrame(buffer.data(), static_cast<uint32_t>(buffer.size()), &frame);
      ++sync_pulls;
    }
  });
  std::vector<uint8_t> picture = Picture(64, 32, 5);
  for (int i = 0; i < 50; ++i) engine_->PushDesktopFrame(picture.data(), 3072, 64, 32, i);
  ASSERT_TRUE(testing_support::WaitUntil([&] { return sync_pulls > 10; }));
  ReleaseRTCEngine();
  EXPECT_EQ(LiteavDestroyedSourceCount(), destroyed + 1);
  EXPECT_FALSE(LiteavHasSource());
  const int after = sync_pulls;
  ASSERT_TRUE(testing_support::WaitUntil([&] { return sync_pulls > after + 10; }));
  stop = true;
  puller.join();
  LiteavSetPullRate(0);
  TRTCVideoFrame frame;
  char byte;
  EXPECT_EQ(LiteavPullVideoFrame(&byte, 1, &frame), LiteavNoSource);
}

}  // namespace
}  // namespace engine_test
