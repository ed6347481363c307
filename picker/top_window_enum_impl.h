// The share picker's window list.
#pragma once

#include <windows.h>

#include <vector>

#include "roomcore/picker.h"

namespace picker {

// Whether a top-level window may be offered for sharing. The tests run in a
// fixed order and the first that fails decides; the title is read only to
// see that there is one.
bool IsShareableWindow(HWND window);

class TopWindowEnumImpl : public TopWindowEnum {
 public:
  TopWindowEnumImpl() = default;
  ~TopWindowEnumImpl() override = default;

  int EnumerateWindows() override;
  HWND GetWindowAt(int index) override;

  // The walk's callback: `param` is the object. One bad window never ends the
  // walk, so it answers TRUE in every case.
  static BOOL CALLBACK OnWindow(HWND window, LPARAM param);

 protected:
  // The filter; tests put a failing one in its place.
  virtual bool Accepts(HWND window) { return IsShareableWindow(window); }

 private:
  std::vector<HWND> windows_;
};

}  // namespace picker
