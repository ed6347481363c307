// The send path: data that waits for the group, the message JSON on the
// wire, the outcome to both interfaces.
#include <rapidjson/document.h>

#include <atomic>
#include <ctime>
#include <set>
#include <thread>

#include "im/im_test_support.h"

namespace im_test {
namespace {

using imsdk_control::Call;

std::vector<std::string> Keys(const rapidjson::Value& object) {
  std::vector<std::string> keys;
  for (auto it = object.MemberBegin(); it != object.MemberEnd(); ++it) keys.push_back(it->name.GetString());
  return keys;
}

// The custom element data of a recorded send.
std::string SentData(const Call& call) {
  rapidjson::Document doc;
  doc.Parse(call.arg(2).c_str());
  if (doc.HasParseError() || !doc.IsObject()) return "<unparsable>";
  const rapidjson::Value& element = doc["message_elem_array"][0];
  return std::string(element["custom_elem_data"].GetString(), element["custom_elem_data"].GetStringLength());
}

TEST_F(ImManagerTest, WhiteBoardMessageJsonHasTheKeysInOrderAndEscapesOnlyWhatJsonNeeds) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&journal_);
  const std::string data = std::string("say \"hi\" \\ back\n\t\x01\x1f") + "\xc3\xa9\xe2\x82\xac\xff\x80";
  const int64_t before = static_cast<int64_t>(std::time(nullptr));
  manager_->SendWhiteBoardData(data.c_str(), static_cast<int>(data.size()), nullptr);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  const int64_t after = static_cast<int64_t>(std::time(nullptr));
  const Call sent = imsdk_control::Calls("TIMMsgSendNewMsg")[0];
  EXPECT_EQ(sent.arg(0), kGroup);
  EXPECT_EQ(sent.arg(1), "2");
  const std::string& json = sent.arg(2);

  // The writer's escapes, and high bytes as they are.
  EXPECT_NE(json.find("say \\\"hi\\\" \\\\ back\\n\\t\\u0001\\u001F\xc3\xa9\xe2\x82\xac\xff\x80\""),
            std::string::npos)
      << json;

  rapidjson::Document doc;
  doc.Parse(json.c_str());
  ASSERT_FALSE(doc.HasParseError()) << json;
  EXPECT_EQ(Keys(doc),
            (std::vector<std::string>{"message_conv_type", "message_conv_id", "message_sender",
                                      "message_client_time", "message_server_time", "message_elem_array"}));
  EXPECT_EQ(doc["message_conv_type"].GetInt(), 2);
  EXPECT_STREQ(doc["message_conv_id"].GetString(), kGroup);
  EXPECT_STREQ(doc["message_sender"].GetString(), kUser);
  for (const char* key : {"message_client_time", "message_server_time"}) {
    ASSERT_TRUE(doc[key].IsInt64());
    EXPECT_GE(doc[key].GetInt64(), before);
    EXPECT_LE(doc[key].GetInt64(), after);
  }
  ASSERT_EQ(doc["message_elem_array"].Size(), 1u);
  const rapidjson::Value& element = doc["message_elem_array"][0];
  EXPECT_EQ(Keys(element), (std::vector<std::string>{"elem_type", "custom_elem_data", "custom_elem_desc",
                                                     "custom_elem_ext", "custom_elem_sound"}));
  EXPECT_EQ(element["elem_type"].GetInt(), 3);
  EXPECT_EQ(
      std::string(element["custom_elem_data"].GetString(), element["custom_elem_data"].GetStringLength()),
      data);
  for (const char* key : {"custom_elem_desc", "custom_elem_ext", "custom_elem_sound"}) {
    EXPECT_STREQ(element[key].GetString(), "");
  }
  EXPECT_TRUE(log_.WaitFor(L"OnSendWhiteBoardDataTask, ret: 1", 1, kWait));
}

