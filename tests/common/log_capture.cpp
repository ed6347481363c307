#include "common/log_capture.h"

#include "fundus_control.h"

namespace testing_support {

LogCapture::LogCapture() {
  FundusSetLogSink(
      [](const wchar_t* module, const wchar_t* message, void* context) {
        auto* self = static_cast<LogCapture*>(context);
        self->Locked([&] { self->lines_.push_back(LogLine{module, message}); });
      },
      this);
}
LogCapture::~LogCapture() { FundusSetLogSink(nullptr, nullptr); }
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
  return Wait(
      [&] {
        return std::count_if(lines_.begin(), lines_.end(), [&](auto& l) { return l.message == message; }) >=
               times;
      },
      timeout_ms);
}
}  // namespace testing_support
