// Small helpers shared by the engine's source files.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <string>

#include "base/scoped_handle.h"
#include "base/text.h"
#include "fundus/fundus.h"

#define RTC_LOG(...) Util::Log::Info(L"RTCEngineImpl", __VA_ARGS__)

namespace engine {

inline std::wstring Wide(const char* text) { return base::Utf8ToWide(text); }
inline std::wstring Wide(const std::string& text) { return base::Utf8ToWide(text); }

// Copies `source` into a fixed field of `capacity` bytes, always ending it
// with a NUL. Text that doesn't fit is cut before the UTF-8 character that
// would straddle the end, so the field stays valid UTF-8.
inline void CopyText(char* field, size_t capacity, const char* source) {
  if (capacity == 0) return;
  size_t length = source ? strlen(source) : 0;
  if (length >= capacity) {
    length = capacity - 1;
    while (length > 0 && (static_cast<unsigned char>(source[length]) & 0xC0) == 0x80) --length;
  }
  if (length) memcpy(field, source, length);
  field[length] = '\0';
}

// The text of a fixed field that a host filled; it may lack its NUL.
inline std::string FieldText(const char* field, size_t capacity) {
  size_t length = 0;
  while (length < capacity && field[length]) ++length;
  return std::string(field, length);
}

// Counts the uses of something that are under way on any thread, so that
// its owner can wait for the last of them before it ends the thing. Each
// count is one atomic step: the paths that count run for every frame.
class UseCount {
 public:
  UseCount() : idle_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  UseCount(const UseCount&) = delete;
  UseCount& operator=(const UseCount&) = delete;

  void Enter() { ++count_; }
  void Leave() {
    if (--count_ == 0 && waiting_) SetEvent(idle_.get());
  }
  // Returns once no use that began before the call is under way. The owner
  // first makes later uses harmless (they find the thing gone); with both
  // steps sequentially consistent, either the waiter sees a use's count or
  // the use sees the waiter's flag.
  void WaitUntilIdle() {
    waiting_ = true;
    if (count_ != 0) WaitForSingleObject(idle_.get(), INFINITE);
  }

 private:
  std::atomic<int> count_{0};
  std::atomic<bool> waiting_{false};
  base::ScopedHandle idle_;
};

}  // namespace engine
