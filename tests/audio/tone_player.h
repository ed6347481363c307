// Plays a test tone into a render endpoint of the real audio system (the
// test run's null sink), so that its monitor endpoint records it.
#pragma once

#include <windows.h>

#include <atomic>
#include <string>

namespace audio_testing {

class TonePlayer {
 public:
  enum class Shape { kSine, kSquare };

  TonePlayer() = default;
  ~TonePlayer() { Stop(); }
  TonePlayer(const TonePlayer&) = delete;
  TonePlayer& operator=(const TonePlayer&) = delete;

  // True once the stream on the endpoint with this friendly name plays.
  bool Start(const std::wstring& endpoint_name, double frequency, double amplitude, Shape shape);
  void Stop();
  // The endpoint's mix rate, known after Start.
  int rate() const { return rate_; }

 private:
  static DWORD WINAPI Thread(LPVOID param);
  bool Play();

  std::wstring endpoint_name_;
  double frequency_ = 0;
  double amplitude_ = 0;
  Shape shape_ = Shape::kSine;
  int rate_ = 0;
  HANDLE started_ = nullptr;
  HANDLE stop_ = nullptr;
  HANDLE done_ = nullptr;
  std::atomic<bool> ok_{false};
};

// Friendly names of the active endpoints of one direction, read straight
// from Core Audio.
std::wstring ListEndpoints(bool is_input);
bool HasEndpoint(bool is_input, const std::wstring& name);

}  // namespace audio_testing
