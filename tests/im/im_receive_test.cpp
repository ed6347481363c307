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
};

TEST_F(ImReceiveTest, OnlyGroupMessagesFromOthersPassAndTheBatchIsLoggedOnce) {
  manager_->SetWhiteBoardCallback(&journal_);
  const std::string batch = "[" + CustomMessage("group-9", "bob", "other group") + "," +
                            CustomMessage(kGroup, kUser, "my own") + "," +
                            CustomMessage(kGroup, "bob", "for us") + "," +
                            ImMessage(kGroup, "carol",
                                      "{\"elem_type\":3,\"custom_elem_data\":\"one\"},"
                                      "{\"elem_type\":3,\"custom_elem_data\":\"two\"}",
                                      2) +
                            "]";
  Deliver(batch);
  // Two custom elements in one message give two deliveries, in order.
  const std::vector<Received> got = journal_.Of(Received::kWhiteBoardData);
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].group_id, kGroup);
  EXPECT_EQ(got[0].sender, "bob");
  EXPECT_EQ(got[0].data, "for us");
  EXPECT_EQ(got[0].length, 6);
  EXPECT_NE(got[0].thread_id, GetCurrentThreadId());
  EXPECT_EQ(got[1].data, "one");
  EXPECT_EQ(got[2].data, "two");
  EXPECT_EQ(log_.Count(L"HandleTIMRecvNewMsgCallback:" + Widen(batch)), 1);
  EXPECT_EQ(log_.Count(L"OnRecvWhiteBoardData in HandleRecvGroupCustomMsg: for us"), 1);
}

TEST_F(ImReceiveTest, MissingKeysAndWrongValueTypesAreSkippedWithoutAWord) {
  manager_->SetWhiteBoardCallback(&journal_);
  const int lines_before = static_cast<int>(log_.Messages(L"ImManagerImpl").size());
  Deliver("this is not json");
  EXPECT_EQ(static_cast<int>(log_.Messages(L"ImManagerImpl").size()), lines_before);
  Deliver(
      "["
      // no message_conv_type: type 0, its custom element is skipped
      "{\"message_conv_id\":\"group-1\",\"message_sender\":\"bob\","
      "\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":\"no type\"}]},"
      // conversation id of the wrong type: the group test fails
      "{\"message_conv_type\":2,\"message_conv_id\":1,\"message_sender\":\"bob\","
      "\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":\"numeric conv\"}]},"
      // no conversation id at all
      "{\"message_conv_type\":2,\"message_sender\":\"bob\","
      "\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":\"no conv\"}]},"
      // custom data of the wrong type, element type unknown, elements not an array
      "{\"message_conv_type\":2,\"message_conv_id\":\"group-1\",\"message_sender\":\"bob\","
      "\"message_elem_array\":[{\"elem_type\":3,\"custom_elem_data\":5},{\"elem_type\":1,\"text_elem_"
      "content\":\"x\"},"
      "{\"elem_type\":3,\"custom_elem_data\":\"kept\"}]},"
      "{\"message_conv_type\":2,\"message_conv_id\":\"group-1\",\"message_sender\":\"bob\","
      "\"message_elem_array\":{\"elem_type\":3}},"
      // an element without elem_type is text
      "{\"message_conv_type\":2,\"message_conv_id\":\"group-1\",\"message_sender\":\"bob\","
      "\"message_elem_array\":[{\"text_elem_content\":\"untyped "
      "text\"},{\"elem_type\":0,\"text_elem_content\":7}]},"
      "42]");
  const std::vector<Received> board = journal_.Of(Received::kWhiteBoardData);
  ASSERT_EQ(board.size(), 1u);
  EXPECT_EQ(board[0].data, "kept");
  const std::vector<Received> texts = journal_.Of(Received::kGroupText);
  ASSERT_EQ(texts.size(), 1u);
  EXPECT_EQ(texts[0].group_id, kGroup);
  EXPECT_EQ(texts[0].sender, "bob");
  EXPECT_EQ(texts[0].data, "untyped text");
  EXPECT_TRUE(journal_.Of(Received::kC2CText).empty());
  EXPECT_TRUE(journal_.Of(Received::kC2CCustom).empty());

  // A document that is no array has no messages, but it is logged.
  Deliver("{\"message_conv_type\":2}");
  EXPECT_TRUE(log_.Contains(L"HandleTIMRecvNewMsgCallback:{\"message_conv_type\":2}"));
}

