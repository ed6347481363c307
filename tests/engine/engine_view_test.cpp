// Remote views, remote audio, and frames handed to the host.
#include <atomic>
#include <thread>

#include "engine_test_support.h"

namespace engine_test {
namespace {

// The frame counters live as long as the library: a test that needs them at
// zero can only run first in its process.
bool g_rendered = false;

class EngineView : public EngineTest {
 protected:
  void Render(const char* usr_id, int32_t stream_type, int32_t format, int32_t width, int32_t height,
              int32_t rotation = 0, int count = 1) {
    static char pixels[16] = {};
    g_rendered = true;
    liteav_control::RunOnCallbackThread([&] {
      ITRTCVideoRenderCallback* cb =
          *usr_id ? LiteavRemoteRenderCallback(usr_id) : LiteavLocalRenderCallback();
      ASSERT_NE(cb, nullptr);
      for (int i = 0; i < count; ++i) {
        TRTCVideoFrame frame = {};
        frame.video_format = format;
        frame.buffer_type = TRTCVideoBufferType_Buffer;
        frame.data = pixels;
        frame.length = 1;  // not read
        frame.width = width;
        frame.height = height;
        frame.timestamp = 1000 + i;
        frame.rotation = rotation;
        cb->onRenderVideoFrame(usr_id, stream_type, &frame);
      }
    });
  }
  int LogLinesStartingWith(const std::wstring& prefix) {
    int n = 0;
    for (const std::wstring& line : log_.Messages(L"RTCEngineImpl")) n += line.rfind(prefix, 0) == 0 ? 1 : 0;
    return n;
  }
};

// A null user is refused everywhere but in SetRemoteStreamType, where it
// means every user.
TEST_F(EngineView, NullUsersAreLoggedAndGoNoFurther) {
  engine_->StartRemoteCameraView(nullptr, nullptr);
  engine_->StopRemoteCameraView(nullptr);
  engine_->StartRemoteDesktopView(nullptr, nullptr);
  engine_->StopRemoteDesktopView(nullptr);
  engine_->MuteRemoteAudio(nullptr, true);
  EXPECT_EQ(LiteavCallCount(), 0);
  EXPECT_EQ(
      log_.Messages(L"RTCEngineImpl"),
      (std::vector<std::wstring>{
          L"StartRemoteCameraView:usr_id is null.failed!", L"StopRemoteCameraView:usr_id is null.failed!",
          L"StartRemoteDesktopView:usr_id is null.failed!", L"StopRemoteDesktopView:usr_id is null.failed!",
          L"MuteRemoteAudio:UserID is Null, bMute=1.Failed!"}));
  engine_->SetRemoteStreamType(nullptr, 1);
  engine_->SetRemoteStreamType("bob", 2);
  EXPECT_EQ(liteav_control::Calls(), (std::vector<std::string>{"setPriorRemoteVideoStreamType(1)",
                                                               "setRemoteVideoStreamType(bob,2)"}));
}

TEST_F(EngineView, FrameSizesFollowTheFormat) {
  EnterRoomAndWait("alice");
  Fire([](ITRTCCloudCallback* cb) { cb->onUserEnter("bob"); });
  events_.Clear();
  Render("", 0, TRTCVideoPixelFormat_BGRA32, 640, 360);
  Render("bob", 1, TRTCVideoPixelFormat_I420, 641, 361);
  Render("bob", 0, TRTCVideoPixelFormat_Texture_2D, 10, 10);
  Render("bob", 5, TRTCVideoPixelFormat_BGRA32, 1, 1);
  Render("bob", 2, TRTCVideoPixelFormat_BGRA32, 4, 4);
  EXPECT_EQ(events_.Texts(),
            (std::vector<std::string>{
                "OnLocalVideoFrame(alice,data,921600,640,360,1)",
                "OnRemoteVideoFrame(bob,data,347101,641,361,1)", "OnRemoteVideoFrame(bob,data,0,10,10,1)",
                "OnRemoteVideoFrame(bob,data,4,1,1,0)", "OnRemoteVideoFrame(bob,data,64,4,4,2)"}));
  EXPECT_EQ(events_.ThreadOf("OnLocalVideoFrame(alice,data,921600,640,360,1)"), LiteavCallbackThreadId());
  // The local sub-stream is counted (one log line in 60) but not delivered.
  events_.Clear();
  log_.Clear();
  Render("", 2, TRTCVideoPixelFormat_BGRA32, 4, 4, 0, 60);
  EXPECT_TRUE(events_.Events().empty());
  EXPECT_EQ(LogLinesStartingWith(L"OnLocalVideoFrame:thread="), 1);
}

TEST_F(EngineView, RotationIsUndoneForEachRotatedFrame) {
  Fire([](ITRTCCloudCallback* cb) { cb->onUserEnter("bob"); });
  LiteavReset();
  for (int rotation : {0, 1, 2, 3, 9}) Render("", 0, TRTCVideoPixelFormat_BGRA32, 2, 2, rotation);
  for (int rotation : {0, 1, 2, 3}) Render("bob", 0, TRTCVideoPixelFormat_BGRA32, 2, 2, rotation);
  Render("", 0, TRTCVideoPixelFormat_BGRA32, 2, 2, 1);
  EXPECT_EQ(liteav_control::Calls(),
            (std::vector<std::string>{"setLocalViewRotation(3)", "setLocalViewRotation(2)",
                                      "setLocalViewRotation(1)", "setRemoteViewRotation(bob,3)",
                                      "setRemoteViewRotation(bob,2)", "setRemoteViewRotation(bob,1)",
                                      "setLocalViewRotation(3)"}));
}

// The counters live as long as the library, so any 60 video frames in a row
// hold exactly one logged frame, and any 100 audio frames one, wherever the
// count stands.
TEST_F(EngineView, OneVideoFrameInSixtyAndOneAudioFrameInAHundredIsLogged) {
  g_rendered = true;
  Fire([](ITRTCCloudCallback* cb) { cb->onUserEnter("bob"); });
  Render("", 0, TRTCVideoPixelFormat_BGRA32, 8, 6, 0, 60);
  EXPECT_EQ(LogLinesStartingWith(L"OnLocalVideoFrame:thread="), 1);
  Render("", 0, TRTCVideoPixelFormat_BGRA32, 8, 6, 0, 120);
  EXPECT_EQ(LogLinesStartingWith(L"OnLocalVideoFrame:thread="), 3);
  Render("bob", 2, TRTCVideoPixelFormat_BGRA32, 8, 6, 0, 60);
  EXPECT_EQ(LogLinesStartingWith(L"OnRemoteVideoFrame:thread="), 1);
  // The frame's place in the run decides its pts: 1000 to 1059.
  const std::wstring line = log_.Messages(L"RTCEngineImpl").back();
  const std::wstring head = L"OnRemoteVideoFrame:thread=" + std::to_wstring(LiteavCallbackThreadId()) +
                            L", usr_id:bob, w=8, h=6, pts=10";
  EXPECT_EQ(line.substr(0, head.size()), head);
  EXPECT_EQ(line.substr(head.size() + 2), L", video_type=2");

  events_.Clear();
  liteav_control::RunOnCallbackThread([] {
    ITRTCAudioFrameCallback* cb = LiteavAudioFrameCallback();
    TRTCAudioFrame frame = {};
    frame.length = 1920;
    for (int i = 0; i < 100; ++i) {
      cb->onCapturedAudioFrame(&frame);
      cb->onPlayAudioFrame(&frame, "bob");
      cb->onPlayAudioFrame(&frame, nullptr);  // not counted
      cb->onPlayAudioFrame(nullptr, "bob");   // not counted
      cb->onCapturedAudioFrame(nullptr);      // not counted
      cb->onMixedPlayAudioFrame(&frame);
    }
  });
  EXPECT_EQ(log_.Count(L"onCapturedAudioFrame: length=1920"), 1);
  EXPECT_EQ(log_.Count(L"onPlayAudioFrame:ThreadId=" + std::to_wstring(LiteavCallbackThreadId()) +
                       L", usr_id:bob, length=1920"),
            1);
  EXPECT_TRUE(events_.Events().empty());  // audio is not handed to the host
}

TEST_F(EngineView, FirstFramesOfTheProcessAreCountedFromTheStart) {
  if (g_rendered) GTEST_SKIP() << "frames were counted earlier in this process";
  Fire([](ITRTCCloudCallback* cb) { cb->onUserEnter("bob"); });
  for (int logged : {1, 1}) {  // the first is logged, the second not
    Render("", 0, TRTCVideoPixelFormat_BGRA32, 2, 2);
    EXPECT_EQ(LogLinesStartingWith(L"OnLocalVideoFrame:thread="), logged);
  }
  Render("", 0, TRTCVideoPixelFormat_BGRA32, 2, 2, 0, 59);  // frames 3 to 61
  EXPECT_EQ(LogLinesStartingWith(L"OnLocalVideoFrame:thread="), 2);
  EXPECT_EQ(log_.Messages(L"RTCEngineImpl").back(), L"OnLocalVideoFrame:thread=" +
                                                        std::to_wstring(LiteavCallbackThreadId()) +
                                                        L", w=2, h=2, pts=1058, video_type=1");
  // Audio counts from 1: the hundredth frame is the first logged.
  for (int frames : {99, 1}) {
    liteav_control::RunOnCallbackThread([frames] {
      TRTCAudioFrame frame = {};
      frame.length = 10;
      for (int i = 0; i < frames; ++i) LiteavAudioFrameCallback()->onCapturedAudioFrame(&frame);
    });
    EXPECT_EQ(log_.Count(L"onCapturedAudioFrame: length=10"), frames == 99 ? 0 : 1);
  }
}

TEST_F(EngineView, LocalFramesNeverSeeATornUserId) {
  const std::string alice(40, 'a');  // longer than any small-string buffer
  const std::string bob(60, 'b');
  LiteavSetAutoAnswer(false);
  std::atomic<bool> stop{false};
  std::thread host([&] {
    for (int i = 0; !stop; ++i) engine_->EnterRoom("1", "2", (i % 2 ? alice : bob).c_str(), "s");
  });
  Render("", 0, TRTCVideoPixelFormat_BGRA32, 1, 1, 0, 3000);
  stop = true;
  host.join();
  int frames = 0;
  for (const std::string& text : events_.Texts("OnLocalVideoFrame")) {
    ++frames;
    const bool whole = text == "OnLocalVideoFrame(" + alice + ",data,4,1,1,1)" ||
                       text == "OnLocalVideoFrame(" + bob + ",data,4,1,1,1)" ||
                       text == "OnLocalVideoFrame(,data,4,1,1,1)";
    ASSERT_TRUE(whole) << text;
  }
  EXPECT_EQ(frames, 3000);
}

}  // namespace
}  // namespace engine_test
