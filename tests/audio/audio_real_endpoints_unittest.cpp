// The library's enumerator and microphone level on the real endpoints of the
// test run's sound server (a PulseAudio null sink under Wine).
#include <windows.h>

#include <audioclient.h>
#include <gtest/gtest.h>
#include <mmdeviceapi.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <mutex>

#include "audio/audio_device_enumerator.h"
#include "audio/audio_device_test.h"
#include "audio/level_recorder.h"
#include "audio/tone_player.h"
#include "common/log_capture.h"

namespace {

const wchar_t kSink[] = L"Null Output";
const wchar_t kMonitor[] = L"Monitor of Null Output";

class RealEndpoints : public ::testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ASSERT_TRUE(audio_testing::HasEndpoint(true, kMonitor))
        << "no null-sink monitor: run through scripts/test-env.sh, which starts the sound server";
  }
  void TearDown() override { CoUninitialize(); }
};

bool Contains(const std::vector<AudioDeviceInfo>& devices, const std::wstring& name) {
  return std::any_of(devices.begin(), devices.end(),
                     [&](const AudioDeviceInfo& d) { return d.name == name; });
}

TEST_F(RealEndpoints, EnumeratorListsFindsAndNamesTheDefaults) {
  AudioDeviceEnumerator* enumerator = AudioDeviceEnumerator::GetInstance();
  std::vector<AudioDeviceInfo> inputs, outputs;
  enumerator->EnumerateDevices(true, inputs);
  enumerator->EnumerateDevices(false, outputs);
  EXPECT_TRUE(Contains(inputs, kMonitor));
  EXPECT_TRUE(Contains(outputs, kSink));
  EXPECT_FALSE(Contains(inputs, kSink));
  for (const AudioDeviceInfo& d : inputs) {
    EXPECT_FALSE(d.id.empty());
    EXPECT_TRUE(d.is_input);
  }
  const std::wstring monitor_id = enumerator->FindDeviceId(true, kMonitor);
  EXPECT_FALSE(monitor_id.empty());
  EXPECT_EQ(enumerator->FindDeviceId(false, kMonitor), L"");
  AudioDeviceInfo input, output;
  ASSERT_TRUE(enumerator->GetDefaultDevice(true, input));
  ASSERT_TRUE(enumerator->GetDefaultDevice(false, output));
  EXPECT_TRUE(Contains(inputs, input.name)) << "default input: " << input.name.size();
  EXPECT_TRUE(Contains(outputs, output.name));
  EXPECT_EQ(enumerator->FindDeviceId(true, input.name).empty(), false);
  auto print = [](const char* what, const std::vector<AudioDeviceInfo>& list, const AudioDeviceInfo& def) {
    printf("%s:", what);
    for (const AudioDeviceInfo& d : list) printf(" \"%ls\"", d.name.c_str());
    printf("; default \"%ls\"\n", def.name.c_str());
  };
  print("capture endpoints", inputs, input);
  print("render endpoints", outputs, output);
}

TEST_F(RealEndpoints, TheMonitorMixIsStereoFloatAt44100) {
  IMMDeviceEnumerator* enumerator = nullptr;
  ASSERT_EQ(CoCreateInstance(__uuidof(MMDeviceEnumerator), nullptr, CLSCTX_ALL, __uuidof(IMMDeviceEnumerator),
                             reinterpret_cast<void**>(&enumerator)),
            S_OK);
  IMMDevice* device = nullptr;
  ASSERT_EQ(enumerator->GetDevice(AudioDeviceEnumerator::GetInstance()->FindDeviceId(true, kMonitor).c_str(),
                                  &device),
            S_OK);
  IAudioClient* client = nullptr;
  ASSERT_EQ(device->Activate(__uuidof(IAudioClient), CLSCTX_ALL, nullptr, reinterpret_cast<void**>(&client)),
            S_OK);
  WAVEFORMATEX* format = nullptr;
  ASSERT_EQ(client->GetMixFormat(&format), S_OK);
  EXPECT_EQ(format->nSamplesPerSec, 44100u);
  EXPECT_EQ(format->nChannels, 2);
  EXPECT_EQ(format->wBitsPerSample, 32);
  EXPECT_EQ(format->wFormatTag, WAVE_FORMAT_EXTENSIBLE);
  CoTaskMemFree(format);
  client->Release();
  device->Release();
  enumerator->Release();
}

using Levels = audio_testing::LevelRecorder;

// The levels of a few 600 ms reports of what the monitor records.
std::vector<int> MeasureLevels(size_t reports) {
  Levels levels;
  AudioDeviceTest test(&levels);
  test.Start(kMonitor);
  EXPECT_TRUE(testing_support::WaitUntil([&] { return levels.levels().size() >= reports; }, 10000));
  test.Stop();
  std::vector<int> result = levels.levels();
  EXPECT_EQ(result.back(), 0) << "the stop reports 0";
  return result;
}

TEST_F(RealEndpoints, LevelOfAFullScaleToneAndOfSilence) {
  {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(tone.Start(kSink, 50.0, 1.0, audio_testing::TonePlayer::Shape::kSquare));
    std::vector<int> levels = MeasureLevels(4);
    // The first report may hold the stream's start; later ones the tone.
    EXPECT_EQ(levels[levels.size() - 2], 67) << "square wave at full scale";
  }
  {
    audio_testing::TonePlayer tone;
    ASSERT_TRUE(tone.Start(kSink, 1000.0, 1.0, audio_testing::TonePlayer::Shape::kSine));
    std::vector<int> levels = MeasureLevels(4);
    // Mean magnitude of a sine is 2/pi of its peak: 14 * log10(65536 * 0.6366).
    EXPECT_EQ(levels[levels.size() - 2], 64) << "sine at full scale";
  }
  std::vector<int> levels = MeasureLevels(4);
  EXPECT_EQ(levels[levels.size() - 2], INT_MIN) << "nothing plays: exact zeros";
}

}  // namespace
