// Login with its retries, the group join and quit, a second login, kicked
// offline.
#include "im/im_fixture.h"

namespace im_test {
namespace {

using imsdk_control::Call;

const std::vector<std::string> kInitializeCalls = {"TIMInit",
                                                   "TIMSetNetworkStatusListenerCallback",
                                                   "TIMSetKickedOfflineCallback",
                                                   "TIMSetUserSigExpiredCallback",
                                                   "TIMSetGroupTipsEventCallback",
                                                   "TIMSetLogCallback",
                                                   "TIMSetConfig"};

std::vector<std::wstring> TryLoginLines(const testing_support::LogCapture& log) {
  std::vector<std::wstring> out;
  for (const std::wstring& line : log.Messages(L"ImManagerImpl")) {
    if (line.rfind(L"try login", 0) == 0) out.push_back(line);
  }
  return out;
}

// The logout task queues behind any login task that a callback posted, and
// its TIMGroupQuit shows that the task thread got that far.
void DrainTaskThread(ImManager* manager, int quits_before) {
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  manager->LogoutAndQuitGroup();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", quits_before + 1, kWait));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
}

TEST_F(ImManagerTest, FirstLoginSucceedsAndJoins) {
  LogInAndWaitForJoin();
  std::vector<std::string> expected = kInitializeCalls;
  expected.insert(expected.end(), {"TIMLogin", "TIMGroupJoin", "TIMAddRecvNewMsgCallback"});
  EXPECT_EQ(imsdk_control::CallNames(), expected);
  const Call login = imsdk_control::Calls("TIMLogin")[0];
  EXPECT_EQ(login.arg(0), kUser);
  EXPECT_EQ(login.arg(1), kSign);
  EXPECT_EQ(imsdk_control::Calls("TIMGroupJoin")[0].arg(0), kGroup);

  const std::vector<Received> events = journal_.Of(Received::kImEvent);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].event, IMEvent_Login);
  EXPECT_EQ(events[0].code, 0);
  EXPECT_EQ(events[0].desc, "login success");
  EXPECT_EQ(events[1].event, IMEvent_JoinGroup);
  EXPECT_EQ(events[1].code, 0);
  EXPECT_EQ(events[1].desc, "success");

  EXPECT_TRUE(
      log_.Contains(L"LogIn:app_id:1400000001, account_type:36862, usr_id:alice, usr_sign:sig-alice"));
  EXPECT_TRUE(log_.Contains(L"OnLoginTask"));
  EXPECT_TRUE(log_.Contains(L"TIMLogin callback:success_code=0, success_desc=OK"));
  EXPECT_TRUE(log_.Contains(L"JoinGroupTask:group id:group-1"));
  EXPECT_TRUE(log_.Contains(L"JoinGroup callback:succes_code=0, success_desc=OK"));
  EXPECT_TRUE(TryLoginLines(log_).empty());
  wchar_t line[64];
  _snwprintf(line, 64, L"SetEventCallback:0x%x",
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(static_cast<ImManagerEvent*>(&events_))));
  line[63] = L'\0';
  EXPECT_TRUE(log_.Contains(line));
}

TEST_F(ImManagerTest, FourFailedLoginsThenNone) {
  for (int i = 0; i < 4; ++i) ImsdkScriptCallback("TIMLogin", 6206 + i, "sig expired");
  manager_->SetEventCallback(&events_);
  LogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 4, kWait));
  DrainTaskThread(manager_, 0);
  EXPECT_EQ(Calls("TIMLogin"), 4);
  EXPECT_EQ(Calls("TIMGroupJoin"), 0);
  const std::vector<Received> logins = journal_.Events(IMEvent_Login);
  ASSERT_EQ(logins.size(), 4u);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(logins[i].code, 6206 + i);
    EXPECT_EQ(logins[i].desc, "sig expired");
  }
  EXPECT_EQ(TryLoginLines(log_), (std::vector<std::wstring>{L"try login 1", L"try login 2", L"try login 3"}));
  EXPECT_EQ(log_.Count(L"TIMLogin callback:error_code=6209, error_desc=sig expired.failed!"), 1);

  // The counter is back at 0: a new login task has its four attempts anew.
  log_.Clear();
  for (int i = 0; i < 4; ++i) ImsdkScriptCallback("TIMLogin", 70001, "again");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 8, kWait));
  DrainTaskThread(manager_, 1);
  EXPECT_EQ(Calls("TIMLogin"), 8);
  EXPECT_EQ(TryLoginLines(log_), (std::vector<std::wstring>{L"try login 1", L"try login 2", L"try login 3"}));
}

