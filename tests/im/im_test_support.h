// Host-side doubles for the IM tests: event interfaces that record what they
// get and let a test wait for it, and helpers around the imsdk stand-in.
#pragma once

#include <windows.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "im_manager.h"
#include "imsdk_control.h"

namespace im_test {

// One host callback, of either interface, in the order of arrival.
struct Received {
  enum Kind { kImEvent, kC2CText, kGroupText, kC2CCustom, kWhiteBoardData, kSendResult };
  explicit Received(Kind k) : kind(k) {}
  Kind kind;
  int event = 0;
  int code = 0;
  std::string desc;
  std::string group_id;
  std::string sender;
  std::string data;  // text or data, by length
  bool data_null = false;
  int length = 0;
  void* user_data = nullptr;
  DWORD thread_id = 0;
};

// Shared by both recorders so that the order across the two interfaces is
// kept.
class Journal {
 public:
  void Add(Received entry) {
    entry.thread_id = GetCurrentThreadId();
    {
      std::lock_guard<std::mutex> hold(mutex_);
      entries_.push_back(std::move(entry));
    }
    changed_.notify_all();
  }

  std::vector<Received> All() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return entries_;
  }

  std::vector<Received> Of(Received::Kind kind) const {
    std::vector<Received> out;
    for (const Received& entry : All()) {
      if (entry.kind == kind) out.push_back(entry);
    }
    return out;
  }

  std::vector<Received> Events(int event) const {
    std::vector<Received> out;
    for (const Received& entry : All()) {
      if (entry.kind == Received::kImEvent && entry.event == event) out.push_back(entry);
    }
    return out;
  }

  // Waits until at least `count` entries match.
  bool WaitFor(std::function<bool(const Received&)> match, size_t count = 1, DWORD timeout_ms = 5000) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] {
      size_t n = 0;
      for (const Received& entry : entries_) n += match(entry) ? 1 : 0;
      return n >= count;
    });
  }

  bool WaitForEvent(int event, size_t count = 1, DWORD timeout_ms = 5000) const {
    return WaitFor([event](const Received& r) { return r.kind == Received::kImEvent && r.event == event; },
                   count, timeout_ms);
  }

  bool WaitForKind(Received::Kind kind, size_t count = 1, DWORD timeout_ms = 5000) const {
    return WaitFor([kind](const Received& r) { return r.kind == kind; }, count, timeout_ms);
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<Received> entries_;
};

class RecordingImEvents : public ImManagerEvent {
 public:
  explicit RecordingImEvents(Journal* journal) : journal_(journal) {}
  ~RecordingImEvents() override = default;

  void OnImEvent(int event, int code, const char* desc) override {
    Received r(Received::kImEvent);
    r.event = event;
    r.code = code;
    r.desc = desc ? desc : "<null>";
    journal_->Add(r);
  }
  void OnRecvC2CTextMessage(const char* sender, const char* text) override {
    Received r(Received::kC2CText);
    r.sender = sender;
    r.data = text;
    journal_->Add(r);
  }
  void OnRecvGroupTextMessage(const char* group_id, const char* sender, const char* text) override {
    Received r(Received::kGroupText);
    r.group_id = group_id;
    r.sender = sender;
    r.data = text;
    journal_->Add(r);
  }
  void OnRecvC2CCustomMessage(const char* sender, const char* data, int length) override {
    Received r(Received::kC2CCustom);
    r.sender = sender;
    r.data.assign(data, length);
    r.length = length;
    journal_->Add(r);
  }

 private:
  Journal* journal_;
};

class RecordingWhiteBoard : public WhiteBoardEvent {
 public:
  explicit RecordingWhiteBoard(Journal* journal) : journal_(journal) {}
  ~RecordingWhiteBoard() override = default;

  void OnRecvWhiteBoardData(const char* group_id, const char* sender, const char* data, int length) override {
    Received r(Received::kWhiteBoardData);
    r.group_id = group_id;
    r.sender = sender;
    r.data_null = (data == nullptr);
    if (data) r.data.assign(data, length);
    r.length = length;
    journal_->Add(r);
  }
  void OnSendWhiteBoardDataResult(int code, const char* desc, void* user_data) override {
    Received r(Received::kSendResult);
    r.code = code;
    r.desc = desc ? desc : "<null>";
    r.user_data = user_data;
    journal_->Add(r);
  }

 private:
  Journal* journal_;
};

// Text of a pointer as the stand-in records it.
inline std::string PointerText(const void* pointer) {
  char buffer[32];
  std::snprintf(buffer, sizeof(buffer), "0x%p", pointer);
  return buffer;
}

// One message of a batch, written by hand so that tests control every key.
inline std::string CustomMessage(const std::string& group, const std::string& sender, const std::string& data,
                                 int conv_type = 2) {
  return "{\"message_conv_type\":" + std::to_string(conv_type) + ",\"message_conv_id\":\"" + group +
         "\",\"message_sender\":\"" + sender +
         "\",\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":\"" + data + "\"}]}";
}

inline std::string TextMessage(const std::string& conv, const std::string& sender, const std::string& text,
                               int conv_type = 2) {
  return "{\"message_conv_type\":" + std::to_string(conv_type) + ",\"message_conv_id\":\"" + conv +
         "\",\"message_sender\":\"" + sender +
         "\",\"message_elem_array\":[{\"elem_type\":0,\"text_elem_content\":\"" + text + "\"}]}";
}

}  // namespace im_test
