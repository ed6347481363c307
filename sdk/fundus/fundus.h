// Contract of Fundus.dll, the companion library roomcore imports by name:
// logging and the field constructors of the geometry types.
#pragma once

#if defined(FUNDUS_BUILD)
#define FUNDUS_API __declspec(dllexport)
#else
#define FUNDUS_API __declspec(dllimport)
#endif

namespace Util {
namespace Log {

// printf-like; %s takes wide text. One line per call.
FUNDUS_API void Info(const wchar_t* module, const wchar_t* format, ...);
// The SDKs' own log lines, already converted to wide text.
FUNDUS_API void DoTrtcLog(const wchar_t* text);
FUNDUS_API void DoTimLog(const wchar_t* text);

}  // namespace Log
}  // namespace Util

// Non-zero if the float is the "no value" mark of the geometry types.
FUNDUS_API int IsFloatNA(const float& value);
