// The engine's internal face that a host can't reach: the microphone-test
// level callback.
#include <gtest/gtest.h>

#include "engine/rtc_engine_impl.h"
#include "engine_test_support.h"

namespace engine_test {
namespace {

TEST(RTCEngineImpl, AudioLevelsBecomeMicTestVolumesWhileAHostListens) {
  LiteavReset();
  RecordingEvents events;
  RTCEngineImpl* engine = new RTCEngineImpl();
  AudioDeviceTestEvent* test_event = engine;
  test_event->OnAudioLevel(3);  // no host yet
  engine->Initialize(nullptr, &events);
  test_event->OnAudioLevel(67);
  engine->UnInitialize();
  test_event->OnAudioLevel(5);
  delete engine;
  EXPECT_EQ(events.Texts(), std::vector<std::string>{"OnMicTestVolume(67)"});
}

}  // namespace
}  // namespace engine_test
