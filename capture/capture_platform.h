// The few platform facts that a virtual display can't show: where the cursor
// is and whether it shows, the ratio of device pixels to the pixels the
// process sees, the Windows version and the state of desktop composition.
// Production calls the real functions; tests replace the table.
#pragma once

#include <windows.h>

namespace capture {

using DwmEnableCompositionFunction = HRESULT(WINAPI*)(UINT action);

struct CapturePlatform {
  BOOL(WINAPI* get_cursor_info)(PCURSORINFO info);
  // Only for the scale queries (DESKTOPHORZRES/HORZRES and the vertical pair)
  // and the display sizes of the enumeration.
  int(WINAPI* get_device_caps)(HDC dc, int index);
  int (*windows_version)();
  HRESULT(WINAPI* dwm_is_composition_enabled)(BOOL* enabled);
  // DwmEnableComposition from the already loaded Dwmapi.dll, or null.
  DwmEnableCompositionFunction (*find_dwm_enable_composition)();
};

const CapturePlatform& Platform();

// Replaces the table for every later call; null restores the real functions.
// The table must outlive its use.
void SetCapturePlatformForTesting(const CapturePlatform* platform);

}  // namespace capture
