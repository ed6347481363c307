// While alive, every thread the library starts is refused, as when a process
// has run out of threads or address space.
#pragma once

#include "base/thread_start.h"

namespace testing_support {

struct RefuseThreads {
  RefuseThreads() { base::SetThreadStarterForTesting(&Refuse); }
  ~RefuseThreads() { base::SetThreadStarterForTesting(nullptr); }
  static HANDLE WINAPI Refuse(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
};

}  // namespace testing_support
