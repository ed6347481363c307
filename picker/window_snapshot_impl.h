// What a share picker shows of one window when it has no live thumbnail.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>

#include "roomcore/picker.h"

namespace picker {

// The size in device pixels of a window that the process sees as
// `width` x `height`, on a display of `horz_res` x `vert_res` pixels as the
// process sees it and `desktop_horz_res` x `desktop_vert_res` device pixels.
// The same size where the two agree, or where a value is missing.
SIZE DeviceSize(int width, int height, int horz_res, int vert_res, int desktop_horz_res,
                int desktop_vert_res);

// `window`, which the process sees as `width` x `height` and which is
// `device` in device pixels, as a top-down 32-bit picture of `width` x
// `height`; `dc` is the window's device context. Null when a bitmap can't be
// made or read.
std::unique_ptr<DibImage> PictureOfWindow(HWND window, HDC dc, int width, int height, const SIZE& device);

class WindowSnapshotImpl : public WindowSnapshot {
 public:
  explicit WindowSnapshotImpl(HWND window);
  ~WindowSnapshotImpl() override;

  HWND GetWindow() override { return window_; }
  std::wstring GetTitle() override { return title_; }
  std::wstring GetProcessName() override { return process_name_; }
  uint32_t GetProcessId() override { return process_id_; }
  DibImage* GetIcon() override;
  DibImage* GetPicture() override;

 private:
  const HWND window_;
  uint32_t process_id_ = 0;
  std::wstring process_name_;
  std::wstring title_;
  std::unique_ptr<DibImage> picture_;
  std::unique_ptr<DibImage> icon_;
};

}  // namespace picker
