#include "picker/top_window_enum_impl.h"

namespace picker {

namespace {

// The style bits a window offered for sharing has, both of them.
constexpr LONG kVisibleWithMinimizeBox = WS_VISIBLE | WS_MINIMIZEBOX;

}  // namespace

bool IsShareableWindow(HWND window) {
  if (!IsWindow(window)) return false;
  if (GetParent(window)) return false;
  if (!IsWindowVisible(window)) return false;
  wchar_t title[1024] = {};
  GetWindowTextW(window, title, 1023);
  if (title[0] == L'\0') return false;
  if (!IsWindowEnabled(window)) return false;
  if (::GetWindow(window, GW_OWNER)) return false;
  const LONG style = GetWindowLongW(window, GWL_STYLE);
  if (style & WS_CHILD) return false;
  return (style & kVisibleWithMinimizeBox) == kVisibleWithMinimizeBox;
}

BOOL CALLBACK TopWindowEnumImpl::OnWindow(HWND window, LPARAM param) {
  auto* self = reinterpret_cast<TopWindowEnumImpl*>(param);
  if (!self) return TRUE;
  // Nothing may escape into the platform's walk; a window that fails here is
  // simply not listed.
  try {
    if (self->Accepts(window)) self->windows_.push_back(window);
  } catch (...) {
  }
  return TRUE;
}

int TopWindowEnumImpl::EnumerateWindows() {
  windows_.clear();
  EnumDesktopWindows(GetThreadDesktop(GetCurrentThreadId()), &TopWindowEnumImpl::OnWindow,
                     reinterpret_cast<LPARAM>(this));
  return static_cast<int>(windows_.size());
}

HWND TopWindowEnumImpl::GetWindowAt(int index) {
  if (index < 0 || static_cast<size_t>(index) >= windows_.size()) return nullptr;
  return windows_[static_cast<size_t>(index)];
}

}  // namespace picker

TopWindowEnum* TopWindowEnum::Create() { return new picker::TopWindowEnumImpl(); }

void TopWindowEnum::Release(TopWindowEnum* windows) { delete windows; }
