// Login with its retries, the group join and quit, a second login, kicked
// offline.
#include "im/im_test_support.h"

namespace im_test {
namespace {

using imsdk_control::Call;

std::vector<std::wstring> TryLoginLines(const testing_support::LogCapture& log) {
  std::vector<std::wstring> out;
  for (const std::wstring& line : log.Messages(L"ImManagerImpl")) {
    if (line.rfind(L"try login", 0) == 0) out.push_back(line);
  }
  return out;
}
const std::vector<std::wstring> kThreeRetries = {L"try login 1", L"try login 2", L"try login 3"};

// The logout task queues behind any login task that a callback posted, and
// its TIMGroupQuit shows that the task thread got that far.
void DrainTaskThread(ImManager* manager, int quits_before) {
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  manager->LogoutAndQuitGroup();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", quits_before + 1, kWait));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
}

TEST_F(ImManagerTest, FourFailedLoginsThenNone) {
  for (int i = 0; i < 4; ++i) ImsdkScriptCallback("TIMLogin", 6206 + i, "sig expired");
  LogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 4));
  DrainTaskThread(manager_, 0);
  EXPECT_EQ(Calls("TIMLogin"), 4);
  EXPECT_EQ(Calls("TIMGroupJoin"), 0);
  const std::vector<Received> logins = journal_.Events(IMEvent_Login);
  ASSERT_EQ(logins.size(), 4u);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(logins[i].Text(), "1/" + std::to_string(6206 + i) + "/sig expired");
  EXPECT_EQ(TryLoginLines(log_), kThreeRetries);
  EXPECT_EQ(log_.Count(L"TIMLogin callback:error_code=6209, error_desc=sig expired.failed!"), 1);

  // The counter is back at 0: a new login task has its four attempts anew.
  log_.Clear();
  for (int i = 0; i < 4; ++i) ImsdkScriptCallback("TIMLogin", 70001, "again");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 8));
  DrainTaskThread(manager_, 1);
  EXPECT_EQ(Calls("TIMLogin"), 8);
  EXPECT_EQ(TryLoginLines(log_), kThreeRetries);
}

// Every retry runs Initialize again, and success resets the counter.
TEST_F(ImManagerTest, SuccessOnTheThirdAttemptResetsTheCounter) {
  ImsdkScriptCallback("TIMLogin", 6206, "a");
  ImsdkScriptCallback("TIMLogin", 6206, "b");
  LogInAndWaitForJoin();
  std::vector<std::string> expected;
  for (int i = 0; i < 3; ++i) {
    expected.insert(expected.end(),
                    {"TIMInit", "TIMSetNetworkStatusListenerCallback", "TIMSetKickedOfflineCallback",
                     "TIMSetUserSigExpiredCallback", "TIMSetGroupTipsEventCallback", "TIMSetLogCallback",
                     "TIMSetConfig", "TIMLogin"});
  }
  expected.insert(expected.end(), {"TIMGroupJoin", "TIMAddRecvNewMsgCallback"});
  EXPECT_EQ(imsdk_control::CallNames(), expected);
  EXPECT_EQ(log_.Count(L"Initialize finish"), 3);
  EXPECT_EQ(TryLoginLines(log_), (std::vector<std::wstring>{L"try login 1", L"try login 2"}));
  ASSERT_EQ(journal_.Events(IMEvent_Login).size(), 3u);
  EXPECT_EQ(journal_.Events(IMEvent_Login)[2].code, 0);

  // Had the counter stayed at 2, the next failure would get one retry only.
  ImsdkFireKickedOffline();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_KickedOffline, 1));
  log_.Clear();
  for (int i = 0; i < 4; ++i) ImsdkScriptCallback("TIMLogin", 6208, "c");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 7));
  DrainTaskThread(manager_, 0);
  EXPECT_EQ(Calls("TIMLogin"), 7);
  EXPECT_EQ(TryLoginLines(log_), kThreeRetries);
}

// 10013 counts as a join, subscribes again, and a ReLogIn while logged in
// joins again from the task thread without TIMLogin.
TEST_F(ImManagerTest, AlreadyAMemberCountsAsAJoin) {
  LogInAndWaitForJoin();
  ImsdkScriptCallback("TIMGroupJoin", 10013, "already member");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(journal_.Events(IMEvent_JoinGroup)[1].Text(), "4/0/success");
  EXPECT_TRUE(log_.Contains(L"JoinGroup callback:succes_code=10013, success_desc=already member"));
  EXPECT_EQ(Calls("TIMLogin"), 1);
  EXPECT_EQ(Calls("TIMAddRecvNewMsgCallback"), 2);
  const std::vector<Call> joins = CallsOf("TIMGroupJoin");
  ASSERT_EQ(joins.size(), 2u);
  EXPECT_EQ(joins[1].during_callback_of, "");
  EXPECT_EQ(joins[1].thread_id, CallsOf("TIMInit")[1].thread_id);
  // In the group: a send goes straight to the task thread.
  manager_->SendWhiteBoardData("x", 1, nullptr);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  EXPECT_EQ(CallsOf("TIMMsgSendNewMsg")[0].during_callback_of, "");
}