TEST_F(ImManagerTest, SuccessOnTheThirdAttemptResetsTheCounter) {
  ImsdkScriptCallback("TIMLogin", 6206, "a");
  ImsdkScriptCallback("TIMLogin", 6206, "b");
  LogInAndWaitForJoin();
  EXPECT_EQ(Calls("TIMLogin"), 3);
  EXPECT_EQ(TryLoginLines(log_), (std::vector<std::wstring>{L"try login 1", L"try login 2"}));
  const std::vector<Received> logins = journal_.Events(IMEvent_Login);
  ASSERT_EQ(logins.size(), 3u);
  EXPECT_EQ(logins[2].code, 0);

  // Had the counter stayed at 2, the next failure would get one retry only.
  ImsdkFireKickedOffline();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_KickedOffline, 1, kWait));
  log_.Clear();
  for (int i = 0; i < 4; ++i) ImsdkScriptCallback("TIMLogin", 6208, "c");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 7, kWait));
  DrainTaskThread(manager_, 0);
  EXPECT_EQ(Calls("TIMLogin"), 7);
  EXPECT_EQ(TryLoginLines(log_), (std::vector<std::wstring>{L"try login 1", L"try login 2", L"try login 3"}));
}

TEST_F(ImManagerTest, EveryRetryRunsInitializeAgain) {
  ImsdkScriptCallback("TIMLogin", 6206, "a");
  ImsdkScriptCallback("TIMLogin", 6206, "b");
  LogInAndWaitForJoin();
  std::vector<std::string> expected;
  for (int i = 0; i < 3; ++i) {
    expected.insert(expected.end(), kInitializeCalls.begin(), kInitializeCalls.end());
    expected.push_back("TIMLogin");
  }
  expected.insert(expected.end(), {"TIMGroupJoin", "TIMAddRecvNewMsgCallback"});
  EXPECT_EQ(imsdk_control::CallNames(), expected);
  EXPECT_EQ(log_.Count(L"OnLoginTask"), 3);
  EXPECT_EQ(log_.Count(L"Initialize finish"), 3);
}

TEST_F(ImManagerTest, AlreadyAMemberCountsAsAJoin) {
  ImsdkScriptCallback("TIMGroupJoin", 10013, "already member");
  LogInAndWaitForJoin();
  const Received join = journal_.Events(IMEvent_JoinGroup)[0];
  EXPECT_EQ(join.code, 0);
  EXPECT_EQ(join.desc, "success");
  EXPECT_EQ(Calls("TIMAddRecvNewMsgCallback"), 1);
  EXPECT_TRUE(log_.Contains(L"JoinGroup callback:succes_code=10013, success_desc=already member"));
  // In the group: a send goes straight to the task thread.
  manager_->SendWhiteBoardData("x", 1, nullptr);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  EXPECT_EQ(imsdk_control::Calls("TIMMsgSendNewMsg")[0].during_callback_of, "");
}

TEST_F(ImManagerTest, ReLogInWhileInTheGroupJoinsAgainWithoutLogin) {
  LogInAndWaitForJoin();
  ImsdkScriptCallback("TIMGroupJoin", 10013, "already member");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2, kWait));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMLogin"), 1);
  EXPECT_EQ(Calls("TIMInit"), 2);
  EXPECT_EQ(Calls("TIMAddRecvNewMsgCallback"), 2);
  const std::vector<Call> joins = imsdk_control::Calls("TIMGroupJoin");
  ASSERT_EQ(joins.size(), 2u);
  // With a login already there the join is made by the task thread.
  EXPECT_EQ(joins[1].during_callback_of, "");
  EXPECT_EQ(joins[1].thread_id, imsdk_control::Calls("TIMInit")[1].thread_id);
  EXPECT_EQ(journal_.Events(IMEvent_JoinGroup)[1].code, 0);
}

TEST_F(ImManagerTest, JoinFailuresAreReportedAndNotRetried) {
  ImsdkScriptResult("TIMGroupJoin", 1);
  LogInAndWaitForJoin();
  Received join = journal_.Events(IMEvent_JoinGroup)[0];
  EXPECT_EQ(join.code, -1);
  EXPECT_EQ(join.desc, "failed");

  ImsdkScriptCallback("TIMGroupJoin", 10010, "group gone");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2, kWait));
  join = journal_.Events(IMEvent_JoinGroup)[1];
  EXPECT_EQ(join.code, 10010);
  EXPECT_EQ(join.desc, "group gone");
  EXPECT_TRUE(log_.Contains(L"JoinGroup callback:error_code=10010, error_desc=group gone.failed!"));
  EXPECT_EQ(Calls("TIMAddRecvNewMsgCallback"), 0);
  EXPECT_EQ(Calls("TIMLogin"), 1);

  // Still logged in but not in the group: data waits, and the next
  // successful join sends it.
  manager_->SetWhiteBoardCallback(&board_);
  manager_->SendWhiteBoardData("waits", 5, nullptr);
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);
  EXPECT_EQ(Calls("TIMGroupJoin"), 2);
  manager_->ReLogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  EXPECT_EQ(imsdk_control::Calls("TIMMsgSendNewMsg")[0].during_callback_of, "TIMGroupJoin");
}

