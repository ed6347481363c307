#include "picker/thumbnail_render_mgr_impl.h"

#include <cstdint>

#include "base/thread_start.h"
#include "roomcore/clock.h"

static_assert(sizeof(DWM_THUMBNAIL_PROPERTIES) == 45, "the packed layout the system reads");

namespace picker {

namespace {

constexpr int64_t kPassPeriodUs = 33333;
// The idle step while a pass isn't due, and the rest after each pass.
constexpr int kIdleStepMs = 5;
constexpr DWORD kRestAfterPassMs = 30;

constexpr DWORD kLayoutFlags =
    DWM_TNP_RECTDESTINATION | DWM_TNP_OPACITY | DWM_TNP_VISIBLE | DWM_TNP_SOURCECLIENTAREAONLY;
static_assert(kLayoutFlags == 0x1D, "destination, opacity, visibility, client area only");

bool SameSize(const SIZE& a, const SIZE& b) { return a.cx == b.cx && a.cy == b.cy; }

bool SameRect(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

}  // namespace

const DwmFunctions& SystemDwmFunctions() {
  static const DwmFunctions functions = {&DwmRegisterThumbnail, &DwmUnregisterThumbnail,
                                         &DwmQueryThumbnailSourceSize, &DwmUpdateThumbnailProperties,
                                         &DwmIsCompositionEnabled};
  return functions;
}

// The products are taken at 64 bits so that a huge rectangle can't overflow
// them; for every size a screen has the results are those of 32-bit
// arithmetic, truncating divisions included.
bool FitThumbnail(const SIZE& source_size, const RECT& box, RECT* fitted) {
  const int64_t cx = source_size.cx;
  const int64_t cy = source_size.cy;
  if (cx <= 0 || cy <= 0) return false;
  const int64_t box_width = static_cast<int64_t>(box.right) - box.left;
  const int64_t box_height = static_cast<int64_t>(box.bottom) - box.top;
  int64_t fit_width;
  int64_t fit_height;
  if (cx * box_height < cy * box_width) {
    fit_height = box_height;
    fit_width = box_height * cx / cy;
  } else {
    fit_width = box_width;
    fit_height = box_width * cy / cx;
  }
  const int64_t left = box.left + (box_width - fit_width) / 2;
  const int64_t top = box.top + (box_height - fit_height) / 2;
  fitted->left = static_cast<LONG>(left);
  fitted->top = static_cast<LONG>(top);
  fitted->right = static_cast<LONG>(left + fit_width);
  fitted->bottom = static_cast<LONG>(top + fit_height);
  return true;
}

ThumbnailRenderMgrImpl::ThumbnailRenderMgrImpl(const DwmFunctions& dwm) : dwm_(dwm) {}

ThumbnailRenderMgrImpl::~ThumbnailRenderMgrImpl() {
  if (destroyed_event_for_testing_) SetEvent(destroyed_event_for_testing_);
}

void ThumbnailRenderMgrImpl::SetRenderEvent(ThumbnailRenderEvent* event) { event_.store(event); }

bool ThumbnailRenderMgrImpl::SetThumbnail(HWND destination, const RECT* rect, uint32_t /*reserved1*/,
                                          uint32_t /*reserved2*/, uint32_t /*reserved3*/, HWND source) {
  if (!rect) return false;
  bool known = false;
  {
    base::AutoLock hold(lock_);
    for (ThumbnailEntry& entry : entries_) {
      if (entry.source == source) {
        entry.rect = *rect;
        known = true;
        break;
      }
    }
  }
  if (known) {
    // A zero width is how the host takes one thumbnail off.
    if (rect->right == rect->left) RemoveThumbnail(source);
    return true;
  }

  // Registration talks to the window manager: outside the lock, so that the
  // worker's pass isn't held up by it.
  HTHUMBNAIL thumbnail = nullptr;
  if (FAILED(dwm_.register_thumbnail(destination, source, &thumbnail))) return false;
  ThumbnailEntry added;
  added.thumbnail = thumbnail;
  added.source = source;
  added.destination = destination;
  added.rect = *rect;
  bool raced = false;
  {
    base::AutoLock hold(lock_);
    // Another thread may have registered the same source meanwhile: the
    // first registration stays, with this call's rectangle.
    for (ThumbnailEntry& entry : entries_) {
      if (entry.source == source) {
        entry.rect = *rect;
        raced = true;
        break;
      }
    }
    if (!raced) entries_.push_back(added);
  }
  if (raced) dwm_.unregister_thumbnail(thumbnail);
  return true;
}

void ThumbnailRenderMgrImpl::Start() {
  bool expected = false;
  if (!thread_started_.compare_exchange_strong(expected, true)) return;
  DWORD thread_id = 0;
  const HANDLE thread = base::StartThread(&ThumbnailRenderMgrImpl::WorkerProc, this, &thread_id);
  if (!thread) {
    // No worker: a later Start may try again, and Release frees the object
    // itself.
    thread_started_.store(false);
    return;
  }
  CloseHandle(thread);
}

void ThumbnailRenderMgrImpl::Stop() {
  base::AutoLock hold(lock_);
  for (const ThumbnailEntry& entry : entries_) dwm_.unregister_thumbnail(entry.thumbnail);
  entries_.clear();
}

void ThumbnailRenderMgrImpl::RemoveThumbnail(HWND source) {
  base::AutoLock hold(lock_);
  for (auto it = entries_.begin(); it != entries_.end(); ++it) {
    if (it->source == source) {
      dwm_.unregister_thumbnail(it->thumbnail);
      entries_.erase(it);
      return;
    }
  }
}

bool ThumbnailRenderMgrImpl::IsCompositionEnabled() {
  BOOL enabled = FALSE;
  dwm_.is_composition_enabled(&enabled);
  return enabled != FALSE;
}

void ThumbnailRenderMgrImpl::RequestExit() {
  if (!thread_started_.load()) {
    delete this;
    return;
  }
  {
    // The worker calls the host only with the lock held: once the lock has
    // been had here, no pass will call it again, and the host may destroy
    // its event object as soon as Release returns.
    base::AutoLock hold(lock_);
    event_.store(nullptr);
  }
  // The last touch of the object: the worker may destroy it at once.
  exit_requested_.store(true);
}

std::vector<ThumbnailEntry> ThumbnailRenderMgrImpl::EntriesForTesting() {
  base::AutoLock hold(lock_);
  return entries_;
}

DWORD WINAPI ThumbnailRenderMgrImpl::WorkerProc(LPVOID param) {
  auto* self = static_cast<ThumbnailRenderMgrImpl*>(param);
  self->RunWorker();
  // The worker owns the object once Release has asked it to end.
  delete self;
  return 0;
}

void ThumbnailRenderMgrImpl::RunWorker() {
  int64_t last = 0;
  while (!exit_requested_.load()) {
    const int64_t now = TimeMicroseconds();
    if (now - last < kPassPeriodUs) {
      SleepAccurate(kIdleStepMs);
      continue;
    }
    last = now;
    {
      base::AutoLock hold(lock_);
      LayOutEntries();
    }
    Sleep(kRestAfterPassMs);
  }
}

void ThumbnailRenderMgrImpl::LayOutEntries() {
  for (auto it = entries_.begin(); it != entries_.end();) {
    SIZE size = {0, 0};
    // Anything but S_OK means the source gives no size: S_FALSE too.
    if (dwm_.query_thumbnail_source_size(it->thumbnail, &size) != S_OK) {
      const HTHUMBNAIL thumbnail = it->thumbnail;
      const HWND source = it->source;
      it = entries_.erase(it);
      dwm_.unregister_thumbnail(thumbnail);
      if (ThumbnailRenderEvent* event = event_.load()) event->OnThumbnailSourceLost(source);
      continue;
    }
    LayOut(*it, size);
    ++it;
  }
}

void ThumbnailRenderMgrImpl::LayOut(ThumbnailEntry& entry, const SIZE& size) {
  RECT fitted;
  // A source without area stays as it was for this pass.
  if (!FitThumbnail(size, entry.rect, &fitted)) return;
  // Sending the same properties again changes nothing on the screen; at rest
  // a pass costs one size query per thumbnail and no update.
  const bool laid_out = entry.properties.dwFlags != 0;
  if (laid_out && SameSize(size, entry.source_size) && SameRect(fitted, entry.fitted_rect)) return;
  DWM_THUMBNAIL_PROPERTIES properties = entry.properties;
  properties.dwFlags = kLayoutFlags;
  properties.rcDestination = fitted;
  properties.opacity = 255;
  properties.fVisible = TRUE;
  properties.fSourceClientAreaOnly = TRUE;
  // Recorded as done only once the window manager has taken it: a refused
  // update is sent again at the next pass.
  if (FAILED(dwm_.update_thumbnail_properties(entry.thumbnail, &properties))) return;
  entry.source_size = size;
  entry.fitted_rect = fitted;
  entry.properties = properties;
}

}  // namespace picker

ThumbnailRenderMgr* ThumbnailRenderMgr::Create() { return new picker::ThumbnailRenderMgrImpl(); }

void ThumbnailRenderMgr::Release(ThumbnailRenderMgr* manager) {
  if (!manager) return;
  static_cast<picker::ThumbnailRenderMgrImpl*>(manager)->RequestExit();
}