TEST_F(ImManagerTest, JoinFailuresAreReportedAndNotRetried) {
  ImsdkScriptResult("TIMGroupJoin", 1);
  LogInAndWaitForJoin();
  ImsdkScriptCallback("TIMGroupJoin", 10010, "group gone");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2));
  EXPECT_EQ(journal_.Events(IMEvent_JoinGroup)[0].Text(), "4/-1/failed");
  EXPECT_EQ(journal_.Events(IMEvent_JoinGroup)[1].Text(), "4/10010/group gone");
  EXPECT_EQ(Calls("TIMAddRecvNewMsgCallback"), 0);
  EXPECT_EQ(Calls("TIMLogin"), 1);
  // Still logged in but not in the group: data waits.
  manager_->SendWhiteBoardData("waits", 5, nullptr);
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);
  EXPECT_EQ(Calls("TIMGroupJoin"), 2);
}

TEST_F(ImManagerTest, QuitLeavesTheGroupAndKeepsTheLogin) {
  LogInAndWaitForJoin();
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup, 1));
  EXPECT_EQ(journal_.Events(IMEvent_QuitGroup)[0].Text(), "5/0/success");
  EXPECT_EQ(CallsOf("TIMGroupQuit")[0].arg(0), kGroup);
  EXPECT_TRUE(log_.Contains(L"LogoutAndQuitGroup:group id:group-1"));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMLogout"), 0);
  EXPECT_TRUE(journal_.Events(IMEvent_Logout).empty());

  // Out of the group: whiteboard data waits; a failing quit is reported.
  manager_->SendWhiteBoardData("later", 5, nullptr);
  ImsdkScriptCallback("TIMGroupQuit", 10007, "not a member");
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup, 2));
  EXPECT_EQ(journal_.Events(IMEvent_QuitGroup)[1].Text(), "5/10007/not a member");
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);

  // Rejoining through ReLogIn needs no TIMLogin and sends what waited.
  manager_->ReLogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  EXPECT_EQ(Calls("TIMLogin"), 1);
}

TEST_F(ImManagerTest, SecondLogInAndJoinGroupWhileLoggedInJoinsWithoutLoginAndFreesBothCaches) {
  LogInAndWaitForJoin();
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup, 1));
  // One send waits (out of the group); one message is cached (no whiteboard
  // interface, but still logged in and subscribed).
  manager_->SendWhiteBoardData("stale send", 10, nullptr);
  ImsdkDeliverMessages(Batch({CustomMessage(kGroup, "bob", "stale data")}).c_str());
  ASSERT_TRUE(log_.WaitFor(L"HandleRecvGroupCustomMsg: push msg to cache: stale data", 1, kWait));

  manager_->LogInAndJoinGroup(kAppId, kAccountType, "dave", "sig-dave", "group-2");
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMLogin"), 1);
  ASSERT_EQ(Calls("TIMGroupJoin"), 2);
  EXPECT_EQ(CallsOf("TIMGroupJoin")[1].arg(0), "group-2");
  EXPECT_STREQ(manager_->GetUsrId(), "dave");
  // Both caches were freed: the join flushed nothing, and a new interface
  // gets nothing.
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);
  manager_->SetWhiteBoardCallback(&journal_);
  EXPECT_TRUE(journal_.Of(Received::kWhiteBoardData).empty());
  EXPECT_TRUE(journal_.Of(Received::kSendResult).empty());
}

TEST_F(ImManagerTest, KickedOfflineThenReLogInRejoins) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&journal_);
  ImsdkFireKickedOffline();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_KickedOffline, 1));
  EXPECT_EQ(journal_.Events(IMEvent_KickedOffline)[0].desc, "");
  // Not logged in: a batch is ignored; out of the group: data waits for the rejoin.
  const std::string batch = Batch({CustomMessage(kGroup, "bob", "while out")});
  ImsdkDeliverMessages(batch.c_str());
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_TRUE(journal_.Of(Received::kWhiteBoardData).empty());
  manager_->SendWhiteBoardData("after kick", 10, nullptr);

  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2));
  EXPECT_EQ(Calls("TIMLogin"), 2);
  EXPECT_EQ(Calls("TIMGroupJoin"), 2);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  ImsdkDeliverMessages(batch.c_str());
  ASSERT_TRUE(journal_.WaitFor(Received::kWhiteBoardData, 1));
}

TEST_F(ImManagerTest, SetWhiteBoardCallbackWhileNotLoggedInStartsALogin) {
  ImsdkHoldCallbacks("TIMLogin", 1);
  LogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMLogin", 1, kWait));
  manager_->SetWhiteBoardCallback(&journal_);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMLogin", 2, kWait));
  ImsdkHoldCallbacks("TIMLogin", 0);
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 2));
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2));
  // Logged in now: setting the interface again starts nothing.
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  manager_->SetWhiteBoardCallback(nullptr);
  manager_->SendWhiteBoardData("probe", 5, nullptr);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  EXPECT_EQ(Calls("TIMLogin"), 2);
}

}  // namespace
}  // namespace im_test
