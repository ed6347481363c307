#include <gtest/gtest.h>
#include "clock.h"
TEST(Smoke, Runs) { EXPECT_GT(TimeNanoseconds(), 0); }
