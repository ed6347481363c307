#include "base/thread_start.h"

#include <atomic>
#include <new>

namespace base {
namespace {

std::atomic<ThreadStarter> g_starter{nullptr};

struct ThreadStart {
  LPTHREAD_START_ROUTINE routine;
  void* param;
  HMODULE module;
};

// The module that holds this code: the library's DLL, or the program that
// links its objects directly.
HMODULE PinOwnModule() {
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&PinOwnModule),
                          &module)) {
    return nullptr;
  }
  return module;
}

DWORD WINAPI Trampoline(LPVOID param) {
  ThreadStart start = *static_cast<ThreadStart*>(param);
  delete static_cast<ThreadStart*>(param);
  const DWORD code = start.routine(start.param);
  // The routine's last act may have been to tell its owner it ended; the
  // owner may be gone and the library unloaded by a host as soon as this
  // reference is the last one. So the reference is dropped by the call that
  // also ends the thread, and no library code runs after it.
  if (start.module) FreeLibraryAndExitThread(start.module, code);
  return code;
}

}  // namespace

HANDLE StartThread(LPTHREAD_START_ROUTINE routine, void* param, DWORD* thread_id) {
  ThreadStarter starter = g_starter.load();
  if (!starter) starter = &CreateThread;
  auto* start = new (std::nothrow) ThreadStart{routine, param, nullptr};
  if (!start) return nullptr;
  // Taken here, before the thread exists, so that an unload racing with the
  // start can't free the code the new thread is about to run.
  start->module = PinOwnModule();
  HANDLE thread = starter(nullptr, 0, &Trampoline, start, 0, thread_id);
  if (!thread) {
    const DWORD error = GetLastError();
    if (start->module) FreeLibrary(start->module);
    delete start;
    SetLastError(error);
  }
  return thread;
}

void SetThreadStarterForTesting(ThreadStarter starter) { g_starter.store(starter); }

DWORD WaitLettingSentMessagesThrough(HANDLE handle, DWORD timeout_ms) {
  const DWORD begin = GetTickCount();
  for (;;) {
    DWORD remaining = INFINITE;
    if (timeout_ms != INFINITE) {
      const DWORD elapsed = GetTickCount() - begin;
      if (elapsed >= timeout_ms) return WaitForSingleObject(handle, 0) == WAIT_OBJECT_0 ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
      remaining = timeout_ms - elapsed;
    }
    const DWORD result = MsgWaitForMultipleObjectsEx(1, &handle, remaining, QS_SENDMESSAGE, 0);
    if (result == WAIT_OBJECT_0) return WAIT_OBJECT_0;
    if (result == WAIT_OBJECT_0 + 1) {
      // Peeking delivers the messages sent to this thread; nothing posted is
      // taken off its queue.
      MSG msg;
      PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE | PM_QS_SENDMESSAGE);
      continue;
    }
    if (result == WAIT_TIMEOUT) return WAIT_TIMEOUT;
    // A failed wait (a handle closed under it) must not spin.
    return WaitForSingleObject(handle, timeout_ms == INFINITE ? INFINITE : 0) == WAIT_OBJECT_0 ? WAIT_OBJECT_0
                                                                                                : WAIT_TIMEOUT;
  }
}

}  // namespace base
