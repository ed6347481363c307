// How the microphone test reports its loudness to whoever owns it.
#pragma once

class AudioDeviceTestEvent {
 public:
  virtual ~AudioDeviceTestEvent() {}
  // On the test's capture thread.
  virtual void OnAudioLevel(int /*level*/) {}
};
