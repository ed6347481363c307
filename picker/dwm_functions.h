// The Desktop Window Manager calls of the thumbnail manager, as one table:
// production uses dwmapi's functions, tests a scripted stand-in (the platform
// under test may have no thumbnails at all).
#pragma once

#include <windows.h>

#include <dwmapi.h>

namespace picker {

struct DwmFunctions {
  HRESULT(WINAPI* register_thumbnail)(HWND destination, HWND source, PHTHUMBNAIL thumbnail);
  HRESULT(WINAPI* unregister_thumbnail)(HTHUMBNAIL thumbnail);
  HRESULT(WINAPI* query_thumbnail_source_size)(HTHUMBNAIL thumbnail, PSIZE size);
  HRESULT(WINAPI* update_thumbnail_properties)
  (HTHUMBNAIL thumbnail, const DWM_THUMBNAIL_PROPERTIES* properties);
  HRESULT(WINAPI* is_composition_enabled)(BOOL* enabled);
};

// dwmapi's own functions.
const DwmFunctions& SystemDwmFunctions();

}  // namespace picker
