// Stand-in for imsdk.dll: records every call, answers as scripted, and runs
// callbacks on a thread of its own. See imsdk_control.h for the behaviour.
#include "imsdk/imsdk.h"

#include <windows.h>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "imsdk_control.h"

namespace {

struct RecordedArg {
  bool is_null;
  std::string text;
};

struct RecordedCall {
  std::string function;
  std::vector<RecordedArg> args;
  DWORD thread_id;
  std::string context;
};

struct Outcome {
  int code;
  std::string desc;
};

struct Job {
  std::string function;  // whose callback this is; "" for events
  std::function<void()> run;
};

struct Registrations {
  TIMNetworkStatusListenerCallback network = nullptr;
  const void* network_data = nullptr;
  TIMKickedOfflineCallback kicked = nullptr;
  const void* kicked_data = nullptr;
  TIMUserSigExpiredCallback sig_expired = nullptr;
  const void* sig_expired_data = nullptr;
  TIMGroupTipsEventCallback tips = nullptr;
  const void* tips_data = nullptr;
  TIMLogCallback log = nullptr;
  const void* log_data = nullptr;
  std::vector<std::pair<TIMRecvNewMsgCallback, const void*>> messages;
};

// Lives for the whole process: the dispatcher thread is detached and may
// still be waiting on it while the process ends.
class StandIn {
 public:
  static StandIn& Get() {
    static StandIn* instance = new StandIn();
    return *instance;
  }

  // Records the call; while calls of the function from its blocked number
  // on are blocked, the caller then waits inside it.
  void Record(const char* function, std::vector<RecordedArg> args) {
    RecordedCall call{function, std::move(args), GetCurrentThreadId(), CurrentContext()};
    std::unique_lock<std::mutex> lock(mutex_);
    calls_.push_back(std::move(call));
    const std::string name = function;
    const int number = CountLocked(&name);
    changed_.notify_all();
    changed_.wait(lock, [&] {
      auto it = blocked_.find(name);
      return it == blocked_.end() || number < it->second;
    });
  }

  void Block(const char* function, int from_call) {
    {
      std::lock_guard<std::mutex> hold(mutex_);
      if (from_call > 0) {
        blocked_[function ? function : ""] = from_call;
      } else {
        blocked_.erase(function ? function : "");
      }
    }
    changed_.notify_all();
  }

  int NextResult(const std::string& function) {
    std::lock_guard<std::mutex> hold(mutex_);
    auto it = results_.find(function);
    if (it == results_.end() || it->second.empty()) return 0;
    int result = it->second.front();
    it->second.pop_front();
    return result;
  }

  Outcome NextOutcome(const std::string& function) {
    std::lock_guard<std::mutex> hold(mutex_);
    auto it = outcomes_.find(function);
    if (it == outcomes_.end() || it->second.empty()) return Outcome{0, "OK"};
    Outcome outcome = it->second.front();
    it->second.pop_front();
    return outcome;
  }

  // Queues the outcome of an accepted call for its callback.
  void QueueCommon(const std::string& function, TIMCommCallback cb, const void* user_data,
                   std::function<void(const Outcome&)> after = nullptr) {
    Outcome outcome = NextOutcome(function);
    Enqueue(Job{function, [cb, user_data, outcome, after]() {
                  if (cb) cb(outcome.code, outcome.desc.c_str(), "", user_data);
                  if (after) after(outcome);
                }});
  }

  void Enqueue(Job job) {
    {
      std::lock_guard<std::mutex> hold(mutex_);
      StartThreadLocked();
      if (!job.function.empty() && held_.count(job.function)) {
        parked_.push_back(std::move(job));
      } else {
        queue_.push_back(std::move(job));
      }
    }
    changed_.notify_all();
  }

  // Waits for a running callback (unless the caller is that callback), then
  // drops queued work and registrations. Whatever the running callback
  // queued or registered meanwhile goes too, so that nothing reaches a
  // caller that is about to go away.
  void DropQueued(std::unique_lock<std::mutex>& lock) {
    if (GetCurrentThreadId() != dispatcher_id_) {
      changed_.wait(lock, [this] { return !running_; });
    }
    queue_.clear();
    parked_.clear();
    registrations_ = Registrations();
  }

  void Uninit() {
    std::unique_lock<std::mutex> lock(mutex_);
    blocked_.clear();
    changed_.notify_all();
    DropQueued(lock);
  }

  void Reset() {
    std::unique_lock<std::mutex> lock(mutex_);
    blocked_.clear();
    changed_.notify_all();
    DropQueued(lock);
    calls_.clear();
    results_.clear();
    outcomes_.clear();
    held_.clear();
    echo_peer_.clear();
  }

  void ScriptResult(const char* function, int result) {
    std::lock_guard<std::mutex> hold(mutex_);
    results_[function ? function : ""].push_back(result);
  }

