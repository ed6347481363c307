#include "audio/core_audio.h"

#include <atomic>

namespace audio {
namespace {

std::atomic<DeviceEnumeratorFactory> g_factory{nullptr};

}  // namespace

HRESULT CreateDeviceEnumerator(IMMDeviceEnumerator** enumerator) {
  *enumerator = nullptr;
  if (DeviceEnumeratorFactory factory = g_factory.load()) return factory(enumerator);
  return CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                          reinterpret_cast<void**>(enumerator));
}

void SetDeviceEnumeratorFactoryForTesting(DeviceEnumeratorFactory factory) { g_factory.store(factory); }

}  // namespace audio
