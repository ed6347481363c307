// The clock driven through its seam: a scripted tick and a recorded sleep.
#include "clock.h"

#include <gtest/gtest.h>

#include <vector>

#include "base/clock_internal.h"

namespace {

DWORD g_tick = 0;
std::vector<DWORD> g_sleeps;
// How far the tick moves during Sleep(n): n * num / den (early or late wake).
DWORD g_sleep_num = 1;
DWORD g_sleep_den = 1;

DWORD WINAPI FakeTimeGetTime() { return g_tick; }
VOID WINAPI FakeSleep(DWORD ms) {
  g_sleeps.push_back(ms);
  DWORD advance = ms * g_sleep_num / g_sleep_den;
  g_tick += advance > 0 ? advance : 1;
}

const base::ClockPlatform kFake = {&FakeTimeGetTime, &FakeSleep};

class ClockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    g_tick = 0;
    g_sleeps.clear();
    g_sleep_num = g_sleep_den = 1;
    base::SetClockPlatformForTesting(&kFake);
  }
  void TearDown() override { base::SetClockPlatformForTesting(nullptr); }

  static int64_t At(DWORD tick) {
    g_tick = tick;
    return TimeNanoseconds();
  }
};

constexpr int64_t kMs = 1000000;
constexpr int64_t kWrap = 4294967296LL;

TEST_F(ClockTest, FirstReadingIsNeverAWrap) {
  EXPECT_EQ(At(5), 5 * kMs);
  EXPECT_EQ(At(0x00000010), 16 * kMs);
}

TEST_F(ClockTest, WrapNearTheTopCountsOnceAndKeepsGrowing) {
  At(0xFFFFFFF0u);
  EXPECT_EQ(At(0x00000010), (kWrap + 16) * kMs);
  EXPECT_EQ(At(0x00000020), (kWrap + 32) * kMs);
  EXPECT_EQ(At(0x10000000), (kWrap + 0x10000000LL) * kMs);
}

TEST_F(ClockTest, BoundariesAreStrict) {
  At(0xF0000000u);
  EXPECT_EQ(At(5), 5 * kMs) << "previous exactly 0xF0000000 is no wrap";
  At(0xFFFFFFF0u);
  EXPECT_EQ(At(0x0FFFFFFF), 0x0FFFFFFFLL * kMs) << "now exactly 0x0FFFFFFF is no wrap";
  At(0xFFFFFFF0u);
  EXPECT_EQ(At(0x0FFFFFFE), (kWrap + 0x0FFFFFFELL) * kMs) << "one below is";
}

TEST_F(ClockTest, SmallBackwardStepShowsInTheResult) {
  At(1000);
  EXPECT_EQ(At(999), 999 * kMs);
  EXPECT_EQ(At(1000), 1000 * kMs);
}

TEST_F(ClockTest, SecondWrapAddsAnotherPeriod) {
  At(0xFFFFFFFFu);
  At(1);
  At(0xFFFFFFFFu);
  EXPECT_EQ(At(2), (2 * kWrap + 2) * kMs);
}

TEST_F(ClockTest, MicroAndMillisecondsStepTogetherWithTheTick) {
  g_tick = 1234;
  EXPECT_EQ(TimeMicroseconds(), 1234000);
  EXPECT_EQ(TimeMilliseconds(), 1234);
  g_tick = 1235;
  EXPECT_EQ(TimeMicroseconds(), 1235000);
  EXPECT_EQ(TimeMilliseconds(), 1235);
}

TEST_F(ClockTest, SleepOfZeroOrLessNeverSleeps) {
  g_tick = 100;
  SleepAccurate(0);
  SleepAccurate(-5);
  SleepAccurate(-2147483647 - 1);
  EXPECT_TRUE(g_sleeps.empty());
}

TEST_F(ClockTest, SleepOnTimeIsOneCall) {
  g_tick = 100;
  SleepAccurate(5);
  EXPECT_EQ(g_sleeps, std::vector<DWORD>({5}));
  EXPECT_EQ(g_tick, 105u);
}

TEST_F(ClockTest, EarlyWakeSleepsAgainForWhatIsLeft) {
  g_tick = 100;
  g_sleep_num = 1;
  g_sleep_den = 2;  // wakes after half the time
  SleepAccurate(20);
  EXPECT_EQ(g_sleeps, std::vector<DWORD>({20, 10, 5, 3, 2, 1}));
  EXPECT_EQ(g_tick, 120u);
}

TEST_F(ClockTest, LateWakeReturnsLate) {
  g_tick = 100;
  g_sleep_num = 3;  // wakes after three times the time
  SleepAccurate(4);
  EXPECT_EQ(g_sleeps, std::vector<DWORD>({4}));
  EXPECT_EQ(g_tick, 112u);
}

TEST_F(ClockTest, SleepAcrossTheWrap) {
  g_tick = 0xFFFFFFFEu;
  SleepAccurate(4);
  EXPECT_EQ(g_sleeps, std::vector<DWORD>({4}));
  EXPECT_EQ(TimeNanoseconds(), (kWrap + 2) * kMs);
}

}  // namespace