  void ScriptCallback(const char* function, int code, const char* desc) {
    std::lock_guard<std::mutex> hold(mutex_);
    outcomes_[function ? function : ""].push_back(Outcome{code, desc ? desc : ""});
  }

  void Hold(const char* function, bool hold_it) {
    std::string name = function ? function : "";
    {
      std::lock_guard<std::mutex> hold(mutex_);
      if (hold_it) {
        held_.insert(name);
        return;
      }
      held_.erase(name);
      for (auto it = parked_.begin(); it != parked_.end();) {
        if (it->function == name) {
          queue_.push_back(std::move(*it));
          it = parked_.erase(it);
        } else {
          ++it;
        }
      }
    }
    changed_.notify_all();
  }

  void SetEchoPeer(const char* peer) {
    std::lock_guard<std::mutex> hold(mutex_);
    echo_peer_ = peer ? peer : "";
  }

  std::string EchoPeer() {
    std::lock_guard<std::mutex> hold(mutex_);
    return echo_peer_;
  }

  Registrations Snapshot() {
    std::lock_guard<std::mutex> hold(mutex_);
    return registrations_;
  }

  template <typename Change>
  void Register(Change change) {
    std::lock_guard<std::mutex> hold(mutex_);
    change(registrations_);
  }

  // Message batches go to the registrations current when the job runs.
  void QueueMessages(std::string json) {
    Enqueue(Job{"", [this, json]() {
                  Registrations now = Snapshot();
                  for (const auto& reg : now.messages) reg.first(json.c_str(), reg.second);
                }});
  }

  bool WaitForCalls(const char* function, int count, DWORD timeout_ms) {
    std::string name = function ? function : "";
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                             [&] { return CountLocked(function ? &name : nullptr) >= count; });
  }

  bool WaitIdle(DWORD timeout_ms) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                             [&] { return queue_.empty() && !running_; });
  }

  int Count(const char* function) {
    std::string name = function ? function : "";
    std::lock_guard<std::mutex> hold(mutex_);
    return CountLocked(function ? &name : nullptr);
  }

  // Runs `read` on call `index` under the lock; false if there is none.
  template <typename Read>
  bool WithCall(int index, Read read) {
    std::lock_guard<std::mutex> hold(mutex_);
    if (index < 0 || index >= static_cast<int>(calls_.size())) return false;
    read(calls_[index]);
    return true;
  }

 private:
  StandIn() {
    char peer[256];
    DWORD n = GetEnvironmentVariableA("IMSDK_STANDIN_ECHO_PEER", peer, sizeof(peer));
    if (n > 0 && n < sizeof(peer)) echo_peer_.assign(peer, n);
  }

  int CountLocked(const std::string* function) const {
    if (!function) return static_cast<int>(calls_.size());
    int n = 0;
    for (const RecordedCall& call : calls_) n += (call.function == *function) ? 1 : 0;
    return n;
  }

  std::string CurrentContext() {
    std::lock_guard<std::mutex> hold(mutex_);
    if (running_ && GetCurrentThreadId() == dispatcher_id_) return running_function_;
    return std::string();
  }

  void StartThreadLocked() {
    if (thread_started_) return;
    thread_started_ = true;
    std::thread([this] { Dispatch(); }).detach();
  }

  void Dispatch() {
    std::unique_lock<std::mutex> lock(mutex_);
    dispatcher_id_ = GetCurrentThreadId();
    for (;;) {
      changed_.wait(lock, [this] { return !queue_.empty(); });
      Job job = std::move(queue_.front());
      queue_.pop_front();
      running_ = true;
      running_function_ = job.function;
      lock.unlock();
      job.run();
      job.run = nullptr;  // whatever the job captured goes before we say idle
      lock.lock();
      running_ = false;
      running_function_.clear();
      changed_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable_any changed_;
  std::vector<RecordedCall> calls_;
  std::map<std::string, std::deque<int>> results_;
  std::map<std::string, std::deque<Outcome>> outcomes_;
  std::set<std::string> held_;
  std::map<std::string, int> blocked_;
  std::deque<Job> queue_;
  std::deque<Job> parked_;
  bool thread_started_ = false;
  bool running_ = false;
  std::string running_function_;
  DWORD dispatcher_id_ = 0;
  Registrations registrations_;
  std::string echo_peer_;
};

RecordedArg Text(const char* text) { return RecordedArg{text == nullptr, text ? text : ""}; }

RecordedArg Pointer(const void* pointer) {
  char buffer[32];
  std::snprintf(buffer, sizeof(buffer), "0x%p", pointer);
  return RecordedArg{pointer == nullptr, pointer ? buffer : ""};
}

template <typename Number>
RecordedArg Decimal(Number value) {
  return RecordedArg{false, std::to_string(value)};
}

// The sent message as it arrives at the other end: from the peer, in the
// same conversation. Empty if the text is not a message object.
std::string EchoOf(const char* json_msg, const std::string& peer) {
  if (!json_msg) return std::string();
  rapidjson::Document message;
  message.Parse(json_msg);
  if (message.HasParseError() || !message.IsObject()) return std::string();
  auto& alloc = message.GetAllocator();
  rapidjson::Value sender(peer.c_str(), static_cast<rapidjson::SizeType>(peer.size()), alloc);
  if (message.HasMember("message_sender")) {
    message["message_sender"] = sender;
  } else {
    message.AddMember("message_sender", sender, alloc);
  }
  message.AddMember("message_is_from_self", false, alloc);
  rapidjson::Document batch(rapidjson::kArrayType);
  batch.PushBack(rapidjson::Value(message, batch.GetAllocator()), batch.GetAllocator());
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  batch.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace

extern "C" {

int TIMInit(uint64_t sdk_app_id, const char* json_sdk_config) {
  StandIn& s = StandIn::Get();
  s.Record("TIMInit", {Decimal(sdk_app_id), Text(json_sdk_config)});
  return s.NextResult("TIMInit");
}

int TIMUninit(void) {
  StandIn& s = StandIn::Get();
  s.Record("TIMUninit", {});
  s.Uninit();
  return s.NextResult("TIMUninit");
}

void TIMSetNetworkStatusListenerCallback(TIMNetworkStatusListenerCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMSetNetworkStatusListenerCallback", {Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  s.Register([&](Registrations& r) {
    r.network = cb;
    r.network_data = user_data;
  });
}

void TIMSetKickedOfflineCallback(TIMKickedOfflineCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMSetKickedOfflineCallback", {Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  s.Register([&](Registrations& r) {
    r.kicked = cb;
    r.kicked_data = user_data;
  });
}

