// What the audio tests share: state changed by the capture thread and waits
// on it, and a recorder of what a capture delivers.
#pragma once

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "audio/tone_player.h"
#include "roomcore/audio.h"

namespace audio_testing {

class Monitor {
 public:
  template <typename F>
  void Update(F change) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      change();
    }
    changed_.notify_all();
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

class Recorder : public AudioCaptureEvent, public Monitor {
 public:
  void OnAudioData(void* user_data, const void* data, int size, int bits, int rate, int channels,
                   int64_t timestamp) override {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    Update([&] {
      blocks.push_back({user_data, {p, p + size}, bits, rate, channels, timestamp, GetCurrentThreadId()});
    });
    std::function<void()> act;
    act.swap(action);
    if (act) act();
  }
  void OnCaptureStopped() override {
    Update([&] { stop_ticks.push_back(GetTickCount()); });
  }
  bool WaitBlocks(size_t n, int ms = 5000) {
    return Wait([&] { return blocks.size() >= n; }, ms);
  }
  bool WaitStopped(size_t n, int ms = 5000) {
    return Wait([&] { return stop_ticks.size() >= n; }, ms);
  }
  std::vector<Block> blocks;
  std::vector<DWORD> stop_ticks;
  std::function<void()> action;  // run once, inside the next block, if set before it
};

}  // namespace audio_testing
