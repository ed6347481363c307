// The manager's frame: the singleton, the task thread, the road back from the
// SDK, SDK configuration and the log bridge, the listeners.
#include <windows.h>

#include <rapidjson/document.h>
#include <tlhelp32.h>

#include <atomic>
#include <set>
#include <thread>

#include "base/scoped_handle.h"
#include "im/im_test_support.h"

namespace im_test {
namespace {

using imsdk_control::Call;

// Ids of this process's threads not in `before`. Threads of earlier tests may
// still be ending, so a test looks for new ids rather than comparing counts.
std::set<DWORD> NewThreads(const std::set<DWORD>& before = {}) {
  std::set<DWORD> ids;
  HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry;
  entry.dwSize = sizeof(entry);
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId() && !before.count(entry.th32ThreadID))
      ids.insert(entry.th32ThreadID);
  }
  CloseHandle(snapshot);
  return ids;
}

TEST_F(ImManagerTest, DestroyingAManagerThatNeverLoggedInCallsNoSdkFunctionAndStartsNoThread) {
  const std::set<DWORD> threads_before = NewThreads();
  ASSERT_TRUE(threads_before.count(GetCurrentThreadId()));
  manager_->SetEventCallback(&journal_);
  manager_->SetWhiteBoardCallback(&journal_);
  manager_->SetConfigPath("C:\\config");
  manager_->ReLogIn();
  manager_->LogoutAndQuitGroup();
  manager_->SendWhiteBoardData("early", 5, nullptr);
  manager_->SendC2CTextMessage("bob", "not in a group");
  manager_->SetWhiteBoardCallback(nullptr);
  EXPECT_STREQ(manager_->GetUsrId(), "");
  EXPECT_TRUE(NewThreads(threads_before).empty());
  ImManager::DestroyImManagerInstance();
  EXPECT_EQ(Calls(nullptr), 0);
  EXPECT_TRUE(NewThreads(threads_before).empty());
  EXPECT_FALSE(log_.Contains(L"UnInitialize"));
  EXPECT_TRUE(journal_.All().empty());
}

// The end unregisters the listeners and uninitialises; a second destroy does
// nothing, and the next instance starts afresh.
TEST_F(ImManagerTest, DestroyUnregistersUninitialisesAndTheNextInstanceIsNew) {
  const std::set<DWORD> threads_before = NewThreads();
  LogInAndWaitForJoin();
  EXPECT_FALSE(NewThreads(threads_before).empty());  // the login made the task thread
  EXPECT_STREQ(manager_->GetUsrId(), kUser);
  const int before = Calls(nullptr);
  ImManager::DestroyImManagerInstance();
  ImManager::DestroyImManagerInstance();
  const std::vector<std::string> names = imsdk_control::CallNames();
  EXPECT_EQ(std::vector<std::string>(names.begin() + before, names.end()),
            (std::vector<std::string>{"TIMSetNetworkStatusListenerCallback", "TIMSetKickedOfflineCallback",
                                      "TIMSetUserSigExpiredCallback", "TIMSetGroupTipsEventCallback",
                                      "TIMUninit"}));
  for (const Call& call : CallsOf(nullptr)) {
    if (call.function.find("Callback") != std::string::npos && call.args[0].is_null) {
      EXPECT_TRUE(call.args[1].is_null) << call.function;
    }
  }
  ImsdkReset();
  ImManager* fresh = ImManager::GetImManagerInstance();
  EXPECT_STREQ(fresh->GetUsrId(), "");
  // Start values: not logged in, so a login needs TIMLogin again.
  fresh->LogInAndJoinGroup(kAppId, kAccountType, "carol", kSign, kGroup);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMLogin", 1, kWait));
  EXPECT_EQ(CallsOf("TIMLogin")[0].arg(0), "carol");
}

