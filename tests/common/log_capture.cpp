#include "common/log_capture.h"

#include <chrono>

#include "fundus_control.h"

namespace testing_support {

LogCapture::LogCapture() { FundusSetLogSink(&LogCapture::Sink, this); }

LogCapture::~LogCapture() { FundusSetLogSink(nullptr, nullptr); }

void LogCapture::Sink(const wchar_t* module, const wchar_t* message, void* context) {
  LogCapture* self = static_cast<LogCapture*>(context);
  {
    std::lock_guard<std::mutex> hold(self->mutex_);
    self->lines_.push_back(LogLine{module, message});
  }
  self->changed_.notify_all();
}

std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> hold(mutex_);
  return lines_;
}

std::vector<std::wstring> LogCapture::Messages(const std::wstring& module) const {
  std::lock_guard<std::mutex> hold(mutex_);
  std::vector<std::wstring> out;
  for (const LogLine& line : lines_) {
    if (module.empty() || line.module == module) out.push_back(line.message);
  }
  return out;
}

int LogCapture::Count(const std::wstring& message, const std::wstring& module) const {
  std::lock_guard<std::mutex> hold(mutex_);
  int n = 0;
  for (const LogLine& line : lines_) {
    if (line.message == message && (module.empty() || line.module == module)) ++n;
  }
  return n;
}

bool LogCapture::WaitFor(const std::wstring& message, int times, DWORD timeout_ms) const {
  std::unique_lock<std::mutex> hold(mutex_);
  return changed_.wait_for(hold, std::chrono::milliseconds(timeout_ms), [&] {
    int n = 0;
    for (const LogLine& line : lines_) {
      if (line.message == message) ++n;
    }
    return n >= times;
  });
}

void LogCapture::Clear() {
  std::lock_guard<std::mutex> hold(mutex_);
  lines_.clear();
}

}  // namespace testing_support