TEST_F(ImManagerTest, QuitLeavesTheGroupAndKeepsTheLogin) {
  LogInAndWaitForJoin();
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup, 1, kWait));
  const Received quit = journal_.Events(IMEvent_QuitGroup)[0];
  EXPECT_EQ(quit.code, 0);
  EXPECT_EQ(quit.desc, "success");
  const std::vector<Call> quits = imsdk_control::Calls("TIMGroupQuit");
  ASSERT_EQ(quits.size(), 1u);
  EXPECT_EQ(quits[0].arg(0), kGroup);
  EXPECT_TRUE(log_.Contains(L"LogoutAndQuitGroup:group id:group-1"));
  EXPECT_TRUE(log_.Contains(L"OnLogoutTask"));
  EXPECT_TRUE(log_.Contains(L"QuitGroupTask:group id:group-1"));
  EXPECT_TRUE(log_.WaitFor(L"QuitGroup callback:succes_code=0", 1, kWait));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMLogout"), 0);
  EXPECT_TRUE(journal_.Events(IMEvent_Logout).empty());

  // Out of the group: whiteboard data waits; a failing quit is reported.
  manager_->SendWhiteBoardData("later", 5, nullptr);
  ImsdkScriptCallback("TIMGroupQuit", 10007, "not a member");
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup, 2, kWait));
  EXPECT_EQ(journal_.Events(IMEvent_QuitGroup)[1].code, 10007);
  EXPECT_EQ(journal_.Events(IMEvent_QuitGroup)[1].desc, "not a member");
  EXPECT_TRUE(
      log_.WaitFor(L"QuitGroup callback:error_code=10007, error_desc=not a member.failed!", 1, kWait));
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);

  // Rejoining through ReLogIn needs no TIMLogin and sends what waited.
  manager_->ReLogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  EXPECT_EQ(Calls("TIMLogin"), 1);
}

TEST_F(ImManagerTest, SecondLogInAndJoinGroupWhileLoggedInJoinsWithoutLoginAndFreesBothCaches) {
  LogInAndWaitForJoin();
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup, 1, kWait));
  // One send waits (out of the group); one message is cached (no
  // whiteboard interface, but still logged in and subscribed).
  manager_->SendWhiteBoardData("stale send", 10, nullptr);
  ImsdkDeliverMessages(("[" + CustomMessage(kGroup, "bob", "stale data") + "]").c_str());
  ASSERT_TRUE(log_.WaitFor(L"HandleRecvGroupCustomMsg: push msg to cache: stale data", 1, kWait));

  manager_->LogInAndJoinGroup(kAppId, kAccountType, "dave", "sig-dave", "group-2");
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2, kWait));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMLogin"), 1);
  const std::vector<Call> joins = imsdk_control::Calls("TIMGroupJoin");
  ASSERT_EQ(joins.size(), 2u);
  EXPECT_EQ(joins[1].arg(0), "group-2");
  EXPECT_STREQ(manager_->GetUsrId(), "dave");
  EXPECT_TRUE(log_.Contains(L"LogIn:app_id:1400000001, account_type:36862, usr_id:dave, usr_sign:sig-dave"));
  // Both caches were freed: the join flushed nothing, and a new interface
  // gets nothing.
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);
  manager_->SetWhiteBoardCallback(&board_);
  EXPECT_TRUE(journal_.Of(Received::kWhiteBoardData).empty());
  EXPECT_TRUE(journal_.Of(Received::kSendResult).empty());
}

TEST_F(ImManagerTest, KickedOfflineThenReLogInRejoins) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&board_);
  ImsdkFireKickedOffline();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_KickedOffline, 1, kWait));
  const Received kicked = journal_.Events(IMEvent_KickedOffline)[0];
  EXPECT_EQ(kicked.code, 0);
  EXPECT_EQ(kicked.desc, "");
  EXPECT_TRUE(log_.Contains(L"OnTIMKickedOfflineCallback"));

  // Not logged in: a batch is ignored, not even logged.
  const std::string batch = "[" + CustomMessage(kGroup, "bob", "while out") + "]";
  ImsdkDeliverMessages(batch.c_str());
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_TRUE(journal_.Of(Received::kWhiteBoardData).empty());
  EXPECT_FALSE(log_.Contains(L"HandleTIMRecvNewMsgCallback:" + std::wstring(batch.begin(), batch.end())));
  // Out of the group: data waits for the rejoin.
  manager_->SendWhiteBoardData("after kick", 10, nullptr);

  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2, kWait));
  EXPECT_EQ(Calls("TIMLogin"), 2);
  EXPECT_EQ(Calls("TIMGroupJoin"), 2);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  ImsdkDeliverMessages(batch.c_str());
  ASSERT_TRUE(journal_.WaitForKind(Received::kWhiteBoardData, 1, kWait));
}

TEST_F(ImManagerTest, SetWhiteBoardCallbackWhileNotLoggedInStartsALogin) {
  ImsdkHoldCallbacks("TIMLogin", 1);
  manager_->SetEventCallback(&events_);
  LogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMLogin", 1, kWait));
  manager_->SetWhiteBoardCallback(&board_);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMLogin", 2, kWait));
  ImsdkHoldCallbacks("TIMLogin", 0);
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 2, kWait));
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2, kWait));
  // Logged in now: setting the interface again starts nothing.
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  manager_->SetWhiteBoardCallback(nullptr);
  manager_->SendWhiteBoardData("probe", 5, nullptr);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 1, kWait));
  EXPECT_EQ(Calls("TIMLogin"), 2);
}

}  // namespace
}  // namespace im_test
