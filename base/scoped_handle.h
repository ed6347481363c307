// Owns a kernel handle (event, mutex, thread) and closes it once.
#pragma once

#include <windows.h>

namespace base {

class ScopedHandle {
 public:
  ScopedHandle() = default;
  explicit ScopedHandle(HANDLE handle) : handle_(handle) {}
  ~ScopedHandle() { Close(); }
  ScopedHandle(const ScopedHandle&) = delete;
  ScopedHandle& operator=(const ScopedHandle&) = delete;

  void Reset(HANDLE handle) {
    Close();
    handle_ = handle;
  }
  void Close() {
    if (handle_) CloseHandle(handle_);
    handle_ = nullptr;
  }
  HANDLE get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

 private:
  HANDLE handle_ = nullptr;
};

}  // namespace base
