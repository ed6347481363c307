// The mouse cursor drawn into a grab, for both captures.
#pragma once

#include <windows.h>

namespace capture {

// Draws the cursor, if it shows, into `target` at its own size. Its place is
// the screen position less the hotspot, less `rect`'s corner offset by the
// top left corner of `window`'s rectangle, then multiplied by the scale (the
// ratio of device pixels to the pixels the process sees) and truncated.
void DrawCursor(HWND window, HDC target, RECT rect, double scale_x, double scale_y);

}  // namespace capture
