// Process-wide facts about Windows, filled once.
#pragma once

#include <cstdint>

struct SystemInfo {
  enum Edition { EditionHome = 0, EditionProfessional = 1, EditionServer = 2 };
  enum Architecture { ArchitectureX86 = 0, ArchitectureX64 = 1, ArchitectureIA64 = 2, ArchitectureOther = 3 };
  enum Wow64Status { Wow64Disabled = 0, Wow64Enabled = 1, Wow64Unknown = 2 };

  int32_t version = 0;
  int32_t major = 0;
  int32_t minor = 0;
  int32_t build = 0;
  int32_t edition = EditionHome;
  int32_t service_pack_major = 0;
  int32_t service_pack_minor = 0;
  int32_t architecture = ArchitectureOther;
  int32_t processors = 0;
  int32_t allocation_granularity = 0;
  int32_t wow64_status = Wow64Unknown;

  // The first call fills the record; concurrent first calls may each fill
  // one, and exactly one is installed.
  static const SystemInfo& Instance();
};

// The version class: below 5 means a system before 6.2.
int GetWindowsVersion();

// The version class for a major.minor pair (exposed for tests).
int VersionFromNumbers(int major, int minor);
// The edition from GetProductInfo's product type (exposed for tests).
int EditionFromProductType(unsigned long product_type);
