// The foundation's exports as a host uses them: clock, process status, geometry.
#include <windows.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "roomcore/clock.h"
#include "roomcore/geometry.h"
#include "roomcore/process.h"

namespace {

TEST(Clock, TheMillisecondTickInEveryUnitAndSleepsThatLastTheirTime) {
  const int64_t ns = TimeNanoseconds(), us = TimeMicroseconds();
  EXPECT_TRUE(ns % 1000000 == 0 && us % 1000 == 0 && us >= ns / 1000 && TimeMilliseconds() >= us / 1000);
  for (int ms : {1, 20}) {
    const int64_t start = TimeMicroseconds();
    SleepAccurate(ms);
    EXPECT_GE(TimeMicroseconds() - start, ms * 1000);
  }
}

TEST(TerminationStatus, ClassifiesHowAChildEndedAndWritesTheCodeOnlyWhereItSays) {
  const struct {
    const wchar_t* args;
    TerminationStatus status;
    int exit_code;  // -7: not written
  } cases[] = {{L"exit 0", TerminationNormal, 0},
               {L"exit 1", TerminationKilled, 1},
               {L"exit 2", TerminationCrashed, 2},
               {L"exit 0xC000013A", TerminationKilled, static_cast<int>(0xC000013Au)},
               {L"exit 0x40010004", TerminationKilled, 0x40010004},
               {L"exit 0xC0000354", TerminationKilled, static_cast<int>(0xC0000354u)},
               {L"exit 0xC0000005", TerminationCrashed, static_cast<int>(0xC0000005u)},
               {L"exit 259", TerminationAbnormal, -7},  // the still-active code
               {L"wait", TerminationStillRunning, 258}};
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring exe = L"\"" + std::wstring(path, wcsrchr(path, L'\\') + 1) + L"termination_child.exe\" ";
  for (const auto& c : cases) {
    std::wstring command = exe + c.args;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION info = {};
    ASSERT_TRUE(
        CreateProcessW(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info));
    const HANDLE child = info.hProcess;
    CloseHandle(info.hThread);
    ASSERT_TRUE(c.status == TerminationStillRunning || WaitForSingleObject(child, 10000) == WAIT_OBJECT_0);
    int exit_code = -7;
    EXPECT_EQ(GetTerminationStatus(child, &exit_code), c.status) << c.args;
    EXPECT_EQ(exit_code, c.exit_code) << c.args;
    EXPECT_EQ(GetTerminationStatus(child, nullptr), c.status) << c.args;
    TerminateProcess(child, 0), WaitForSingleObject(child, 5000), CloseHandle(child);
  }
  HANDLE limited = nullptr;  // a handle that can't be queried: normal, with code 0
  DuplicateHandle(GetCurrentProcess(), GetCurrentProcess(), GetCurrentProcess(), &limited, SYNCHRONIZE, FALSE,
                  0);
  int exit_code = -7;
  EXPECT_TRUE(GetTerminationStatus(limited, &exit_code) == TerminationNormal && exit_code == 0) << exit_code;
  CloseHandle(limited);
  EXPECT_EQ(GetTerminationStatus(nullptr, nullptr), TerminationNormal);
}

TEST(Geometry, DefaultsMarksAndTolerantComparisons) {
  const Point3D p;
  const Rect3D r;
  const Size3D s, seven(7, 8, 9);
  EXPECT_TRUE(p.x == 0 && p.y == 0 && p.z == 0 && s.cx == 0 && s.cz == 0 && r.left == 0 && r.z == 0 &&
              seven.cx == 7 && seven.cz == 9);
  const PointOpt po;
  const SizeOpt so;
  const RectOpt ro;
  const PointOptEx pe;
  const uint32_t kQuietNan = 0x7FC00000u;
  for (float f : {kFloatNA, po.x, po.y, po.z, so.cx, so.cy, so.cz, ro.left, ro.top, ro.right, ro.bottom, ro.z,
                  pe.x, pe.z})
    EXPECT_EQ(std::memcmp(&f, &kQuietNan, 4), 0);
  const RectOpt sized(Point3D(10, 20, 5), Size3D(30, 40, 7));
  EXPECT_TRUE(sized.left == 10 && sized.top == 20 && sized.right == 40 && sized.bottom == 60 && sized.z == 5);
  EXPECT_TRUE(RectOpt(Rect3D(1, 2, 3, 4, 5)).right == 3 && PointOpt(Point3D(1, 2, 3)).z == 3);
  PointOptEx copied(PointOptEx(1, 2, 3, int64_t(1) << 40));
  copied.ResetNan();  // leaves `extra`
  EXPECT_TRUE(pe.extra == 0 && copied.extra == int64_t(1) << 40 && copied.IsNan() == 1);

  const float na = kFloatNA, zero = 0, half = 0.5f, big = 1000;
  RectOpt reset(1, 2, 3, 4, 5);
  reset.ResetNan();
  reset.z = 9;  // z takes no part
  EXPECT_EQ(
      reset.IsNan() + PointOpt(na, 1, 1).IsNan() + PointOpt(1, na, 1).IsNan() + SizeOpt(1, na, 1).IsNan(), 4);
  EXPECT_EQ(PointOpt(1, 1, na).IsNan() + SizeOpt(1, 1, na).IsNan() + RectOpt(na, na, na, 1, 1).IsNan(), 0);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1, 1), zero), 0);  // the tolerance must be strictly above
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1, 1.5f), half) +
                RectOpt(1, 1, 1, 1, 0).IsEqual(RectOpt(1, 1, 1, 1.5f, 0), half),
            0);
  EXPECT_EQ(PointOpt(1, 1).IsEqual(PointOpt(1.25f, 1), half) +
                RectOpt(1, 1, 1, 1, 0).IsEqual(RectOpt(1.25f, 1, 1, 1, 0), half),
            2);
  EXPECT_EQ(SizeOpt(1, 2, 3).IsEqual(SizeOpt(1, 2, 300), half) +
                RectOpt(1, 2, 3, 4, 5).IsEqual(RectOpt(1, 2, 3, 4, -5), half),
            2);
  // A marked value equals nothing; a mark in a compared field gives a NaN difference.
  EXPECT_EQ(PointOpt().IsEqual(PointOpt(), big) + PointOpt(1, 1).IsEqual(PointOpt(na, 1), big) +
                RectOpt(na, 1, 1, 1, 1).IsEqual(RectOpt(na, 1, 1, 1, 1), big),
            0);
  // In single precision (1 + 2^-23) - 2^-30 rounds back to 1 + 2^-23, which
  // the same tolerance doesn't exceed; taken in double, it would.
  const float above_one = std::ldexp(1.0f, -23) + 1.0f, tiny = std::ldexp(1.0f, -30);
  EXPECT_EQ(PointOpt(above_one, 0).IsEqual(PointOpt(tiny, 0), above_one) +
                SizeOpt(0, above_one).IsEqual(SizeOpt(0, tiny), above_one) +
                RectOpt(0, 0, 0, above_one, 0).IsEqual(RectOpt(0, 0, 0, tiny, 0), above_one),
            0);
}

}  // namespace
