#include "roomcore/clock.h"

#include <windows.h>
// windows.h first: mmsystem.h needs its types.
#include <mmsystem.h>

#include <atomic>

#include "base/clock_internal.h"

namespace {

const base::ClockPlatform kRealPlatform = {&timeGetTime, &Sleep};
std::atomic<const base::ClockPlatform*> g_platform{&kRealPlatform};

std::atomic<uint32_t> g_last_tick{0};
// One writer at a time (whoever saw the wrap); readers must not see a torn
// 64-bit value on a 32-bit machine, hence the atomic.
std::atomic<uint64_t> g_wrap_count{0};

}  // namespace

namespace base {

void SetClockPlatformForTesting(const ClockPlatform* platform) {
  g_platform.store(platform ? platform : &kRealPlatform);
  g_last_tick.store(0);
  g_wrap_count.store(0);
}

}  // namespace base

int64_t TimeNanoseconds() {
  const uint32_t now = g_platform.load(std::memory_order_relaxed)->time_get_time();
  const uint32_t previous = g_last_tick.exchange(now);
  if (now < previous && previous > 0xF0000000u && now < 0x0FFFFFFFu) {
    g_wrap_count.store(g_wrap_count.load() + 1);
  }
  const uint64_t ticks = (g_wrap_count.load() << 32) + now;
  return static_cast<int64_t>(ticks * 1000000ull);
}

int64_t TimeMicroseconds() { return TimeNanoseconds() / 1000; }

int64_t TimeMilliseconds() { return TimeNanoseconds() / 1000000; }

void SleepAccurate(int milliseconds) {
  const int64_t deadline = TimeMicroseconds() + static_cast<int64_t>(milliseconds) * 1000;
  for (;;) {
    const int64_t now = TimeMicroseconds();
    if (now >= deadline) return;
    g_platform.load(std::memory_order_relaxed)->sleep(static_cast<DWORD>((deadline - now) / 1000));
  }
}
