// Printing, text and clocks shared by the demo's stages.
#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include "demo.h"
#include "roomcore/clock.h"

namespace {
std::mutex g_print_mutex;
int64_t g_start_us = 0;
}  // namespace

void StartClock() { g_start_us = TimeMicroseconds(); }

double Elapsed() { return (TimeMicroseconds() - g_start_us) / 1e6; }

void Print(const char* format, ...) {
  std::lock_guard<std::mutex> hold(g_print_mutex);
  va_list args;
  va_start(args, format);
  std::printf("[%6.1f s] ", Elapsed());
  std::vprintf(format, args);
  std::printf("\n");
  std::fflush(stdout);
  va_end(args);
}

std::string Narrow(const std::wstring& text) {
  if (text.empty()) return std::string();
  int n = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                              nullptr);
  std::string out(n, '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &out[0], n, nullptr, nullptr);
  return out;
}

std::wstring Wide(const std::string& text) {
  if (text.empty()) return std::wstring();
  int n = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(n, L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &out[0], n);
  return out;
}

std::string DisplayPath(const std::wstring& path) {
  // Wine's own export: the Unix name of a DOS path, allocated on the
  // process heap. Absent on Windows, where the path is already right.
  using UnixName = char*(CDECL*)(const wchar_t*);
  auto unix_name = reinterpret_cast<UnixName>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  if (!unix_name) return Narrow(path);
  char* name = unix_name(path.c_str());
  if (!name) return Narrow(path);
  std::string result(name);
  HeapFree(GetProcessHeap(), 0, name);
  return result;
}

std::wstring FullPath(const std::wstring& path) {
  wchar_t full[MAX_PATH];
  DWORD n = GetFullPathNameW(path.c_str(), MAX_PATH, full, nullptr);
  return (n > 0 && n < MAX_PATH) ? std::wstring(full, n) : path;
}

double Percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  size_t index = static_cast<size_t>(p * (values.size() - 1) + 0.5);
  return values[std::min(index, values.size() - 1)];
}

int64_t ThreadCpuMicroseconds() {
  FILETIME created, exited, kernel, user;
  if (!GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user)) return 0;
  auto value = [](const FILETIME& t) {
    return (static_cast<int64_t>(t.dwHighDateTime) << 32 | t.dwLowDateTime) / 10;
  };
  return value(kernel) + value(user);
}
