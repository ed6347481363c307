// The smallest host: built against the installed SDK alone, it makes the
// engine and the IM manager and ends them, then says which roomcore.dll the
// loader gave it and the version that Windows reads from it (as Explorer
// does), so that the caller can check both.
#include <windows.h>

#include <cstdio>

#include "roomcore/im_manager.h"
#include "roomcore/rtc_engine.h"

namespace {

template <typename Fn>
Fn Function(HMODULE module, const char* name) {
  return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

// The DLL's FileVersion string, as Windows reads it; "?" when it can't.
void FileVersion(const char* path, char* out, size_t out_size) {
  std::snprintf(out, out_size, "?");
  // roomcore.dll imports version.dll, so it is loaded: no reference to hold,
  // and the host's CMakeLists.txt stays the README's. (No C++ object with a
  // destructor here either: the host then needs no C++ runtime DLL.)
  HMODULE version = GetModuleHandleA("version.dll");
  auto size_of = Function<DWORD(WINAPI*)(LPCSTR, LPDWORD)>(version, "GetFileVersionInfoSizeA");
  auto info_of = Function<BOOL(WINAPI*)(LPCSTR, DWORD, DWORD, LPVOID)>(version, "GetFileVersionInfoA");
  auto query = Function<BOOL(WINAPI*)(LPCVOID, LPCSTR, LPVOID*, PUINT)>(version, "VerQueryValueA");
  static char block[16384];
  char* text = nullptr;
  UINT length = 0;
  if (size_of && info_of && query && size_of(path, nullptr) <= sizeof(block) &&
      info_of(path, 0, sizeof(block), block) &&
      query(block, "\\StringFileInfo\\040904B0\\FileVersion", reinterpret_cast<LPVOID*>(&text), &length) &&
      length > 0) {
    std::snprintf(out, out_size, "%s", text);
  }
}

}  // namespace

int main() {
  RTCEngine* engine = CreaeRTCEngine();
  if (!engine) {
    std::puts("CreaeRTCEngine gave null");
    return 1;
  }
  ReleaseRTCEngine();
  ImManager* im = ImManager::GetImManagerInstance();
  if (!im) {
    std::puts("ImManager::GetImManagerInstance gave null");
    return 1;
  }
  ImManager::DestroyImManagerInstance();
  char path[MAX_PATH] = {};
  GetModuleFileNameA(GetModuleHandleA("roomcore.dll"), path, MAX_PATH);
  char version[64];
  FileVersion(path, version, sizeof(version));
  std::printf("engine and IM manager made and released with %s, FileVersion %s\n", path, version);
  return 0;
}
