// The one place where the audio code meets the system's endpoint enumerator
// and the multimedia thread registration. Everything else in Core Audio
// (devices, stream clients, their services) is reached from the enumerator,
// so tests that hand in a fake enumerator can script devices that Wine can't
// show: loopback streams, unplugging, invalidated devices, mix formats,
// failures at any step of an open.
#pragma once

#include <windows.h>

#include <mmdeviceapi.h>

namespace audio {

using DeviceEnumeratorFactory = HRESULT (*)(IMMDeviceEnumerator** enumerator);

// CoCreateInstance of MMDeviceEnumerator with CLSCTX_ALL, or the factory set
// for testing. The result is the factory's own.
HRESULT CreateDeviceEnumerator(IMMDeviceEnumerator** enumerator);

// Replaces CoCreateInstance for every later creation; null restores it.
void SetDeviceEnumeratorFactoryForTesting(DeviceEnumeratorFactory factory);

// AvSetMmThreadCharacteristicsW and AvRevertMmThreadCharacteristics, which
// Wine only pretends to do.
struct MmThreadFunctions {
  HANDLE(WINAPI* set)(LPCWSTR task, LPDWORD task_index);
  BOOL(WINAPI* revert)(HANDLE task);
};
const MmThreadFunctions& MmThread();
// Replaces the system's functions for every later call; null restores them.
void SetMmThreadFunctionsForTesting(const MmThreadFunctions* functions);

}  // namespace audio
