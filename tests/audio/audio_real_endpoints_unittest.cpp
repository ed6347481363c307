// The enumerator and the microphone level on the real endpoints of the test
// run's sound server: a null sink and its monitor.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>

#include "audio/audio_device_enumerator.h"
#include "audio/audio_device_test.h"
#include "audio/audio_testing.h"

namespace {

TEST(RealEndpoints, EnumeratorListsFindsAndNamesTheDefaults) {
  AudioDeviceEnumerator* enumerator = AudioDeviceEnumerator::GetInstance();
  for (bool is_input : {true, false}) {
    std::vector<AudioDeviceInfo> devices;
    enumerator->EnumerateDevices(is_input, devices);
    std::wstring names;
    for (const AudioDeviceInfo& d : devices) names += L"\"" + d.name + L"\" ";
    printf("%s: %ls\n", is_input ? "capture" : "render", names.c_str());
    const wchar_t* mine = is_input ? L"\"Monitor of Null Output\"" : L"\"Null Output\"";
    EXPECT_NE(names.find(mine), std::wstring::npos) << "is the sound server running (scripts/test-env.sh)?";
    AudioDeviceInfo def;
    ASSERT_TRUE(enumerator->GetDefaultDevice(is_input, def));
    EXPECT_NE(names.find(L"\"" + def.name + L"\""), std::wstring::npos);
    EXPECT_EQ(enumerator->FindDeviceId(is_input, def.name), def.id);
  }
  EXPECT_EQ(enumerator->FindDeviceId(false, L"Monitor of Null Output"), L"");
}

// The level of the third 600 ms report (the first may hold the stream's start).
int MeasuredLevel() {
  audio_testing::Recorder event;
  AudioDeviceTest test(&event);
  test.Start(L"Monitor of Null Output");
  EXPECT_TRUE(event.Wait([&] { return event.levels.size() >= 3; }, 10000));
  test.Stop();
  EXPECT_EQ(event.levels.back(), 0) << "the stop reports 0";
  return event.levels.at(2);
}

TEST(RealEndpoints, LevelOfFullScaleTonesAndOfSilence) {
  {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(tone.Start(L"Null Output", 50, 1.0, audio_testing::TonePlayer::Shape::kSquare));
    EXPECT_EQ(MeasuredLevel(), 67);
  }
  {
    // A sine's mean magnitude is 2/pi of its peak: 14 * log10(65536 * 0.6366).
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(tone.Start(L"Null Output", 1000, 1.0, audio_testing::TonePlayer::Shape::kSine));
    EXPECT_EQ(MeasuredLevel(), 64);
  }
  EXPECT_EQ(MeasuredLevel(), INT_MIN) << "nothing plays: exact zeros";
}

}  // namespace
