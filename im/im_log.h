// Log lines of the IM manager, and the conversion of UTF-8 text for them.
#pragma once

#include <string>

#include "base/text.h"
#include "fundus/fundus.h"

namespace im {

template <typename... Args>
void Log(const wchar_t* format, Args... args) {
  Util::Log::Info(L"ImManagerImpl", format, args...);
}

// Wide copy of UTF-8 text for a %s of a log line; lives until the end of the
// full expression that logs it.
inline std::wstring Wide(const std::string& text) { return base::Utf8ToWide(text); }
inline std::wstring Wide(const char* text) { return base::Utf8ToWide(text); }

}  // namespace im
