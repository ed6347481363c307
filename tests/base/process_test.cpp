#include "roomcore/process.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

namespace {

// A termination_child.exe process, killed and closed when it goes out of scope.
class Child {
 public:
  explicit Child(const std::wstring& args) {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring command(path);
    command =
        L"\"" + command.substr(0, command.find_last_of(L"\\/") + 1) + L"termination_child.exe\" " + args;
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
  const wchar_t* args;
  TerminationStatus status;
  int exit_code;  // -7: left as it was
};

class TerminationOfAChild : public ::testing::TestWithParam<ExitCase> {};

TEST_P(TerminationOfAChild, ClassifiesAndReportsTheCode) {
  Child child(GetParam().args);
  ASSERT_NE(child.handle(), nullptr);
  if (GetParam().status != TerminationStillRunning) {
    ASSERT_TRUE(child.WaitForExit());
  }
  int exit_code = -7;
  EXPECT_EQ(GetTerminationStatus(child.handle(), &exit_code), GetParam().status);
  EXPECT_EQ(exit_code, GetParam().exit_code);
  EXPECT_EQ(GetTerminationStatus(child.handle(), nullptr), GetParam().status);
}

INSTANTIATE_TEST_SUITE_P(
    RealChildren, TerminationOfAChild,
    ::testing::Values(ExitCase{L"exit 0", TerminationNormal, 0}, ExitCase{L"exit 1", TerminationKilled, 1},
                      ExitCase{L"exit 2", TerminationCrashed, 2},
                      ExitCase{L"exit 0xC000013A", TerminationKilled, static_cast<int>(0xC000013Au)},
                      ExitCase{L"exit 0x40010004", TerminationKilled, 0x40010004},
                      ExitCase{L"exit 0xC0000354", TerminationKilled, static_cast<int>(0xC0000354u)},
                      ExitCase{L"exit 0xC0000005", TerminationCrashed, static_cast<int>(0xC0000005u)},
                      ExitCase{L"exit 259", TerminationAbnormal, -7},  // the still-active code
                      ExitCase{L"wait", TerminationStillRunning, 258}));

TEST(TerminationStatus, HandlesThatGiveNoExitCodeAreNormalWithCodeZero) {
  Child child(L"exit 2");
  ASSERT_NE(child.handle(), nullptr);
  ASSERT_TRUE(child.WaitForExit());
  HANDLE limited = nullptr;  // no query right
  ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), child.handle(), GetCurrentProcess(), &limited, SYNCHRONIZE,
                              FALSE, 0));
  HANDLE not_a_process = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  for (HANDLE handle : {limited, not_a_process, static_cast<HANDLE>(nullptr)}) {
    int exit_code = -7;
    EXPECT_EQ(GetTerminationStatus(handle, &exit_code), TerminationNormal);
    EXPECT_EQ(exit_code, 0);
    EXPECT_EQ(GetTerminationStatus(handle, nullptr), TerminationNormal);
  }
  CloseHandle(limited);
  CloseHandle(not_a_process);
}

}  // namespace
