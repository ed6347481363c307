#include "base/system_info.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(SystemInfo, VersionAndEditionTables) {
  const int versions[][3] = {{4, 0, 0}, {5, 0, 0}, {5, 1, 1}, {5, 2, 2}, {5, 3, 2}, {6, 0, 3},  {6, 1, 4},
                             {6, 2, 5}, {6, 3, 6}, {6, 4, 6}, {7, 0, 8}, {9, 9, 8}, {10, 0, 7}, {11, 0, 8}};
  for (const auto& v : versions) EXPECT_EQ(VersionFromNumbers(v[0], v[1]), v[2]) << v[0] << "." << v[1];
  for (unsigned long t : {1ul, 4ul, 6ul, 48ul})
    EXPECT_EQ(EditionFromProductType(t), SystemInfo::EditionProfessional) << t;
  for (unsigned long t : {7ul, 8ul, 9ul, 10ul, 12ul, 13ul, 14ul, 15ul, 17ul, 18ul, 25ul})
    EXPECT_EQ(EditionFromProductType(t), SystemInfo::EditionServer) << t;
  for (unsigned long t : {0ul, 2ul, 3ul, 5ul, 11ul, 16ul, 101ul})
    EXPECT_EQ(EditionFromProductType(t), SystemInfo::EditionHome) << t;
}

TEST(SystemInfo, OneRecordForAllThreadsAndItMatchesTheVersion) {
  const SystemInfo* seen[8] = {};
  std::thread threads[8];
  for (int i = 0; i < 8; ++i) threads[i] = std::thread([&seen, i] { seen[i] = &SystemInfo::Instance(); });
  for (auto& t : threads) t.join();
  for (int i = 1; i < 8; ++i) EXPECT_EQ(seen[i], seen[0]);
  const SystemInfo& info = SystemInfo::Instance();
  EXPECT_EQ(&info, seen[0]);
  EXPECT_GE(info.major, 5);
  EXPECT_EQ(info.version, VersionFromNumbers(info.major, info.minor));
  EXPECT_EQ(GetWindowsVersion(), info.version);
  EXPECT_GE(info.processors, 1);
  EXPECT_GT(info.allocation_granularity, 0);
  EXPECT_NE(info.architecture, SystemInfo::ArchitectureOther);
}

}  // namespace
