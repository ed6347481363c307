// Captures the lines logged through Fundus.dll while in scope, so that tests
// can assert the library's log lines and wait for them.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "common/journal.h"

namespace testing_support {

struct LogLine {
  std::wstring module, message;
};

class LogCapture : public Monitor {
 public:
  LogCapture();
  ~LogCapture();
  std::vector<LogLine> Lines() const {
    return Locked([&] { return lines_; });
  }
  // Messages (of `module` only, unless it is empty), in order.
  std::vector<std::wstring> Messages(const std::wstring& module = L"") const;
  int Count(const std::wstring& message, const std::wstring& module = L"") const;
  // Waits until `message` has been logged at least `times` times.
  bool WaitFor(const std::wstring& message, int times = 1, DWORD timeout_ms = 5000) const;
  void Clear() {
    Locked([&] { lines_.clear(); });
  }

 private:
  std::vector<LogLine> lines_;
};

// Polls `predicate` until it holds or `timeout_ms` passes, for state that has
// no event to wait on; returns the last value of the predicate.
template <typename Predicate>
bool WaitUntil(Predicate predicate, DWORD timeout_ms = 5000) {
  for (const DWORD start = GetTickCount(); !predicate(); Sleep(1))
    if (GetTickCount() - start > timeout_ms) return predicate();
  return true;
}

}  // namespace testing_support
