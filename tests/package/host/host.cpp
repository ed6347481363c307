// The smallest host: built against the installed SDK alone, it makes the
// engine and the IM manager and ends them, then says which roomcore.dll the
// loader gave it, so that the caller can check it was the installed one.
#include <windows.h>

#include <cstdio>

#include "roomcore/im_manager.h"
#include "roomcore/rtc_engine.h"

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
  std::printf("engine and IM manager made and released with %s\n", path);
  return 0;
}
