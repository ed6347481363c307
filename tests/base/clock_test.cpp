// The exported clock on the real tick.
#include "roomcore/clock.h"

#include <windows.h>

#include <gtest/gtest.h>

namespace {

TEST(Clock, UnitsAgreeNeverGoBackAndSleepsLastAtLeastTheTime) {
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
  for (int ms : {1, 5, 20}) {
    const int64_t start = TimeMicroseconds();
    SleepAccurate(ms);
    EXPECT_GE(TimeMicroseconds() - start, ms * 1000);
  }
}

}  // namespace
