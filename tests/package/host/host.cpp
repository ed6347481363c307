// The smallest host, built against the installed SDK alone: it makes and ends the engine and the IM manager,
// then prints which roomcore.dll the loader gave it and that file's version as Windows reads it.
#include <windows.h>

#include <cstdio>

#include "roomcore/im_manager.h"
#include "roomcore/rtc_engine.h"

template <typename Fn>
Fn Function(const char* name) {
  // roomcore.dll imports version.dll, so the host's CMakeLists.txt can stay the README's.
  return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("version.dll"), name)));
}

int main() {
  RTCEngine* engine = CreaeRTCEngine();
  ReleaseRTCEngine();
  ImManager* im = ImManager::GetImManagerInstance();
  ImManager::DestroyImManagerInstance();
  if (!engine || !im) return std::puts("CreaeRTCEngine or ImManager::GetImManagerInstance gave null"), 1;
  char path[MAX_PATH] = {}, version[64] = "?", *text = nullptr;
  static char block[16384];  // no C++ object with a destructor: the host needs no C++ runtime DLL
  GetModuleFileNameA(GetModuleHandleA("roomcore.dll"), path, MAX_PATH);
  auto size_of = Function<DWORD(WINAPI*)(LPCSTR, LPDWORD)>("GetFileVersionInfoSizeA");
  auto info_of = Function<BOOL(WINAPI*)(LPCSTR, DWORD, DWORD, LPVOID)>("GetFileVersionInfoA");
  auto query = Function<BOOL(WINAPI*)(LPCVOID, LPCSTR, LPVOID*, PUINT)>("VerQueryValueA");
  UINT length = 0;
  if (size_of && info_of && query && size_of(path, nullptr) <= sizeof(block) &&
      info_of(path, 0, sizeof(block), block) &&
      query(block, "\\StringFileInfo\\040904B0\\FileVersion", reinterpret_cast<LPVOID*>(&text), &length) &&
      length > 0)
    std::snprintf(version, sizeof(version), "%s", text);
  std::printf("engine and IM manager made and released with %s, FileVersion %s\n", path, version);
  return 0;
}