TEST_F(ImReceiveTest, GroupTextAndOneToOneMessagesGoToTheEventInterface) {
  Deliver("[" + TextMessage(kGroup, "bob", "hello group") + "," +
          TextMessage("bob", "bob", "hello alice", 1) + "," + CustomMessage("bob", "bob", "c2c data", 1) +
          "," + TextMessage(kUser, kUser, "from myself", 1) + "]");
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
  EXPECT_TRUE(journal_.Of(Received::kWhiteBoardData).empty());
}

// Cached until an interface is set (clearing it keeps the cache), then
// delivered in order.
TEST_F(ImReceiveTest, WhiteBoardDataIsCachedUntilAnInterfaceIsSetThenDeliveredInOrder) {
  Deliver("[" + CustomMessage(kGroup, "bob", "early 1") + "]");
  manager_->SetWhiteBoardCallback(nullptr);
  Deliver("[" + CustomMessage(kGroup, "carol", "early 2") + "]");
  EXPECT_EQ(log_.Count(L"HandleRecvGroupCustomMsg: push msg to cache: early 1"), 1);
  EXPECT_EQ(log_.Count(L"HandleRecvGroupCustomMsg: push msg to cache: early 2"), 1);
  EXPECT_TRUE(journal_.Of(Received::kWhiteBoardData).empty());

  manager_->SetWhiteBoardCallback(&journal_);
  const std::vector<Received> got = journal_.Of(Received::kWhiteBoardData);
  ASSERT_EQ(got.size(), 2u);
  for (const Received& r : got) {
    // From the cache: on this thread, the own user as sender.
    EXPECT_EQ(r.thread_id, GetCurrentThreadId());
    EXPECT_EQ(r.sender, kUser);
    EXPECT_EQ(r.group_id, kGroup);
  }
  EXPECT_EQ(got[0].data, "early 1");
  EXPECT_EQ(got[0].length, 7);
  EXPECT_EQ(got[1].data, "early 2");
  EXPECT_TRUE(log_.Contains(L"OnRecvWhiteBoardData in SetWhiteBoardCallback: early 2"));

  // The cache is empty now; later data is delivered live.
  manager_->SetWhiteBoardCallback(&journal_);
  EXPECT_EQ(journal_.Of(Received::kWhiteBoardData).size(), 2u);
  Deliver("[" + CustomMessage(kGroup, "bob", "live") + "]");
  ASSERT_EQ(journal_.Of(Received::kWhiteBoardData).size(), 3u);
  EXPECT_EQ(journal_.Of(Received::kWhiteBoardData)[2].sender, "bob");
  // Cleared again: later data is cached again.
  manager_->SetWhiteBoardCallback(nullptr);
  Deliver("[" + CustomMessage(kGroup, "bob", "kept") + "]");
  EXPECT_EQ(log_.Count(L"HandleRecvGroupCustomMsg: push msg to cache: kept"), 1);
  EXPECT_EQ(journal_.Of(Received::kWhiteBoardData).size(), 3u);
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
    const std::string batch = "[" + CustomMessage(kGroup, "bob", "live") + "]";
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
  Deliver("[" + CustomMessage(kGroup, "bob", "cached 1") + "]");
  Deliver("[" + CustomMessage(kGroup, "bob", "cached 2") + "]");
  LiveDuringFlush board(&journal_, &log_);
  manager_->SetWhiteBoardCallback(&board);
  EXPECT_TRUE(board.reached_);
  ASSERT_TRUE(journal_.WaitFor(Received::kWhiteBoardData, 3));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  const std::vector<Received> got = journal_.Of(Received::kWhiteBoardData);
  ASSERT_EQ(got.size(), 3u);
  EXPECT_EQ(got[0].data, "cached 1");
  EXPECT_EQ(got[1].data, "cached 2");
  EXPECT_EQ(got[2].data, "live");
  EXPECT_EQ(got[2].sender, "bob");
  EXPECT_NE(got[2].thread_id, GetCurrentThreadId());
  // The manager must not call this interface once the test is over.
  manager_->SetWhiteBoardCallback(nullptr);
}

TEST_F(ImReceiveTest, EmptyDataComesFromTheCacheAsNullAndEscapedDataDecodedWithItsByteLength) {
  Deliver("[" + CustomMessage(kGroup, "bob", "") + "]");
  manager_->SetWhiteBoardCallback(&journal_);
  Deliver("[" + CustomMessage(kGroup, "bob", "") + "," +
          CustomMessage(kGroup, "bob", "a\\u0000b\\\"\xc3\xa9") + "]");
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
