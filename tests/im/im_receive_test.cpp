// The receive path: which messages pass, what reaches the host, and the
// cache of whiteboard data.
#include "im/im_test_support.h"

namespace im_test {
namespace {

std::wstring Widen(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

class ImReceiveTest : public ImManagerTest {
 protected:
  void SetUp() override {
    ImManagerTest::SetUp();
    LogInAndWaitForJoin();
  }
  // Delivers one batch and waits until the manager is done with it.
  void Deliver(const std::string& batch) {
    ImsdkDeliverMessages(batch.c_str());
    ASSERT_TRUE(ImsdkWaitIdle(kWait));
  }
  // "group:sender:data:length" of each message of `kind` so far; "here" marks
  // one that came on the test's thread.
  std::vector<std::string> Got(Received::Kind kind = Received::kWhiteBoardData) {
    std::vector<std::string> out;
    for (const Received& r : journal_.Of(kind)) {
      out.push_back(r.group_id + ":" + r.sender + ":" + r.data + ":" + std::to_string(r.length) +
                    (r.thread_id == GetCurrentThreadId() ? ":here" : ""));
    }
    return out;
  }
};

TEST_F(ImReceiveTest, OnlyGroupMessagesFromOthersPassAndTheBatchIsLoggedOnce) {
  manager_->SetWhiteBoardCallback(&journal_);
  const std::string batch = Batch(
      {CustomMessage("group-9", "bob", "other group"), CustomMessage(kGroup, kUser, "my own"),
       CustomMessage(kGroup, "bob", "for us"),
       ImMessage(
           kGroup, "carol",
           "{\"elem_type\":3,\"custom_elem_data\":\"one\"},{\"elem_type\":3,\"custom_elem_data\":\"two\"}",
           2)});
  Deliver(batch);
  // Two custom elements in one message give two deliveries, in order.
  EXPECT_EQ(Got(),
            (std::vector<std::string>{"group-1:bob:for us:6", "group-1:carol:one:3", "group-1:carol:two:3"}));
  EXPECT_EQ(log_.Count(L"HandleTIMRecvNewMsgCallback:" + Widen(batch)), 1);
  EXPECT_EQ(log_.Count(L"OnRecvWhiteBoardData in HandleRecvGroupCustomMsg: for us"), 1);
}

TEST_F(ImReceiveTest, MissingKeysAndWrongValueTypesAreSkippedWithoutAWord) {
  manager_->SetWhiteBoardCallback(&journal_);
  const size_t lines_before = log_.Messages(L"ImManagerImpl").size();
  Deliver("this is not json");
  EXPECT_EQ(log_.Messages(L"ImManagerImpl").size(), lines_before);
  const std::string head =
      "{\"message_conv_type\":2,\"message_conv_id\":\"group-1\",\"message_sender\":\"bob\",";
  Deliver(
      "["
      // no message_conv_type: type 0, its custom element is skipped
      "{\"message_conv_id\":\"group-1\",\"message_sender\":\"bob\","
      "\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":\"no type\"}]},"
      // conversation id of the wrong type, or none: the group test fails
      "{\"message_conv_type\":2,\"message_conv_id\":1,\"message_sender\":\"bob\","
      "\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":\"numeric conv\"}]},"
      "{\"message_conv_type\":2,\"message_sender\":\"bob\","
      "\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":\"no conv\"}]}," +
      // custom data of the wrong type, element type unknown, elements not an array
      head +
      "\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":5},"
      "{\"elem_type\":1,\"text_elem_content\":\"x\"},{\"elem_type\":3,\"custom_elem_data\":\"kept\"}]}," +
      head + "\"message_elem_array\":{\"elem_type\":3}}," +
      // an element without elem_type is text
      head +
      "\"message_elem_array\":[{\"text_elem_content\":\"untyped text\"},"
      "{\"elem_type\":0,\"text_elem_content\":7}]},42]");
  EXPECT_EQ(Got(), std::vector<std::string>{"group-1:bob:kept:4"});
  EXPECT_EQ(Got(Received::kGroupText), std::vector<std::string>{"group-1:bob:untyped text:12"});
  EXPECT_TRUE(journal_.Of(Received::kC2CText).empty());
  EXPECT_TRUE(journal_.Of(Received::kC2CCustom).empty());
  // A document that is no array has no messages, but it is logged.
  Deliver("{\"message_conv_type\":2}");
  EXPECT_TRUE(log_.Contains(L"HandleTIMRecvNewMsgCallback:{\"message_conv_type\":2}"));
}

TEST_F(ImReceiveTest, GroupTextAndOneToOneMessagesGoToTheEventInterface) {
  Deliver(Batch({TextMessage(kGroup, "bob", "hello group"), TextMessage("bob", "bob", "hello alice", 1),
                 CustomMessage("bob", "bob", "c2c data", 1), TextMessage(kUser, kUser, "from myself", 1)}));
  std::vector<std::string> got;
  for (const Received& r : journal_.All()) {
    if (r.kind != Received::kImEvent) {
      got.push_back(std::to_string(r.kind) + ":" + r.group_id + ":" + r.sender + ":" + r.data + ":" +
                    std::to_string(r.length));
    }
  }
  EXPECT_EQ(got, (std::vector<std::string>{"2:group-1:bob:hello group:11", "1::bob:hello alice:11",
                                           "3::bob:c2c data:8"}));
  // One-to-one data is no whiteboard data and is not cached.
  manager_->SetWhiteBoardCallback(&journal_);
  EXPECT_TRUE(Got().empty());
}

// Cached until an interface is set (clearing it keeps the cache), then
// delivered in order on the setting thread with the own user as sender.
TEST_F(ImReceiveTest, WhiteBoardDataIsCachedUntilAnInterfaceIsSetThenDeliveredInOrder) {
  Deliver(Batch({CustomMessage(kGroup, "bob", "early 1")}));
  manager_->SetWhiteBoardCallback(nullptr);
  Deliver(Batch({CustomMessage(kGroup, "carol", "early 2")}));
  EXPECT_EQ(log_.Count(L"HandleRecvGroupCustomMsg: push msg to cache: early 1"), 1);
  EXPECT_EQ(log_.Count(L"HandleRecvGroupCustomMsg: push msg to cache: early 2"), 1);
  EXPECT_TRUE(Got().empty());
  manager_->SetWhiteBoardCallback(&journal_);
  const std::vector<std::string> flushed = {"group-1:alice:early 1:7:here", "group-1:alice:early 2:7:here"};
  EXPECT_EQ(Got(), flushed);
  EXPECT_TRUE(log_.Contains(L"OnRecvWhiteBoardData in SetWhiteBoardCallback: early 2"));
  // The cache is empty now; later data is delivered live.
  manager_->SetWhiteBoardCallback(&journal_);
  EXPECT_EQ(Got(), flushed);
  Deliver(Batch({CustomMessage(kGroup, "bob", "live")}));
  EXPECT_EQ(Got().size(), 3u);
  EXPECT_EQ(Got()[2], "group-1:bob:live:4");
  // Cleared again: later data is cached again.
  manager_->SetWhiteBoardCallback(nullptr);
  Deliver(Batch({CustomMessage(kGroup, "bob", "kept")}));
  EXPECT_EQ(log_.Count(L"HandleRecvGroupCustomMsg: push msg to cache: kept"), 1);
  EXPECT_EQ(Got().size(), 3u);
}

// Delivers a live batch from inside the first cached delivery and returns
// once the SDK thread has begun handling it.
class LiveDuringFlush : public WhiteBoardEvent {
 public:
  LiveDuringFlush(Journal* journal, testing_support::LogCapture* log) : journal_(journal), log_(log) {}
  void OnSendWhiteBoardDataResult(int, const char*, void*) override {}
  void OnRecvWhiteBoardData(const char* group_id, const char* sender, const char* data, int length) override {
    journal_->OnRecvWhiteBoardData(group_id, sender, data, length);
    if (sent_live_) return;
    sent_live_ = true;
    const std::string batch = Batch({CustomMessage(kGroup, "bob", "live")});
    ImsdkDeliverMessages(batch.c_str());
    reached_ = log_->WaitFor(L"HandleTIMRecvNewMsgCallback:" + Widen(batch), 1, kWait);
  }
  bool reached_ = false;

