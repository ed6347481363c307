// A host's view of ImManager for tests: event interfaces that record what
// they get (and on which thread) and let a test wait for it, and a fixture
// with a fresh imsdk stand-in, the one manager and a log capture.
#pragma once

#include <windows.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "common/log_capture.h"
#include "imsdk_control.h"
#include "roomcore/im_manager.h"

namespace im_test {

constexpr char kAppId[] = "1400000001";
constexpr char kAccountType[] = "36862";
constexpr char kUser[] = "alice";
constexpr char kSign[] = "sig-alice";
constexpr char kGroup[] = "group-1";
constexpr DWORD kWait = 5000;

// One host callback, of either interface, in the order of arrival.
struct Received {
  enum Kind { kImEvent, kC2CText, kGroupText, kC2CCustom, kWhiteBoardData, kSendResult };
  explicit Received(Kind k) : kind(k) {}
  Kind kind;
  int event = 0, code = 0;
  std::string desc, group_id, sender, data;  // text or data, by length
  bool data_null = false;
  int length = 0;
  void* user_data = nullptr;
  DWORD thread_id = 0;
  // "event/code/desc"
  std::string Text() const { return std::to_string(event) + "/" + std::to_string(code) + "/" + desc; }
};

// Both interfaces in one: the order across the two is kept.
class Journal : public ImManagerEvent, public WhiteBoardEvent {
 public:
  void OnImEvent(int event, int code, const char* desc) override {
    Received r(Received::kImEvent);
    r.event = event;
    r.code = code;
    r.desc = desc ? desc : "<null>";
    Add(r);
  }
  void OnRecvC2CTextMessage(const char* sender, const char* text) override {
    Message(Received::kC2CText, "", sender, text, static_cast<int>(strlen(text)));
  }
  void OnRecvGroupTextMessage(const char* group_id, const char* sender, const char* text) override {
    Message(Received::kGroupText, group_id, sender, text, static_cast<int>(strlen(text)));
  }
  void OnRecvC2CCustomMessage(const char* sender, const char* data, int length) override {
    Message(Received::kC2CCustom, "", sender, data, length);
  }
  void OnRecvWhiteBoardData(const char* group_id, const char* sender, const char* data, int length) override {
    Message(Received::kWhiteBoardData, group_id, sender, data, length);
  }
  void OnSendWhiteBoardDataResult(int code, const char* desc, void* user_data) override {
    Received r(Received::kSendResult);
    r.code = code;
    r.desc = desc ? desc : "<null>";
    r.user_data = user_data;
    Add(r);
  }

  std::vector<Received> All() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return entries_;
  }
  // Entries of `kind` (and `event`, unless negative).
  std::vector<Received> Of(Received::Kind kind, int event = -1) const {
    std::vector<Received> out;
    for (const Received& r : All()) {
      if (r.kind == kind && (event < 0 || r.event == event)) out.push_back(r);
    }
    return out;
  }
  std::vector<Received> Events(int event) const { return Of(Received::kImEvent, event); }
  // Waits until at least `count` entries of `kind` (and `event`) are there.
  bool WaitFor(Received::Kind kind, size_t count = 1, int event = -1, DWORD timeout_ms = kWait) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
      size_t n = 0;
      for (const Received& r : entries_) n += r.kind == kind && (event < 0 || r.event == event) ? 1 : 0;
      return n >= count;
    });
  }
  bool WaitForEvent(int event, size_t count = 1) const { return WaitFor(Received::kImEvent, count, event); }

 private:
  void Message(Received::Kind kind, const char* group_id, const char* sender, const char* data, int length) {
    Received r(kind);
    r.group_id = group_id;
    r.sender = sender;
    r.data_null = data == nullptr;
    if (data) r.data.assign(data, length);
    r.length = length;
    Add(r);
  }
  void Add(Received entry) {
    entry.thread_id = GetCurrentThreadId();
    {
      std::lock_guard<std::mutex> hold(mutex_);
      entries_.push_back(std::move(entry));
    }
    changed_.notify_all();
  }

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Received> entries_;
};

// Text of a pointer as the stand-in records it.
inline std::string PointerText(const void* pointer) {
  char buffer[32];
  std::snprintf(buffer, sizeof(buffer), "0x%p", pointer);
  return buffer;
}

// Messages written by hand so that tests control every key, and a batch of them.
inline std::string ImMessage(const std::string& conv, const std::string& sender, const std::string& element,
                             int conv_type) {
  return "{\"message_conv_type\":" + std::to_string(conv_type) + ",\"message_conv_id\":\"" + conv +
         "\",\"message_sender\":\"" + sender + "\",\"message_elem_array\":[" + element + "]}";
}
inline std::string CustomMessage(const std::string& group, const std::string& sender, const std::string& data,
                                 int conv_type = 2) {
  return ImMessage(group, sender, "{\"elem_type\":3,\"custom_elem_data\":\"" + data + "\"}", conv_type);
}
inline std::string TextMessage(const std::string& conv, const std::string& sender, const std::string& text,
                               int conv_type = 2) {
  return ImMessage(conv, sender, "{\"elem_type\":0,\"text_elem_content\":\"" + text + "\"}", conv_type);
}
inline std::string Batch(std::initializer_list<std::string> messages) {
  std::string batch;
  for (const std::string& m : messages) batch += (batch.empty() ? "[" : ",") + m;
  return batch + "]";
}

class ImManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ImsdkReset();
    manager_ = ImManager::GetImManagerInstance();
    ASSERT_NE(manager_, nullptr);
  }
  void TearDown() override {
    // The manager goes first: its end drops the stand-in's queued callbacks
    // and waits for a running one, so nothing reaches the journal later.
    ImManager::DestroyImManagerInstance();
    ImsdkReset();
  }

  // With the event interface set.
  void LogIn() {
    manager_->SetEventCallback(&journal_);
    manager_->LogInAndJoinGroup(kAppId, kAccountType, kUser, kSign, kGroup);
  }
  // Logs in and waits for the join's event; n counts earlier joins.
  void LogInAndWaitForJoin(size_t n = 1) {
    LogIn();
    ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, n));
    ASSERT_TRUE(ImsdkWaitIdle(kWait));
  }
  int Calls(const char* function) { return ImsdkCallCount(function); }
  std::vector<imsdk_control::Call> CallsOf(const char* function) { return imsdk_control::Calls(function); }

  testing_support::LogCapture log_;
  Journal journal_;
  ImManager* manager_ = nullptr;
};

}  // namespace im_test
