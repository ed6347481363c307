#include "capture/capture_platform.h"

#include <dwmapi.h>

#include <atomic>

#include "base/system_info.h"

namespace capture {
namespace {

DwmEnableCompositionFunction FindDwmEnableComposition() {
  HMODULE dwm = GetModuleHandleW(L"Dwmapi.dll");
  if (!dwm) return nullptr;
  return reinterpret_cast<DwmEnableCompositionFunction>(
      reinterpret_cast<void*>(GetProcAddress(dwm, "DwmEnableComposition")));
}

const CapturePlatform kRealPlatform = {
    &GetCursorInfo, &GetDeviceCaps, &GetWindowsVersion, &DwmIsCompositionEnabled, &FindDwmEnableComposition,
    &GetDIBits,     &PrintWindow};

std::atomic<const CapturePlatform*> g_platform{&kRealPlatform};

}  // namespace

const CapturePlatform& Platform() { return *g_platform.load(std::memory_order_acquire); }

void SetCapturePlatformForTesting(const CapturePlatform* platform) {
  g_platform.store(platform ? platform : &kRealPlatform, std::memory_order_release);
}

}  // namespace capture
