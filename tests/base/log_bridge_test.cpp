// The logging path every quoted log line travels: Fundus's printf-like Info
// with wide %s, and the sink the tests read.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/log_capture.h"
#include "fundus/fundus.h"

namespace {

TEST(LogBridge, FormatsWideTextAndNumbersAndTagsTheSdkBridges) {
  testing_support::LogCapture log;
  Util::Log::Info(L"RTCEngineImpl", L"EnableCaptureSystemAudio:%d", 1);
  Util::Log::Info(L"ImManagerImpl", L"user %s in %s", L"alice", L"\x4E2D");
  Util::Log::Info(L"X", L"%I64d %u", static_cast<long long>(1) << 40, 4000000000u);
  const std::wstring long_text(10000, L'x');
  Util::Log::Info(L"X", L"<%s>", long_text.c_str());
  Util::Log::DoTrtcLog(L"trtc line");
  Util::Log::DoTimLog(L"tim line");
  EXPECT_EQ(log.Messages(L"RTCEngineImpl"), std::vector<std::wstring>{L"EnableCaptureSystemAudio:1"});
  EXPECT_TRUE(log.Contains(L"user alice in \x4E2D", L"ImManagerImpl"));
  EXPECT_TRUE(log.Contains(L"1099511627776 4000000000", L"X"));
  EXPECT_TRUE(log.Contains(L"<" + long_text + L">"));
  EXPECT_TRUE(log.Contains(L"trtc line", L"TRTC"));
  EXPECT_TRUE(log.Contains(L"tim line", L"TIM"));
}

TEST(LogBridge, ManyThreadsLoseNoLine) {
  testing_support::LogCapture log;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) Util::Log::Info(L"T", L"line");
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(log.Count(L"line", L"T"), 800);
}

}  // namespace
