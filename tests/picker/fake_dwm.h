// A scripted window manager behind the thumbnail manager's DWM table: a size
// per source, failures on demand, and a record of every call. One instance at
// a time; the table's plain functions reach it through a process-wide pointer.
#pragma once

#include <windows.h>

#include <dwmapi.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "picker/dwm_functions.h"

namespace picker_testing {

class FakeDwm {
 public:
  struct Update {
    HTHUMBNAIL thumbnail;
    HWND source;
    DWM_THUMBNAIL_PROPERTIES properties;
    DWORD thread_id;
  };

  FakeDwm() { current_ = this; }
  ~FakeDwm() { current_ = nullptr; }
  FakeDwm(const FakeDwm&) = delete;
  FakeDwm& operator=(const FakeDwm&) = delete;

  const picker::DwmFunctions& table() const {
    static const picker::DwmFunctions functions = {&Register, &Unregister, &QuerySize, &UpdateProperties,
                                                   &IsCompositionEnabled};
    return functions;
  }

  // What a query for `source` gives: a size with S_OK, or `result` alone.
  void SetSize(HWND source, SIZE size) {
    std::lock_guard<std::mutex> hold(mutex_);
    sources_[source] = {size, S_OK};
  }
  void FailQuery(HWND source, HRESULT result) {
    std::lock_guard<std::mutex> hold(mutex_);
    sources_[source].result = result;
  }
  void set_register_result(HRESULT result) { register_result_ = result; }
  // The next `count` property updates are refused (and still recorded).
  void FailUpdates(int count) {
    std::lock_guard<std::mutex> hold(mutex_);
    failing_updates_ = count;
  }
  // The next size query signals `entered` and answers only once `gate` is set.
  void HoldNextQuery(HANDLE entered, HANDLE gate) {
    std::lock_guard<std::mutex> hold(mutex_);
    held_entered_ = entered;
    held_gate_ = gate;
  }
  void set_composition(BOOL enabled) { composition_ = enabled; }

  int registrations() {
    std::lock_guard<std::mutex> hold(mutex_);
    return registrations_;
  }
  std::vector<HTHUMBNAIL> unregistered() {
    std::lock_guard<std::mutex> hold(mutex_);
    return unregistered_;
  }
  std::vector<Update> updates() {
    std::lock_guard<std::mutex> hold(mutex_);
    return updates_;
  }
  HTHUMBNAIL thumbnail_of(HWND source) {
    std::lock_guard<std::mutex> hold(mutex_);
    for (const auto& [thumbnail, registered] : thumbnails_) {
      if (registered == source) return thumbnail;
    }
    return nullptr;
  }
  int queries_of(HWND source) {
    std::lock_guard<std::mutex> hold(mutex_);
    return queries_[source];
  }
  DWORD last_query_thread() {
    std::lock_guard<std::mutex> hold(mutex_);
    return last_query_thread_;
  }

  // Waits until `done` holds, checked after every call the fake serves.
  bool WaitUntil(const std::function<bool()>& done, int timeout_ms = 5000) {
    std::unique_lock<std::mutex> hold(mutex_);
    return changed_.wait_for(hold, std::chrono::milliseconds(timeout_ms), [&] {
      hold.unlock();
      const bool result = done();
      hold.lock();
      return result;
    });
  }
  // Waits until the worker has queried `source` `passes` more times.
  bool WaitForPasses(HWND source, int passes) {
    const int target = queries_of(source) + passes;
    return WaitUntil([&] { return queries_of(source) >= target; });
  }

 private:
  struct Source {
    SIZE size = {0, 0};
    HRESULT result = S_OK;
  };

  static HRESULT WINAPI Register(HWND, HWND source, PHTHUMBNAIL thumbnail) {
    FakeDwm* self = current_;
    std::lock_guard<std::mutex> hold(self->mutex_);
    if (FAILED(self->register_result_)) return self->register_result_;
    ++self->registrations_;
    *thumbnail = reinterpret_cast<HTHUMBNAIL>(static_cast<intptr_t>(++self->next_id_));
    self->thumbnails_[*thumbnail] = source;
    self->changed_.notify_all();
    return S_OK;
  }
  static HRESULT WINAPI Unregister(HTHUMBNAIL thumbnail) {
    FakeDwm* self = current_;
    std::lock_guard<std::mutex> hold(self->mutex_);
    self->unregistered_.push_back(thumbnail);
    self->changed_.notify_all();
    return self->thumbnails_.erase(thumbnail) ? S_OK : E_INVALIDARG;
  }
  static HRESULT WINAPI QuerySize(HTHUMBNAIL thumbnail, PSIZE size) {
    FakeDwm* self = current_;
    std::unique_lock<std::mutex> hold(self->mutex_);
    if (self->held_gate_) {
      const HANDLE gate = self->held_gate_;
      self->held_gate_ = nullptr;
      hold.unlock();
      SetEvent(self->held_entered_);
      WaitForSingleObject(gate, INFINITE);
      hold.lock();
    }
    const HWND source = self->thumbnails_.count(thumbnail) ? self->thumbnails_[thumbnail] : nullptr;
    ++self->queries_[source];
    self->last_query_thread_ = GetCurrentThreadId();
    self->changed_.notify_all();
    const Source& known = self->sources_[source];
    if (known.result != S_OK) return known.result;
    *size = known.size;
    return S_OK;
  }
  static HRESULT WINAPI UpdateProperties(HTHUMBNAIL thumbnail, const DWM_THUMBNAIL_PROPERTIES* properties) {
    FakeDwm* self = current_;
    std::lock_guard<std::mutex> hold(self->mutex_);
    self->updates_.push_back({thumbnail, self->thumbnails_[thumbnail], *properties, GetCurrentThreadId()});
    self->changed_.notify_all();
    if (self->failing_updates_ > 0) {
      --self->failing_updates_;
      return E_FAIL;
    }
    return S_OK;
  }
  static HRESULT WINAPI IsCompositionEnabled(BOOL* enabled) {
    *enabled = current_->composition_;
    return S_OK;
  }

  static inline FakeDwm* current_ = nullptr;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<HWND, Source> sources_;
  std::map<HTHUMBNAIL, HWND> thumbnails_;
  std::map<HWND, int> queries_;
  std::vector<HTHUMBNAIL> unregistered_;
  std::vector<Update> updates_;
  int registrations_ = 0;
  intptr_t next_id_ = 0;
  DWORD last_query_thread_ = 0;
  HRESULT register_result_ = S_OK;
  int failing_updates_ = 0;
  HANDLE held_entered_ = nullptr;
  HANDLE held_gate_ = nullptr;
  BOOL composition_ = TRUE;
};

}  // namespace picker_testing
