// The exported clock on the real tick.
#include "clock.h"

#include <gtest/gtest.h>
#include <windows.h>

namespace {

TEST(Clock, UnitsAgreeAndNeverGoBackWithinARun) {
  int64_t previous = TimeNanoseconds();
  for (int i = 0; i < 1000; ++i) {
    const int64_t ns = TimeNanoseconds();
    EXPECT_GE(ns, previous);
    EXPECT_EQ(ns % 1000000, 0) << "the resolution is the millisecond tick";
    previous = ns;
  }
  const int64_t us = TimeMicroseconds();
  EXPECT_EQ(us % 1000, 0);
  EXPECT_LE(TimeMilliseconds() - us / 1000, 50);
}

TEST(Clock, SleepAccurateWaitsAtLeastTheTime) {
  for (int ms : {1, 5, 20}) {
    const int64_t start = TimeMicroseconds();
    SleepAccurate(ms);
    EXPECT_GE(TimeMicroseconds() - start, ms * 1000);
  }
}

TEST(Clock, SleepAccurateOfZeroOrLessReturnsAtOnce) {
  const int64_t start = TimeMilliseconds();
  for (int i = 0; i < 1000; ++i) {
    SleepAccurate(0);
    SleepAccurate(-1000);
  }
  // A thousand real sleeps of even 1 ms would take far longer than this.
  EXPECT_LT(TimeMilliseconds() - start, 500);
}

}  // namespace
