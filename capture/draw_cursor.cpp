#include "capture/draw_cursor.h"

#include "capture/capture_platform.h"
#include "capture/scoped_gdi.h"

static_assert(sizeof(CURSORINFO) == (sizeof(void*) == 8 ? 24 : 20), "GetCursorInfo reads the whole record");

namespace capture {
namespace {

class ScopedIcon {
 public:
  explicit ScopedIcon(HICON icon) : icon_(icon) {}
  ~ScopedIcon() {
    if (icon_) DestroyIcon(icon_);
  }
  ScopedIcon(const ScopedIcon&) = delete;
  ScopedIcon& operator=(const ScopedIcon&) = delete;
  HICON get() const { return icon_; }

 private:
  HICON icon_;
};

}  // namespace

void DrawCursor(HWND window, HDC target, RECT rect, double scale_x, double scale_y) {
  CURSORINFO cursor = {};
  cursor.cbSize = sizeof(cursor);
  if (!Platform().get_cursor_info(&cursor) || !(cursor.flags & CURSOR_SHOWING)) return;
  // A copy: the system may change or destroy the shared cursor while we draw.
  ScopedIcon icon(CopyIcon(cursor.hCursor));
  if (!icon.get()) return;
  ICONINFO info = {};
  if (!GetIconInfo(icon.get(), &info)) return;
  // GetIconInfo hands out two bitmaps that are ours to delete, after the draw.
  ScopedBitmap mask(info.hbmMask);
  ScopedBitmap color(info.hbmColor);

  RECT window_rect = {};
  GetWindowRect(window, &window_rect);
  const int origin_x = rect.left + window_rect.left;
  const int origin_y = rect.top + window_rect.top;
  const int x = cursor.ptScreenPos.x - static_cast<int>(info.xHotspot) - origin_x;
  const int y = cursor.ptScreenPos.y - static_cast<int>(info.yHotspot) - origin_y;
  DrawIcon(target, static_cast<int>(x * scale_x), static_cast<int>(y * scale_y), icon.get());
}

}  // namespace capture
