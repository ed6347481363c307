// The send path: data that waits for the group, the message JSON on the
// wire, the outcome to both interfaces.
#include <rapidjson/document.h>

#include <atomic>
#include <ctime>
#include <functional>
#include <thread>

#include "base/scoped_handle.h"
#include "im/im_test_support.h"

namespace im_test {
namespace {

using imsdk_control::Call;

// The message JSON with its two time stamps, checked against [before, after], cut out.
std::string WithoutTimes(std::string json, int64_t before, int64_t after) {
  for (const std::string key : {"\"message_client_time\":", "\"message_server_time\":"}) {
    const size_t begin = json.find(key);
    if (begin == std::string::npos) return "<missing time>";
    const size_t at = begin + key.size(), end = json.find(',', at);
    const int64_t time = std::stoll(json.substr(at, end - at));
    if (time < before || time > after) return "<time out of range>";
    json.replace(at, end - at, "T");
  }
  return json;
}

// The custom element data of a recorded send.
std::string SentData(const Call& call) {
  rapidjson::Document doc;
  doc.Parse(call.arg(2).c_str());
  if (doc.HasParseError() || !doc.IsObject()) return "<unparsable>";
  const rapidjson::Value& data = doc["message_elem_array"][0]["custom_elem_data"];
  return std::string(data.GetString(), data.GetStringLength());
}

class ImSendTest : public ImManagerTest {
 protected:
  // Logs in with the join held back until ReleaseJoin.
  void LogInHoldingTheJoin() {
    ImsdkHoldCallbacks("TIMGroupJoin", 1);
    manager_->SetWhiteBoardCallback(&journal_);
    LogIn();
    ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupJoin", 1, kWait));
  }
  void ReleaseJoin() { ImsdkHoldCallbacks("TIMGroupJoin", 0); }
};

TEST_F(ImSendTest, WhiteBoardMessageJsonHasTheKeysInOrderAndEscapesOnlyWhatJsonNeeds) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&journal_);
  const std::string data = std::string("say \"hi\" \\ back\n\t\x01\x1f") + "\xc3\xa9\xe2\x82\xac\xff\x80";
  const int64_t before = static_cast<int64_t>(std::time(nullptr));
  manager_->SendWhiteBoardData(data.c_str(), static_cast<int>(data.size()), nullptr);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  const int64_t after = static_cast<int64_t>(std::time(nullptr));
  const Call sent = CallsOf("TIMMsgSendNewMsg")[0];
  EXPECT_EQ(sent.arg(0), kGroup);
  EXPECT_EQ(sent.arg(1), "2");
  // The writer's escapes, and high bytes as they are; parsed back, the data is what was sent.
  EXPECT_EQ(
      WithoutTimes(sent.arg(2), before, after),
      "{\"message_conv_type\":2,\"message_conv_id\":\"group-1\",\"message_sender\":\"alice\","
      "\"message_client_time\":T,\"message_server_time\":T,\"message_elem_array\":[{\"elem_type\":3,"
      "\"custom_elem_data\":\"say \\\"hi\\\" \\\\ back\\n\\t\\u0001\\u001F\xc3\xa9\xe2\x82\xac\xff\x80\","
      "\"custom_elem_desc\":\"\",\"custom_elem_ext\":\"\",\"custom_elem_sound\":\"\"}]}");
  EXPECT_EQ(SentData(sent), data);
  EXPECT_TRUE(log_.WaitFor(L"OnSendWhiteBoardDataTask, ret: 1", 1, kWait));
}

TEST_F(ImSendTest, DataIsCutAtTheFirstNulAndEmptyOrNullDataSendsAnEmptyElement) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&journal_);
  const char with_nul[] = {'a', 'b', '\0', 'c', 'd'};
  int tags[3];
  manager_->SendWhiteBoardData(with_nul, 5, &tags[0]);
  manager_->SendWhiteBoardData("", 0, &tags[1]);
  manager_->SendWhiteBoardData(nullptr, 12, &tags[2]);
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 3));  // every call, the null one too
  const std::vector<Call> sent = CallsOf("TIMMsgSendNewMsg");
  const std::vector<Received> results = journal_.Of(Received::kSendResult);
  ASSERT_EQ(sent.size(), 3u);
  const char* want[] = {"ab", "", ""};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(SentData(sent[i]), want[i]);
    EXPECT_EQ(results[i].user_data, &tags[i]);
  }
  EXPECT_TRUE(log_.Contains(L"SendWhiteBoardData:ab"));
}

