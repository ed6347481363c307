// Test control of the imsdk.dll stand-in. Tests script what each SDK function
// answers, read back every call that was made, and push events and message
// batches at the registered callbacks. Only tests include this header.
//
// How the stand-in behaves:
// - Every call of an SDK function is recorded, in order, with its arguments
//   as text (pointers as "0x..." text; a null pointer is marked as such),
//   the calling thread and the SDK callback that was running on that thread,
//   if any.
// - The immediate answer of a function is the next scripted result for it,
//   or 0. When the answer is 0 and the function has a callback, the next
//   scripted outcome for it (or code 0, desc "OK") is queued.
// - Queued callbacks run one after another on the stand-in's own thread,
//   never on the thread that made the call and never with the stand-in's lock
//   held. A call made from inside a callback has its own callback queued
//   behind the running one.
// - TIMUninit waits for a running callback (unless called from inside one),
//   then drops every registration and every queued or held callback.
// - TIMAddRecvNewMsgCallback keeps one registration per callback function;
//   adding the same function again replaces its user_data.
// - Echo peer: when set, every accepted group message whose send succeeds
//   comes back once as a new message from the peer (same group, same
//   elements). The environment variable IMSDK_STANDIN_ECHO_PEER names a peer
//   for host programs that do not use this header; ImsdkReset clears it.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "imsdk/imsdk.h"

#ifdef __cplusplus
extern "C" {
#endif

// Forgets calls, scripts, holds, registrations and the echo peer; drops
// queued callbacks and waits for a running one.
IMSDK_API void ImsdkReset(void);

// Scripting, per function name (e.g. "TIMLogin"), first in first out.
IMSDK_API void ImsdkScriptResult(const char* function, int result);
IMSDK_API void ImsdkScriptCallback(const char* function, int code, const char* desc);
// While a function is held, its callbacks wait; releasing queues them in order.
IMSDK_API void ImsdkHoldCallbacks(const char* function, int hold);
// From its `from_call`-th call on (counting every call since the reset), a
// function's callers wait inside it, after the call is recorded; 0 lets them
// return. TIMUninit and the reset unblock every function.
IMSDK_API void ImsdkBlockCalls(const char* function, int from_call);
IMSDK_API void ImsdkSetEchoPeer(const char* peer_user_id);  // null or "" turns it off

// Events, queued to the stand-in's thread.
IMSDK_API void ImsdkDeliverMessages(const char* json_msg_array);
IMSDK_API void ImsdkFireNetworkStatus(int status, int code, const char* desc);
IMSDK_API void ImsdkFireKickedOffline(void);
IMSDK_API void ImsdkFireUserSigExpired(void);
IMSDK_API void ImsdkEmitLog(int level, const char* text);

// Waiting. Both return non-zero on success, 0 on timeout.
// Until `function` (null: any) has been called at least `count` times.
IMSDK_API int ImsdkWaitForCalls(const char* function, int count, unsigned long timeout_ms);
// Until no callback is queued or running (held ones don't count).
IMSDK_API int ImsdkWaitIdle(unsigned long timeout_ms);

// Reading the record. Text getters copy into `buffer` (NUL-terminated, cut to
// `size`) and return the full length, -1 for no such entry, -2 for a null
// pointer argument.
IMSDK_API int ImsdkCallCount(const char* function);  // null: all calls
IMSDK_API int ImsdkCallFunction(int index, char* buffer, int size);
IMSDK_API int ImsdkCallArgCount(int index);
IMSDK_API int ImsdkCallArg(int index, int arg, char* buffer, int size);
IMSDK_API int ImsdkCallContext(int index, char* buffer, int size);
IMSDK_API unsigned long ImsdkCallThread(int index);

#ifdef __cplusplus
}

namespace imsdk_control {

struct Arg {
  bool is_null = false;
  std::string text;
};

struct Call {
  std::string function;
  std::vector<Arg> args;
  DWORD thread_id = 0;
  // The SDK function whose callback was running on the calling thread, or "".
  std::string during_callback_of;

  const std::string& arg(size_t i) const {
    static const std::string empty;
    return i < args.size() ? args[i].text : empty;
  }
};

namespace detail {
template <typename Getter>
bool ReadText(Getter getter, std::string* out, bool* is_null) {
  char small[256];
  int n = getter(small, static_cast<int>(sizeof(small)));
  if (is_null) *is_null = (n == -2);
  if (n < 0) {
    out->clear();
    return n == -2;
  }
  if (n < static_cast<int>(sizeof(small))) {
    out->assign(small, n);
    return true;
  }
  std::vector<char> big(n + 1);
  n = getter(big.data(), n + 1);
  out->assign(big.data(), n < 0 ? 0 : n);
  return true;
}
}  // namespace detail

// Every recorded call, or those of one function, in order.
inline std::vector<Call> Calls(const char* function = nullptr) {
  std::vector<Call> out;
  int total = ImsdkCallCount(nullptr);
  for (int i = 0; i < total; ++i) {
    Call call;
    if (!detail::ReadText([i](char* b, int s) { return ImsdkCallFunction(i, b, s); }, &call.function,
                          nullptr)) {
      break;
    }
    if (function && call.function != function) continue;
    int args = ImsdkCallArgCount(i);
    for (int a = 0; a < args; ++a) {
      Arg arg;
      detail::ReadText([i, a](char* b, int s) { return ImsdkCallArg(i, a, b, s); }, &arg.text, &arg.is_null);
      call.args.push_back(arg);
    }
    call.thread_id = ImsdkCallThread(i);
    detail::ReadText([i](char* b, int s) { return ImsdkCallContext(i, b, s); }, &call.during_callback_of,
                     nullptr);
    out.push_back(call);
  }
  return out;
}

// The function names of all calls, in order.
inline std::vector<std::string> CallNames() {
  std::vector<std::string> out;
  for (const Call& call : Calls()) out.push_back(call.function);
  return out;
}

}  // namespace imsdk_control
#endif
