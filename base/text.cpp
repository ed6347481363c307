#include "base/text.h"

#include <cstring>
#include <vector>

namespace base {

namespace {

std::wstring Convert(const char* text, int length, UINT code_page) {
  if (!text || length == 0) return std::wstring();
  // Invalid sequences become U+FFFD rather than failing: a log line with one
  // bad byte is still worth reading.
  // Most log lines fit the stack buffer; only longer text pays for a heap
  // buffer sized by a second call.
  wchar_t local[1024];
  int written = MultiByteToWideChar(code_page, 0, text, length, local, 1024);
  if (written > 0) return std::wstring(local, written);
  if (GetLastError() != ERROR_INSUFFICIENT_BUFFER) return std::wstring();
  int needed = MultiByteToWideChar(code_page, 0, text, length, nullptr, 0);
  if (needed <= 0) return std::wstring();
  std::vector<wchar_t> heap(needed);
  written = MultiByteToWideChar(code_page, 0, text, length, heap.data(), needed);
  if (written <= 0) return std::wstring();
  return std::wstring(heap.data(), written);
}

}  // namespace

std::wstring Utf8ToWide(const char* text, UINT code_page) {
  if (!text) return std::wstring();
  return Convert(text, static_cast<int>(strlen(text)), code_page);
}

std::wstring Utf8ToWide(const std::string& text, UINT code_page) {
  return Convert(text.data(), static_cast<int>(text.size()), code_page);
}

}  // namespace base