// Before the join whiteboard data waits and goes out in order inside the join
// callback; a group text goes at once from the caller's thread, a one-to-one
// text is dropped. A stroke sent while the join is being reported, before
// the flush, still goes out behind the earlier ones.
TEST_F(ImSendTest, SendsBeforeTheJoinWaitAndGoOutInOrderInsideTheJoinCallback) {
  // Holds the join's report until the test has sent once more, and then
  // gives a stroke that would overtake the flush the time to do it.
  struct JoinGate : Journal {
    void OnImEvent(int event, int code, const char* desc) override {
      Journal::OnImEvent(event, code, desc);
      if (event != IMEvent_JoinGroup) return;
      SetEvent(joined.get());
      WaitForSingleObject(sent.get(), kWait);
      ImsdkWaitForCalls("TIMMsgSendNewMsg", 2, 300);
    }
    base::ScopedHandle joined{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    base::ScopedHandle sent{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  } gate;
  ImsdkHoldCallbacks("TIMGroupJoin", 1);
  manager_->SetWhiteBoardCallback(&journal_);
  manager_->SetEventCallback(&gate);
  manager_->LogInAndJoinGroup(kAppId, kAccountType, kUser, kSign, kGroup);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupJoin", 1, kWait));
  int tags[4];
  const char* data[] = {"first", "second", "third", "fourth"};
  for (int i = 0; i < 3; ++i)
    manager_->SendWhiteBoardData(data[i], static_cast<int>(strlen(data[i])), &tags[i]);
  manager_->SendC2CTextMessage("bob", "dropped");
  manager_->SendGroupTextMessage("goes anyway");
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  std::vector<Call> sent = CallsOf("TIMMsgSendNewMsg");
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].arg(1), "2");
  EXPECT_EQ(sent[0].thread_id, GetCurrentThreadId());

  ReleaseJoin();
  ASSERT_EQ(WaitForSingleObject(gate.joined.get(), kWait), WAIT_OBJECT_0);
  manager_->SendWhiteBoardData(data[3], 6, &tags[3]);
  SetEvent(gate.sent.get());
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, 5));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  sent = CallsOf("TIMMsgSendNewMsg");
  ASSERT_EQ(sent.size(), 5u);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(SentData(sent[i + 1]), data[i]);
    EXPECT_EQ(sent[i + 1].during_callback_of, "TIMGroupJoin");
  }
  EXPECT_TRUE(gate.Events(IMEvent_SendC2CText).empty());
  std::vector<void*> order;
  for (const Received& r : journal_.Of(Received::kSendResult)) order.push_back(r.user_data);
  EXPECT_EQ(order, (std::vector<void*>{nullptr, &tags[0], &tags[1], &tags[2], &tags[3]}));
  EXPECT_EQ(log_.Count(L"OnSendWhiteBoardDataTask, ret: 1"), 4);
}

// Strokes from one thread reach the SDK in the order of the calls, whether
// they were flushed by the join or posted after it.
TEST_F(ImSendTest, SendsFromSeveralThreadsAcrossTheJoinAreEachSentOnceInEachThreadsOrder) {
  LogInHoldingTheJoin();
  constexpr int kThreads = 3, kEach = 200;
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> senders;
  for (int t = 0; t < kThreads; ++t) {
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
  ReleaseJoin();
  for (std::thread& sender : senders) sender.join();
  ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, kThreads * kEach, -1, 20000));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  std::vector<std::vector<int>> sequences(kThreads);
  for (const Call& call : CallsOf("TIMMsgSendNewMsg")) {
    const std::string data = SentData(call);
    sequences[std::stoi(data)].push_back(std::stoi(data.substr(data.find(':') + 1)));
  }
  std::vector<int> expected(kEach);
  for (int i = 0; i < kEach; ++i) expected[i] = i;
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(sequences[t], expected) << "thread " << t;
}

