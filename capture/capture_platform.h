// The few platform facts that a virtual display can't show: where the cursor
// is and whether it shows, the ratio of device pixels to the pixels the
// process sees, the screen's depth, the Windows version, the state of desktop
// composition, and what a grab's read-out and PrintWindow do to the threads
// around them. Production calls the real functions; tests replace the table.
#pragma once

#include <windows.h>

namespace capture {

using DwmEnableCompositionFunction = HRESULT(WINAPI*)(UINT action);

struct CapturePlatform {
  BOOL(WINAPI* get_cursor_info)(PCURSORINFO info);
  // The scale queries (DESKTOPHORZRES/HORZRES and the vertical pair), the
  // display sizes of the enumeration and the depth of a grab (BITSPIXEL).
  int(WINAPI* get_device_caps)(HDC dc, int index);
  int (*windows_version)();
  HRESULT(WINAPI* dwm_is_composition_enabled)(BOOL* enabled);
  // DwmEnableComposition from the already loaded Dwmapi.dll, or null.
  DwmEnableCompositionFunction (*find_dwm_enable_composition)();
  // The read-out of every grab and still picture.
  int(WINAPI* get_di_bits)(HDC dc, HBITMAP bitmap, UINT start, UINT lines, LPVOID bits, LPBITMAPINFO info,
                           UINT usage);
  // The window grab: it sends a message to the window's thread and waits.
  BOOL(WINAPI* print_window)(HWND window, HDC target, UINT flags);
};

const CapturePlatform& Platform();

// Replaces the table for every later call; null restores the real functions.
// The table must outlive its use.
void SetCapturePlatformForTesting(const CapturePlatform* platform);

}  // namespace capture
