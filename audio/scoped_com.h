// Owns one COM reference and releases it once.
#pragma once

#include <unknwn.h>

namespace audio {

template <typename T>
class ScopedComPtr {
 public:
  ScopedComPtr() = default;
  ~ScopedComPtr() { Reset(); }
  ScopedComPtr(const ScopedComPtr&) = delete;
  ScopedComPtr& operator=(const ScopedComPtr&) = delete;

  // Drops the held reference and takes over `ptr` without an AddRef.
  void Reset(T* ptr = nullptr) {
    if (ptr_) ptr_->Release();
    ptr_ = ptr;
  }
  // For out-parameters: drops what is held first.
  T** Receive() {
    Reset();
    return &ptr_;
  }
  void** ReceiveVoid() { return reinterpret_cast<void**>(Receive()); }
  T* get() const { return ptr_; }
  T* operator->() const { return ptr_; }
  explicit operator bool() const { return ptr_ != nullptr; }

 private:
  T* ptr_ = nullptr;
};

}  // namespace audio
