// The fixture of every ImManager test: a fresh stand-in, the one manager,
// recording interfaces and a log capture.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "common/log_capture.h"
#include "im/im_test_support.h"

namespace im_test {

constexpr char kAppId[] = "1400000001";
constexpr char kAccountType[] = "36862";
constexpr char kUser[] = "alice";
constexpr char kSign[] = "sig-alice";
constexpr char kGroup[] = "group-1";
constexpr DWORD kWait = 5000;

class ImManagerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ImsdkReset();
    manager_ = ImManager::GetImManagerInstance();
    ASSERT_NE(manager_, nullptr);
  }

  void TearDown() override {
    // The manager goes first: its end drops the stand-in's queued callbacks
    // and waits for a running one, so nothing reaches the recorders later.
    ImManager::DestroyImManagerInstance();
    ImsdkReset();
  }

  void LogIn(const std::string& group = kGroup, const std::string& user = kUser) {
    manager_->LogInAndJoinGroup(kAppId, kAccountType, user, kSign, group);
  }

  // Logs in and waits for the join's event; n counts earlier joins.
  void LogInAndWaitForJoin(size_t n = 1) {
    manager_->SetEventCallback(&events_);
    LogIn();
    ASSERT_TRUE(journal_.WaitForEvent(IMEvent_JoinGroup, n, kWait));
    ASSERT_TRUE(ImsdkWaitIdle(kWait));
  }

  int Calls(const char* function) { return ImsdkCallCount(function); }

  testing_support::LogCapture log_;
  Journal journal_;
  RecordingImEvents events_{&journal_};
  RecordingWhiteBoard board_{&journal_};
  ImManager* manager_ = nullptr;
};

}  // namespace im_test
