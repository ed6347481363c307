#include "process.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <string>

namespace {

std::wstring ChildPath() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring dir(path);
  dir.erase(dir.find_last_of(L"\\/") + 1);
  return dir + L"termination_child.exe";
}

// A child process, killed and closed when it goes out of scope.
class Child {
 public:
  explicit Child(const std::wstring& args) {
    std::wstring command = L"\"" + ChildPath() + L"\" " + args;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    if (CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info)) {
      CloseHandle(info.hThread);
      process_ = info.hProcess;
    }
  }
  ~Child() {
    if (!process_) return;
    TerminateProcess(process_, 0);
    WaitForSingleObject(process_, 5000);
    CloseHandle(process_);
  }
  HANDLE handle() const { return process_; }
  bool WaitForExit() const { return WaitForSingleObject(process_, 10000) == WAIT_OBJECT_0; }

 private:
  HANDLE process_ = nullptr;
};

struct ExitCase {
  const wchar_t* code;
  TerminationStatus status;
  int exit_code;
};

class TerminationByExitCode : public ::testing::TestWithParam<ExitCase> {};

TEST_P(TerminationByExitCode, ClassifiesAndReportsTheCode) {
  Child child(std::wstring(L"exit ") + GetParam().code);
  ASSERT_NE(child.handle(), nullptr);
  ASSERT_TRUE(child.WaitForExit());
  int exit_code = -7;
  EXPECT_EQ(GetTerminationStatus(child.handle(), &exit_code), GetParam().status);
  EXPECT_EQ(exit_code, GetParam().exit_code);
  // The same status without a place for the code.
  EXPECT_EQ(GetTerminationStatus(child.handle(), nullptr), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    RealChildren, TerminationByExitCode,
    ::testing::Values(ExitCase{L"0", TerminationNormal, 0}, ExitCase{L"1", TerminationKilled, 1},
                      ExitCase{L"2", TerminationCrashed, 2},
                      ExitCase{L"0xC000013A", TerminationKilled, static_cast<int>(0xC000013Au)},
                      ExitCase{L"0x40010004", TerminationKilled, 0x40010004},
                      ExitCase{L"0xC0000354", TerminationKilled, static_cast<int>(0xC0000354u)},
                      ExitCase{L"0xC0000005", TerminationCrashed, static_cast<int>(0xC0000005u)}));

TEST(TerminationStatus, EndedWithStillActiveCodeIsAbnormalAndLeavesTheCode) {
  Child child(L"exit 259");
  ASSERT_NE(child.handle(), nullptr);
  ASSERT_TRUE(child.WaitForExit());
  int exit_code = -7;
  EXPECT_EQ(GetTerminationStatus(child.handle(), &exit_code), TerminationAbnormal);
  EXPECT_EQ(exit_code, -7);
  EXPECT_EQ(GetTerminationStatus(child.handle(), nullptr), TerminationAbnormal);
}

TEST(TerminationStatus, RunningProcessReportsWaitTimeout) {
  Child child(L"wait");
  ASSERT_NE(child.handle(), nullptr);
  int exit_code = -7;
  EXPECT_EQ(GetTerminationStatus(child.handle(), &exit_code), TerminationStillRunning);
  EXPECT_EQ(exit_code, 258);
  EXPECT_EQ(GetTerminationStatus(child.handle(), nullptr), TerminationStillRunning);
}

TEST(TerminationStatus, KilledFromOutside) {
  Child child(L"wait");
  ASSERT_NE(child.handle(), nullptr);
  ASSERT_TRUE(TerminateProcess(child.handle(), 0xC000013A));
  ASSERT_TRUE(child.WaitForExit());
  int exit_code = 0;
  EXPECT_EQ(GetTerminationStatus(child.handle(), &exit_code), TerminationKilled);
}

TEST(TerminationStatus, UnqueryableHandleIsNormalWithCodeZero) {
  // An event is no process: the exit code can't be had.
  HANDLE not_a_process = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  int exit_code = -7;
  EXPECT_EQ(GetTerminationStatus(not_a_process, &exit_code), TerminationNormal);
  EXPECT_EQ(exit_code, 0);
  EXPECT_EQ(GetTerminationStatus(not_a_process, nullptr), TerminationNormal);
  CloseHandle(not_a_process);

  exit_code = -7;
  EXPECT_EQ(GetTerminationStatus(nullptr, &exit_code), TerminationNormal);
  EXPECT_EQ(exit_code, 0);
}

TEST(TerminationStatus, HandleWithoutQueryRightIsNormal) {
  Child child(L"exit 2");
  ASSERT_NE(child.handle(), nullptr);
  ASSERT_TRUE(child.WaitForExit());
  HANDLE limited = nullptr;
  ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), child.handle(), GetCurrentProcess(), &limited, SYNCHRONIZE,
                              FALSE, 0));
  int exit_code = -7;
  EXPECT_EQ(GetTerminationStatus(limited, &exit_code), TerminationNormal);
  EXPECT_EQ(exit_code, 0);
  CloseHandle(limited);
}

}  // namespace
