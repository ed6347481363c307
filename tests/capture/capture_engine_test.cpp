// A host's wiring of a shared desktop: the capture's frames go to
// RTCEngine::PushDesktopFrame, and the TRTC SDK's pull gives the same bytes.
#include <windows.h>

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

#include "capture_test_support.h"
#include "common/silent_engine_events.h"
#include "liteav_control.h"
#include "roomcore/capture.h"
#include "roomcore/rtc_engine.h"

namespace capture_test {
namespace {

// The host's forwarding: every frame goes to the engine as it comes; the
// first one pushed is kept to compare.
template <typename Event>
class Forwarder : public Recorder<Event> {
 public:
  explicit Forwarder(RTCEngine* engine) : engine_(engine) {}
  void OnCaptureFrame(const uint8_t* data, uint32_t size, int width, int height, int reserved,
                      int64_t timestamp) override {
    {
      std::lock_guard<std::mutex> guard(mutex_);
      if (engine_->PushDesktopFrame(data, static_cast<int32_t>(size), width, height, timestamp) &&
          first_pushed_.empty()) {
        first_pushed_.assign(data, data + size);
      }
    }
    Recorder<Event>::OnCaptureFrame(data, size, width, height, reserved, timestamp);
  }
  std::vector<uint8_t> FirstPushed() {
    std::lock_guard<std::mutex> guard(mutex_);
    return first_pushed_;
  }

 private:
  RTCEngine* const engine_;
  std::mutex mutex_;
  std::vector<uint8_t> first_pushed_;
};

class CaptureToEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    LiteavReset();
    engine_ = CreaeRTCEngine();
    ASSERT_NE(engine_, nullptr);
    engine_->Initialize(nullptr, &events_);
    LiteavSetPullRate(0);  // only the test's own pulls
    engine_->EnableCaptureDesktopVideo(true);
  }
  void TearDown() override {
    engine_->EnableCaptureDesktopVideo(false);
    engine_->UnInitialize();
    ReleaseRTCEngine();
    LiteavReset();
  }
  // The oldest queued picture, as the SDK's pull copies it.
  std::vector<uint8_t> Pull(uint32_t size) {
    std::vector<uint8_t> buffer(size + 64, 0xEE);
    TRTCVideoFrame frame;
    const int32_t pulled = LiteavPullVideoFrame(buffer.data(), static_cast<uint32_t>(buffer.size()), &frame);
    EXPECT_EQ(pulled, static_cast<int32_t>(size));
    buffer.resize(size);
    return buffer;
  }

  SilentEngineEvents events_;
  RTCEngine* engine_ = nullptr;
};

TEST_F(CaptureToEngineTest, DisplayFramesReachTheSdkPullUnchanged) {
  TestWindow cover(0, 0, 1280, 1024, true);
  Forwarder<DisplayCaptureEvent> host(engine_);
  DisplayCapture* capture = DisplayCapture::Create();
  capture->SetCaptureEvent(&host);
  capture->SetOutputSize(640, 360);
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(host.WaitFrames(2));
  capture->Stop();
  DisplayCapture::Release(capture);
  const std::vector<uint8_t> pushed = host.FirstPushed();
  ASSERT_EQ(pushed.size(), 640u * 360u * 3u / 2u);
  EXPECT_EQ(Pull(static_cast<uint32_t>(pushed.size())), pushed);
}

TEST_F(CaptureToEngineTest, WindowFramesReachTheSdkPullUnchanged) {
  TestWindow window(50, 50, 640, 480);
  Forwarder<WindowCaptureEvent> host(engine_);
  WindowCapture* capture = WindowCapture::Create();
  capture->SetCaptureEvent(&host);
  capture->SetOutputSize(1920, 1080);
  capture->SelectWindow(window.hwnd());
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(host.WaitFrames(2));
  capture->Stop();
  WindowCapture::Release(capture);
  const std::vector<uint8_t> pushed = host.FirstPushed();
  ASSERT_EQ(pushed.size(), 1920u * 1080u * 3u / 2u);
  EXPECT_FALSE(IsBlack(host.FrameAt(0)));
  EXPECT_EQ(Pull(static_cast<uint32_t>(pushed.size())), pushed);
}

}  // namespace
}  // namespace capture_test