TEST_F(ImManagerTest, TwoThreadsGettingTheInstanceAtOnceGetOneObject) {
  ImManager::DestroyImManagerInstance();
  std::atomic<bool> go{false};
  ImManager* seen[2] = {nullptr, nullptr};
  std::thread threads[2];
  for (int i = 0; i < 2; ++i) {
    threads[i] = std::thread([&, i] {
      while (!go) std::this_thread::yield();
      seen[i] = ImManager::GetImManagerInstance();
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_NE(seen[0], nullptr);
  EXPECT_EQ(seen[0], seen[1]);
  EXPECT_EQ(ImManager::GetImManagerInstance(), seen[0]);
}

// While a destroy waits for the task thread, a handler on that thread gets
// the dying object; any other thread waits for the destroy to end and gets
// a new object, not the one being freed.
TEST_F(ImManagerTest, DuringADestroyOnlyTheDyingTaskThreadGetsTheDyingObject) {
  struct Handler : Journal {
    void OnImEvent(int event, int code, const char* desc) override {
      Journal::OnImEvent(event, code, desc);
      // Wait until the destroy has posted its stop to this thread's queue.
      MSG msg;
      const DWORD deadline = GetTickCount() + kWait;
      while (!PeekMessageW(&msg, nullptr, 8000, 8000, PM_NOREMOVE) && GetTickCount() < deadline)
        MsgWaitForMultipleObjects(0, nullptr, FALSE, kWait, QS_POSTMESSAGE);
      own = ImManager::GetImManagerInstance();
      other = std::thread([this] {
        SetEvent(asking.get());
        other_usr = ImManager::GetImManagerInstance()->GetUsrId();
        SetEvent(answered.get());
      });
      WaitForSingleObject(asking.get(), kWait);
      // The dying object, handed out, would answer at once.
      answered_early = WaitForSingleObject(answered.get(), 100) == WAIT_OBJECT_0;
    }
    ImManager* own = nullptr;
    std::thread other;
    std::string other_usr = "<none>";
    bool answered_early = false;
    base::ScopedHandle asking{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    base::ScopedHandle answered{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  } handler;
  ImsdkScriptResult("TIMInit", 1);  // the login event then comes on the task thread
  manager_->SetEventCallback(&handler);
  manager_->LogInAndJoinGroup(kAppId, kAccountType, kUser, kSign, kGroup);
  base::ScopedHandle done(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::thread([&done] {
    ImManager::DestroyImManagerInstance();
    SetEvent(done.get());
  }).detach();
  ASSERT_EQ(WaitForSingleObject(done.get(), kWait), WAIT_OBJECT_0) << "the destroy deadlocked";
  ASSERT_TRUE(handler.other.joinable());
  handler.other.join();
  EXPECT_EQ(handler.Events(IMEvent_Login).at(0).Text(), "1/-1/initialize failed!");
  EXPECT_EQ(handler.own, manager_);
  EXPECT_FALSE(handler.answered_early);
  EXPECT_EQ(handler.other_usr, "");  // a new object, with its start values
}

// Also the first login's arguments, events and log lines.
TEST_F(ImManagerTest, LoginRunsOnTheTaskThreadAndCallbacksComeBackThroughUserData) {
  LogInAndWaitForJoin();
  const std::vector<Call> calls = CallsOf(nullptr);
  const DWORD me = GetCurrentThreadId();
  const std::string self = PointerText(manager_);
  const DWORD task_thread = CallsOf("TIMInit")[0].thread_id;
  EXPECT_NE(task_thread, me);
  for (const Call& call : calls) {
    if (call.function == "TIMGroupJoin") {
      // After a fresh login the join runs inside the login's callback.
      EXPECT_EQ(call.during_callback_of, "TIMLogin");
      EXPECT_EQ(call.arg(0), kGroup);
      EXPECT_EQ(call.arg(1), "back");
      EXPECT_EQ(call.arg(3), self);
    } else if (call.function == "TIMAddRecvNewMsgCallback") {
      EXPECT_EQ(call.during_callback_of, "TIMGroupJoin");
      EXPECT_EQ(call.arg(1), self);
    } else {
      EXPECT_EQ(call.thread_id, task_thread) << call.function;
    }
    if (call.function == "TIMSetLogCallback") {
      EXPECT_TRUE(call.args[1].is_null);
    } else if (call.function != "TIMInit" && call.function != "TIMGroupJoin" &&
               call.function != "TIMAddRecvNewMsgCallback") {
      EXPECT_EQ(call.args.back().text, self) << call.function;
    }
  }
  EXPECT_EQ(CallsOf("TIMInit")[0].arg(0), kAppId);
  EXPECT_EQ(CallsOf("TIMLogin")[0].arg(0), kUser);
  EXPECT_EQ(CallsOf("TIMLogin")[0].arg(1), kSign);
  std::vector<std::string> events;
  for (const Received& r : journal_.All()) {
    EXPECT_NE(r.thread_id, me);
    events.push_back(r.Text());
  }
  EXPECT_EQ(events, (std::vector<std::string>{std::to_string(IMEvent_Login) + "/0/login success",
                                              std::to_string(IMEvent_JoinGroup) + "/0/success"}));
  for (const wchar_t* line :
       {L"LogIn:app_id:1400000001, account_type:36862, usr_id:alice, usr_sign:sig-alice",
        L"Initialize:app_id:1400000001, account_type:36862",
        L"TIMLogin callback:success_code=0, success_desc=OK",
        L"TIMSetConfig TIMSetConfig:success_code=0, success_desc=OK",
        L"JoinGroup callback:succes_code=0, success_desc=OK"})
    EXPECT_TRUE(log_.Contains(line)) << line;
}

// The app id is read as a signed integer and widened.
TEST_F(ImManagerTest, ConfigJsonsAndTheConfigPathWithBackslashImconfigAppendedAlways) {
  manager_->SetEventCallback(&journal_);
  manager_->LogInAndJoinGroup("-5", kAccountType, kUser, kSign, kGroup);
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 1));
  manager_->SetConfigPath("C:/rooms/");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2));
  manager_->SetConfigPath("D:\\data\\");
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 3));
  const std::vector<Call> init = CallsOf("TIMInit");
  ASSERT_EQ(init.size(), 3u);
  EXPECT_EQ(init[0].arg(0), "18446744073709551611");
  EXPECT_EQ(init[0].arg(1), "{}");
  EXPECT_EQ(init[1].arg(1), "{\"sdk_config_config_file_path\":\"C:/rooms/\\\\imconfig\"}");
  rapidjson::Document doc;
  doc.Parse(init[2].arg(1).c_str());
  ASSERT_TRUE(doc.IsObject()) << init[2].arg(1);
  EXPECT_EQ(doc.MemberCount(), 1u);
  EXPECT_STREQ(doc["sdk_config_config_file_path"].GetString(), "D:\\data\\\\imconfig");
  EXPECT_EQ(CallsOf("TIMSetConfig")[0].arg(0),
            "{\"set_config_is_log_output_console\":false,\"set_config_callback_log_level\":1}");
}

