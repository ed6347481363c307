#include "picker/window_snapshot_impl.h"

#include <psapi.h>

#include <climits>
#include <cstdint>
#include <new>

#include "base/scoped_handle.h"
#include "base/system_info.h"
#include "capture/scoped_gdi.h"

namespace picker {

namespace {

constexpr UINT kIconMessageTimeoutMs = 3000;
// Windows 8.1 and later; older headers lack the name.
constexpr UINT kPrintFullContent = 2;

// A header with room for the colour table that GetDIBits writes at 8 bits a
// pixel or fewer; only the first 44 bytes go into the image.
struct ReadOutInfo {
  BITMAPINFOHEADER header;
  RGBQUAD colors[256];
};

// The file name of `process_id`'s image without its folder; empty when the
// process can't be opened.
std::wstring ProcessImageName(DWORD process_id) {
  if (process_id == 0) return std::wstring();
  base::ScopedHandle process(OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, process_id));
  if (!process) return std::wstring();
  wchar_t path[260] = {};
  K32GetModuleFileNameExW(process.get(), nullptr, path, 259);
  std::wstring name(path);
  const size_t slash = name.rfind(L'\\');
  if (slash != std::wstring::npos) name.erase(0, slash + 1);
  return name;
}

// WM_GETICON with `which`; null when the window doesn't answer in time.
HICON SendGetIcon(HWND window, WPARAM which) {
  DWORD_PTR answer = 0;
  if (!SendMessageTimeoutW(window, WM_GETICON, which, 0, SMTO_BLOCK | SMTO_ABORTIFHUNG, kIconMessageTimeoutMs,
                           &answer)) {
    return nullptr;
  }
  return reinterpret_cast<HICON>(answer);
}

// The icon the window shows: its own big icon, else its class's, else its
// own small one, else its class's small one. Class values are read at
// pointer width: a 64-bit handle doesn't fit a class long.
HICON FindIcon(HWND window) {
  HICON icon = SendGetIcon(window, ICON_BIG);
  if (!icon) icon = reinterpret_cast<HICON>(GetClassLongPtrW(window, GCLP_HICON));
  if (icon) return icon;
  icon = SendGetIcon(window, ICON_SMALL2);
  if (!icon) icon = reinterpret_cast<HICON>(GetClassLongPtrW(window, GCLP_HICONSM));
  return icon;
}

// Whether a picture of `width` x `height` at 4 bytes a pixel has a size that
// a bitmap header's 32-bit field can hold. Counted in 64 bits, so that a huge
// window can't wrap the count into a small buffer.
bool PictureFits(int64_t width, int64_t height) {
  if (width <= 0 || height <= 0 || width > INT_MAX || height > INT_MAX) return false;
  return static_cast<uint64_t>(width) * static_cast<uint64_t>(height) * 4 <= UINT32_MAX;
}

// The pixels of `bitmap` as a top-down picture of `bit_count` bits, or null,
// also when the memory for it can't be had.
std::unique_ptr<DibImage> ReadBitmap(HDC dc, HBITMAP bitmap, int width, int height, int bit_count) {
  if (!PictureFits(width, height)) return nullptr;
  ReadOutInfo info = {};
  InitBitMapInfo(width, height, true, bit_count, reinterpret_cast<BITMAPINFO*>(&info));
  try {
    // Not zeroed: the read-out fills it, and a picture is megabytes.
    std::unique_ptr<uint8_t[]> pixels(new uint8_t[info.header.biSizeImage]);
    if (!GetDIBits(dc, bitmap, 0, static_cast<UINT>(height), pixels.get(),
                   reinterpret_cast<BITMAPINFO*>(&info), DIB_RGB_COLORS)) {
      return nullptr;
    }
    return std::make_unique<DibImage>(reinterpret_cast<const BITMAPINFO*>(&info), pixels.get());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

SIZE DeviceSize(int width, int height, int horz_res, int vert_res, int desktop_horz_res,
                int desktop_vert_res) {
  // A scaled size beyond any bitmap's is held at the largest int: no bitmap
  // is made of it either way.
  auto scale = [](int value, int to, int from) {
    const double scaled = static_cast<double>(value) * to / from;
    return static_cast<LONG>(scaled < INT_MAX ? scaled : INT_MAX);
  };
  SIZE size = {width, height};
  if (horz_res > 0 && desktop_horz_res > 0 && horz_res != desktop_horz_res) {
    size.cx = scale(width, desktop_horz_res, horz_res);
  }
  if (vert_res > 0 && desktop_vert_res > 0 && vert_res != desktop_vert_res) {
    size.cy = scale(height, desktop_vert_res, vert_res);
  }
  return size;
}

WindowSnapshotImpl::WindowSnapshotImpl(HWND window) : window_(window) {
  wchar_t title[512] = {};
  GetWindowTextW(window_, title, 511);
  title_ = title;
  DWORD process_id = 0;
  GetWindowThreadProcessId(window_, &process_id);
  process_id_ = process_id;
  process_name_ = ProcessImageName(process_id);
}

WindowSnapshotImpl::~WindowSnapshotImpl() {
  picture_.reset();
  icon_.reset();
}

DibImage* WindowSnapshotImpl::GetIcon() {
  if (!window_) return nullptr;
  const HICON handle = FindIcon(window_);
  if (!handle) return nullptr;
  ICONINFO info = {};
  if (!GetIconInfo(handle, &info)) return nullptr;
  // The icon handle belongs to the window or its class; the two bitmaps that
  // GetIconInfo made are ours.
  capture::ScopedBitmap mask(info.hbmMask);
  capture::ScopedBitmap color(info.hbmColor);
  // An icon's hotspot is its centre.
  if (!PictureFits(int64_t{info.xHotspot} * 2, int64_t{info.yHotspot} * 2)) return nullptr;
  const int width = static_cast<int>(info.xHotspot) * 2;
  const int height = static_cast<int>(info.yHotspot) * 2;

  capture::ScopedGetDC screen(nullptr);
  if (!screen) return nullptr;
  capture::ScopedCreateDC memory(CreateCompatibleDC(screen.get()));
  capture::ScopedBitmap bitmap(CreateCompatibleBitmap(screen.get(), width, height));
  if (!memory || !bitmap) return nullptr;
  {
    capture::ScopedSelectObject selected(memory.get(), bitmap.get());
    DrawIconEx(memory.get(), 0, 0, handle, width, height, 0, nullptr, DI_NORMAL);
  }
  const int bit_count = GetDeviceCaps(screen.get(), BITSPIXEL);
  icon_.reset();
  icon_ = ReadBitmap(screen.get(), bitmap.get(), width, height, bit_count);
  return icon_.get();
}

// On a scaled display a process that isn't aware of it sees the window
// smaller than it is drawn, while PrintWindow draws it at its device size: a
// bitmap of the size GetWindowRect gives would hold only its top left part.
// So the window is drawn at its device size and then scaled down to the size
// the host sees; where the two agree it is drawn straight into the picture.
std::unique_ptr<DibImage> PictureOfWindow(HWND window, HDC dc, int width, int height, const SIZE& device) {
  const UINT flags = GetWindowsVersion() >= 5 ? kPrintFullContent : 0;
  capture::ScopedCreateDC memory(CreateCompatibleDC(dc));
  capture::ScopedBitmap bitmap(CreateCompatibleBitmap(dc, width, height));
  if (!memory || !bitmap) return nullptr;
  {
    capture::ScopedSelectObject selected(memory.get(), bitmap.get());
    if (device.cx == width && device.cy == height) {
      PrintWindow(window, memory.get(), flags);
    } else {
      capture::ScopedCreateDC full_dc(CreateCompatibleDC(dc));
      capture::ScopedBitmap full(CreateCompatibleBitmap(dc, device.cx, device.cy));
      if (!full_dc || !full) return nullptr;
      capture::ScopedSelectObject full_selected(full_dc.get(), full.get());
      PrintWindow(window, full_dc.get(), flags);
      SetStretchBltMode(memory.get(), HALFTONE);
      SetBrushOrgEx(memory.get(), 0, 0, nullptr);
      StretchBlt(memory.get(), 0, 0, width, height, full_dc.get(), 0, 0, device.cx, device.cy, SRCCOPY);
    }
  }
  // Always 32 bits a pixel, whatever the display's depth.
  return ReadBitmap(dc, bitmap.get(), width, height, 32);
}

DibImage* WindowSnapshotImpl::GetPicture() {
  if (!window_) return nullptr;
  RECT rect = {};
  if (!GetWindowRect(window_, &rect)) return nullptr;
  // A window larger than any picture gives none, and the last one stays.
  if (!PictureFits(int64_t{rect.right} - rect.left, int64_t{rect.bottom} - rect.top)) return nullptr;
  const int width = rect.right - rect.left;
  const int height = rect.bottom - rect.top;

  capture::ScopedGetDC dc(window_);
  if (!dc) return nullptr;
  const SIZE device =
      DeviceSize(width, height, GetDeviceCaps(dc.get(), HORZRES), GetDeviceCaps(dc.get(), VERTRES),
                 GetDeviceCaps(dc.get(), DESKTOPHORZRES), GetDeviceCaps(dc.get(), DESKTOPVERTRES));
  picture_.reset();
  picture_ = PictureOfWindow(window_, dc.get(), width, height, device);
  return picture_.get();
}

}  // namespace picker

WindowSnapshot* WindowSnapshot::Create(HWND window) { return new picker::WindowSnapshotImpl(window); }

void WindowSnapshot::Release(WindowSnapshot* snapshot) { delete snapshot; }
