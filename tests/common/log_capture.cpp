#include "common/log_capture.h"

#include <algorithm>
#include <chrono>

#include "fundus_control.h"

namespace testing_support {

LogCapture::LogCapture() {
  FundusSetLogSink(
      [](const wchar_t* module, const wchar_t* message, void* context) {
        auto* self = static_cast<LogCapture*>(context);
        std::lock_guard<std::mutex> hold(self->mutex_);
        self->lines_.push_back(LogLine{module, message});
        self->changed_.notify_all();
      },
      this);
}
LogCapture::~LogCapture() { FundusSetLogSink(nullptr, nullptr); }
std::vector<LogLine> LogCapture::Lines() const {
  std::lock_guard<std::mutex> hold(mutex_);
  return lines_;
}
std::vector<std::wstring> LogCapture::Messages(const std::wstring& module) const {
  std::vector<std::wstring> out;
  for (const LogLine& line : Lines())
    if (module.empty() || line.module == module) out.push_back(line.message);
  return out;
}
int LogCapture::Count(const std::wstring& message, const std::wstring& module) const {
  const std::vector<std::wstring> messages = Messages(module);
  return static_cast<int>(std::count(messages.begin(), messages.end(), message));
}
bool LogCapture::WaitFor(const std::wstring& message, int times, DWORD timeout_ms) const {
  std::unique_lock<std::mutex> hold(mutex_);
  return changed_.wait_for(hold, std::chrono::milliseconds(timeout_ms), [&] {
    return std::count_if(lines_.begin(), lines_.end(),
                         [&](const LogLine& l) { return l.message == message; }) >= times;
  });
}
void LogCapture::Clear() {
  std::lock_guard<std::mutex> hold(mutex_);
  lines_.clear();
}
}  // namespace testing_support