void TIMSetUserSigExpiredCallback(TIMUserSigExpiredCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMSetUserSigExpiredCallback", {Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  s.Register([&](Registrations& r) {
    r.sig_expired = cb;
    r.sig_expired_data = user_data;
  });
}

void TIMSetGroupTipsEventCallback(TIMGroupTipsEventCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMSetGroupTipsEventCallback", {Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  s.Register([&](Registrations& r) {
    r.tips = cb;
    r.tips_data = user_data;
  });
}

void TIMSetLogCallback(TIMLogCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMSetLogCallback", {Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  s.Register([&](Registrations& r) {
    r.log = cb;
    r.log_data = user_data;
  });
}

int TIMSetConfig(const char* json_config, TIMCommCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMSetConfig", {Text(json_config), Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  int result = s.NextResult("TIMSetConfig");
  if (result == 0) s.QueueCommon("TIMSetConfig", cb, user_data);
  return result;
}

int TIMLogin(const char* user_id, const char* user_sig, TIMCommCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMLogin",
           {Text(user_id), Text(user_sig), Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  int result = s.NextResult("TIMLogin");
  if (result == 0) s.QueueCommon("TIMLogin", cb, user_data);
  return result;
}

int TIMLogout(TIMCommCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMLogout", {Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  int result = s.NextResult("TIMLogout");
  if (result == 0) s.QueueCommon("TIMLogout", cb, user_data);
  return result;
}

int TIMGroupJoin(const char* group_id, const char* hello_msg, TIMCommCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMGroupJoin",
           {Text(group_id), Text(hello_msg), Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  int result = s.NextResult("TIMGroupJoin");
  if (result == 0) s.QueueCommon("TIMGroupJoin", cb, user_data);
  return result;
}

int TIMGroupQuit(const char* group_id, TIMCommCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMGroupQuit", {Text(group_id), Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  int result = s.NextResult("TIMGroupQuit");
  if (result == 0) s.QueueCommon("TIMGroupQuit", cb, user_data);
  return result;
}

void TIMAddRecvNewMsgCallback(TIMRecvNewMsgCallback cb, const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMAddRecvNewMsgCallback", {Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  if (!cb) return;
  s.Register([&](Registrations& r) {
    for (auto& reg : r.messages) {
      if (reg.first == cb) {
        reg.second = user_data;
        return;
      }
    }
    r.messages.emplace_back(cb, user_data);
  });
}

int TIMMsgSendNewMsg(const char* conv_id, int conv_type, const char* json_msg_param, TIMCommCallback cb,
                     const void* user_data) {
  StandIn& s = StandIn::Get();
  s.Record("TIMMsgSendNewMsg", {Text(conv_id), Decimal(conv_type), Text(json_msg_param),
                                Pointer(reinterpret_cast<void*>(cb)), Pointer(user_data)});
  int result = s.NextResult("TIMMsgSendNewMsg");
  if (result != 0) return result;
  std::string peer = s.EchoPeer();
  std::string echo;
  if (!peer.empty() && conv_type == kTIMConv_Group) echo = EchoOf(json_msg_param, peer);
  std::function<void(const Outcome&)> after;
  if (!echo.empty()) {
    after = [echo](const Outcome& outcome) {
      if (outcome.code == 0) StandIn::Get().QueueMessages(echo);
    };
  }
  s.QueueCommon("TIMMsgSendNewMsg", cb, user_data, after);
  return 0;
}

// ---- control ----

void ImsdkReset(void) { StandIn::Get().Reset(); }

void ImsdkScriptResult(const char* function, int result) { StandIn::Get().ScriptResult(function, result); }

void ImsdkScriptCallback(const char* function, int code, const char* desc) {
  StandIn::Get().ScriptCallback(function, code, desc);
}

void ImsdkHoldCallbacks(const char* function, int hold) { StandIn::Get().Hold(function, hold != 0); }

void ImsdkBlockCalls(const char* function, int from_call) { StandIn::Get().Block(function, from_call); }

void ImsdkSetEchoPeer(const char* peer_user_id) { StandIn::Get().SetEchoPeer(peer_user_id); }

void ImsdkDeliverMessages(const char* json_msg_array) {
  StandIn::Get().QueueMessages(json_msg_array ? json_msg_array : "");
}

void ImsdkFireNetworkStatus(int status, int code, const char* desc) {
  std::string text = desc ? desc : "";
  StandIn& s = StandIn::Get();
  s.Enqueue(Job{"", [&s, status, code, text]() {
                  Registrations now = s.Snapshot();
                  if (now.network) now.network(status, code, text.c_str(), now.network_data);
                }});
}

void ImsdkFireKickedOffline(void) {
  StandIn& s = StandIn::Get();
  s.Enqueue(Job{"", [&s]() {
                  Registrations now = s.Snapshot();
                  if (now.kicked) now.kicked(now.kicked_data);
                }});
}

void ImsdkFireUserSigExpired(void) {
  StandIn& s = StandIn::Get();
  s.Enqueue(Job{"", [&s]() {
                  Registrations now = s.Snapshot();
                  if (now.sig_expired) now.sig_expired(now.sig_expired_data);
                }});
}

void ImsdkEmitLog(int level, const char* text) {
  std::string line = text ? text : "";
  StandIn& s = StandIn::Get();
  s.Enqueue(Job{"", [&s, level, line]() {
                  Registrations now = s.Snapshot();
                  if (now.log) now.log(level, line.c_str(), now.log_data);
                }});
}

int ImsdkWaitForCalls(const char* function, int count, unsigned long timeout_ms) {
  return StandIn::Get().WaitForCalls(function, count, timeout_ms) ? 1 : 0;
}

int ImsdkWaitIdle(unsigned long timeout_ms) { return StandIn::Get().WaitIdle(timeout_ms) ? 1 : 0; }

int ImsdkCallCount(const char* function) { return StandIn::Get().Count(function); }

}  // extern "C"

namespace {

int CopyOut(const std::string& text, char* buffer, int size) {
  if (buffer && size > 0) {
    int n = static_cast<int>(text.size()) < size - 1 ? static_cast<int>(text.size()) : size - 1;
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
  }
  return static_cast<int>(text.size());
}

}  // namespace

extern "C" {

int ImsdkCallFunction(int index, char* buffer, int size) {
  int result = -1;
  StandIn::Get().WithCall(index,
                          [&](const RecordedCall& call) { result = CopyOut(call.function, buffer, size); });
  return result;
}

int ImsdkCallArgCount(int index) {
  int result = -1;
  StandIn::Get().WithCall(index,
                          [&](const RecordedCall& call) { result = static_cast<int>(call.args.size()); });
  return result;
}

int ImsdkCallArg(int index, int arg, char* buffer, int size) {
  int result = -1;
  StandIn::Get().WithCall(index, [&](const RecordedCall& call) {
    if (arg < 0 || arg >= static_cast<int>(call.args.size())) return;
    const RecordedArg& a = call.args[arg];
    if (a.is_null) {
      CopyOut(std::string(), buffer, size);
      result = -2;
    } else {
      result = CopyOut(a.text, buffer, size);
    }
  });
  return result;
}

int ImsdkCallContext(int index, char* buffer, int size) {
  int result = -1;
  StandIn::Get().WithCall(index,
                          [&](const RecordedCall& call) { result = CopyOut(call.context, buffer, size); });
  return result;
}

unsigned long ImsdkCallThread(int index) {
  unsigned long result = 0;
  StandIn::Get().WithCall(index, [&](const RecordedCall& call) { result = call.thread_id; });
  return result;
}

}  // extern "C"
