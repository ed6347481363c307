// Endpoint lists, lookup by name, defaults, and the exported listener,
// against scripted Core Audio objects.
#include "audio/audio_device_enumerator.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "audio/audio_device_listener.h"
#include "audio/fake_core_audio.h"

namespace {

using fake_audio::FakeAudioSystem;
using fake_audio::Step;

std::vector<std::wstring> Names(const std::vector<AudioDeviceInfo>& devices) {
  std::vector<std::wstring> names;
  for (const AudioDeviceInfo& d : devices) names.push_back(d.name);
  return names;
}

class AudioDeviceEnumeratorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    system_.AddEndpoint({L"in-a", L"Line In", true});
    system_.AddEndpoint({L"in-b", L"Microphone", true, DEVICE_STATE_UNPLUGGED});
    system_.AddEndpoint({L"in-c", L"Microphone", true});
    system_.AddEndpoint({L"in-d", L"Microphone", true});
    system_.AddEndpoint({L"in-e", L"", true, DEVICE_STATE_ACTIVE, false});
    system_.AddEndpoint({L"out-a", L"Speakers", false});
    system_.SetDefault(true, L"in-d");
    system_.SetDefault(false, L"out-a");
  }
  void TearDown() override { EXPECT_EQ(system_.live_objects(), 0); }

  FakeAudioSystem system_;
  AudioDeviceEnumerator* enumerator_ = AudioDeviceEnumerator::GetInstance();
};

TEST_F(AudioDeviceEnumeratorTest, ListsActiveEndpointsOfOneDirectionInTheSystemsOrder) {
  std::vector<AudioDeviceInfo> devices(3);  // cleared first
  enumerator_->EnumerateDevices(true, devices);
  ASSERT_EQ(Names(devices), (std::vector<std::wstring>{L"Line In", L"Microphone", L"Microphone", L""}));
  EXPECT_EQ(devices[1].id, L"in-c");
  for (const AudioDeviceInfo& d : devices) EXPECT_TRUE(d.is_input);
  enumerator_->EnumerateDevices(false, devices);
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_EQ(devices[0].id, L"out-a");
  EXPECT_FALSE(devices[0].is_input);
}

TEST_F(AudioDeviceEnumeratorTest, FindsTheFirstActiveEndpointByExactName) {
  EXPECT_EQ(enumerator_->FindDeviceId(true, L"Microphone"), L"in-c");  // in-b is unplugged
  EXPECT_EQ(enumerator_->FindDeviceId(true, L"microphone"), L"");
  EXPECT_EQ(enumerator_->FindDeviceId(false, L"Microphone"), L"");
  EXPECT_EQ(enumerator_->FindDeviceId(true, L""), L"in-e");  // the one without a name
  // Listed afresh on every call.
  system_.SetState(L"in-c", DEVICE_STATE_DISABLED);
  EXPECT_EQ(enumerator_->FindDeviceId(true, L"Microphone"), L"in-d");
}

TEST_F(AudioDeviceEnumeratorTest, DefaultsUseCommunicationsForInputAndConsoleForOutput) {
  AudioDeviceInfo device;
  ASSERT_TRUE(enumerator_->GetDefaultDevice(true, device));
  EXPECT_EQ(device.id, L"in-d");
  EXPECT_EQ(device.name, L"Microphone");
  EXPECT_TRUE(device.is_input);
  ASSERT_TRUE(enumerator_->GetDefaultDevice(false, device));
  EXPECT_EQ(device.id, L"out-a");
  EXPECT_FALSE(device.is_input);
  EXPECT_EQ(system_.Calls(),
            (std::vector<std::wstring>{L"CreateEnumerator", L"GetDefaultAudioEndpoint(1,2)",
                                       L"CreateEnumerator", L"GetDefaultAudioEndpoint(0,0)"}));
}

TEST(AudioDeviceEnumeratorEmpty, NoEndpointsOrNoEnumerator) {
  FakeAudioSystem system;
  AudioDeviceEnumerator* enumerator = AudioDeviceEnumerator::GetInstance();
  std::vector<AudioDeviceInfo> devices(1);
  enumerator->EnumerateDevices(true, devices);
  EXPECT_TRUE(devices.empty());
  EXPECT_EQ(enumerator->FindDeviceId(true, L""), L"");
  AudioDeviceInfo device;
  EXPECT_FALSE(enumerator->GetDefaultDevice(true, device));
  EXPECT_TRUE(device.is_input);
  system.AddEndpoint({L"in", L"Mic", true});
  system.SetDefault(true, L"in");
  system.FailAt(Step::kCreateEnumerator, REGDB_E_CLASSNOTREG);
  devices.resize(2);
  enumerator->EnumerateDevices(true, devices);
  EXPECT_TRUE(devices.empty());
  EXPECT_FALSE(enumerator->GetDefaultDevice(true, device));
}

