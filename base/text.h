// Narrow (UTF-8) to wide text, for log lines and the SDKs' log bridges.
#pragma once

#include <windows.h>

#include <string>

namespace base {

// Null input, empty input and any conversion failure give an empty string.
std::wstring Utf8ToWide(const char* text, UINT code_page = CP_UTF8);
std::wstring Utf8ToWide(const std::string& text, UINT code_page = CP_UTF8);

}  // namespace base
