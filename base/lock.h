// A plain non-recursive mutex and its scope-bound guard. Re-entering the lock
// on the same thread is a bug; it deadlocks rather than silently nesting.
#pragma once

#include <windows.h>

namespace base {

class Lock {
 public:
  Lock() { InitializeSRWLock(&srw_); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void Acquire() { AcquireSRWLockExclusive(&srw_); }
  // False when any thread holds it, the caller included.
  bool Try() { return TryAcquireSRWLockExclusive(&srw_) != 0; }
  void Release() { ReleaseSRWLockExclusive(&srw_); }

 private:
  friend class ConditionVariable;
  SRWLOCK srw_;
};

// Waits for a state guarded by a Lock to change; the lock is held around
// Wait, which releases it while asleep.
class ConditionVariable {
 public:
  ConditionVariable() { InitializeConditionVariable(&cv_); }
  ConditionVariable(const ConditionVariable&) = delete;
  ConditionVariable& operator=(const ConditionVariable&) = delete;

  void Wait(Lock& lock) { SleepConditionVariableSRW(&cv_, &lock.srw_, INFINITE, 0); }
  void Broadcast() { WakeAllConditionVariable(&cv_); }

 private:
  CONDITION_VARIABLE cv_;
};

class AutoLock {
 public:
  explicit AutoLock(Lock& lock) : lock_(lock) { lock_.Acquire(); }
  ~AutoLock() { lock_.Release(); }
  AutoLock(const AutoLock&) = delete;
  AutoLock& operator=(const AutoLock&) = delete;

 private:
  Lock& lock_;
};

}  // namespace base
