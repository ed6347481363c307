// Test control of the Fundus.dll stand-in: a sink that sees every log line.
#pragma once

#include "fundus/fundus.h"

// module: the tag given to Util::Log::Info, or L"TRTC" / L"TIM" for the SDK
// bridges. message: the formatted text, without timestamp or newline.
typedef void (*FundusLogSink)(const wchar_t* module, const wchar_t* message, void* context);

// Installs (or with null removes) the sink. The sink is called on the logging
// thread, outside the stand-in's lock, and may be called from many threads.
// Returns once no call to a previously installed sink is still running.
FUNDUS_API void FundusSetLogSink(FundusLogSink sink, void* context);

// Where the log file goes (default: roomcore.log in the working directory);
// null turns the file off.
FUNDUS_API void FundusSetLogFile(const wchar_t* path);
