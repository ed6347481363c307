// Lists audio endpoints, finds one by friendly name and names the default
// one. No state of its own: one object per process, made at first use. Any
// thread may call it, also one without COM (each call sees to COM itself).
#pragma once

#include <string>
#include <vector>

struct AudioDeviceInfo {
  std::wstring name;  // friendly name; empty if the endpoint has none
  std::wstring id;    // IMMDevice::GetId
  bool is_input = false;
};

class AudioDeviceEnumerator {
 public:
  // The process-wide object. Racing first callers each make one; the first to
  // install it wins and the others destroy theirs.
  static AudioDeviceEnumerator* GetInstance();

  // Active endpoints of one direction, in the system's order. Any failure
  // leaves the list as far as it got (empty if the enumerator can't be made).
  void EnumerateDevices(bool is_input, std::vector<AudioDeviceInfo>& devices);
  // Capture: the communications default; render: the console default.
  // `device.id` is filled as soon as the endpoint is known, even when reading
  // its name fails afterwards.
  bool GetDefaultDevice(bool is_input, AudioDeviceInfo& device);
  // The id of the first active endpoint whose name is exactly `device_name`;
  // empty if none. Lists afresh on every call.
  std::wstring FindDeviceId(bool is_input, const std::wstring& device_name);

  AudioDeviceEnumerator() = default;
  AudioDeviceEnumerator(const AudioDeviceEnumerator&) = delete;
  AudioDeviceEnumerator& operator=(const AudioDeviceEnumerator&) = delete;
};
