// What the audio tests share: waits on state that the capture thread changes; a recorder of what it delivers.
#pragma once

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

#include "audio/audio_device_test_event.h"
#include "audio/tone_player.h"
#include "roomcore/audio.h"

namespace audio_testing {

class Monitor {
 public:
  // Runs `change` under the lock, wakes the waiters, and gives its result.
  template <typename F>
  auto Locked(F change) {
    std::lock_guard<std::mutex> lock(mutex_);
    changed_.notify_all();
    return change();
  }
  template <typename F>
  bool Wait(F done, int timeout_ms = 5000) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), done);
  }
  std::mutex mutex_;

 private:
  std::condition_variable changed_;
};

struct Block {
  void* user_data;
  std::vector<uint8_t> bytes;  // `size` of them
  int bits, rate, channels;
  int64_t timestamp;
  DWORD thread;
};

class Recorder : public AudioCaptureEvent, public AudioDeviceTestEvent, public Monitor {  // and of levels
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
  std::function<void()> action;  // run once, inside the next block or level, if set before it

 private:
  void Act() {
    std::function<void()> act;
    act.swap(action);
    if (act) act();
  }
};

}  // namespace audio_testing
