// Each operation and SDK callback as the host sees it; then what takes time or more than one thread.
#include <random>
#include <thread>
#include <tuple>

#include "engine_test_support.h"
#include "roomcore/clock.h"

namespace engine_test {
namespace {

TEST_F(EngineTest, EachOperationAndCallback) {
  const char* const cases[] = {
      // script # SDK calls ("@T": on the task thread; $V, $R, $E: below, in key order) # events # log lines
      "release; forget; devices(0,M1); create; create; GetMicDevices; Initialize; log(caf\xC3\xA9); release "
      "# getTRTCShareInstance()@T|getMicDevicesList()@T|getCameraDevicesList()@T|setLogLevel(1)|"
      "setLogCallback(callback)|addCallback(callback)|setLocalVideoRenderCallback(3,1,callback)|"
      "removeCallback(callback)|destroyTRTCShareInstance() # =M1 # PreInitialize|DoTaskCore Enter|"
      "DoTaskCore Enter2|TRTC:caf\xE9|~RTCEngineImpl|UnInitialize",
      "release; create; Initialize; forget; EnableCaptureSystemAudio(1); drain; post(8999); post(9008); com;"
      " onDeviceChange(Mic A,0,0); drain; post(18); EnableCaptureSystemAudio(1); release # "
      "getCurrentSpeakerDevice()@T|getCurrentMicDevice()@T|getMicDevicesList()@T|removeCallback(callback)|"
      "destroyTRTCShareInstance() # =apartment@T|OnDeviceChanged(1)@T # EnableCaptureSystemAudio:1|"
      "OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0|onDeviceChange: Mic A , mic "
      "state is 0|EnableCaptureSystemAudio:1|~RTCEngineImpl|UnInitialize",
      "EnterRoom(1400,1234,alice,sig); drain; onEnterRoom(20); IsInRoom; OpenCamera(0); ExitRoom; IsInRoom; "
      "drain; onExitRoom(0) # $E|$R|$V|startLocalPreview(0)|stopLocalPreview()|exitRoom() # =1|OnEnterRoom(0,"
      "success)|=1|=1|=0|OnExitRoom(0,success) # EnterRoom:app_id:1400, room_id:1234, usr_id:alice, "
      "usr_sign:sig|onEnterRoom|OpenCamera|startLocalPreview|ExitRoom|CloseCamera|stopLocalPreview|"
      "CloseMicDevice|OnCloseMicDeviceTask: 0|onExitRoom",
      "entered; OpenCamera(0); forget; onExitRoom(2); IsInRoom # stopLocalPreview() # OnExitRoom(0,success)|"
      "=0 # onExitRoom|CloseCamera|stopLocalPreview|CloseMicDevice|OnCloseMicDeviceTask: 0",
      "StartMicDeviceTest; StartCameraDeviceTest(64); forget; onExitRoom(0) # stopMicDeviceTest()|"
      "startMicDeviceTest(400)|stopCameraDeviceTest()|$V|startCameraDeviceTest(0) # OnExitRoom(0,success) # "
      "onExitRoom|StopMicDeviceTest|StartMicDeviceTest|StopCameraDeviceTest|inner stopCameraDeviceTest|"
      "StartCameraDeviceTest|inner startCameraDeviceTest",
      "EnterRoom(1,2,bob,s); EnterRoom(null,2,bob,s); EnterRoom(1,null,bob,s); EnterRoom(1,2,null,s); "
      "EnterRoom(1,2,bob,null); EnterRoom(null,null,null,null); ReEnterRoom; drain; EnterRoom(,room,,) # "
      "enterRoom(1,2,bob,s,0,(null),(null),(null),0)@T|enterRoom(1,2,bob,s,0,(null),(null),(null),0)@T|"
      "enterRoom(0,0,,,0,(null),(null),(null),0)@T # =1|=0|=0|=0|=0|=0|=1|=1 # EnterRoom:app_id:1, "
      "room_id:2, usr_id:bob, usr_sign:s|EnterRoom:app_id is null.failed!|EnterRoom:room_id is null.failed!|"
      "EnterRoom:usr_id is null.failed!|EnterRoom:usr_sign is null.failed!|EnterRoom:app_id is null.failed!|"
      "EnterRoom:app_id:, room_id:room, usr_id:, usr_sign:",
      "onUserEnter(bob); onUserExit(bob,3); onUserVideoAvailable(bob,1); onUserAudioAvailable(bob,0); "
      "onConnectionLost; onTryToReconnect; onConnectionRecovery; onWarning(5,hot); onError(-1301,camera "
      "failed); onCameraDidReady; onMicDidReady # setRemoteVideoRenderCallback(bob,3,1,callback)|"
      "setAudioFrameCallback(callback)|startRemoteView(bob,0)|stopRemoteView(bob) # OnUserEnter(bob)|"
      "OnUserExit(bob,3)|OnUserVideoAvailable(bob,1)|OnUserAudioAvailable(bob,0)|OnConnectionLost()|"
      "OnTryToReconnect()|OnConnectionRecovery()|OnError(-1301,camera failed) # onUserEnter:bob|"
      "onUserExit:bob|onUserVideoAvailable:bob, available:1|onUserAudioAvailable:bob, available:0|"
      "onConnectionLost|onTryToReconnect|onConnectionRecovery|onWarning:hot, code=5|onError:camera failed, "
      "code=-1301|onCameraDidReady: ThreadId=$me|onMicDidReady: ThreadId=$me",
      "StartRemoteDesktopView(carol,85); StopRemoteDesktopView(carol); onUserSubStreamAvailable(carol,0); "
      "onUserSubStreamAvailable(dave,1); onUserSubStreamAvailable(carol,1) # startRemoteSubStreamView(carol,"
      "85)|stopRemoteSubStreamView(carol)|startRemoteSubStreamView(carol,0) # "
      "OnUserSubStreamAvailable(carol,0)|OnUserSubStreamAvailable(dave,1)|OnUserSubStreamAvailable(carol,1) "
      "# StartRemoteDesktopView:carol|StopRemoteDesktopView:carol|onUserSubStreamAvailable:carol, "
      "available:0|onUserSubStreamAvailable:dave, available:1|onUserSubStreamAvailable:carol, available:1|"
      "onUserSubStreamAvailable call startRemoteSubStreamView:carol",
      "onNetworkQuality(1); onNetworkQuality(2); onNetworkQuality(3); onNetworkQuality(4); "
      "onNetworkQuality(5); onNetworkQuality(6); onNetworkQuality(0); onNetworkQuality(7); EnterRoom(1400,"
      "1234,alice,sig); onNetworkQuality(0); onNetworkQuality(6) # $E # OnNetworkQuality(0)|"
      "OnNetworkQuality(0)|OnNetworkQuality(0)|OnNetworkQuality(0)|OnNetworkQuality(1)|OnNetworkQuality(1)|"
      "OnNetworkQuality(1)|OnNetworkQuality(1)|=1|OnNetworkQuality(0)|OnNetworkQuality(1) # "
      "EnterRoom:app_id:1400, room_id:1234, usr_id:alice, usr_sign:sig",
      "entered; onUserVoiceVolume(:50,bob:30); onUserVoiceVolume(); StartMicDeviceTest; "
      "onUserVoiceVolume(bob:30,:61,x*300:2) # startMicDeviceTest(400) # OnUserVoiceVolume(alice:50,bob:30)|"
      "OnMicTestVolume(61)|OnUserVoiceVolume(bob:30,alice:61,x*127:2) # StartMicDeviceTest",
      "GetMicDevices; GetCameraDevices; GetSpeakerDevices; SetCameraDevice(Cam B); SetSpeakerDevice(*); "
      "SetCameraDevice(null); SetSpeakerDevice(null) # getSpeakerDevicesList()|setCurrentCameraDevice(Cam "
      "B)|setCurrentSpeakerDevice(z*512) # =Mic A/Mic B|=Cam A/Cam B|=Speaker A # SetCameraDevice:Cam B",
      "devices(0); devices(2,n*510\xE2\x82\xAC); devices(1); onDeviceChange(x,0,1); drain; onDeviceChange(y,"
      "2,1); drain; GetMicDevices; GetCameraDevices; GetSpeakerDevices # getCurrentMicDevice()@T|"
      "getMicDevicesList()@T|getCameraDevicesList()@T|getSpeakerDevicesList() # OnDeviceChanged(1)@T|"
      "OnDeviceChanged(0)@T|=<false>|=n*510|=<false> # onDeviceChange: x , mic state is 1|onDeviceChange: y "
      ", camera state is 1|OnCameraChangedTask",
      "current(0,Mic A); devices(0,Mic B,Mic C); watch(1); onDeviceChange(Mic C,0,0) # "
      "getCurrentMicDevice()@T|getMicDevicesList()@T # =Mic B/Mic C@T|OnDeviceChanged(1)@T # "
      "onDeviceChange: Mic C , mic state is 0|OnMicChangedTask, get_dev: Mic A",
      "SetCameraDevice(Cam A); OpenCamera(0); StartCameraDeviceTest(0); forget; devices(2,Cam B); watch(0); "
      "onDeviceChange(Cam B,2,1); drain; onDeviceChange(Cam A,2,0); drain; onDeviceChange(Cam A,2,2); drain;"
      " onDeviceChange(Cam A,2,1) # getCameraDevicesList()@T|getCameraDevicesList()@T|"
      "getCameraDevicesList()@T|stopCameraDeviceTest()@T|getCameraDevicesList()@T # =Cam B@T|"
      "OnDeviceChanged(0)@T|=Cam B@T|OnDeviceChanged(0)@T|=Cam B@T|OnDeviceChanged(0)@T|=Cam B@T|"
      "OnDeviceChanged(0)@T # onDeviceChange: Cam B , camera state is 1|OnCameraChangedTask|onDeviceChange: "
      "Cam A , camera state is 0|OnCameraChangedTask|onDeviceChange: Cam A , camera state is 2|"
      "OnCameraChangedTask|onDeviceChange: Cam A , camera state is 1|OnCameraChangedTask|CloseCamera|"
      "StopCameraDeviceTest|inner stopCameraDeviceTest",
      "onDeviceChange(Speaker A,1,1); drain; onDeviceChange(Speaker A,1,0); drain; onDeviceChange(Speaker A,"
      "1,2); drain; onDeviceChange(Thing,7,0) # getCurrentSpeakerDevice()@T|getCurrentSpeakerDevice()@T #  #"
      " onDeviceChange: Speaker A , speaker state is 1|OnSpeakChangeTask|EnableCaptureSystemAudio:0|"
      "EnableCaptureSystemAudio:0|OnEnableCaptureSystemAudioTask, enable: 0, is_record_system_voice_: 0|"
      "onDeviceChange: Speaker A , speaker state is 0|OnSpeakChangeTask|EnableCaptureSystemAudio:1|"
      "EnableCaptureSystemAudio:1|OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0|"
      "onDeviceChange: Speaker A , speaker state is 2|OnSpeakChangeTask",
      "current(1,Speaker A); EnableCaptureSystemAudio(0); drain; current(1,null,nameless); "
      "EnableCaptureSystemAudio(1) # getCurrentSpeakerDevice()@T|getCurrentSpeakerDevice()@T #  # "
      "EnableCaptureSystemAudio:0|OnEnableCaptureSystemAudioTask, enable: 0, is_record_system_voice_: 0|"
      "OnEnableCaptureSystemAudioTask, getCurrentSpeakerDevice: Speaker A|EnableCaptureSystemAudio:1|"
      "OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0|OnEnableCaptureSystemAudioTask,"
      " getCurrentSpeakerDevice: nulllptr",
      "OpenCamera(4660); OpenCamera(4660); CloseCamera; CloseCamera; OpenCamera(0); "
      "StartCameraDeviceTest(0); StartCameraDeviceTest(0); CloseCamera; StopCameraDeviceTest; "
      "StartCameraDeviceTest(0); OpenCamera(0); StopCameraDeviceTest; StartCameraDeviceTest(0) # $V|"
      "startLocalPreview(4660)|$V|stopLocalPreview()|$V|startLocalPreview(0)|$V|startCameraDeviceTest(0)|$V|"
      "stopCameraDeviceTest()|$V|startCameraDeviceTest(0)|$V|startLocalPreview(0)|$V|startCameraDeviceTest(0)"
      " #  # OpenCamera|startLocalPreview|OpenCamera|CloseCamera|stopLocalPreview|CloseCamera|OpenCamera|"
      "startLocalPreview|StartCameraDeviceTest|inner startCameraDeviceTest|StartCameraDeviceTest|"
      "CloseCamera|StopCameraDeviceTest|inner stopCameraDeviceTest|StartCameraDeviceTest|inner "
      "startCameraDeviceTest|OpenCamera|startLocalPreview|StopCameraDeviceTest|StartCameraDeviceTest|inner "
      "startCameraDeviceTest",
      "StopMicDeviceTest; StartMicDeviceTest; StopMicDeviceTest; onTestMicVolume(42); StartMicDeviceTest; "
      "EnableCaptureDesktopVideo(1); StopMicDeviceTest # startMicDeviceTest(400)|stopMicDeviceTest()|"
      "startMicDeviceTest(400)|setStreamDataSource(source,0) # OnMicTestVolume(42) # StartMicDeviceTest|"
      "StopMicDeviceTest|StartMicDeviceTest|EnableCaptureDesktopVideo:1|StopMicDeviceTest",
      "OpenMicDevice(null); drain; OpenMicDevice(Mic B); drain; OpenMicDevice(); drain; CloseMicDevice # "
      "setCurrentMicDevice(Mic B)@T|getCurrentMicDevice()@T|setCurrentMicDevice(Mic B)@T|"
      "getCurrentMicDevice()@T #  # OpenMicDevice:null.default device.|OnOpenMicDeviceTask, is_in_room_: 0, "
      "is_open_mic_: 0|OpenMicDevice:Mic B|OnOpenMicDeviceTask, is_in_room_: 0, is_open_mic_: 0|"
      "OnOpenMicDeviceTask, set_dev: Mic B, get_dev: Mic B|OpenMicDevice:|OnOpenMicDeviceTask, is_in_room_: "
      "0, is_open_mic_: 0|OnOpenMicDeviceTask, set_dev: Mic B, get_dev: Mic B|CloseMicDevice|"
      "OnCloseMicDeviceTask: 0",
      "current(0,Mic A); volume(0,33); volume(1,44); EnableLocalAudio(1); EnableLocalAudio(0); "
      "EnableLocalVideo(1); EnableLocalVideo(0); GetMicVolume; GetSpeakerVolume; SetSpeakerVolume(101); "
      "SetSpeakerVolume(-1); SetSpeakerVolume(100); SetSpeakerVolume(0); Reserved1(5); Reserved2; "
      "Reserved3(6) # startLocalAudio()|getCurrentMicDevice()|stopLocalAudio()|getCurrentMicDevice()|"
      "muteLocalVideo(0)|muteLocalVideo(1)|getCurrentMicDeviceVolume()|getCurrentSpeakerVolume()|"
      "setCurrentSpeakerVolume(100)|setCurrentSpeakerVolume(0) # =33|=44 # EnableLocalAudio: 1, "
      "is_in_room_: 0|EnableLocalAudio, get_dev: Mic A|EnableLocalAudio: 0, is_in_room_: 0|EnableLocalAudio,"
      " get_dev: Mic A|EnableLocalVideo:1|EnableLocalVideo:0",
      "StartRemoteCameraView(null,0); StopRemoteCameraView(null); StartRemoteDesktopView(null,0); "
      "StopRemoteDesktopView(null); MuteRemoteAudio(null,1); StartRemoteCameraView(bob,7); "
      "StopRemoteCameraView(bob); StartAllRemoteVidw; StopAllRemoteView; MuteRemoteAudio(bob,1); "
      "MuteAllRemoteAudio(1); SetRemoteStreamType(null,1); SetRemoteStreamType(bob,2) # startRemoteView(bob,"
      "7)|stopRemoteView(bob)|stopAllRemoteView()|muteRemoteAudio(bob,1)|muteAllRemoteAudio(1)|"
      "setPriorRemoteVideoStreamType(1)|setRemoteVideoStreamType(bob,2) #  # StartRemoteCameraView:usr_id "
      "is null.failed!|StopRemoteCameraView:usr_id is null.failed!|StartRemoteDesktopView:usr_id is "
      "null.failed!|StopRemoteDesktopView:usr_id is null.failed!|MuteRemoteAudio:UserID is Null, "
      "bMute=1.Failed!|StartRemoteCameraView:bob|StopRemoteCameraView:bob|StartAllRemoteVidw|"
      "StopAllRemoteView|MuteRemoteAudio:UserID=bob, bMute=1|MuteAllRemoteAudio:enable=1",
      "entered; onUserEnter(bob); forget; render(,0,3,640,360); render(bob,1,1,641,361); render(bob,0,2,10,"
      "10); render(bob,5,3,1,1); render(bob,2,3,4,4); render(,2,3,4,4); render(,1,3,1,1,1); render(,1,3,1,1,"
      "2); render(,1,3,1,1,3); render(,1,3,1,1,9); render(bob,1,3,1,1,1) # setLocalViewRotation(3)|"
      "setLocalViewRotation(2)|setLocalViewRotation(1)|setRemoteViewRotation(bob,3) # "
      "OnLocalVideoFrame(alice,data,921600,640,360,1)|OnRemoteVideoFrame(bob,data,347101,641,361,1)|"
      "OnRemoteVideoFrame(bob,data,0,10,10,1)|OnRemoteVideoFrame(bob,data,4,1,1,0)|OnRemoteVideoFrame(bob,"
      "data,64,4,4,2)|OnLocalVideoFrame(alice,data,4,1,1,1)|OnLocalVideoFrame(alice,data,4,1,1,1)|"
      "OnLocalVideoFrame(alice,data,4,1,1,1)|OnLocalVideoFrame(alice,data,4,1,1,1)|OnRemoteVideoFrame(bob,"
      "data,4,1,1,1) # ",
      "PushDesktopFrame(2,2,1); EnableCaptureDesktopVideo(1); PushDesktopFrame(2,2,0); "
      "EnableCaptureDesktopVideo(0); PushDesktopFrame(2,2,0); EnableCaptureDesktopVideo(1); pull; "
      "PushDesktopFrame(0,2,1); PushDesktopFrame(-2,2,1); PushDesktopFrame(2,2,1,null); pull; "
      "EnableCaptureDesktopVideo(0); pull # setStreamDataSource(source,0)|setStreamDataSource(null,0)|"
      "setStreamDataSource(source,0)|setStreamDataSource(null,0) # =0|=1|=0|=<0>|=1|=1|=1|=<0>|=<-100> # "
      "EnableCaptureDesktopVideo:1|EnableCaptureDesktopVideo:0|EnableCaptureDesktopVideo:1|"
      "EnableCaptureDesktopVideo:0",
      "UnInitialize; onUserEnter(bob); onEnterRoom(10); onError(-1,boom); onNetworkQuality(6); "
      "onDeviceChange(Cam A,2,1); onTestMicVolume(5); onUserVoiceVolume(:10); onStatistics; render(,0,3,2,2,"
      "1); IsInRoom # setRemoteVideoRenderCallback(bob,3,1,callback)|setAudioFrameCallback(callback)|"
      "startRemoteView(bob,0)|$R # =1 # UnInitialize|onUserEnter:bob|onEnterRoom|onError:boom, code=-1",
  };
  const std::map<std::string, std::string> expand = {
      // (in key order: "$R" holds a "$V")
      {"$V",
       "setVideoEncoderParam(56,0,12,250)|setNetworkQosParam(1,1)|setLocalViewMirror(1)|"
       "setBeautyStyle(0,2,2,1)"},
      {"$R", "$V|setSubStreamEncoderParam(114,0,12,400)|enableAudioVolumeEvaluation(600)"},
      {"$E", "enterRoom(1400,1234,alice,sig,0,(null),(null),(null),0)@T"},
      {"$me", Text(GetCurrentThreadId())}};
  for (std::string text : cases) {
    for (const auto& [key, value] : expand)
      for (size_t at; (at = text.find(key)) != text.npos;) text.replace(at, key.size(), value);
    Strings c = Split(text, '#'), log;
    for (std::string& part : c)
      part.erase(0, part.find_first_not_of(' ')).erase(part.find_last_not_of(' ') + 1);
    Start(false);
    Run(c[0]);
    if (engine_) Drain();
    events_.on_event = nullptr;
    for (const std::wstring& line : Log())  // (frame lines, one in 60, are seen below; Latin-1 is enough)
      if (line.find(L"VideoFrame:thread=") == line.npos) log.emplace_back(line.begin(), line.end());
    EXPECT_EQ(std::make_tuple(SdkCalls(task_), events_.Of(), log),
              std::make_tuple(Split(c[1]), Split(c[2]), Split(c[3])))
        << c[0];
  }
}
// Rates over whole seconds since the last baseline (statistics within a second set one; without a host none).
TEST_F(EngineTest, StatisticsRatesOverWholeSecondsSinceTheLast) {
  Run("UnInitialize; onStatistics");
  const auto stats = [](int64_t in, int64_t out, TRTCRemoteStatistics* array = nullptr, uint32_t n = 0) {
    return TRTCStatistics{3, 4, 11, 37, 45, in, out, nullptr, 0, array, n};
  };
  TRTCRemoteStatistics remotes[3] = {};
  const char* ids[] = {"bob", "carol", "dave"};
  for (int i = 0; i < 3; ++i) remotes[i] = {ids[i], 99, 0, 0, 0, 0, 0, 0, 0, 7u - 7 * (i / 2), i};
  events_.remote_count = 3;
  auto over_a_second = [] {
    const int64_t from = TimeMilliseconds();
    ASSERT_TRUE(testing_support::WaitUntil([&] { return TimeMilliseconds() - from >= 1050; }));
  };
  over_a_second();
  Run("Initialize; onNetworkQuality(4)");
  sdk_->onStatistics(stats(0, 0));
  sdk_->onStatistics(stats(1000000, 500000));
  over_a_second();
  sdk_->onStatistics(stats(3048000, 602400, remotes, 3));
  sdk_->onStatistics(stats(3048000, 602400));
  over_a_second();
  sdk_->onStatistics(stats(3048000, 602400, remotes, 0));
  EXPECT_EQ(events_.Of(), (Strings{"OnNetworkQuality(0)",
                                   "OnStatistics(45,2,100,2000,3,4,11,37,0),bob(7,1),carol(7,1),dave(0,2)",
                                   "OnStatistics(45,2,0,0,3,4,11,37,0),null"}));
}
// A fresh copy of the library starts its counters at zero whatever ran before. Video counts from 0, audio 1.
TEST_F(EngineTest, FrameLogLinesAreOneInSixtyAndOneInAHundredFromTheStart) {
  Run("release");
  wchar_t path[MAX_PATH], temp[MAX_PATH];
  ASSERT_TRUE(GetModuleFileNameW(GetModuleHandleW(L"roomcore.dll"), path, MAX_PATH) &&
              GetTempPathW(MAX_PATH, temp));
  const std::wstring copy = temp + std::to_wstring(GetCurrentProcessId()) + L"roomcore.dll";
  ASSERT_TRUE(CopyFileW(path, copy.c_str(), FALSE));
  HMODULE library = LoadLibraryW(copy.c_str());
  auto function = [&](const char* name) { return reinterpret_cast<void*>(GetProcAddress(library, name)); };
  reinterpret_cast<RTCEngine* (*)()>(function("CreaeRTCEngine"))()->Initialize(nullptr, &events_);
  LiteavCloudCallback()->onUserEnter("bob");
  const std::wstring me = std::to_wstring(GetCurrentThreadId());
  const std::wstring local = L"OnLocalVideoFrame:thread=" + me + L", w=2, h=2, pts=77, video_type=1";
  for (int i = 0; i < 61; ++i) {
    Run("render(,0,3,2,2)");
    EXPECT_EQ(log_.Count(local), i < 60 ? 1 : 2) << i;
  }
  Run("render(bob,2,3,4,4)");
  EXPECT_EQ(Log().back(),
            L"OnRemoteVideoFrame:thread=" + me + L", usr_id:bob, w=4, h=4, pts=77, video_type=2");
  TRTCAudioFrame frame = {};
  frame.length = 1920;
  for (int i = 1; i <= 200; ++i) {
    LiteavAudioFrameCallback()->onCapturedAudioFrame(&frame);
    LiteavAudioFrameCallback()->onPlayAudioFrame(&frame, "bob");
    LiteavAudioFrameCallback()->onPlayAudioFrame(&frame, nullptr);  // not counted, nor the next two
    LiteavAudioFrameCallback()->onPlayAudioFrame(nullptr, "bob");
    LiteavAudioFrameCallback()->onCapturedAudioFrame(nullptr);
    EXPECT_EQ(log_.Count(L"onCapturedAudioFrame: length=1920"), i / 100) << i;
    EXPECT_EQ(log_.Count(L"onPlayAudioFrame:ThreadId=" + me + L", usr_id:bob, length=1920"), i / 100) << i;
  }
  reinterpret_cast<void (*)()>(function("ReleaseRTCEngine"))();
  FreeLibrary(library);
  DeleteFileW(copy.c_str());
}
// The host's event holds a callback until the SDK's destruction begins, or half a second where release waits.
TEST_F(EngineTest, ReleaseLetsACallbackUnderWayFinishBeforeTheSdkGoes) {
  base::ScopedHandle in_event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  events_.on_event = [&](const std::string&) {
    SetEvent(in_event.get());
    LiteavWaitForCall("destroyTRTCShareInstance", 1, 500);
  };
  std::thread sdk_thread([&] { Run("onUserEnter(bob)"); });
  ASSERT_EQ(WaitForSingleObject(in_event.get(), 5000), WAIT_OBJECT_0);
  Run("release");
  sdk_thread.join();
  EXPECT_EQ(SdkCalls(0),
            Split("removeCallback(callback)|setRemoteVideoRenderCallback(bob,3,1,callback)|"
                  "setAudioFrameCallback(callback)|startRemoteView(bob,0)|destroyTRTCShareInstance()"));
}
// ExitRoom holds lock_ across exitRoom: every other operation that takes the lock waits for the SDK.
TEST_F(EngineTest, TheLockIsHeldAcrossExitRoomsSdkCall) {
  LiteavHoldCalls("exitRoom");
  std::vector<std::thread> hosts;
  for (const char* op : {"ExitRoom", "GetMicDevices", "GetCameraDevices", "EnterRoom(1,2,bob,s)",
                         "UnInitialize", "Initialize"}) {
    hosts.emplace_back([this, op] { Run(op), events_.Note(std::string("after ") + op); });
    EXPECT_TRUE(LiteavWaitForCall("exitRoom", 1, 5000));
  }
  Run("onDeviceChange(Mic A,0,0)");  // the task thread reloads the list
  EXPECT_FALSE(events_.WaitFor("=after", 1, 300)) << events_.Of("=after")[0];
  EXPECT_EQ(events_.Count("OnDeviceChanged"), 0);
  LiteavHoldCalls(nullptr);
  for (std::thread& host : hosts) host.join();
  EXPECT_EQ(events_.Count("=after"), 6);
}
TEST_F(EngineTest, PicturesPushedWhileSharingComeOutOfThePullOnceAndWhole) {
  TRTCVideoFrame frame;
  Run("EnableCaptureDesktopVideo(1)");  // any size, any stated length, with its pts; a queue of 12
  const struct {
    int width, height, length, pushes;
  } cases[] = {{1920, 1080, 0, 1}, {5, 3, 9999, 1}, {32, 16, 768, 13}};
  const uint64_t pts = 0x123456789AULL;
  std::mt19937 random;
  for (const auto& c : cases) {
    std::vector<std::string> pushed;
    for (int i = 0; i < c.pushes; ++i) {
      pushed.emplace_back(c.width * c.height + 2 * ((c.width + 1) / 2) * ((c.height + 1) / 2), 0);
      for (char& byte : pushed.back()) byte = static_cast<char>(random());
      ASSERT_TRUE(engine_->PushDesktopFrame(pushed.back().data(), c.length, c.width, c.height, pts + i));
    }
    for (size_t i = std::max<size_t>(pushed.size(), 12) - 12; i < pushed.size(); ++i) {
      ASSERT_EQ(Pull(&frame), pushed[i]);
      EXPECT_EQ(std::make_tuple(frame.timestamp, frame.length, frame.video_format, frame.buffer_type,
                                frame.width, frame.height),
                std::make_tuple(pts + i, static_cast<uint32_t>(pushed[i].size()), 1, 1, c.width, c.height));
    }
    EXPECT_EQ(Pull(&frame), "<0>");
  }
  // A puller racing the release never reaches the source once it is gone.
  const int destroyed = LiteavDestroyedSourceCount();
  for (int i = 0; i < 50; ++i) Run("PushDesktopFrame(2,2,7)");
  LiteavSetPullRate(1000);
  std::thread puller([&] {
    uint8_t out[6];
    for (TRTCVideoFrame own; LiteavPullVideoFrame(out, 6, &own) != LiteavNoSource;) {
    }
  });
  Run("release");
  puller.join();
  LiteavSetPullRate(0);
  EXPECT_EQ(LiteavDestroyedSourceCount(), destroyed + 1);
}

}  // namespace
}  // namespace engine_test
