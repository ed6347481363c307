#include "base/thread_start.h"

#include <atomic>

namespace base {
namespace {

std::atomic<ThreadStarter> g_starter{nullptr};

}  // namespace

HANDLE StartThread(LPTHREAD_START_ROUTINE routine, void* param, DWORD* thread_id) {
  ThreadStarter starter = g_starter.load();
  if (!starter) starter = &CreateThread;
  return starter(nullptr, 0, routine, param, 0, thread_id);
}

void SetThreadStarterForTesting(ThreadStarter starter) { g_starter.store(starter); }

}  // namespace base
