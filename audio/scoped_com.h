// Owns one COM reference and releases it once; and COM on the calling thread
// for the length of one call.
#pragma once

#include <objbase.h>
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

// Host and SDK threads call in with or without an apartment of their own.
// A thread without one gets the multithreaded apartment for the scope; a
// thread that has one keeps it (its count is raised and lowered again, or,
// for a single-threaded apartment, left alone). Declared before any COM
// reference of the scope, so that those go first.
class ScopedComInit {
 public:
  ScopedComInit() : result_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
  ~ScopedComInit() {
    if (SUCCEEDED(result_)) CoUninitialize();
  }
  ScopedComInit(const ScopedComInit&) = delete;
  ScopedComInit& operator=(const ScopedComInit&) = delete;

 private:
  HRESULT result_;
};

}  // namespace audio