// A flush still sending when the quit takes effect sends what was queued
// before the quit; what comes after it waits for the next join.
TEST_F(ImSendTest, SendsAfterTheQuitWaitForTheNextJoinEvenWhileAFlushRuns) {
  LogInHoldingTheJoin();
  manager_->SendWhiteBoardData("before", 6, nullptr);
  ImsdkBlockCalls("TIMMsgSendNewMsg", 1);
  ReleaseJoin();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));  // the flush is inside its send
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", 1, kWait));  // out of the group now
  manager_->SendWhiteBoardData("after", 5, nullptr);
  ImsdkBlockCalls("TIMMsgSendNewMsg", 0);
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup, 1));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  std::vector<Call> sent = CallsOf("TIMMsgSendNewMsg");
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(SentData(sent[0]), "before");
  manager_->ReLogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 2, kWait));
  EXPECT_EQ(SentData(CallsOf("TIMMsgSendNewMsg")[1]), "after");
}

TEST_F(ImSendTest, ASendBeforeAnyLoginIsFreedUnsentWithoutOutcome) {
  manager_->SetWhiteBoardCallback(&journal_);
  manager_->SendWhiteBoardData("too early", 9, nullptr);
  LogInAndWaitForJoin();
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);
  EXPECT_TRUE(journal_.Of(Received::kSendResult).empty());
}

TEST_F(ImSendTest, TheOutcomeOfEverySendReachesBothInterfacesEventFirst) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&journal_);
  int tag = 0;
  const struct {
    std::function<void()> send;
    int event;
    const char *conv, *conv_type;
    void* user_data;
    const char* element;  // the start of the first element
  } cases[] = {
      {[&] { manager_->SendWhiteBoardData("board", 5, &tag); }, IMEvent_SendGroupCustom, kGroup, "2", &tag,
       "{\"elem_type\":3,\"custom_elem_data\":\"board\""},
      {[&] { manager_->SendGroupTextMessage("group text"); }, IMEvent_SendGroupText, kGroup, "2", nullptr,
       "{\"elem_type\":0,\"text_elem_content\":\"group text\"}"},
      {[&] { manager_->SendC2CTextMessage("bob", "private text"); }, IMEvent_SendC2CText, "bob", "1", nullptr,
       "{\"elem_type\":0,\"text_elem_content\":\"private text\"}"},
      {[&] { manager_->SendC2CCustomMessage("bob", "private data", 3); }, IMEvent_SendC2CCustom, "bob", "1",
       nullptr, "{\"elem_type\":3,\"custom_elem_data\":\"private data\""},
      {[&] { manager_->SendGroupCustomMessage("group data", 1, &tag); }, IMEvent_SendGroupCustom, kGroup, "2",
       nullptr, "{\"elem_type\":3,\"custom_elem_data\":\"group data\""},
  };
  ImsdkScriptCallback("TIMMsgSendNewMsg", 80001, "dirty word");
  for (size_t i = 0; i < 5; ++i) {
    const size_t before = journal_.All().size();
    cases[i].send();
    ASSERT_TRUE(journal_.WaitFor(Received::kSendResult, i + 1));
    const std::vector<Received> all = journal_.All();
    ASSERT_EQ(all.size(), before + 2);
    const Received &event = all[before], &result = all[before + 1];
    EXPECT_EQ(event.event, cases[i].event) << i;
    EXPECT_EQ(event.code, i == 0 ? 80001 : 0);
    EXPECT_EQ(event.desc, i == 0 ? "dirty word" : event.desc);
    EXPECT_EQ(result.code, event.code);
    EXPECT_EQ(result.desc, event.desc);
    EXPECT_EQ(result.user_data, cases[i].user_data);
    const Call sent = CallsOf("TIMMsgSendNewMsg")[i];
    EXPECT_EQ(sent.arg(0), cases[i].conv);
    EXPECT_EQ(sent.arg(1), cases[i].conv_type);
    EXPECT_NE(sent.arg(2).find(std::string("\"message_elem_array\":[") + cases[i].element), std::string::npos)
        << sent.arg(2);
    // The in-flight record, not the manager, is the SDK's user_data.
    EXPECT_NE(sent.arg(4), PointerText(manager_));
  }
}

}  // namespace
}  // namespace im_test
