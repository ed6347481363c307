// An AudioDeviceTestEvent that keeps every reported level, for tests of the
// microphone level meter.
#pragma once

#include <mutex>
#include <vector>

#include "audio/audio_device_test_event.h"

namespace audio_testing {

class LevelRecorder : public AudioDeviceTestEvent {
 public:
  void OnAudioLevel(int level) override {
    std::lock_guard<std::mutex> lock(mutex_);
    levels_.push_back(level);
  }
  std::vector<int> levels() {
    std::lock_guard<std::mutex> lock(mutex_);
    return levels_;
  }
  size_t size() { return levels().size(); }

 private:
  std::mutex mutex_;
  std::vector<int> levels_;
};

}  // namespace audio_testing