TEST_F(ImManagerTest, DataIsCutAtTheFirstNulAndEmptyOrNullDataSendsAnEmptyElement) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&journal_);
  const char with_nul[] = {'a', 'b', '\0', 'c', 'd'};
  int tags[3];
  manager_->SendWhiteBoardData(with_nul, 5, &tags[0]);
  manager_->SendWhiteBoardData("", 0, &tags[1]);
  manager_->SendWhiteBoardData(nullptr, 12, &tags[2]);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 3, kWait));
  const std::vector<Call> sent = imsdk_control::Calls("TIMMsgSendNewMsg");
  EXPECT_EQ(SentData(sent[0]), "ab");
  EXPECT_EQ(SentData(sent[1]), "");
  EXPECT_EQ(SentData(sent[2]), "");
  EXPECT_TRUE(log_.Contains(L"SendWhiteBoardData:ab"));
  // Every call, the null one too, has its outcome.
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 3));
  const std::vector<Received> results = journal_.Of(Received::kSendResult);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(results[i].user_data, &tags[i]);
}

TEST_F(ImManagerTest, SendsBeforeTheJoinWaitAndGoOutInOrderInsideTheJoinCallback) {
  ImsdkHoldCallbacks("TIMGroupJoin", 1);
  manager_->SetEventCallback(&journal_);
  manager_->SetWhiteBoardCallback(&journal_);
  LogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupJoin", 1, kWait));
  int tags[3];
  manager_->SendWhiteBoardData("first", 5, &tags[0]);
  manager_->SendWhiteBoardData("second", 6, &tags[1]);
  manager_->SendWhiteBoardData("third", 5, &tags[2]);
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);

  ImsdkHoldCallbacks("TIMGroupJoin", 0);
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 3));
  const std::vector<Call> sent = imsdk_control::Calls("TIMMsgSendNewMsg");
  ASSERT_EQ(sent.size(), 3u);
  const char* expected[] = {"first", "second", "third"};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(SentData(sent[i]), expected[i]);
    EXPECT_EQ(sent[i].during_callback_of, "TIMGroupJoin");
  }
  // The join is reported before the flush, and the outcomes keep the order.
  const std::vector<Received> all = journal_.All();
  size_t join_at = all.size();
  size_t first_result_at = all.size();
  for (size_t i = 0; i < all.size(); ++i) {
    if (all[i].kind == Received::kImEvent && all[i].event == IMEvent_JoinGroup) join_at = i;
    if (all[i].kind == Received::kSendResult && first_result_at == all.size()) first_result_at = i;
  }
  EXPECT_LT(join_at, first_result_at);
  const std::vector<Received> results = journal_.Of(Received::kSendResult);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(results[i].user_data, &tags[i]);
  EXPECT_EQ(log_.Count(L"OnSendWhiteBoardDataTask, ret: 1"), 3);
}

TEST_F(ImManagerTest, SendsFromSeveralThreadsWhileTheJoinCompletesAreEachSentOnce) {
  ImsdkHoldCallbacks("TIMGroupJoin", 1);
  manager_->SetEventCallback(&journal_);
  manager_->SetWhiteBoardCallback(&journal_);
  LogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupJoin", 1, kWait));
  constexpr int kThreads = 3;
  constexpr int kEach = 100;
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> senders;
  std::set<std::string> expected;
  for (int t = 0; t < kThreads; ++t) {
    for (int i = 0; i < kEach; ++i) expected.insert(std::to_string(t) + ":" + std::to_string(i));
    senders.emplace_back([this, t, &ready, &go] {
      ++ready;
      while (!go) std::this_thread::yield();
      for (int i = 0; i < kEach; ++i) {
        const std::string data = std::to_string(t) + ":" + std::to_string(i);
        manager_->SendWhiteBoardData(data.c_str(), static_cast<int>(data.size()), nullptr);
      }
    });
  }
  while (ready < kThreads) std::this_thread::yield();
  go = true;
  // The join completes while the senders run: each record is flushed or
  // posted, none is left behind in the queue.
  ImsdkHoldCallbacks("TIMGroupJoin", 0);
  for (std::thread& sender : senders) sender.join();
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, kThreads * kEach, -1, 20000));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  std::multiset<std::string> sent;
  for (const Call& call : imsdk_control::Calls("TIMMsgSendNewMsg")) sent.insert(SentData(call));
  EXPECT_EQ(sent.size(), expected.size());
  EXPECT_EQ(std::set<std::string>(sent.begin(), sent.end()), expected);
}

TEST_F(ImManagerTest, ASendBeforeAnyLoginIsFreedUnsentWithoutOutcome) {
  manager_->SetEventCallback(&journal_);
  manager_->SetWhiteBoardCallback(&journal_);
  manager_->SendWhiteBoardData("too early", 9, nullptr);
  LogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 1));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);
  EXPECT_TRUE(journal_.Of(Received::kSendResult).empty());
}

