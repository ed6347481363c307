// What only the inside of ImManagerImpl reaches: the LogOut path behind
// need_logout_, and foreign messages on the task queue.
#include <gtest/gtest.h>

#include "common/log_capture.h"
#include "im/im_manager_impl.h"
#include "imsdk_control.h"

class ImManagerImplTestPeer {
 public:
  static void SetNeedLogout(ImManagerImpl* manager) { manager->need_logout_ = true; }
  static DWORD TaskThread(ImManagerImpl* manager) { return manager->task_thread_id_; }
};

namespace {

constexpr DWORD kWait = 5000;

class Events : public ImManagerEvent {
 public:
  void OnImEvent(int event, int code, const char* desc) override {
    std::lock_guard<std::mutex> hold(mutex_);
    events_.push_back(std::to_string(event) + "/" + std::to_string(code) + "/" + desc);
  }
  void OnRecvC2CTextMessage(const char*, const char*) override {}
  void OnRecvGroupTextMessage(const char*, const char*, const char*) override {}
  void OnRecvC2CCustomMessage(const char*, const char*, int) override {}

  std::vector<std::string> Get() {
    std::lock_guard<std::mutex> hold(mutex_);
    return events_;
  }
  bool Has(const std::string& event) {
    return testing_support::WaitUntil(
        [&] {
          for (const std::string& e : Get()) {
            if (e == event) return true;
          }
          return false;
        },
        kWait);
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> events_;
};

class ImLogoutTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ImsdkReset();
    manager_.reset(new ImManagerImpl());
    manager_->SetEventCallback(&events_);
    manager_->LogInAndJoinGroup("1", "2", "alice", "sig", "group-1");
    ASSERT_TRUE(events_.Has("4/0/success"));
  }
  void TearDown() override {
    manager_.reset();
    ImsdkReset();
  }

  testing_support::LogCapture log_;
  Events events_;
  std::unique_ptr<ImManagerImpl> manager_;
};

TEST_F(ImLogoutTest, QuitWithNeedLogoutLogsOutOfTheSdk) {
  ImManagerImplTestPeer::SetNeedLogout(manager_.get());
  // LogoutAndQuitGroup itself clears the flag, as the interface has it.
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(events_.Has("5/0/success"));
  ASSERT_TRUE(ImsdkWaitIdle(kWait));
  EXPECT_EQ(ImsdkCallCount("TIMLogout"), 0);

  // Set between the post and the quit's callback, it takes effect.
  ImsdkHoldCallbacks("TIMGroupQuit", 1);
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", 2, kWait));
  ImManagerImplTestPeer::SetNeedLogout(manager_.get());
  ImsdkHoldCallbacks("TIMGroupQuit", 0);
  ASSERT_TRUE(events_.Has("2/0/success"));
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

TEST_F(ImLogoutTest, AFailedSdkLogoutIsReported) {
  ImsdkScriptCallback("TIMLogout", 6013, "not logged in");
  ImsdkHoldCallbacks("TIMGroupQuit", 1);
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(ImsdkWaitForCalls("TIMGroupQuit", 1, kWait));
  ImManagerImplTestPeer::SetNeedLogout(manager_.get());
  ImsdkHoldCallbacks("TIMGroupQuit", 0);
  ASSERT_TRUE(events_.Has("2/6013/not logged in"));
  EXPECT_TRUE(log_.WaitFor(L"TIMLogout callback:error_code=6013, error_desc=not logged in", 1, kWait));
  manager_.reset();
  EXPECT_EQ(ImsdkCallCount("TIMUninit"), 0);
}

TEST_F(ImLogoutTest, AForeignMessageOnTheTaskQueueChangesNothing) {
  const DWORD task_thread = ImManagerImplTestPeer::TaskThread(manager_.get());
  ASSERT_NE(task_thread, 0u);
  const int calls = ImsdkCallCount(nullptr);
  ASSERT_TRUE(PostThreadMessageW(task_thread, 8004, 1, 2));
  ASSERT_TRUE(PostThreadMessageW(task_thread, WM_USER + 1, 0, 0));
  // A null send record is ignored too.
  ASSERT_TRUE(PostThreadMessageW(task_thread, IMTask_SendWhiteBoardData, 0, 0));
  manager_->LogoutAndQuitGroup();
  ASSERT_TRUE(events_.Has("5/0/success"));
  const std::vector<std::string> names = imsdk_control::CallNames();
  ASSERT_EQ(static_cast<int>(names.size()), calls + 1);
  EXPECT_EQ(names.back(), "TIMGroupQuit");
}

}  // namespace
