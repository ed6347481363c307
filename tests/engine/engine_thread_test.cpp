// What takes time or more than one thread: statistics, the frame log's
// cadence, release under way, the desktop stream.
#include <algorithm>
#include <atomic>
#include <deque>
#include <random>
#include <thread>
#include <tuple>

#include "engine_test_support.h"
#include "roomcore/clock.h"

namespace engine_test {
namespace {

TRTCStatistics Stats(int64_t received, int64_t sent, TRTCRemoteStatistics* remotes = nullptr,
                     uint32_t n = 0) {
  return {3, 4, 11, 37, 45, received, sent, nullptr, 0, remotes, n};
}

// Rates over whole seconds since the statistics before, which set the
// baseline, as do those within a second; without a host none do.
TEST_F(EngineTest, StatisticsRatesOverWholeSecondsSinceTheLast) {
  Run("EnterRoom(1400,1234,alice,sig)");
  ASSERT_TRUE(events_.WaitFor("OnEnterRoom(0,success)"));
  // (the entry comes on the SDK's thread, before or after the call's own result)
  events_.Clear();
  Run("UnInitialize; onStatistics");
  TRTCRemoteStatistics remotes[3] = {};
  const char* ids[] = {"bob", "carol", "dave"};
  for (int i = 0; i < 3; ++i) remotes[i] = {ids[i], 99, 0, 0, 0, 0, 0, 0, 0, 7u - 7 * (i / 2), i};
  events_.remote_count = 3;
  auto over_a_second = [] {
    const int64_t from = TimeMilliseconds();
    ASSERT_TRUE(testing_support::WaitUntil([&] { return TimeMilliseconds() - from >= 1050; }));
  };
  over_a_second();
  Run("Initialize; onNetworkQuality(4)");
  sdk_->onStatistics(Stats(0, 0));
  sdk_->onStatistics(Stats(1000000, 500000));
  over_a_second();
  sdk_->onStatistics(Stats(3048000, 602400, remotes, 3));
  sdk_->onStatistics(Stats(3048000, 602400));
  over_a_second();
  sdk_->onStatistics(Stats(3048000, 602400, remotes, 0));
  EXPECT_EQ(events_.Texts(), (Strings{"OnNetworkQuality(0)",
                                      "OnStatistics(45,2,100,2000,3,4,11,37,0),bob(7,1),carol(7,1),dave(0,2)",
                                      "OnStatistics(45,2,0,0,3,4,11,37,0),null"}));
}

// The counters live as long as the library: a fresh copy of it starts them
// at zero whatever ran before in this process. Video counts from 0, audio
// from 1.
TEST_F(EngineTest, FrameLogLinesAreOneInSixtyAndOneInAHundredFromTheStart) {
  Run("release");
  wchar_t path[MAX_PATH], temp[MAX_PATH];
  ASSERT_TRUE(GetModuleFileNameW(GetModuleHandleW(L"roomcore.dll"), path, MAX_PATH) &&
              GetTempPathW(MAX_PATH, temp));
  const std::wstring copy = temp + std::to_wstring(GetCurrentProcessId()) + L"roomcore.dll";
  ASSERT_TRUE(CopyFileW(path, copy.c_str(), FALSE));
  HMODULE library = LoadLibraryW(copy.c_str());
  auto function = [&](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
  reinterpret_cast<RTCEngine* (*)()>(function("CreaeRTCEngine"))()->Initialize(nullptr, &events_);
  LiteavCloudCallback()->onUserEnter("bob");
  const std::wstring me = std::to_wstring(GetCurrentThreadId());
  const std::wstring local = L"OnLocalVideoFrame:thread=" + me + L", w=2, h=2, pts=77, video_type=1";
  for (int i = 0; i < 61; ++i) {
    Render("", 0, TRTCVideoPixelFormat_BGRA32, 2, 2);
    EXPECT_EQ(log_.Count(local), i < 60 ? 1 : 2) << i;
  }
  Render("bob", 2, TRTCVideoPixelFormat_BGRA32, 4, 4);
  EXPECT_EQ(Log().back(),
            L"OnRemoteVideoFrame:thread=" + me + L", usr_id:bob, w=4, h=4, pts=77, video_type=2");
  TRTCAudioFrame frame = {};
  frame.length = 1920;
  for (int i = 1; i <= 200; ++i) {
    LiteavAudioFrameCallback()->onCapturedAudioFrame(&frame);
    LiteavAudioFrameCallback()->onPlayAudioFrame(&frame, "bob");
    LiteavAudioFrameCallback()->onPlayAudioFrame(&frame, nullptr);  // not counted, nor the next two
    LiteavAudioFrameCallback()->onPlayAudioFrame(nullptr, "bob");
    LiteavAudioFrameCallback()->onCapturedAudioFrame(nullptr);
    EXPECT_EQ(log_.Count(L"onCapturedAudioFrame: length=1920"), i / 100) << i;
    EXPECT_EQ(log_.Count(L"onPlayAudioFrame:ThreadId=" + me + L", usr_id:bob, length=1920"), i / 100) << i;
  }
  reinterpret_cast<void (*)()>(function("ReleaseRTCEngine"))();
  FreeLibrary(library);
  DeleteFileW(copy.c_str());
}

// Host threads, the SDK's thread and the task thread at once: room calls hold
// lock_ across the SDK, the task thread reloads lists under it, the host reads
// them inside OnDeviceChanged, frames and volumes read the local user while
// the host stores another. Nothing deadlocks, nothing tears.
TEST_F(EngineTest, HostSdkAndTaskThreadsTogether) {
  const std::string alice(40, 'a'), bob(60, 'b');  // longer than a small-string buffer
  Run("EnterRoom(1,2,a*40,s); watchCameras");
  std::atomic<bool> stop{false};
  std::thread room([&] {
    for (int i = 0; !stop; ++i)
      Run("EnterRoom(1,2," + (i % 2 ? alice : bob) + ",s); OpenCamera(0); ExitRoom");
  });
  std::thread devices([&] {
    for (int i = 0; !stop; ++i) Run(i % 2 ? "SetCameraDevice(Cam A); OpenMicDevice(Mic B)" : "GetMicDevices");
  });
  for (int i = 0; i < 200; ++i)
    liteav_control::RunOnCallbackThread(
        [&] { Run("onDeviceChange(Cam A,2,1); onUserVoiceVolume(:5); render(,0,3,1,1)"); });
  EXPECT_TRUE(events_.WaitFor("=Cam A/Cam B@T", 200, 20000));
  stop = true;
  room.join();
  devices.join();
  for (const std::string& text : events_.Texts()) {
    const std::string id = text.substr(text.find('(') + 1, text.find_first_of(":,)") - text.find('(') - 1);
    const bool reads_local_user = text.find("OnLocalVideoFrame") == 0 || text.find("OnUserVoiceVolume") == 0;
    EXPECT_TRUE(!reads_local_user || id == alice || id == bob) << text;
  }
}

// A callback under way on an SDK thread when the host releases the engine
// finishes with the SDK object before that is destroyed. The host's event
// holds it until the destruction begins, or half a second where the release
// rightly waits.
TEST_F(EngineTest, ReleaseLetsACallbackUnderWayFinishBeforeTheSdkGoes) {
  base::ScopedHandle in_event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  events_.on_event = [&](const std::string&) {
    SetEvent(in_event.get());
    LiteavWaitForCall("destroyTRTCShareInstance", 1, 500);
  };
  std::thread sdk_thread([&] { Run("onUserEnter(bob)"); });
  ASSERT_EQ(WaitForSingleObject(in_event.get(), 5000), WAIT_OBJECT_0);
  Run("release");
  sdk_thread.join();
  EXPECT_EQ(SdkCalls(0),
            Split("removeCallback(callback)|setRemoteVideoRenderCallback(bob,3,1,callback)|"
                  "setAudioFrameCallback(callback)|startRemoteView(bob,0)|destroyTRTCShareInstance()",
                  '|'));
}

// One pull as the SDK makes it: the picture, or "<n>" for a result n without
// one, which leaves the frame as it was; nothing is written past it.
std::string Pull(TRTCVideoFrame* frame) {
  static std::vector<uint8_t> buffer(1920 * 1080 * 3 / 2 + 1);
  std::fill(buffer.begin(), buffer.end(), 0xEE);
  const int32_t n = LiteavPullVideoFrame(buffer.data(), static_cast<uint32_t>(buffer.size()), frame);
  EXPECT_EQ(buffer[std::max(n, 0)], 0xEE);
  EXPECT_TRUE(n > 0 || (frame->width == 0 && frame->length == buffer.size())) << "a pull without a picture";
  return n > 0 ? std::string(buffer.begin(), buffer.begin() + n) : "<" + std::to_string(n) + ">";
}

TEST_F(EngineTest, PicturesPushedWhileSharingComeOutOfThePullOnceAndWhole) {
  TRTCVideoFrame frame;
  Run("PushDesktopFrame(1); EnableCaptureDesktopVideo(1); PushDesktopFrame(0); EnableCaptureDesktopVideo(0); "
      "PushDesktopFrame(0); EnableCaptureDesktopVideo(1)");
  EXPECT_EQ(Pull(&frame), "<0>");  // the switch-off emptied the queue
  const uint8_t picture[6] = {};
  engine_->PushDesktopFrame(picture, 6, 0, 2, 1);  // no picture at all
  engine_->PushDesktopFrame(picture, 6, -2, 2, 1);
  engine_->PushDesktopFrame(nullptr, 6, 2, 2, 1);
  EXPECT_EQ(Pull(&frame), "<0>");
  Run("EnableCaptureDesktopVideo(0)");
  EXPECT_EQ(Pull(&frame), "<" + std::to_string(LiteavNoSource) + ">");
  EXPECT_EQ(events_.Texts(), Split("=0|=1|=0", '|'));
  EXPECT_EQ(SdkCalls(0), Split("setStreamDataSource(source,0)|setStreamDataSource(null,0)|"
                               "setStreamDataSource(source,0)|setStreamDataSource(null,0)",
                               '|'));
  // Any size, any stated length, with its pts; a queue of 12 that drops the
  // oldest, at any rate of pulls.
  Run("EnableCaptureDesktopVideo(1)");
  struct Case {
    int width, height, length, pushes, pull_every;
  } cases[] = {{1920, 1080, 0, 1, 1}, {1920, 1080, 0, 1, 1}, {5, 3, 9999, 1, 1},  {6, 2, 18, 1, 1},
               {32, 16, 768, 13, 99}, {32, 16, 768, 99, 2},  {32, 16, 768, 99, 4}};
  uint64_t pts = 0x123456789AULL;
  std::mt19937 random;
  for (const Case& c : cases) {
    std::deque<std::pair<std::string, uint64_t>> queue;
    auto pull = [&] {
      ASSERT_EQ(Pull(&frame), queue.front().first);
      EXPECT_EQ(std::make_tuple(frame.timestamp, frame.length, frame.video_format, frame.buffer_type,
                                frame.width, frame.height),
                std::make_tuple(queue.front().second, static_cast<uint32_t>(queue.front().first.size()), 1, 1,
                                c.width, c.height));
      queue.pop_front();
    };
    for (int i = 1; i <= c.pushes; ++i) {
      std::string bytes(c.width * c.height + 2 * ((c.width + 1) / 2) * ((c.height + 1) / 2), 0);
      for (char& byte : bytes) byte = static_cast<char>(random());
      if (queue.size() == 12) queue.pop_front();
      queue.emplace_back(bytes, ++pts);
      ASSERT_TRUE(engine_->PushDesktopFrame(bytes.data(), c.length, c.width, c.height, pts));
      if (i % c.pull_every == 0) pull();
    }
    while (!queue.empty()) pull();
    EXPECT_EQ(Pull(&frame), "<0>");
  }
  // A puller racing the release never reaches the source once it is gone.
  const int destroyed = LiteavDestroyedSourceCount();
  for (int i = 0; i < 50; ++i) engine_->PushDesktopFrame(picture, 6, 2, 2, i);
  LiteavSetPullRate(1000);
  std::thread puller([&] {
    uint8_t out[6];
    for (TRTCVideoFrame own; LiteavPullVideoFrame(out, 6, &own) != LiteavNoSource;) {
    }
  });
  Run("release");
  puller.join();
  LiteavSetPullRate(0);
  EXPECT_EQ(LiteavDestroyedSourceCount(), destroyed + 1);
}

}  // namespace
}  // namespace engine_test
