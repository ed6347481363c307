// The library's one clock: a millisecond tick widened to 64 bits.
#pragma once

#include <cstdint>

#include "roomcore_export.h"

ROOMCORE_API int64_t TimeNanoseconds();
ROOMCORE_API int64_t TimeMicroseconds();
ROOMCORE_API int64_t TimeMilliseconds();
// Returns when the clock has advanced by at least `milliseconds`; blocks in
// Sleep, never spins.
ROOMCORE_API void SleepAccurate(int milliseconds);
