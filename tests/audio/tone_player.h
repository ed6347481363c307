// A tone played into the test run's only sink, "Null Output", whose monitor (the default input) records it.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace audio_testing {

class TonePlayer {
 public:
  enum class Shape { kSine, kSquare };
  ~TonePlayer() { Stop(); }
  // Loops the tone (full scale 1.0) on the default output, which must be the endpoint of this name; false if
  // there is none.
  bool Start(const std::wstring& endpoint_name, double frequency, double amplitude, Shape shape);
  void Stop();

 private:
  std::vector<char> wave_;
};

}  // namespace audio_testing
