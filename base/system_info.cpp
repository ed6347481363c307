#include "base/system_info.h"

#include <windows.h>

#include <atomic>

#include "roomcore/process.h"

namespace {

std::atomic<SystemInfo*> g_system_info{nullptr};

SystemInfo* FillSystemInfo() {
  SystemInfo* info = new SystemInfo();

  typedef BOOL(WINAPI * IsWow64ProcessFn)(HANDLE, PBOOL);
  HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  IsWow64ProcessFn is_wow64 = kernel ? reinterpret_cast<IsWow64ProcessFn>(
                                           reinterpret_cast<void*>(GetProcAddress(kernel, "IsWow64Process")))
                                     : nullptr;
  if (!is_wow64) {
    info->wow64_status = SystemInfo::Wow64Disabled;
  } else {
    BOOL wow64 = FALSE;
    if (!is_wow64(GetCurrentProcess(), &wow64)) {
      info->wow64_status = SystemInfo::Wow64Unknown;
    } else {
      info->wow64_status = wow64 ? SystemInfo::Wow64Enabled : SystemInfo::Wow64Disabled;
    }
  }

  OSVERSIONINFOEXW version = {};
  version.dwOSVersionInfoSize = sizeof(version);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&version));
#pragma GCC diagnostic pop
  info->major = static_cast<int32_t>(version.dwMajorVersion);
  info->minor = static_cast<int32_t>(version.dwMinorVersion);
  info->build = static_cast<int32_t>(version.dwBuildNumber);
  info->service_pack_major = version.wServicePackMajor;
  info->service_pack_minor = version.wServicePackMinor;
  info->version = VersionFromNumbers(info->major, info->minor);

  SYSTEM_INFO system = {};
  GetNativeSystemInfo(&system);
  switch (system.wProcessorArchitecture) {
    case PROCESSOR_ARCHITECTURE_INTEL:
      info->architecture = SystemInfo::ArchitectureX86;
      break;
    case PROCESSOR_ARCHITECTURE_AMD64:
      info->architecture = SystemInfo::ArchitectureX64;
      break;
    case PROCESSOR_ARCHITECTURE_IA64:
      info->architecture = SystemInfo::ArchitectureIA64;
      break;
    default:
      break;
  }
  info->processors = static_cast<int32_t>(system.dwNumberOfProcessors);
  info->allocation_granularity = static_cast<int32_t>(system.dwAllocationGranularity);

  if (info->major == 6 || info->major == 10) {
    typedef BOOL(WINAPI * GetProductInfoFn)(DWORD, DWORD, DWORD, DWORD, PDWORD);
    GetProductInfoFn get_product_info = kernel ? reinterpret_cast<GetProductInfoFn>(reinterpret_cast<void*>(
                                                     GetProcAddress(kernel, "GetProductInfo")))
                                               : nullptr;
    DWORD type = 0;
    if (get_product_info) get_product_info(info->major, info->minor, 0, 0, &type);
    info->edition = EditionFromProductType(type);
  } else if (info->major == 5 && info->minor == 2) {
    if (version.wProductType == VER_NT_WORKSTATION &&
        system.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64) {
      info->edition = SystemInfo::EditionProfessional;
    } else {
      info->edition = (version.wSuiteMask & 0x8000) ? SystemInfo::EditionHome : SystemInfo::EditionServer;
    }
  } else if (info->major == 5 && info->minor == 1) {
    info->edition = (version.wSuiteMask & 0x200) ? SystemInfo::EditionHome : SystemInfo::EditionProfessional;
  } else {
    info->edition = SystemInfo::EditionHome;
  }
  return info;
}

}  // namespace

int VersionFromNumbers(int major, int minor) {
  if (major == 5) return minor == 1 ? 1 : (minor >= 2 ? 2 : 0);
  if (major == 6) return minor == 0 ? 3 : minor == 1 ? 4 : minor == 2 ? 5 : 6;
  if (major == 10) return 7;
  if (major > 6) return 8;
  return 0;
}

int EditionFromProductType(unsigned long type) {
  switch (type) {
    case 1:
    case 4:
    case 6:
    case 48:
      return SystemInfo::EditionProfessional;
    case 7:
    case 8:
    case 9:
    case 10:
    case 12:
    case 13:
    case 14:
    case 15:
    case 17:
    case 18:
    case 25:
      return SystemInfo::EditionServer;
    default:
      return SystemInfo::EditionHome;
  }
}

const SystemInfo& SystemInfo::Instance() {
  SystemInfo* info = g_system_info.load(std::memory_order_acquire);
  if (info) return *info;
  SystemInfo* fresh = FillSystemInfo();
  SystemInfo* expected = nullptr;
  if (g_system_info.compare_exchange_strong(expected, fresh, std::memory_order_acq_rel)) return *fresh;
  delete fresh;  // another thread won the race
  return *expected;
}

int GetWindowsVersion() { return SystemInfo::Instance().version; }

TerminationStatus GetTerminationStatus(void* process_handle, int* exit_code) {
  DWORD code = 0;
  if (!GetExitCodeProcess(static_cast<HANDLE>(process_handle), &code)) {
    if (exit_code) *exit_code = 0;
    return TerminationNormal;
  }
  if (code == STILL_ACTIVE) {
    if (WaitForSingleObject(static_cast<HANDLE>(process_handle), 0) == WAIT_TIMEOUT) {
      if (exit_code) *exit_code = WAIT_TIMEOUT;
      return TerminationStillRunning;
    }
    return TerminationAbnormal;
  }
  if (exit_code) *exit_code = static_cast<int>(code);
  switch (code) {
    case 0:
      return TerminationNormal;
    case 1:
    case 0x40010004u:
    case 0xC000013Au:
    case 0xC0000354u:
      return TerminationKilled;
    default:
      return TerminationCrashed;
  }
}
