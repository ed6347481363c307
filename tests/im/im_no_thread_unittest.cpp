// A manager whose task thread could not be started at the first login: no
// SDK function is called, sends are dropped, and the next login starts the
// thread and goes through.
#include <gtest/gtest.h>

#include "common/log_capture.h"
#include "common/refuse_threads.h"
#include "im/im_test_support.h"

namespace im_test {
namespace {

TEST(ImWithoutTaskThread, LoginIsDroppedUntilAThreadCanStart) {
  ImsdkReset();
  testing_support::LogCapture log;
  Journal journal;
  ImManager* manager = ImManager::GetImManagerInstance();
  manager->SetEventCallback(&journal);
  manager->SetWhiteBoardCallback(&journal);

  {
    testing_support::RefuseThreads refuse;
    manager->LogInAndJoinGroup("1", "2", "alice", "sig", "group-1");
  }
  EXPECT_EQ(log.Count(L"CreateThread failed!", L"ImManagerImpl"), 1);
  manager->SendWhiteBoardData("abc", 3, nullptr);
  manager->ReLogIn();
  manager->LogoutAndQuitGroup();
  EXPECT_EQ(ImsdkCallCount(nullptr), 0);
  EXPECT_TRUE(journal.All().empty());

  manager->LogInAndJoinGroup("1", "2", "alice", "sig", "group-1");
  EXPECT_TRUE(journal.WaitForEvent(IMEvent_JoinGroup));
  EXPECT_EQ(ImsdkCallCount("TIMLogin"), 1);
  EXPECT_EQ(ImsdkCallCount("TIMMsgSendNewMsg"), 0);  // the send before the login is gone
  ImManager::DestroyImManagerInstance();
  ImsdkReset();
}

}  // namespace
}  // namespace im_test