TEST_F(ImManagerTest, TheOutcomeOfEverySendReachesBothInterfacesEventFirst) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&journal_);
  int tag = 0;
  ImsdkScriptCallback("TIMMsgSendNewMsg", 80001, "dirty word");
  manager_->SendWhiteBoardData("board", 5, &tag);
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 1));
  manager_->SendGroupTextMessage("group text");
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 2));
  manager_->SendC2CTextMessage("bob", "private text");
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 3));
  manager_->SendC2CCustomMessage("bob", "private data", 3);
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 4));
  manager_->SendGroupCustomMessage("group data", 1, &tag);
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 5));

  // Pairs of (event, result) in the order of the sends.
  std::vector<Received> outcomes;
  for (const Received& r : journal_.All()) {
    if (r.kind == Received::kSendResult || (r.kind == Received::kImEvent && r.event >= IMEvent_SendC2CText &&
                                            r.event <= IMEvent_SendGroupCustom)) {
      outcomes.push_back(r);
    }
  }
  ASSERT_EQ(outcomes.size(), 10u);
  const int events[] = {IMEvent_SendGroupCustom, IMEvent_SendGroupText, IMEvent_SendC2CText,
                        IMEvent_SendC2CCustom, IMEvent_SendGroupCustom};
  for (int i = 0; i < 5; ++i) {
    const Received& event = outcomes[2 * i];
    const Received& result = outcomes[2 * i + 1];
    ASSERT_EQ(event.kind, Received::kImEvent);
    ASSERT_EQ(result.kind, Received::kSendResult);
    EXPECT_EQ(event.event, events[i]);
    EXPECT_EQ(event.code, i == 0 ? 80001 : 0);
    EXPECT_EQ(result.code, event.code);
    EXPECT_EQ(result.desc, event.desc);
    EXPECT_EQ(result.user_data, i == 0 ? static_cast<void*>(&tag) : nullptr);
  }
  EXPECT_EQ(outcomes[0].desc, "dirty word");

  const std::vector<Call> sent = imsdk_control::Calls("TIMMsgSendNewMsg");
  ASSERT_EQ(sent.size(), 5u);
  // The in-flight record, not the manager, is the SDK's user_data.
  for (const Call& call : sent) EXPECT_NE(call.arg(4), PointerText(manager_));
  EXPECT_EQ(sent[1].arg(0), kGroup);
  EXPECT_EQ(sent[2].arg(0), "bob");
  EXPECT_EQ(sent[2].arg(1), "1");
  EXPECT_EQ(sent[3].arg(1), "1");
  EXPECT_EQ(sent[4].arg(1), "2");
  rapidjson::Document doc;
  doc.Parse(sent[2].arg(2).c_str());
  ASSERT_FALSE(doc.HasParseError());
  const rapidjson::Value& text = doc["message_elem_array"][0];
  EXPECT_EQ(Keys(text), (std::vector<std::string>{"elem_type", "text_elem_content"}));
  EXPECT_EQ(text["elem_type"].GetInt(), 0);
  EXPECT_STREQ(text["text_elem_content"].GetString(), "private text");
  EXPECT_EQ(doc["message_conv_type"].GetInt(), 1);
  EXPECT_EQ(SentData(sent[3]), "private data");
  EXPECT_EQ(SentData(sent[4]), "group data");
}

TEST_F(ImManagerTest, TextSendsBeforeTheJoin) {
  ImsdkHoldCallbacks("TIMGroupJoin", 1);
  manager_->SetEventCallback(&journal_);
  LogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupJoin", 1, kWait));
  manager_->SendC2CTextMessage("bob", "dropped");
  manager_->SendGroupTextMessage("goes anyway");
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  const std::vector<Call> sent = imsdk_control::Calls("TIMMsgSendNewMsg");
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].arg(1), "2");
  // On the caller's own thread.
  EXPECT_EQ(sent[0].thread_id, GetCurrentThreadId());
  ImsdkHoldCallbacks("TIMGroupJoin", 0);
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_SendGroupText, 1));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_TRUE(journal_.Events(IMEvent_SendC2CText).empty());
}

}  // namespace
}  // namespace im_test
