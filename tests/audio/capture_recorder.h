// An AudioCaptureEvent that keeps what it is given and lets tests wait for it.
#pragma once

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "roomcore/audio.h"

namespace audio_testing {

struct Block {
  void* user_data;
  std::vector<uint8_t> bytes;
  int size;
  int bits_per_sample;
  int sample_rate;
  int channels;
  int64_t timestamp;
  DWORD thread_id;
};

class CaptureRecorder : public AudioCaptureEvent {
 public:
  void OnAudioData(void* user_data, const void* data, int size, int bits_per_sample, int sample_rate,
                   int channels, int64_t timestamp) override {
    Block block{
        user_data,
        std::vector<uint8_t>(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size),
        size,
        bits_per_sample,
        sample_rate,
        channels,
        timestamp,
        GetCurrentThreadId()};
    {
      std::lock_guard<std::mutex> lock(mutex_);
      blocks_.push_back(std::move(block));
    }
    changed_.notify_all();
  }
  void OnCaptureStopped() override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      ++stopped_;
      stop_times_.push_back(GetTickCount());
    }
    changed_.notify_all();
  }

  bool WaitForBlocks(size_t count, DWORD timeout_ms = 5000) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms),
                             [&] { return blocks_.size() >= count; });
  }
  bool WaitForStopped(int count, DWORD timeout_ms = 5000) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), [&] { return stopped_ >= count; });
  }
  std::vector<Block> blocks() {
    std::lock_guard<std::mutex> lock(mutex_);
    return blocks_;
  }
  int stopped() {
    std::lock_guard<std::mutex> lock(mutex_);
    return stopped_;
  }
  std::vector<DWORD> stop_times() {
    std::lock_guard<std::mutex> lock(mutex_);
    return stop_times_;
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    blocks_.clear();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Block> blocks_;
  int stopped_ = 0;
  std::vector<DWORD> stop_times_;
};

// The blocks' 16-bit samples, one after the other.
inline std::vector<int16_t> Samples16(const std::vector<Block>& blocks) {
  std::vector<int16_t> samples;
  for (const Block& b : blocks) {
    const int16_t* s = reinterpret_cast<const int16_t*>(b.bytes.data());
    samples.insert(samples.end(), s, s + b.bytes.size() / 2);
  }
  return samples;
}

}  // namespace audio_testing