TEST(AudioDeviceEnumeratorInstance, RacingFirstCallersAllGetTheOneInstalledObject) {
  std::vector<AudioDeviceEnumerator*> seen(8);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&seen, i] { seen[i] = AudioDeviceEnumerator::GetInstance(); });
  }
  for (std::thread& t : threads) t.join();
  for (AudioDeviceEnumerator* e : seen) EXPECT_EQ(e, AudioDeviceEnumerator::GetInstance());
}

class Listened : public AudioDeviceListenerEvent {
 public:
  void OnDeviceStateChanged(const wchar_t* device_id) override { ids.push_back(device_id); }
  std::vector<std::wstring> ids;
};

TEST(AudioDeviceListenerTest, PassesOnStateChangesOnlyAndHasNoReferenceCount) {
  FakeAudioSystem system;
  // The listener keeps its enumerator: COM is the creating thread's own.
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  IAudioDeviceListener* listener = IAudioDeviceListener::Create();
  IMMNotificationClient* client = system.notification_client();
  ASSERT_NE(client, nullptr);
  EXPECT_EQ(client, static_cast<IMMNotificationClient*>(static_cast<AudioDeviceListener*>(listener)));

  // No event yet: swallowed.
  EXPECT_EQ(client->OnDeviceStateChanged(L"x", DEVICE_STATE_UNPLUGGED), S_OK);
  Listened event;
  listener->SetListenerEvent(&event);
  EXPECT_EQ(client->OnDeviceStateChanged(L"in-1", DEVICE_STATE_UNPLUGGED), S_OK);
  EXPECT_EQ(client->OnDeviceAdded(L"in-2"), S_OK);
  EXPECT_EQ(client->OnDeviceRemoved(L"in-3"), S_OK);
  EXPECT_EQ(client->OnDefaultDeviceChanged(eCapture, eConsole, L"in-4"), S_OK);
  PROPERTYKEY key = {};
  EXPECT_EQ(client->OnPropertyValueChanged(L"in-5", key), S_OK);
  EXPECT_EQ(event.ids, std::vector<std::wstring>{L"in-1"});

  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(client->AddRef(), 1u);
    EXPECT_EQ(client->Release(), 1u);
    EXPECT_EQ(client->Release(), 1u);
  }
  void* object = reinterpret_cast<void*>(1);
  EXPECT_EQ(client->QueryInterface(IID_IUnknown, &object), S_OK);
  EXPECT_EQ(object, client);
  object = nullptr;
  EXPECT_EQ(client->QueryInterface(__uuidof(IMMNotificationClient), &object), S_OK);
  EXPECT_EQ(object, client);
  object = reinterpret_cast<void*>(1);
  EXPECT_EQ(client->QueryInterface(__uuidof(IMMDeviceEnumerator), &object), E_NOINTERFACE);
  EXPECT_EQ(object, nullptr);
  // Still alive after all that: it still forwards.
  EXPECT_EQ(client->OnDeviceStateChanged(L"in-6", DEVICE_STATE_ACTIVE), S_OK);
  EXPECT_EQ(event.ids.size(), 2u);

  IAudioDeviceListener::Release(listener);
  EXPECT_EQ(system.Count(L"Unregister"), 1);
  EXPECT_EQ(system.notification_client(), nullptr);
  EXPECT_EQ(system.live_objects(), 0);
  IAudioDeviceListener::Release(nullptr);
  CoUninitialize();
}

TEST(AudioDeviceListenerTest, WithoutAnEnumeratorItStillExistsAndHearsNothing) {
  FakeAudioSystem system;
  system.FailAt(Step::kCreateEnumerator, E_OUTOFMEMORY);
  IAudioDeviceListener* listener = IAudioDeviceListener::Create();
  ASSERT_NE(listener, nullptr);
  Listened event;
  listener->SetListenerEvent(&event);
  EXPECT_EQ(system.notification_client(), nullptr);
  IAudioDeviceListener::Release(listener);
  EXPECT_EQ(system.Count(L"Unregister"), 0);
}

}  // namespace
