// The IM fixture: a fresh imsdk stand-in, the one manager, a log capture, a journal of host callbacks.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "base/scoped_handle.h"
#include "common/log_capture.h"
#include "imsdk_control.h"
#include "roomcore/im_manager.h"

namespace im_test {

using Lines = std::vector<std::string>;
constexpr char kGroup[] = "group-1";
constexpr DWORD kWait = 5000;
inline std::string N(long long n) { return std::to_string(n); }
inline std::string S(const std::string& text) { return text; }
inline Lines Sorted(Lines lines) { return std::sort(lines.begin(), lines.end()), lines; }
inline Lines L(const std::string& joined) {  // the lines of "a;b;c"
  Lines out;
  for (size_t at = 0, end = 0; !joined.empty() && end != std::string::npos; at = end + 1)
    out.push_back(joined.substr(at, (end = joined.find(';', at)) - at));
  return out;
}
inline HANDLE NewEvent() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }
inline bool Wait(HANDLE event) { return WaitForSingleObject(event, kWait) == WAIT_OBJECT_0; }
// "ev 1|0|desc", "res code|desc|tag", "wb/text group|from|data[|n]", "c2c[data] from|data[|n]", +" here"
class Journal : public testing_support::Journal, public ImManagerEvent, public WhiteBoardEvent {
 public:
  void OnImEvent(int event, int code, const char* desc) override { Add("ev", N(event), N(code), desc); }
  void OnRecvC2CTextMessage(const char* from, const char* text) override { Add("c2c", from, text); }
  void OnRecvGroupTextMessage(const char* g, const char* f, const char* t) override { Add("text", g, f, t); }
  void OnRecvC2CCustomMessage(const char* from, const char* d, int n) override {
    Add("c2cdata", from, S({d, d + n}), N(n));
  }
  void OnRecvWhiteBoardData(const char* g, const char* from, const char* d, int n) override {
    Add("wb", g, from, d ? S({d, d + n}) : "null", N(n));
  }
  void OnSendWhiteBoardDataResult(int code, const char* desc, void* u) override {
    Add("res", N(code), desc, N((intptr_t)u));
  }
  std::function<void(const std::string& line)> then;  // after each line, on its thread

 private:
  template <typename... Parts>
  void Add(const char* kind, const Parts&... parts) {
    std::string line = kind;
    for (const std::string& part : {S(parts)...}) line += (line == kind ? " " : "|") + part;
    line += GetCurrentThreadId() == owner_ ? " here" : "";
    testing_support::Journal::Add(line);
    if (then) then(line);
  }
  const DWORD owner_ = GetCurrentThreadId();
};
inline std::string Msg(const std::string& elements, const std::string& conv = kGroup,
                       const std::string& from = "bob", int type = 2) {
  return "{\"message_conv_type\":" + N(type) + ",\"message_conv_id\":\"" + conv + "\",\"message_sender\":\"" +
         from + "\",\"message_elem_array\":[" + elements + "]}";
}
inline std::string Custom(std::string d) { return "{\"elem_type\":3,\"custom_elem_data\":\"" + d + "\"}"; }
inline std::string Text(std::string t) { return "{\"elem_type\":0,\"text_elem_content\":\"" + t + "\"}"; }
class ImTest : public ::testing::Test {
 protected:
  void SetUp() override { Fresh(); }
  // The manager goes first: its end drops the stand-in's queued callbacks.
  void TearDown() override { ImManager::DestroyImManagerInstance(), ImsdkReset(); }
  void Fresh() {  // also for each case of a table
    TearDown();
    log_.Clear(), journal_.Clear();
    manager_ = ImManager::GetImManagerInstance();
  }
  void LogIn(const char* user = "alice", const char* group = kGroup) {
    manager_->SetEventCallback(&journal_);
    manager_->LogInAndJoinGroup("1400000001", "36862", user, "sig", group);
  }
  void Join() {
    LogIn();
    ASSERT_TRUE(journal_.WaitFor("ev 4|") && ImsdkWaitIdle(kWait));
  }
  void Deliver(const std::string& batch) {
    ImsdkDeliverMessages(batch.c_str());
    ASSERT_TRUE(ImsdkWaitIdle(kWait));
  }
  // Tasks run in order: once the logout task's quit is reported, every task posted before it has run.
  void DrainTasks() {
    const size_t quits = ImsdkWaitIdle(kWait) ? journal_.Count("ev 5|") : 99;
    manager_->LogoutAndQuitGroup();
    ASSERT_TRUE(journal_.WaitFor("ev 5|", quits + 1) && ImsdkWaitIdle(kWait));
  }
  // SDK calls from the `from`-th, as "TIMLogin(alice,sig,p,self)": the manager is "self", other pointers "p";
  // " in F": during F's callback; " here": on the test's thread; message times of the test are "T".
  Lines Sdk(const char* function = nullptr, size_t from = 0) const {
    char self[32];
    std::snprintf(self, sizeof(self), "0x%p", static_cast<void*>(manager_));
    Lines out;
    for (const imsdk_control::Call& call : imsdk_control::Calls(function)) {
      std::string line = call.function + "(";
      for (const imsdk_control::Arg& arg : call.args) {
        std::string text = arg.is_null ? "null" : arg.text == self ? "self" : arg.text;
        if (text.compare(0, 2, "0x") == 0 && text.size() > 8) text = "p";
        for (long long t = start_; t <= static_cast<long long>(std::time(nullptr)); ++t)  // seconds
          for (size_t at; (at = text.find("time\":" + N(t) + ",")) != std::string::npos;)
            text.replace(at + 6, N(t).size(), "T");
        line += (&arg == &call.args[0] ? "" : ",") + text;
      }
      out.push_back(line + ")" + (call.during_callback_of.empty() ? "" : " in " + call.during_callback_of) +
                    (call.thread_id == GetCurrentThreadId() ? " here" : ""));
    }
    return Lines(out.begin() + std::min(from, out.size()), out.end());
  }
  int Calls(const char* function) const { return ImsdkCallCount(function); }
  // The manager's log lines that begin with `prefix`, in UTF-8, sorted: threads interleave them.
  Lines Log(const std::wstring& prefix = L"") const {
    Lines out;
    for (const std::wstring& line : log_.Messages(L"ImManagerImpl")) {
      std::string utf8(line.size() * 3 + 1, '\0');
      utf8.resize(WideCharToMultiByte(CP_UTF8, 0, line.c_str(), -1, &utf8[0], int(utf8.size()), 0, 0) - 1);
      if (line.compare(0, prefix.size(), prefix) == 0) out.push_back(utf8);
    }
    return Sorted(out);
  }
  bool Logged(const std::string& line, long times = 1) const {
    const Lines lines = Log();
    return std::count(lines.begin(), lines.end(), line) == times;
  }
  testing_support::LogCapture log_;
  Journal journal_;
  ImManager* manager_ = nullptr;
  const long long start_ = static_cast<long long>(std::time(nullptr));
};

}  // namespace im_test
