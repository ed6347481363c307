// What only the inside of ImManagerImpl reaches: the LogOut path behind
// need_logout_, foreign messages on the task queue, and the JSON of an
// element type the manager doesn't write.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "../base/allocation_counter.h"
#include "base/scoped_handle.h"
#include "common/log_capture.h"
#include "fundus_control.h"
#include "im/im_manager_impl.h"
#include "im/im_test_support.h"

class ImManagerImplTestPeer {
 public:
  static void SetNeedLogout(ImManagerImpl* manager) { manager->need_logout_ = true; }
  static DWORD TaskThread(ImManagerImpl* manager) { return manager->task_thread_id_; }
  static bool WaitForTaskEnd(ImManagerImpl* manager) {
    return WaitForSingleObject(manager->stop_event_.get(), 5000) == WAIT_OBJECT_0;
  }
  static void Receive(ImManagerImpl* manager, const char* json) {
    manager->HandleTIMRecvNewMsgCallback(json);
  }
  // Whether no thread, the caller included, holds any lock of the manager.
  static bool NoLockHeld(ImManagerImpl* manager) {
    bool free = true;
    for (base::Lock* lock : {&manager->whiteboard_lock_, &manager->event_lock_, &manager->queue_lock_,
                             &manager->strings_lock_}) {
      if (lock->Try()) {
        lock->Release();
      } else {
        free = false;
      }
    }
    return free;
  }
};

namespace im_test {
namespace {

TEST(ImJson, UnknownElementTypesGiveAnEmptyElement) {
  std::string json = ImManagerImpl::BuildMessageJson(2, "g", "me", "x", 5);
  EXPECT_EQ(json.substr(json.find("\"message_elem_array\"")), "\"message_elem_array\":[{}]}");
}

class ImInsideTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ImsdkReset();
    manager_.reset(new ImManagerImpl());
    manager_->SetEventCallback(&journal_);
    manager_->LogInAndJoinGroup("1", "2", "alice", "sig", "group-1");
    ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup));
  }
  void TearDown() override {
    manager_.reset();
    ImsdkReset();
  }
  // Quits with need_logout_ set between the post and the quit's callback.
  void QuitWithNeedLogout(int quits) {
    ImsdkHoldCallbacks("TIMGroupQuit", 1);
    manager_->LogoutAndQuitGroup();
    ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", quits, kWait));
    ImManagerImplTestPeer::SetNeedLogout(manager_.get());
    ImsdkHoldCallbacks("TIMGroupQuit", 0);
    ASSERT_TRUE(journal_.WaitForEvent(IMEvent_Logout));
  }

  testing_support::LogCapture log_;
  Journal journal_;
  std::unique_ptr<ImManagerImpl> manager_;
};

TEST_F(ImInsideTest, QuitWithNeedLogoutLogsOutOfTheSdk) {
  ImManagerImplTestPeer::SetNeedLogout(manager_.get());
  // LogoutAndQuitGroup itself clears the flag, as the interface has it.
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(ImsdkCallCount("TIMLogout"), 0);

  QuitWithNeedLogout(2);
  EXPECT_EQ(journal_.Events(IMEvent_Logout)[0].Text(), "2/0/success");
  EXPECT_EQ(ImsdkCallCount("TIMLogout"), 1);
  EXPECT_TRUE(log_.Contains(L"LogOut:group id:group-1"));
  EXPECT_TRUE(log_.WaitFor(L"TIMLogout callback:success_code=0", 1, kWait));
  // Logged out, and need_join_group_ cleared: the next login task logs in
  // again and joins nothing.
  manager_->ReLogIn();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMLogin", 2, kWait));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(ImsdkCallCount("TIMGroupJoin"), 1);
}

TEST_F(ImInsideTest, AFailedSdkLogoutIsReported) {
  ImsdkScriptCallback("TIMLogout", 6013, "not logged in");
  QuitWithNeedLogout(1);
  EXPECT_EQ(journal_.Events(IMEvent_Logout)[0].Text(), "2/6013/not logged in");
  EXPECT_TRUE(log_.WaitFor(L"TIMLogout callback:error_code=6013, error_desc=not logged in", 1, kWait));
  manager_.reset();
  EXPECT_EQ(ImsdkCallCount("TIMUninit"), 0);
}

TEST_F(ImInsideTest, AForeignMessageOnTheTaskQueueChangesNothing) {
  const DWORD task_thread = ImManagerImplTestPeer::TaskThread(manager_.get());
  ASSERT_NE(task_thread, 0u);
  const int calls = ImsdkCallCount(nullptr);
  ASSERT_TRUE(PostThreadMessageW(task_thread, 8004, 1, 2));
  ASSERT_TRUE(PostThreadMessageW(task_thread, WM_USER + 1, 0, 0));
  // A null send record is ignored too.
  ASSERT_TRUE(PostThreadMessageW(task_thread, IMTask_SendWhiteBoardData, 0, 0));
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(journal_.WaitForEvent(IMEvent_QuitGroup));
  const std::vector<std::string> names = imsdk_control::CallNames();
  ASSERT_EQ(static_cast<int>(names.size()), calls + 1);
  EXPECT_EQ(names.back(), "TIMGroupQuit");
}

