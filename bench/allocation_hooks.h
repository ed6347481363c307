// Counts heap allocations by the benchmark program, FFmpeg's avutil and
// swscale DLLs: every call of the C runtime's allocation functions that these
// modules import (malloc, calloc, realloc, _aligned_malloc, _aligned_realloc)
// is redirected through a counter. operator new of the statically linked C++
// runtime ends in the program's malloc, and av_malloc in avutil's
// _aligned_malloc, so both are seen. Not seen: other DLLs (Wine's own,
// Fundus.dll and the SDK stand-ins) and direct HeapAlloc/VirtualAlloc calls.
#pragma once

#include <cstdint>
#include <string>

namespace bench {

// Patches the import tables once; returns a description of what was hooked.
std::string InstallAllocationHooks();
// Allocation calls counted so far, by all threads.
int64_t AllocationCount();

}  // namespace bench
