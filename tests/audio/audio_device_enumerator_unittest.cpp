// Endpoint lists, lookup by name, defaults, and the exported listener.
#include "audio/audio_device_enumerator.h"

#include <thread>

#include "audio/audio_device_listener.h"
#include "audio/fake_core_audio.h"

namespace {

TEST_F(AudioTest, EnumeratorListsFindsAndNamesActiveEndpoints) {
  audio.Add({L"mic3", L"Headset", true, DEVICE_STATE_UNPLUGGED});
  audio.Add({L"mic4", L"Headset"});
  audio.Add({L"mic5", L""});
  AudioDeviceEnumerator* enumerator = AudioDeviceEnumerator::GetInstance();
  std::vector<AudioDeviceInfo> devices(3);  // cleared first
  enumerator->EnumerateDevices(true, devices);
  std::wstring listed;
  for (const AudioDeviceInfo& d : devices) listed += d.id + L"=" + d.name + (d.is_input ? L";" : L"!");
  EXPECT_EQ(listed, L"mic1=Microphone;mic2=Headset;mic4=Headset;mic5=;");
  enumerator->EnumerateDevices(false, devices);
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_TRUE(devices[0].id == L"spk1" && !devices[0].is_input);
  const struct {
    bool is_input;
    const wchar_t *name, *id;
  } finds[] = {{true, L"Headset", L"mic2"},
               {true, L"headset", L""},
               {false, L"Headset", L""},
               {true, L"", L"mic5"},
               {false, L"Speakers", L"spk1"}};
  for (const auto& f : finds) EXPECT_EQ(enumerator->FindDeviceId(f.is_input, f.name), f.id);
  audio.SetState(L"mic2", DEVICE_STATE_DISABLED);  // listed afresh on each call
  EXPECT_EQ(enumerator->FindDeviceId(true, L"Headset"), L"mic4");
  Clear();
  AudioDeviceInfo input, output;
  ASSERT_TRUE(enumerator->GetDefaultDevice(true, input) && enumerator->GetDefaultDevice(false, output));
  EXPECT_TRUE(input.id == L"mic1" && input.name == L"Microphone" && input.is_input);
  EXPECT_TRUE(output.id == L"spk1" && output.name == L"Speakers" && !output.is_input);
  EXPECT_EQ(Calls(), (std::vector<std::wstring>{L"CreateEnumerator", L"GetDefault(1,2)", L"CreateEnumerator",
                                                L"GetDefault(0,0)"}));
  // No default, then no enumerator at all.
  audio.SetDefault(true, L"");
  EXPECT_FALSE(enumerator->GetDefaultDevice(true, input));
  audio.Script([](const std::wstring& call) { return call == L"CreateEnumerator" ? E_FAIL : S_OK; });
  enumerator->EnumerateDevices(true, devices);
  EXPECT_TRUE(devices.empty());
  EXPECT_FALSE(enumerator->GetDefaultDevice(false, output));
}

TEST_F(AudioTest, RacingFirstCallersAllGetTheOneEnumerator) {
  std::vector<AudioDeviceEnumerator*> seen(8);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i)
    threads.emplace_back([&seen, i] { seen[i] = AudioDeviceEnumerator::GetInstance(); });
  for (std::thread& t : threads) t.join();
  for (AudioDeviceEnumerator* e : seen) EXPECT_EQ(e, AudioDeviceEnumerator::GetInstance());
}

struct Changes : AudioDeviceListenerEvent {
  void OnDeviceStateChanged(const wchar_t* id) override { ids += id; }
  std::wstring ids;
};

TEST_F(AudioTest, ListenerPassesOnStateChangesOnlyAndCountsNoReferences) {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);  // the listener's enumerator lives in the host's apartment
  for (bool has_enumerator : {true, false}) {
    if (!has_enumerator)
      audio.Script([](const std::wstring& c) { return c == L"CreateEnumerator" ? E_FAIL : S_OK; });
    IAudioDeviceListener* listener = IAudioDeviceListener::Create();
    IMMNotificationClient* client = audio.client_;
    EXPECT_EQ(client != nullptr, has_enumerator);
    if (!client) IAudioDeviceListener::Release(listener);
    if (!client) break;
    Changes changes;
    client->OnDeviceStateChanged(L"a", DEVICE_STATE_UNPLUGGED);  // no event yet: swallowed
    listener->SetListenerEvent(&changes);
    PROPERTYKEY key = {};
    const HRESULT results[] = {client->OnDeviceStateChanged(L"b", DEVICE_STATE_UNPLUGGED),
                               client->OnDeviceAdded(L"c"), client->OnDeviceRemoved(L"d"),
                               client->OnDefaultDeviceChanged(eCapture, eConsole, L"e"),
                               client->OnPropertyValueChanged(L"f", key)};
    for (HRESULT hr : results) EXPECT_EQ(hr, S_OK);
    EXPECT_EQ(changes.ids, L"b");
    void* object = nullptr;
    for (int i = 0; i < 3; ++i)
      EXPECT_TRUE(client->AddRef() == 1 && client->Release() == 1 && client->Release() == 1);
    EXPECT_TRUE(client->QueryInterface(IID_IUnknown, &object) == S_OK && object == client);
    EXPECT_TRUE(client->QueryInterface(__uuidof(IMMNotificationClient), &object) == S_OK && object == client);
    EXPECT_TRUE(client->QueryInterface(__uuidof(IMMDevice), &object) == E_NOINTERFACE && !object);
    client->OnDeviceStateChanged(L"g", DEVICE_STATE_ACTIVE);  // still alive
    EXPECT_EQ(changes.ids, L"bg");
    IAudioDeviceListener::Release(listener);
    EXPECT_TRUE(audio.Count(L"Unregister") == 1 && !audio.client_);
  }
  IAudioDeviceListener::Release(nullptr);
  CoUninitialize();
}

}  // namespace
