// Live thumbnails of other windows, fitted by a worker thread.
#pragma once

#include <windows.h>

#include <dwmapi.h>

#include <atomic>
#include <vector>

#include "base/lock.h"
#include "picker/dwm_functions.h"
#include "roomcore/picker.h"

namespace picker {

struct ThumbnailEntry {
  HTHUMBNAIL thumbnail = nullptr;
  HWND source = nullptr;  // the key: one entry per source
  HWND destination = nullptr;
  RECT fitted_rect = {};  // of the last layout
  SIZE source_size = {};  // of the last layout
  RECT rect = {};         // as the host asked, in the destination's client coordinates
  DWM_THUMBNAIL_PROPERTIES properties = {};
};

// Fits a source of `source_size` into `box`, aspect ratio kept, centred. False
// (and `*fitted` untouched) when the source size has no area.
bool FitThumbnail(const SIZE& source_size, const RECT& box, RECT* fitted);

class ThumbnailRenderMgrImpl : public ThumbnailRenderMgr {
 public:
  explicit ThumbnailRenderMgrImpl(const DwmFunctions& dwm = SystemDwmFunctions());
  ~ThumbnailRenderMgrImpl() override;

  void SetRenderEvent(ThumbnailRenderEvent* event) override;
  bool SetThumbnail(HWND destination, const RECT* rect, uint32_t reserved1, uint32_t reserved2,
                    uint32_t reserved3, HWND source) override;
  void Start() override;
  void Stop() override;
  void RemoveThumbnail(HWND source) override;
  bool IsCompositionEnabled() override;

  // Hands the object to its worker, or destroys it when there is none.
  void RequestExit();

  // The entries as they stand, for tests.
  std::vector<ThumbnailEntry> EntriesForTesting();
  // Signalled by the destructor, for tests that see the worker end.
  void SetDestroyedEventForTesting(HANDLE event) { destroyed_event_for_testing_ = event; }

 private:
  static DWORD WINAPI WorkerProc(LPVOID param);
  void RunWorker();
  // One pass over the entries; called with `lock_` held.
  void LayOutEntries();
  void LayOut(ThumbnailEntry& entry, const SIZE& size);

  const DwmFunctions dwm_;
  base::Lock lock_;
  std::vector<ThumbnailEntry> entries_;  // under lock_
  std::atomic<bool> exit_requested_{false};
  std::atomic<ThumbnailRenderEvent*> event_{nullptr};
  std::atomic<bool> thread_started_{false};
  HANDLE destroyed_event_for_testing_ = nullptr;
};

}  // namespace picker
