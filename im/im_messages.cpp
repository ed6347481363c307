// ImManagerImpl: sending (the queue of whiteboard data that waits for the
// group, the message JSON, the outcome) and receiving (the filter, the
// deliveries, the cache of whiteboard data).
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstring>
#include <ctime>
#include <utility>

#include "im/im_log.h"
#include "im/im_manager_impl.h"
#include "imsdk/imsdk.h"

using im::Log;
using im::Wide;

namespace {

// Text of at most `length` bytes, up to the first NUL: data for a log line.
std::string DataText(const char* data, int length) {
  if (!data || length <= 0) return std::string();
  const void* nul = std::memchr(data, '\0', static_cast<size_t>(length));
  size_t size = nul ? static_cast<size_t>(static_cast<const char*>(nul) - data) : static_cast<size_t>(length);
  return std::string(data, size);
}

// Custom content: the data up to its first NUL; null data is empty.
std::string CustomContent(const char* data) { return data ? std::string(data) : std::string(); }

// A JSON number as an int; a number that is not a whole value in the range
// of int is no known type and gives -1.
int NumberAsInt(const rapidjson::Value& value) {
  if (value.IsInt()) return value.GetInt();
  double number = value.GetDouble();
  if (number >= -2147483648.0 && number <= 2147483647.0 &&
      number == static_cast<double>(static_cast<int>(number))) {
    return static_cast<int>(number);
  }
  return -1;
}

int64_t NowSeconds() { return static_cast<int64_t>(_time64(nullptr)); }

// Deeper than any batch the SDK writes, shallow enough for the recursive
// parse to stay far inside the 1 MB stack that SDK threads get.
constexpr int kMaxBatchDepth = 256;

// Whether arrays and objects in `json` nest deeper than `limit`. Brackets
// inside strings are data and don't count; the text need not be valid.
bool NestsDeeperThan(const char* json, int limit) {
  int depth = 0;
  bool in_string = false;
  for (const char* p = json; *p; ++p) {
    const char c = *p;
    if (in_string) {
      if (c == '\\') {
        if (p[1]) ++p;
      } else if (c == '"') {
        in_string = false;
      }
    } else if (c == '"') {
      in_string = true;
    } else if (c == '[' || c == '{') {
      if (++depth > limit) return true;
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return false;
}

}  // namespace

// ---- sending ----

std::string ImManagerImpl::BuildMessageJson(int conv_type, const std::string& conv_id,
                                            const std::string& sender, const std::string& content,
                                            int elem_type) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  writer.StartObject();
  writer.Key("message_conv_type");
  writer.Int(conv_type);
  writer.Key("message_conv_id");
  writer.String(conv_id.c_str(), static_cast<rapidjson::SizeType>(conv_id.size()));
  writer.Key("message_sender");
  writer.String(sender.c_str(), static_cast<rapidjson::SizeType>(sender.size()));
  writer.Key("message_client_time");
  writer.Int64(NowSeconds());
  writer.Key("message_server_time");
  writer.Int64(NowSeconds());
  writer.Key("message_elem_array");
  writer.StartArray();
  writer.StartObject();
  if (elem_type == kTIMElem_Custom) {
    writer.Key("elem_type");
    writer.Int(kTIMElem_Custom);
    writer.Key("custom_elem_data");
    writer.String(content.c_str(), static_cast<rapidjson::SizeType>(content.size()));
    writer.Key("custom_elem_desc");
    writer.String("");
    writer.Key("custom_elem_ext");
    writer.String("");
    writer.Key("custom_elem_sound");
    writer.String("");
  } else if (elem_type == kTIMElem_Text) {
    writer.Key("elem_type");
    writer.Int(kTIMElem_Text);
    writer.Key("text_elem_content");
    writer.String(content.c_str(), static_cast<rapidjson::SizeType>(content.size()));
  }
  writer.EndObject();
  writer.EndArray();
  writer.EndObject();
  return std::string(buffer.GetString(), buffer.GetSize());
}

bool ImManagerImpl::SendTIMMessage(int conv_type, const std::string& conv_id, const std::string& content,
                                   int event, int elem_type, void* user_data) {
  std::string json = BuildMessageJson(conv_type, conv_id, CopyCredentials().usr_id, content, elem_type);
  ImSendTask* in_flight = new ImSendTask();
  in_flight->event = event;
  in_flight->conv_type = conv_type;
  in_flight->conv_id = conv_id;
  in_flight->manager = this;
  in_flight->user_data = user_data;
  // The answer is not read: the record belongs to the SDK until its
  // callback, and the outcome is only what that callback says.
  TIMMsgSendNewMsg(conv_id.c_str(), conv_type, json.c_str(), &OnTIMSendMsgCallback, in_flight);
  return true;
}

void ImManagerImpl::SendC2CTextMessage(const std::string& usr_id, const std::string& text) {
  if (!is_in_group_) return;
  SendTIMMessage(kTIMConv_C2C, usr_id, text, IMEvent_SendC2CText, kTIMElem_Text, nullptr);
}

void ImManagerImpl::SendGroupTextMessage(const std::string& text) {
  SendTIMMessage(kTIMConv_Group, CopyCredentials().group_id, text, IMEvent_SendGroupText, kTIMElem_Text,
                 nullptr);
}

void ImManagerImpl::SendC2CCustomMessage(const std::string& usr_id, const char* data, int) {
  SendTIMMessage(kTIMConv_C2C, usr_id, CustomContent(data), IMEvent_SendC2CCustom, kTIMElem_Custom, nullptr);
}

void ImManagerImpl::SendGroupCustomMessage(const char* data, int, void*) {
  SendTIMMessage(kTIMConv_Group, CopyCredentials().group_id, CustomContent(data), IMEvent_SendGroupCustom,
                 kTIMElem_Custom, nullptr);
}

void ImManagerImpl::SendWhiteBoardData(const char* data, int length, void* user_data) {
  Log(L"SendWhiteBoardData:%s", Wide(DataText(data, length)).c_str());
  // Null data or a negative length send empty data: the host still gets its
  // one outcome for the call.
  const int size = (data && length > 0) ? length : 0;
  std::unique_ptr<ImSendTask> task(new ImSendTask());
  task->data.reset(new char[size + 1]());
  if (size > 0) std::memcpy(task->data.get(), data, static_cast<size_t>(size));
  task->length = size;
  task->conv_type = kTIMConv_Group;
  task->conv_id = CopyCredentials().group_id;
  task->event = IMEvent_SendGroupCustom;
  task->elem_type = kTIMElem_Custom;
  task->user_data = user_data;

  {
    // Decided under queue_lock_: while the group is not joined, or while a
    // flush still has records of this thread to send, the record joins the
    // queue behind them; a post now could overtake them. is_in_group_ is
    // set before the join's flush takes the lock, so a record appended here
    // is always found by that flush.
    base::AutoLock hold(queue_lock_);
    if (!is_in_group_ || flushing_ || !pending_sends_.empty()) {
      task->leaves = group_leaves_;
      pending_sends_.push_back(std::move(task));
      return;
    }
  }
  ImSendTask* posted = task.release();
  // Only a full queue refuses a post to a living thread; the record would
  // be lost there, so it is freed rather than leaked.
  if (!PostTask(IMTask_SendWhiteBoardData, reinterpret_cast<WPARAM>(posted))) delete posted;
}

void ImManagerImpl::OnSendWhiteBoardDataTask(std::unique_ptr<ImSendTask> task) {
  if (!task) return;
  const std::string content = task->data ? std::string(task->data.get()) : std::string();
  const bool sent =
      SendTIMMessage(task->conv_type, task->conv_id, content, task->event, task->elem_type, task->user_data);
  task.reset();
  Log(L"OnSendWhiteBoardDataTask, ret: %d", sent ? 1 : 0);
}

void ImManagerImpl::EnterGroup() {
  base::AutoLock hold(queue_lock_);
  is_in_group_ = true;
  leaves_at_join_ = group_leaves_;
}

void ImManagerImpl::LeaveGroup() {
  base::AutoLock hold(queue_lock_);
  is_in_group_ = false;
  ++group_leaves_;
}

void ImManagerImpl::FlushPendingSends() {
  // One record at a time, sent without queue_lock_ held: sending takes other
  // locks, and the SDK may answer at once. flushing_ keeps new sends queued
  // behind the records still to go, so that order holds across the join.
  {
    base::AutoLock hold(queue_lock_);
    if (flushing_) return;  // the running flush sends what is queued
    flushing_ = true;
  }
  for (;;) {
    std::unique_ptr<ImSendTask> task;
    {
      base::AutoLock hold(queue_lock_);
      // Records queued after the group was left wait for the next join,
      // even while a flush of the join before is still under way; the
      // records ahead of them were sent while in the group and still go.
      if (pending_sends_.empty() || pending_sends_.front()->leaves > leaves_at_join_) {
        flushing_ = false;
        return;
      }
      task = std::move(pending_sends_.front());
      pending_sends_.pop_front();
    }
    OnSendWhiteBoardDataTask(std::move(task));
  }
}

void ImManagerImpl::HandleTIMSendMsgCallback(ImSendTask* task, int code, const char* desc) {
  std::unique_ptr<ImSendTask> owned(task);
  const char* text = desc ? desc : "";
  {
    base::AutoLock hold(event_lock_);
    ImManagerEvent* callback = event_callback_;
    if (callback) callback->OnImEvent(owned->event, code, text);
  }
  {
    base::AutoLock hold(whiteboard_lock_);
    if (whiteboard_callback_) whiteboard_callback_->OnSendWhiteBoardDataResult(code, text, owned->user_data);
  }
}

// ---- receiving ----

void ImManagerImpl::HandleTIMRecvNewMsgCallback(const char* json) {
  if (!is_logged_in_ || !json) return;
  // The parse recurses once a level: a batch nested deep enough would end
  // the process on the SDK's thread. Such a batch is no message of ours.
  if (NestsDeeperThan(json, kMaxBatchDepth)) {
    Log(L"HandleTIMRecvNewMsgCallback: batch nested deeper than %d levels, dropped", kMaxBatchDepth);
    return;
  }
  rapidjson::Document document(nullptr, 1024);
  document.Parse(json);
  if (document.HasParseError()) return;
  Log(L"HandleTIMRecvNewMsgCallback:%s", Wide(json).c_str());
  if (!document.IsArray()) return;

  const Credentials own = CopyCredentials();
  for (const rapidjson::Value& message : document.GetArray()) {
    if (!message.IsObject()) continue;
    bool has_conv_id = false;
    std::string conv_id;
    std::string sender;
    auto member = message.FindMember("message_conv_id");
    if (member != message.MemberEnd() && member->value.IsString()) {
      has_conv_id = true;
      conv_id.assign(member->value.GetString(), member->value.GetStringLength());
    }
    member = message.FindMember("message_sender");
    if (member != message.MemberEnd() && member->value.IsString()) {
      sender.assign(member->value.GetString(), member->value.GetStringLength());
    }
    int conv_type = 0;
    member = message.FindMember("message_conv_type");
    if (member != message.MemberEnd() && member->value.IsNumber()) conv_type = NumberAsInt(member->value);

    // A group message passes only for our group. A one-to-one message has
    // the peer's id as its conversation, never the group's, so it is not put
    // to that test. Our own messages pass neither way.
    if (conv_type != kTIMConv_C2C && (!has_conv_id || conv_id != own.group_id)) continue;
    if (sender == own.usr_id) continue;

    member = message.FindMember("message_elem_array");
    if (member == message.MemberEnd() || !member->value.IsArray()) continue;
    for (const rapidjson::Value& element : member->value.GetArray()) {
      if (!element.IsObject()) continue;
      int elem_type = kTIMElem_Text;
      auto field = element.FindMember("elem_type");
      if (field != element.MemberEnd() && field->value.IsNumber()) elem_type = NumberAsInt(field->value);
      if (elem_type == kTIMElem_Text) {
        field = element.FindMember("text_elem_content");
        if (field == element.MemberEnd() || !field->value.IsString()) continue;
        const char* text = field->value.GetString();
        if (conv_type == kTIMConv_C2C) {
          base::AutoLock hold(event_lock_);
          ImManagerEvent* callback = event_callback_;
          if (callback) callback->OnRecvC2CTextMessage(sender.c_str(), text);
        } else if (conv_type == kTIMConv_Group) {
          base::AutoLock hold(event_lock_);
          ImManagerEvent* callback = event_callback_;
          if (callback) callback->OnRecvGroupTextMessage(own.group_id.c_str(), sender.c_str(), text);
        }
      } else if (elem_type == kTIMElem_Custom) {
        field = element.FindMember("custom_elem_data");
        if (field == element.MemberEnd() || !field->value.IsString()) continue;
        const char* data = field->value.GetString();
        const int length = static_cast<int>(field->value.GetStringLength());
        if (conv_type == kTIMConv_C2C) {
          base::AutoLock hold(event_lock_);
          ImManagerEvent* callback = event_callback_;
          if (callback) callback->OnRecvC2CCustomMessage(sender.c_str(), data, length);
        } else if (conv_type == kTIMConv_Group) {
          HandleRecvGroupCustomMsg(conv_id, sender, data, length);
        }
      }
    }
  }
}

void ImManagerImpl::HandleRecvGroupCustomMsg(const std::string& group_id, const std::string& sender,
                                             const char* data, int length) {
  base::AutoLock hold(whiteboard_lock_);
  if (whiteboard_callback_) {
    Log(L"OnRecvWhiteBoardData in HandleRecvGroupCustomMsg: %s", Wide(DataText(data, length)).c_str());
    whiteboard_callback_->OnRecvWhiteBoardData(group_id.c_str(), sender.c_str(), data, length);
    return;
  }
  Log(L"HandleRecvGroupCustomMsg: push msg to cache: %s", Wide(DataText(data, length)).c_str());
  std::unique_ptr<CachedWhiteBoardMsg> cached(new CachedWhiteBoardMsg());
  if (data && length > 0) {
    cached->data.reset(new char[length]);
    std::memcpy(cached->data.get(), data, static_cast<size_t>(length));
    cached->length = length;
  }
  recv_cache_.push_back(std::move(cached));
}

void ImManagerImpl::SetWhiteBoardCallback(WhiteBoardEvent* callback) {
  if (!is_logged_in_) PostTask(IMTask_Login);
  Log(L"SetWhiteBoardCallback:0x%x", static_cast<unsigned>(reinterpret_cast<uintptr_t>(callback)));
  const Credentials own = CopyCredentials();
  base::AutoLock hold(whiteboard_lock_);
  whiteboard_callback_ = callback;
  if (!callback) return;
  while (!recv_cache_.empty()) {
    std::unique_ptr<CachedWhiteBoardMsg> cached = std::move(recv_cache_.front());
    recv_cache_.pop_front();
    Log(L"OnRecvWhiteBoardData in SetWhiteBoardCallback: %s",
        Wide(DataText(cached->data.get(), cached->length)).c_str());
    callback->OnRecvWhiteBoardData(own.group_id.c_str(), own.usr_id.c_str(), cached->data.get(),
                                   cached->length);
  }
}
