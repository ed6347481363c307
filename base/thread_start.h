// Starting the library's own threads, behind a seam: a host may run out of
// threads or address space, and the objects that own a task thread must
// survive a refused start. Tests make the start fail through the seam;
// production calls CreateThread.
//
// Every thread started here holds a reference to the module that contains
// the library for as long as it runs, and ends with FreeLibraryAndExitThread:
// a host may release its objects and unload the library while a detached
// thread is still on its way out through the library's code.
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

// Waits for `handle` up to `timeout_ms` (INFINITE for no limit) and lets
// messages sent to the calling thread through meanwhile: a host thread that
// owns a window may be waiting for a thread that is itself waiting on a
// message sent to that window (PrintWindow does this). WAIT_OBJECT_0 when the
// handle was signalled, WAIT_TIMEOUT otherwise.
DWORD WaitLettingSentMessagesThrough(HANDLE handle, DWORD timeout_ms);

}  // namespace base