TEST_F(ImManagerTest, InitializeFailureReportsOnceAndDoesNotRetry) {
  ImsdkScriptResult("TIMInit", 7);
  LogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Login, 1));
  EXPECT_EQ(journal_.Events(IMEvent_Login)[0].Text(),
            std::to_string(IMEvent_Login) + "/-1/initialize failed!");
  // The logout task runs behind anything the failure could have queued.
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", 1, kWait));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(Calls("TIMLogin"), 0);
  EXPECT_EQ(Calls("TIMInit"), 1);
  EXPECT_EQ(journal_.Events(IMEvent_Login).size(), 1u);
  // Never initialised: the end calls no TIMUninit.
  ImManager::DestroyImManagerInstance();
  EXPECT_EQ(Calls("TIMUninit"), 0);
}

TEST_F(ImManagerTest, SetConfigFailuresDoNotStopTheLogin) {
  ImsdkScriptResult("TIMSetConfig", 3);
  ImsdkScriptCallback("TIMSetConfig", 6017, "bad config");
  LogInAndWaitForJoin();
  EXPECT_TRUE(log_.Contains(L"TIMSetConfig failed!"));
  EXPECT_EQ(journal_.Events(IMEvent_Login)[0].code, 0);
  // The second login task's TIMSetConfig is accepted and its callback fails.
  manager_->ReLogIn();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_SetConfig, 1));
  EXPECT_EQ(journal_.Events(IMEvent_SetConfig)[0].Text(),
            std::to_string(IMEvent_SetConfig) + "/6017/bad config");
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, 2));
}

