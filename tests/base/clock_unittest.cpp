// The clock driven through its seam: a scripted tick and a recorded sleep.
#include "roomcore/clock.h"

#include <gtest/gtest.h>

#include <vector>

#include "base/clock_internal.h"

namespace {

DWORD g_tick = 0;
std::vector<DWORD> g_sleeps;
// How far the tick moves during Sleep(n): n * num / den (early or late wake).
DWORD g_sleep_num = 1, g_sleep_den = 1;

DWORD WINAPI FakeTimeGetTime() { return g_tick; }
VOID WINAPI FakeSleep(DWORD ms) {
  g_sleeps.push_back(ms);
  const DWORD advance = ms * g_sleep_num / g_sleep_den;
  g_tick += advance > 0 ? advance : 1;
}
const base::ClockPlatform kFake = {&FakeTimeGetTime, &FakeSleep};

constexpr int64_t kMs = 1000000;
constexpr int64_t kWrap = 4294967296LL;

class ClockTest : public ::testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { base::SetClockPlatformForTesting(nullptr); }
  static void Reset() {
    g_tick = 0;
    g_sleeps.clear();
    g_sleep_num = g_sleep_den = 1;
    base::SetClockPlatformForTesting(&kFake);  // also forgets the last tick and the wraps
  }
};

// Each run of readings starts afresh; the last reading is checked.
TEST_F(ClockTest, WrapDetection) {
  const struct {
    std::vector<DWORD> ticks;
    int64_t last_ms;
  } cases[] = {
      {{5}, 5},                                 // the first reading is never a wrap
      {{0x00000010}, 16},                       //
      {{0xFFFFFFF0u, 0x10}, kWrap + 16},        // a wrap near the top counts once
      {{0xFFFFFFF0u, 0x10, 0x20}, kWrap + 32},  // and keeps growing
      {{0xFFFFFFF0u, 0x10, 0x10000000}, kWrap + 0x10000000LL},
      {{0xF0000000u, 5}, 5},                              // previous exactly 0xF0000000: no wrap
      {{0xFFFFFFF0u, 0x0FFFFFFF}, 0x0FFFFFFF},            // now exactly 0x0FFFFFFF: no wrap
      {{0xFFFFFFF0u, 0x0FFFFFFE}, kWrap + 0x0FFFFFFE},    // one below is
      {{1000, 999}, 999},                                 // a small step back shows
      {{1000, 999, 1000}, 1000},                          //
      {{0xFFFFFFFFu, 1, 0xFFFFFFFFu, 2}, 2 * kWrap + 2},  // a second wrap adds another period
  };
  for (const auto& c : cases) {
    Reset();
    int64_t ns = 0;
    for (DWORD tick : c.ticks) {
      g_tick = tick;
      ns = TimeNanoseconds();
    }
    EXPECT_EQ(ns, c.last_ms * kMs) << std::hex << c.ticks.front() << ".." << c.ticks.back();
  }
  Reset();
  for (DWORD tick : {1234u, 1235u}) {
    g_tick = tick;
    EXPECT_EQ(TimeMicroseconds(), tick * 1000LL);
    EXPECT_EQ(TimeMilliseconds(), tick);
  }
}

TEST_F(ClockTest, SleepAccurateLoop) {
  const struct {
    int ms;
    DWORD start, num, den;
    std::vector<DWORD> sleeps;
    DWORD end;
  } cases[] = {
      {0, 100, 1, 1, {}, 100},  // zero or less never sleeps
      {-5, 100, 1, 1, {}, 100},
      {-2147483647 - 1, 100, 1, 1, {}, 100},
      {5, 100, 1, 1, {5}, 105},                    // on time: one call
      {20, 100, 1, 2, {20, 10, 5, 3, 2, 1}, 120},  // early wake: again for what is left
      {4, 100, 3, 1, {4}, 112},                    // late wake: returns late
      {4, 0xFFFFFFFEu, 1, 1, {4}, 2},              // across the wrap
  };
  for (const auto& c : cases) {
    Reset();
    g_tick = c.start;
    g_sleep_num = c.num;
    g_sleep_den = c.den;
    SleepAccurate(c.ms);
    EXPECT_EQ(g_sleeps, c.sleeps) << c.ms;
    EXPECT_EQ(g_tick, c.end) << c.ms;
  }
  EXPECT_EQ(TimeNanoseconds(), (kWrap + 2) * kMs);  // the last sleep crossed the wrap
}

}  // namespace
