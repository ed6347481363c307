// Owning wrappers for the GDI, memory and file handles that still pictures
// use: each handle is given back on every path out of a scope.
#pragma once

#include <windows.h>

namespace capture {

// A bitmap, a brush or another GDI object: DeleteObject.
template <typename T>
class ScopedGdiObject {
 public:
  explicit ScopedGdiObject(T object = nullptr) : object_(object) {}
  ~ScopedGdiObject() {
    if (object_) DeleteObject(object_);
  }
  ScopedGdiObject(const ScopedGdiObject&) = delete;
  ScopedGdiObject& operator=(const ScopedGdiObject&) = delete;
  T get() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  T object_;
};
using ScopedBitmap = ScopedGdiObject<HBITMAP>;

// A device context made with CreateDC or CreateCompatibleDC: DeleteDC.
class ScopedCreateDC {
 public:
  explicit ScopedCreateDC(HDC dc = nullptr) : dc_(dc) {}
  ~ScopedCreateDC() {
    if (dc_) DeleteDC(dc_);
  }
  ScopedCreateDC(const ScopedCreateDC&) = delete;
  ScopedCreateDC& operator=(const ScopedCreateDC&) = delete;
  HDC get() const { return dc_; }
  explicit operator bool() const { return dc_ != nullptr; }

 private:
  HDC dc_;
};

// A window's device context from GetDC: ReleaseDC with the same window.
class ScopedGetDC {
 public:
  explicit ScopedGetDC(HWND window) : window_(window), dc_(GetDC(window)) {}
  ~ScopedGetDC() {
    if (dc_) ReleaseDC(window_, dc_);
  }
  ScopedGetDC(const ScopedGetDC&) = delete;
  ScopedGetDC& operator=(const ScopedGetDC&) = delete;
  HDC get() const { return dc_; }
  explicit operator bool() const { return dc_ != nullptr; }

 private:
  HWND window_;
  HDC dc_;
};

// An object selected into a device context; the one it replaced goes back
// when the scope ends, before the context or the object is deleted (declare
// it after both).
class ScopedSelectObject {
 public:
  ScopedSelectObject(HDC dc, HGDIOBJ object)
      : dc_(dc), previous_(dc && object ? SelectObject(dc, object) : nullptr) {}
  ~ScopedSelectObject() {
    if (previous_) SelectObject(dc_, previous_);
  }
  ScopedSelectObject(const ScopedSelectObject&) = delete;
  ScopedSelectObject& operator=(const ScopedSelectObject&) = delete;

 private:
  HDC dc_;
  HGDIOBJ previous_;
};

// A palette selected into a device context and realised; the previous one is
// selected back (as a background palette) and realised when the scope ends.
class ScopedSelectPalette {
 public:
  ScopedSelectPalette(HDC dc, HPALETTE palette) : dc_(dc), previous_(nullptr) {
    if (dc_ && palette) {
      previous_ = SelectPalette(dc_, palette, FALSE);
      RealizePalette(dc_);
    }
  }
  ~ScopedSelectPalette() {
    if (previous_) {
      SelectPalette(dc_, previous_, TRUE);
      RealizePalette(dc_);
    }
  }
  ScopedSelectPalette(const ScopedSelectPalette&) = delete;
  ScopedSelectPalette& operator=(const ScopedSelectPalette&) = delete;

 private:
  HDC dc_;
  HPALETTE previous_;
};

// A block from GlobalAlloc: GlobalFree.
class ScopedGlobal {
 public:
  explicit ScopedGlobal(HGLOBAL block = nullptr) : block_(block) {}
  ~ScopedGlobal() {
    if (block_) GlobalFree(block_);
  }
  ScopedGlobal(const ScopedGlobal&) = delete;
  ScopedGlobal& operator=(const ScopedGlobal&) = delete;
  HGLOBAL get() const { return block_; }
  explicit operator bool() const { return block_ != nullptr; }

 private:
  HGLOBAL block_;
};

// A lock on a global block, undone before the block is freed (declare it
// after the ScopedGlobal it locks).
class ScopedGlobalLock {
 public:
  explicit ScopedGlobalLock(HGLOBAL block) : block_(block), data_(block ? GlobalLock(block) : nullptr) {}
  ~ScopedGlobalLock() {
    if (data_) GlobalUnlock(block_);
  }
  ScopedGlobalLock(const ScopedGlobalLock&) = delete;
  ScopedGlobalLock& operator=(const ScopedGlobalLock&) = delete;
  void* get() const { return data_; }

 private:
  HGLOBAL block_;
  void* data_;
};

// A kernel handle whose failure value is INVALID_HANDLE_VALUE, as a file's:
// CloseHandle.
class ScopedFileHandle {
 public:
  explicit ScopedFileHandle(HANDLE handle = INVALID_HANDLE_VALUE) : handle_(handle) {}
  ~ScopedFileHandle() {
    if (valid()) CloseHandle(handle_);
  }
  ScopedFileHandle(const ScopedFileHandle&) = delete;
  ScopedFileHandle& operator=(const ScopedFileHandle&) = delete;
  HANDLE get() const { return handle_; }
  bool valid() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }

 private:
  HANDLE handle_;
};

}  // namespace capture