// The listeners: network status, an expired signature (reported, nothing
// else changes) and the SDK's log lines.
TEST_F(ImManagerTest, ListenersReportNetworkStatusAnExpiredSignatureAndSdkLogLines) {
  LogInAndWaitForJoin();
  manager_->SetWhiteBoardCallback(&journal_);
  ImsdkEmitLog(3, "imsdk: connected to \xe5\x8c\x97\xe4\xba\xac \xc3\xa9t\xc3\xa9");
  EXPECT_TRUE(log_.WaitFor(L"imsdk: connected to \x5317\x4eac \x00e9t\x00e9", 1, kWait));
  EXPECT_EQ(log_.Count(L"imsdk: connected to \x5317\x4eac \x00e9t\x00e9", L"TIM"), 1);
  ImsdkFireNetworkStatus(0, 0, "up");
  ImsdkFireNetworkStatus(2, 0, "trying");
  ImsdkFireNetworkStatus(1, 9, "down");
  ImsdkFireNetworkStatus(3, 11, "failed");
  ImsdkFireNetworkStatus(7, 0, "unknown");  // dropped
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  std::vector<std::string> network;
  for (const Received& r : journal_.All()) {
    if (r.kind == Received::kImEvent && r.event != IMEvent_Login && r.event != IMEvent_JoinGroup)
      network.push_back(r.Text());
  }
  auto e = [](int event, const char* rest) { return std::to_string(event) + rest; };
  EXPECT_EQ(network, (std::vector<std::string>{
                         e(IMEvent_Connected, "/0/up"), e(IMEvent_Connecting, "/0/trying"),
                         e(IMEvent_Disconnected, "/9/down"), e(IMEvent_Disconnected, "/11/failed")}));
  EXPECT_EQ(log_.Count(L"HandleTIMNetworkStatusListenerCallback: IMEvent_Connected"), 1);
  EXPECT_EQ(log_.Count(L"HandleTIMNetworkStatusListenerCallback: IMEvent_Connecting"), 1);
  EXPECT_EQ(log_.Count(L"HandleTIMNetworkStatusListenerCallback: IMEvent_Disconnected"), 2);

  ImsdkFireUserSigExpired();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_UserSigExpired, 1));
  EXPECT_EQ(journal_.Events(IMEvent_UserSigExpired)[0].code, -1);
  // Still logged in: messages are still taken, and no login was started.
  ImsdkDeliverMessages(Batch({CustomMessage(kGroup, "bob", "after expiry")}).c_str());
  ASSERT_TRUE(journal_.WaitFor(Received::kWhiteBoardData, 1));
  EXPECT_EQ(Calls("TIMLogin"), 1);
}

TEST_F(ImManagerTest, EventsWithoutAnInterfaceAreDroppedOnEveryPath) {
  ImsdkScriptCallback("TIMLogin", 6206, "expired");
  manager_->LogInAndJoinGroup(kAppId, kAccountType, kUser, kSign, kGroup);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMAddRecvNewMsgCallback", 1, kWait));
  ImsdkFireNetworkStatus(0, 0, "up");
  ImsdkFireUserSigExpired();
  ImsdkDeliverMessages(Batch({TextMessage(kGroup, "bob", "hi")}).c_str());
  manager_->SendGroupTextMessage("hello");
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", 1, kWait));
  ImsdkFireKickedOffline();
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_TRUE(log_.Contains(L"OnTIMKickedOfflineCallback"));
  EXPECT_TRUE(journal_.All().empty());
}

}  // namespace
}  // namespace im_test
