// What the audio tests share: a recorder of what the capture thread delivers, and waits on it.
#pragma once

#include <windows.h>

#include <functional>
#include <vector>

#include "audio/audio_device_test_event.h"
#include "audio/tone_player.h"
#include "common/journal.h"
#include "roomcore/audio.h"

namespace audio_testing {

struct Block {
  void* user_data;
  std::vector<uint8_t> bytes;  // `size` of them
  int bits, rate, channels;
  int64_t timestamp;
  DWORD thread;
};

// What a capture delivers, and a microphone test's levels.
class Recorder : public AudioCaptureEvent, public AudioDeviceTestEvent, public testing_support::Monitor {
 public:
  void OnAudioData(void* user_data, const void* data, int size, int bits, int rate, int channels,
                   int64_t timestamp) override {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    Locked([&] {
      blocks.push_back({user_data, {p, p + size}, bits, rate, channels, timestamp, GetCurrentThreadId()});
    });
    Act();
  }
  void OnCaptureStopped() override {
    Locked([&] { stop_ticks.push_back(GetTickCount()); });
  }
  void OnAudioLevel(int level) override {
    Locked([&] { levels.push_back(level); });
    Act();
  }
  bool WaitBlocks(size_t n, int ms = 5000) {
    return Wait([&] { return blocks.size() >= n; }, ms);
  }
  std::vector<Block> blocks;
  std::vector<DWORD> stop_ticks;
  std::vector<int> levels;
  // Runs `act` once, inside the next block or level.
  void Then(std::function<void()> act) {
    Locked([&] { action_ = std::move(act); });
  }

 private:
  void Act() {
    const std::function<void()> act = Locked([&] { return std::exchange(action_, nullptr); });
    if (act) act();
  }
  std::function<void()> action_;
};

}  // namespace audio_testing