// Whiteboard records posted behind the stop are freed with the end of the
// task loop; one that can't be posted any more is freed by the sender.
TEST_F(ImInsideTest, SendRecordsQueuedBehindTheStopAreFreed) {
  struct Blocker : ImManagerEvent {
    void OnImEvent(int, int, const char*) override {
      SetEvent(entered.get());
      WaitForSingleObject(release.get(), kWait);
    }
    void OnRecvC2CTextMessage(const char*, const char*) override {}
    void OnRecvGroupTextMessage(const char*, const char*, const char*) override {}
    void OnRecvC2CCustomMessage(const char*, const char*, int) override {}
    base::ScopedHandle entered{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    base::ScopedHandle release{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  } blocker;
  FundusSetLogSink(nullptr, nullptr);  // the capture's lines would count as allocations
  manager_->SetEventCallback(&blocker);
  ImsdkScriptResult("TIMInit", 1);  // the failed login is reported on the task thread
  manager_->ReLogIn();
  ASSERT_EQ(WaitForSingleObject(blocker.entered.get(), kWait), WAIT_OBJECT_0);
  const int64_t live = testing_support::LiveAllocations();
  ASSERT_TRUE(PostThreadMessageW(ImManagerImplTestPeer::TaskThread(manager_.get()), IMTask_Stop, 0, 0));
  for (const char* data : {"one", "two", "three"}) manager_->SendWhiteBoardData(data, 3, nullptr);
  SetEvent(blocker.release.get());
  ASSERT_TRUE(ImManagerImplTestPeer::WaitForTaskEnd(manager_.get()));
  manager_->SendWhiteBoardData("late", 4, nullptr);
  EXPECT_EQ(testing_support::LiveAllocations(), live);
  EXPECT_EQ(ImsdkCallCount("TIMMsgSendNewMsg"), 0);
}

// The join's flush sends each waiting record holding no lock of the manager:
// sending takes other locks, and a lock held across it would nest them.
TEST(ImLocks, TheFlushSendsWithNoLockOfTheManagerHeld) {
  ImsdkReset();
  ImsdkHoldCallbacks("TIMGroupJoin", 1);
  struct Probe {
    ImManagerImpl* manager;
    std::atomic<int> sends{0}, lock_free{0};
  } probe;
  std::unique_ptr<ImManagerImpl> manager(new ImManagerImpl());
  probe.manager = manager.get();
  Journal journal;
  manager->SetEventCallback(&journal);
  manager->SetWhiteBoardCallback(&journal);
  manager->LogInAndJoinGroup("1", "2", "alice", "sig", "group-1");
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupJoin", 1, kWait));
  manager->SendWhiteBoardData("one", 3, nullptr);
  manager->SendWhiteBoardData("two", 3, nullptr);
  // Logged by the flush right after each send, on the flushing thread.
  FundusSetLogSink(
      [](const wchar_t*, const wchar_t* message, void* context) {
        Probe* p = static_cast<Probe*>(context);
        if (std::wstring(message) != L"OnSendWhiteBoardDataTask, ret: 1") return;
        ++p->sends;
        if (ImManagerImplTestPeer::NoLockHeld(p->manager)) ++p->lock_free;
      },
      &probe);
  ImsdkHoldCallbacks("TIMGroupJoin", 0);
  const bool sent = journal.WaitFor(Received::kSendResult, 2);
  FundusSetLogSink(nullptr, nullptr);
  ASSERT_TRUE(sent);
  EXPECT_EQ(probe.sends.load(), 2);
  EXPECT_EQ(probe.lock_free.load(), 2);
  manager.reset();
  ImsdkReset();
}

struct Delivery {
  ImManagerImpl* manager;
  const std::string* json;
};

// (a named WINAPI function: on x86 a lambda does not convert to one)
DWORD WINAPI DeliverBatch(LPVOID param) {
  Delivery* d = static_cast<Delivery*>(param);
  ImManagerImplTestPeer::Receive(d->manager, d->json->c_str());
  return 0;
}

// Delivers a batch the way the SDK does: on a thread of its own, whose
// stack is the 1 MB that SDK threads get.
void ReceiveOnSdkSizedStack(ImManagerImpl* manager, const std::string& json) {
  Delivery delivery{manager, &json};
  HANDLE thread =
      CreateThread(nullptr, 1 << 20, &DeliverBatch, &delivery, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
  ASSERT_NE(thread, nullptr);
  ASSERT_EQ(WaitForSingleObject(thread, kWait), WAIT_OBJECT_0);
  DWORD code = 1;
  GetExitCodeThread(thread, &code);
  CloseHandle(thread);
  EXPECT_EQ(code, 0u);
}

// A batch nested tens of thousands of levels deep would overflow the
// parser's recursion; it is refused before the parse, while brackets inside
// strings are only data.
TEST_F(ImInsideTest, ABatchNestedTooDeeplyIsRefusedBeforeTheParse) {
  manager_->SetWhiteBoardCallback(&journal_);
  constexpr int kLevels = 100000;
  const std::string deep_array = std::string(kLevels, '[') + std::string(kLevels, ']');
  std::string deep_object;
  for (int i = 0; i < kLevels; ++i) deep_object += "{\"a\":";
  deep_object += "0" + std::string(kLevels, '}');
  for (const std::string* batch : {&deep_array, static_cast<const std::string*>(&deep_object)})
    ReceiveOnSdkSizedStack(manager_.get(), *batch);
  EXPECT_EQ(log_.Count(L"HandleTIMRecvNewMsgCallback: batch nested deeper than 256 levels, dropped"), 2);

  const std::string brackets = std::string(kLevels, '[') + "\\\"{" + std::string(kLevels, '{');
  ReceiveOnSdkSizedStack(manager_.get(), Batch({CustomMessage("group-1", "bob", brackets)}));
  const std::vector<Received> got = journal_.Of(Received::kWhiteBoardData);
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].data, std::string(kLevels, '[') + "\"{" + std::string(kLevels, '{'));
}

}  // namespace
}  // namespace im_test
