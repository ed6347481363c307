// What only the inside of ImManagerImpl reaches.
#include <atomic>

#include "../base/allocation_counter.h"
#include "base/scoped_handle.h"
#include "common/refuse_threads.h"
#include "fundus_control.h"
#include "im/im_manager_impl.h"
#include "im/im_test_support.h"

class ImManagerImplTestPeer {
 public:
  static ImManagerImpl* Impl(ImManager* m) { return static_cast<ImManagerImpl*>(m); }
  static DWORD TaskThread(ImManager* m) { return Impl(m)->task_thread_id_; }
  static void SetNeedLogout(ImManager* m) { Impl(m)->need_logout_ = true; }
  static HANDLE StopEvent(ImManager* m) { return Impl(m)->stop_event_.get(); }
  static bool NoLockHeld(ImManager* manager) {  // by any thread, the caller included
    ImManagerImpl* m = Impl(manager);
    for (base::Lock* lock : {&m->whiteboard_lock_, &m->event_lock_, &m->queue_lock_, &m->strings_lock_})
      if (!lock->Try() || (lock->Release(), false)) return false;
    return true;
  }
};

namespace im_test {
namespace {

using Peer = ImManagerImplTestPeer;

// With thread starts refused, only the login tries one; the next login starts it.
TEST_F(ImTest, NoTaskThreadBeforeTheFirstLoginNorAfterARefusedStart) {
  {
    testing_support::RefuseThreads refuse;
    manager_->SetWhiteBoardCallback(&journal_);
    manager_->ReLogIn();
    manager_->LogoutAndQuitGroup();
    manager_->SendWhiteBoardData("early", 5, nullptr);
    manager_->SendC2CTextMessage("bob", "not in a group");
    LogIn();
  }
  EXPECT_EQ(Log(L"CreateThread"), L("CreateThread failed!"));
  EXPECT_EQ(Peer::TaskThread(manager_), 0u);
  EXPECT_EQ(Sdk(), Lines{});
  Join();
  EXPECT_EQ(Calls("TIMLogin") + Calls("TIMMsgSendNewMsg"), 1);
}
// need_logout_ (LogoutAndQuitGroup clears it) makes the quit log out; foreign task messages change nothing.
TEST_F(ImTest, AQuitWithNeedLogoutLogsOutOfTheSdk) {
  for (int code : {0, 6013}) {
    Fresh();
    Join();
    Peer::SetNeedLogout(manager_);
    const size_t calls = Sdk().size();
    for (UINT message : {8004u, WM_USER + 1u, static_cast<UINT>(IMTask_SendWhiteBoardData)})
      ASSERT_TRUE(PostThreadMessageW(Peer::TaskThread(manager_), message, 0, 0));
    DrainTasks();
    EXPECT_EQ(Sdk(nullptr, calls), L("TIMGroupQuit(group-1,p,self)"));
    ImsdkHoldCallbacks("TIMGroupQuit", 1);
    if (code) ImsdkScriptCallback("TIMLogout", code, "no");
    manager_->LogoutAndQuitGroup();
    ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", 2, kWait) && Calls("TIMLogout") == 0);
    Peer::SetNeedLogout(manager_);
    ImsdkHoldCallbacks("TIMGroupQuit", 0);
    ASSERT_TRUE(journal_.WaitFor("ev 2|") && ImsdkWaitIdle(kWait));
    EXPECT_EQ(journal_.Of("ev 2|"), L(code ? "ev 2|6013|no" : "ev 2|0|success"));
    EXPECT_EQ(Log(L"TIMLogout"), L(code ? "TIMLogout callback:error_code=6013, error_desc=no"
                                        : "TIMLogout callback:success_code=0"));
    EXPECT_TRUE(Logged("LogOut:group id:group-1"));
    if (code) {
      ImManager::DestroyImManagerInstance();
      EXPECT_EQ(Calls("TIMUninit"), 0);
      continue;
    }
    manager_->ReLogIn();
    DrainTasks();
    EXPECT_EQ(Calls("TIMLogin"), 2);  // a login and no join
    EXPECT_EQ(Calls("TIMGroupJoin"), 1);
  }
}
// Sending takes other locks, and the SDK may answer at once: a lock held across it would nest them.
TEST_F(ImTest, TheFlushSendsWithNoLockOfTheManagerHeld) {
  ImsdkHoldCallbacks("TIMGroupJoin", 1);
  LogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupJoin", 1, kWait));
  manager_->SendWhiteBoardData("one", 3, nullptr);
  manager_->SendWhiteBoardData("two", 3, nullptr);
  static std::atomic<int> lock_free{0};
  FundusSetLogSink(  // logged by the flush right after each send, on the flushing thread
      [](const wchar_t*, const wchar_t* message, void* manager) {
        if (std::wstring(message) == L"OnSendWhiteBoardDataTask, ret: 1")
          lock_free += Peer::NoLockHeld(static_cast<ImManager*>(manager)) ? 1 : -10;
      },
      manager_);
  ImsdkHoldCallbacks("TIMGroupJoin", 0);
  ASSERT_TRUE(ImsdkWaitForCalls("TIMMsgSendNewMsg", 2, kWait) && ImsdkWaitIdle(kWait));
  FundusSetLogSink(nullptr, nullptr);
  EXPECT_EQ(lock_free, 2);
}
// Records behind the stop are freed by the loop's end, one that can't be posted by the sender.
TEST_F(ImTest, SendRecordsQueuedBehindTheStopAreFreed) {
  struct Blocker : Journal {
    void OnImEvent(int, int, const char*) override { SetEvent(in.get()), im_test::Wait(out.get()); }
    base::ScopedHandle in{NewEvent()}, out{NewEvent()};
  } blocker;
  Join();
  FundusSetLogSink(nullptr, nullptr);  // captured lines would count as allocations
  manager_->SetEventCallback(&blocker);
  ImsdkScriptResult("TIMInit", 1);  // the failed login is reported on the task thread
  manager_->ReLogIn();
  ASSERT_TRUE(Wait(blocker.in.get()));
  const int64_t live = testing_support::LiveAllocations();
  ASSERT_TRUE(PostThreadMessageW(Peer::TaskThread(manager_), IMTask_Stop, 0, 0));
  for (const char* data : {"one", "two", "three"}) manager_->SendWhiteBoardData(data, 3, nullptr);
  SetEvent(blocker.out.get());
  ASSERT_TRUE(Wait(Peer::StopEvent(manager_)));
  manager_->SendWhiteBoardData("late", 4, nullptr);
  EXPECT_EQ(testing_support::LiveAllocations(), live);
  EXPECT_EQ(Calls("TIMMsgSendNewMsg"), 0);
}

}  // namespace
}  // namespace im_test
