// Starting the library's own threads, behind a seam: a host may run out of
// threads or address space, and the objects that own a task thread must
// survive a refused start. Tests make the start fail through the seam;
// production calls CreateThread.
#pragma once

#include <windows.h>

namespace base {

using ThreadStarter = HANDLE(WINAPI*)(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack_size,
                                      LPTHREAD_START_ROUTINE routine, LPVOID param, DWORD flags,
                                      LPDWORD thread_id);

// The thread's handle (the caller closes it) and its id, or null.
HANDLE StartThread(LPTHREAD_START_ROUTINE routine, void* param, DWORD* thread_id);

// Replaces CreateThread for every later start; null restores it.
void SetThreadStarterForTesting(ThreadStarter starter);

}  // namespace base
