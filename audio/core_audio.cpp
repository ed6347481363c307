#include "audio/core_audio.h"

#include <avrt.h>

#include <atomic>

namespace audio {
namespace {

std::atomic<DeviceEnumeratorFactory> g_factory{nullptr};

const MmThreadFunctions kSystemMmThread = {&AvSetMmThreadCharacteristicsW, &AvRevertMmThreadCharacteristics};
std::atomic<const MmThreadFunctions*> g_mm_thread{&kSystemMmThread};

}  // namespace

HRESULT CreateDeviceEnumerator(IMMDeviceEnumerator** enumerator) {
  *enumerator = nullptr;
  if (DeviceEnumeratorFactory factory = g_factory.load()) return factory(enumerator);
  return CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                          reinterpret_cast<void**>(enumerator));
}

void SetDeviceEnumeratorFactoryForTesting(DeviceEnumeratorFactory factory) { g_factory.store(factory); }

const MmThreadFunctions& MmThread() { return *g_mm_thread.load(); }

void SetMmThreadFunctionsForTesting(const MmThreadFunctions* functions) {
  g_mm_thread.store(functions ? functions : &kSystemMmThread);
}

}  // namespace audio
