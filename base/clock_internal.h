// Test seam for the clock: the two platform calls it makes.
#pragma once

#include <windows.h>

namespace base {

struct ClockPlatform {
  DWORD(WINAPI* time_get_time)();
  VOID(WINAPI* sleep)(DWORD milliseconds);
};

// Replaces the platform calls; null restores timeGetTime and Sleep. Also
// forgets the last tick and the wrap count, as at load.
void SetClockPlatformForTesting(const ClockPlatform* platform);

}  // namespace base
