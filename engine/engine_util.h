// Small helpers shared by the engine's source files.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstring>
#include <string>

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

// A pointer that other threads read while one thread may set or clear it:
// each use is one atomic load, so no read tears. A caller that needs the
// same object for several calls copies it into a local first.
template <typename T>
class AtomicPointer {
 public:
  AtomicPointer& operator=(T* value) {
    pointer_.store(value);
    return *this;
  }
  operator T*() const { return pointer_.load(); }
  T* operator->() const { return pointer_.load(); }
  T* exchange(T* value) { return pointer_.exchange(value); }

 private:
  std::atomic<T*> pointer_{nullptr};
};

}  // namespace engine
