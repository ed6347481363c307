// Test control of the liteav.dll stand-in. Tests script the SDK through
// these functions: they read the calls that were made, set the devices and
// volumes that the SDK reports, fire callbacks on the stand-in's own thread
// and drive the pull of the custom stream.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "liteav/ITRTCCloud.h"

extern "C" {

// Forgets the recorded calls and restores every default (no devices, no
// current devices, volumes 0, answers on, pull rate 0). Registered callbacks
// and the stream source stay.
LITEAV_API void LiteavReset();

// Calls are recorded as "name(arg,arg)": text arguments as they came, views
// and numbers in decimal, bools 0/1, a stream source as "source" or "null".
LITEAV_API int LiteavCallCount();
// Copies call `index` into `buffer` (NUL-terminated, cut to fit); returns its
// full length, or -1 past the end. `thread_id` (may be null) gets the caller.
LITEAV_API int LiteavGetCall(int index, char* buffer, int buffer_size, DWORD* thread_id);
// Counts calls equal to `call`; a text without "(" counts by name.
LITEAV_API int LiteavCountCalls(const char* call);
// Waits until LiteavCountCalls(call) reaches `times`; false on timeout.
LITEAV_API bool LiteavWaitForCall(const char* call, int times, DWORD timeout_ms);

// kind: TRTCDeviceType (0 microphones, 1 speakers, 2 cameras).
LITEAV_API void LiteavSetDevices(int kind, const char* const* names, int count);
// The device that getCurrentMicDevice/getCurrentSpeakerDevice give; null for
// none. A device info whose name is null is given with `null_name`.
LITEAV_API void LiteavSetCurrentDevice(int kind, const char* name, bool null_name);
// getCurrentMicDeviceVolume (kind 0) and getCurrentSpeakerVolume (kind 1).
LITEAV_API void LiteavSetVolume(int kind, uint32_t volume);

// enterRoom answers onEnterRoom and exitRoom answers onExitRoom, on the
// callback thread, unless turned off here.
LITEAV_API void LiteavSetAutoAnswer(bool enabled);

// Calls that match `call` (as LiteavCountCalls counts) are recorded, then
// wait inside the SDK until the hold is lifted with null; LiteavReset lifts it.
LITEAV_API void LiteavHoldCalls(const char* call);

// How many times getTRTCShareInstance made an object, and on which thread.
LITEAV_API int LiteavInstanceCount();
LITEAV_API DWORD LiteavInstanceThreadId();
LITEAV_API bool LiteavInstanceAlive();

// The callback thread, on which every callback of the stand-in runs.
LITEAV_API DWORD LiteavCallbackThreadId();
typedef void (*LiteavTask)(void* context);
// Runs `task` on the callback thread, after every task queued before it.
// With `wait` the call returns when it has run.
LITEAV_API void LiteavRunOnCallbackThread(LiteavTask task, void* context, bool wait);

// What the engine registered (null for none). Read them inside a task.
LITEAV_API ITRTCCloudCallback* LiteavCloudCallback();
LITEAV_API ITRTCVideoRenderCallback* LiteavLocalRenderCallback();
LITEAV_API ITRTCVideoRenderCallback* LiteavRemoteRenderCallback(const char* user_id);
LITEAV_API ITRTCAudioFrameCallback* LiteavAudioFrameCallback();
LITEAV_API ITRTCLogCallback* LiteavLogCallback();

// The custom stream. The stand-in pulls `fps` times a second on a thread of
// its own while a source is set; 0 (the default) stops that thread.
LITEAV_API void LiteavSetPullRate(uint32_t fps);
// One pull from the current source on the calling thread, into the caller's
// buffer: `frame` is set up with `buffer`/`capacity` and handed to
// onPullVideo; returns its result, or LiteavNoSource when no source is set.
LITEAV_API int32_t LiteavPullVideoFrame(void* buffer, uint32_t capacity, TRTCVideoFrame* frame);
// True while a source is set; how many sources told of their destruction.
LITEAV_API bool LiteavHasSource();
LITEAV_API int LiteavDestroyedSourceCount();
}

const int32_t LiteavNoSource = -100;

namespace liteav_control {

inline std::vector<std::string> Calls() {
  std::vector<std::string> calls;
  const int count = LiteavCallCount();
  for (int i = 0; i < count; ++i) {
    char buffer[1024];
    if (LiteavGetCall(i, buffer, sizeof(buffer), nullptr) >= 0) calls.push_back(buffer);
  }
  return calls;
}

// Calls whose name is `name`, in order.
inline std::vector<std::string> CallsNamed(const std::string& name) {
  std::vector<std::string> out;
  for (const std::string& call : Calls()) {
    if (call.compare(0, name.size() + 1, name + "(") == 0) out.push_back(call);
  }
  return out;
}

template <typename F>
void RunTrampoline(void* context) {
  (*static_cast<F*>(context))();
}

// Runs `f` on the callback thread and waits for it.
template <typename F>
void RunOnCallbackThread(F f) {
  LiteavRunOnCallbackThread(&RunTrampoline<F>, &f, true);
}

// Calls `f(callback)` on the callback thread with the registered cloud
// callback and waits; false (and `f` not run) if none is registered.
template <typename F>
bool FireCloud(F f) {
  bool fired = false;
  RunOnCallbackThread([&] {
    ITRTCCloudCallback* callback = LiteavCloudCallback();
    if (callback) {
      f(callback);
      fired = true;
    }
  });
  return fired;
}

inline void SetDevices(int kind, const std::vector<std::string>& names) {
  std::vector<const char*> raw;
  for (const std::string& name : names) raw.push_back(name.c_str());
  LiteavSetDevices(kind, raw.data(), static_cast<int>(raw.size()));
}

}  // namespace liteav_control