 private:
  Journal* journal_;
  testing_support::LogCapture* log_;
  bool sent_live_ = false;
};

TEST_F(ImReceiveTest, LiveDataWaitsBehindAFlushOfTheCache) {
  Deliver(Batch({CustomMessage(kGroup, "bob", "cached 1")}));
  Deliver(Batch({CustomMessage(kGroup, "bob", "cached 2")}));
  LiveDuringFlush board(&journal_, &log_);
  manager_->SetWhiteBoardCallback(&board);
  EXPECT_TRUE(board.reached_);
  ASSERT_TRUE(journal_.WaitFor(Received::kWhiteBoardData, 3));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Got(), (std::vector<std::string>{"group-1:alice:cached 1:8:here", "group-1:alice:cached 2:8:here",
                                             "group-1:bob:live:4"}));
  manager_->SetWhiteBoardCallback(nullptr);  // the interface dies with the test
}

TEST_F(ImReceiveTest, EmptyDataComesFromTheCacheAsNullAndEscapedDataDecodedWithItsByteLength) {
  Deliver(Batch({CustomMessage(kGroup, "bob", "")}));
  manager_->SetWhiteBoardCallback(&journal_);
  Deliver(Batch({CustomMessage(kGroup, "bob", ""), CustomMessage(kGroup, "bob", "a\\u0000b\\\"\xc3\xa9")}));
  const std::vector<Received> got = journal_.Of(Received::kWhiteBoardData);
  ASSERT_EQ(got.size(), 3u);
  EXPECT_TRUE(got[0].data_null);
  EXPECT_EQ(got[0].length, 0);
  EXPECT_FALSE(got[1].data_null);
  EXPECT_EQ(got[1].length, 0);
  EXPECT_EQ(got[2].length, 6);
  EXPECT_EQ(got[2].data, std::string("a\0b\"\xc3\xa9", 6));
}

}  // namespace
}  // namespace im_test
