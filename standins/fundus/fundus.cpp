// Stand-in for Fundus.dll: timestamped log lines to a file and the debugger
// output, a sink for tests, and the geometry field constructors.
#include <windows.h>

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <string>

#include "fundus_control.h"
#include "roomcore/geometry.h"

namespace {

// Guards the file. Never held while the sink runs.
SRWLOCK g_file_lock = SRWLOCK_INIT;
HANDLE g_file = INVALID_HANDLE_VALUE;
bool g_file_enabled = true;
std::wstring g_file_path = L"roomcore.log";

// Held shared while the sink runs, exclusive while it is replaced, so that
// FundusSetLogSink(null) returns only when no old sink call is in flight.
SRWLOCK g_sink_lock = SRWLOCK_INIT;
FundusLogSink g_sink = nullptr;
void* g_sink_context = nullptr;

void WriteToFile(const std::wstring& line) {
  AcquireSRWLockExclusive(&g_file_lock);
  if (g_file_enabled && g_file == INVALID_HANDLE_VALUE) {
    g_file = CreateFileW(g_file_path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                         OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (g_file == INVALID_HANDLE_VALUE) g_file_enabled = false;
  }
  if (g_file != INVALID_HANDLE_VALUE) {
    int bytes = WideCharToMultiByte(CP_UTF8, 0, line.c_str(), static_cast<int>(line.size()), nullptr, 0,
                                    nullptr, nullptr);
    if (bytes > 0) {
      std::string utf8(bytes, '\0');
      WideCharToMultiByte(CP_UTF8, 0, line.c_str(), static_cast<int>(line.size()), &utf8[0], bytes, nullptr,
                          nullptr);
      DWORD written = 0;
      WriteFile(g_file, utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr);
    }
  }
  ReleaseSRWLockExclusive(&g_file_lock);
}

void Emit(const wchar_t* module, const wchar_t* message) {
  SYSTEMTIME now;
  GetLocalTime(&now);
  wchar_t prefix[96];
  _snwprintf(prefix, 96, L"%04u-%02u-%02u %02u:%02u:%02u.%03u [%5lu] [", now.wYear, now.wMonth, now.wDay,
             now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, GetCurrentThreadId());
  prefix[95] = L'\0';
  std::wstring line = prefix;
  line += module;
  line += L"] ";
  line += message;
  line += L"\r\n";
  OutputDebugStringW(line.c_str());
  WriteToFile(line);

  AcquireSRWLockShared(&g_sink_lock);
  if (g_sink) g_sink(module, message, g_sink_context);
  ReleaseSRWLockShared(&g_sink_lock);
}

}  // namespace

namespace Util {
namespace Log {

void Info(const wchar_t* module, const wchar_t* format, ...) {
  if (!format) return;
  wchar_t local[2048];
  va_list args;
  va_start(args, format);
  // The Microsoft form of the wide printf: %s takes wide text.
  int n = _vsnwprintf(local, 2048, format, args);
  va_end(args);
  std::wstring message;
  if (n >= 0 && n < 2048) {
    message.assign(local, n);
  } else {
    // Longer than the stack buffer: grow until it fits.
    for (size_t size = 8192; size <= (1u << 24); size *= 2) {
      std::wstring buffer(size, L'\0');
      va_start(args, format);
      n = _vsnwprintf(&buffer[0], size, format, args);
      va_end(args);
      if (n >= 0 && static_cast<size_t>(n) < size) {
        message.assign(buffer.data(), n);
        break;
      }
    }
  }
  Emit(module ? module : L"", message.c_str());
}

void DoTrtcLog(const wchar_t* text) { Emit(L"TRTC", text ? text : L""); }
void DoTimLog(const wchar_t* text) { Emit(L"TIM", text ? text : L""); }

}  // namespace Log
}  // namespace Util

void FundusSetLogSink(FundusLogSink sink, void* context) {
  AcquireSRWLockExclusive(&g_sink_lock);
  g_sink = sink;
  g_sink_context = context;
  ReleaseSRWLockExclusive(&g_sink_lock);
}

void FundusSetLogFile(const wchar_t* path) {
  AcquireSRWLockExclusive(&g_file_lock);
  if (g_file != INVALID_HANDLE_VALUE) CloseHandle(g_file);
  g_file = INVALID_HANDLE_VALUE;
  g_file_enabled = path != nullptr;
  if (path) g_file_path = path;
  ReleaseSRWLockExclusive(&g_file_lock);
}

int IsFloatNA(const float& value) { return std::isnan(value) ? 1 : 0; }

Point3D::Point3D(const float& x_, const float& y_, const float& z_) : x(x_), y(y_), z(z_) {}
Size3D::Size3D(const float& cx_, const float& cy_, const float& cz_) : cx(cx_), cy(cy_), cz(cz_) {}
Rect3D::Rect3D(const float& left_, const float& top_, const float& right_, const float& bottom_,
               const float& z_)
    : left(left_), top(top_), right(right_), bottom(bottom_), z(z_) {}
