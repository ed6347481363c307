// What the host sees of each operation and each SDK callback: the SDK calls
// ("@T": on the task thread; "V": the four encoder settings of the camera),
// the events and results, and the log lines, all of them and in order.
#include "engine_test_support.h"

namespace engine_test {

namespace {

const char kEntered[] = "EnterRoom(1400,1234,alice,sig); drain; onEnterRoom(20); forget; ";
const char kEnter[] = "enterRoom(1400,1234,alice,sig,0,(null),(null),(null),0)@T";
const char kRoomVideo[] = "V|setSubStreamEncoderParam(114,0,12,400)|enableAudioVolumeEvaluation(600)";

struct Case {
  std::string script, calls, events, log;
};

TEST_F(EngineTest, EachOperationAndCallback) {
  const Case cases[] = {
      {"release; forget; devices(0,M1); create; create; GetMicDevices; Initialize; log(caf\xC3\xA9); release",
       "getTRTCShareInstance()@T|getMicDevicesList()@T|getCameraDevicesList()@T|setLogLevel(1)|"
       "setLogCallback(callback)|addCallback(callback)|setLocalVideoRenderCallback(3,1,callback)|"
       "removeCallback(callback)|destroyTRTCShareInstance()",
       "=M1", "PreInitialize|DoTaskCore Enter|DoTaskCore Enter2|TRTC:caf\xE9|~RTCEngineImpl|UnInitialize"},
      {"release; create; Initialize; forget; EnableCaptureSystemAudio(1); drain; post(8999); post(9008); "
       "com; "
       "onDeviceChange(Mic A,0,0); drain; post(18); EnableCaptureSystemAudio(1); release",
       "getCurrentSpeakerDevice()@T|getCurrentMicDevice()@T|getMicDevicesList()@T|removeCallback(callback)|"
       "destroyTRTCShareInstance()",
       "=apartment@T|OnDeviceChanged(1)@T",
       "EnableCaptureSystemAudio:1|OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0|"
       "onDeviceChange: Mic A , mic state is 0|EnableCaptureSystemAudio:1|~RTCEngineImpl|UnInitialize"},
      {"EnterRoom(1400,1234,alice,sig); drain; onEnterRoom(20); IsInRoom; OpenCamera(0); ExitRoom; IsInRoom; "
       "drain; onExitRoom(0)",
       kEnter + std::string("|") + kRoomVideo + "|V|startLocalPreview(0)|stopLocalPreview()|exitRoom()",
       "=1|OnEnterRoom(0,success)|=1|=1|=0|OnExitRoom(0,success)",
       "EnterRoom:app_id:1400, room_id:1234, usr_id:alice, "
       "usr_sign:sig|onEnterRoom|OpenCamera|startLocalPreview|"
       "ExitRoom|CloseCamera|stopLocalPreview|CloseMicDevice|OnCloseMicDeviceTask: 0|onExitRoom"},
      {kEntered + std::string("OpenCamera(0); forget; onExitRoom(2); IsInRoom"), "stopLocalPreview()",
       "OnExitRoom(0,success)|=0",
       "onExitRoom|CloseCamera|stopLocalPreview|CloseMicDevice|OnCloseMicDeviceTask: 0"},
      {"StartMicDeviceTest; StartCameraDeviceTest(64); forget; onExitRoom(0)",
       "stopMicDeviceTest()|startMicDeviceTest(400)|stopCameraDeviceTest()|V|startCameraDeviceTest(0)",
       "OnExitRoom(0,success)",
       "onExitRoom|StopMicDeviceTest|StartMicDeviceTest|StopCameraDeviceTest|inner stopCameraDeviceTest|"
       "StartCameraDeviceTest|inner startCameraDeviceTest"},
      {"EnterRoom(1,2,bob,s); EnterRoom(null,2,bob,s); EnterRoom(1,null,bob,s); EnterRoom(1,2,null,s); "
       "EnterRoom(1,2,bob,null); EnterRoom(null,null,null,null); ReEnterRoom; drain; EnterRoom(,room,,)",
       "enterRoom(1,2,bob,s,0,(null),(null),(null),0)@T|enterRoom(1,2,bob,s,0,(null),(null),(null),0)@T|"
       "enterRoom(0,0,,,0,(null),(null),(null),0)@T",
       "=1|=0|=0|=0|=0|=0|=1|=1",
       "EnterRoom:app_id:1, room_id:2, usr_id:bob, usr_sign:s|EnterRoom:app_id is null.failed!|"
       "EnterRoom:room_id is null.failed!|EnterRoom:usr_id is null.failed!|EnterRoom:usr_sign is "
       "null.failed!|"
       "EnterRoom:app_id is null.failed!|EnterRoom:app_id:, room_id:room, usr_id:, usr_sign:"},
      {"onUserEnter(bob); onUserExit(bob,3); onUserVideoAvailable(bob,1); onUserAudioAvailable(bob,0); "
       "onConnectionLost; onTryToReconnect; onConnectionRecovery; onWarning(5,hot); onError(-1301,camera "
       "failed); "
       "onCameraDidReady; onMicDidReady",
       "setRemoteVideoRenderCallback(bob,3,1,callback)|setAudioFrameCallback(callback)|startRemoteView(bob,0)"
       "|"
       "stopRemoteView(bob)",
       "OnUserEnter(bob)|OnUserExit(bob,3)|OnUserVideoAvailable(bob,1)|OnUserAudioAvailable(bob,0)|"
       "OnConnectionLost()|OnTryToReconnect()|OnConnectionRecovery()|OnError(-1301,camera failed)",
       "onUserEnter:bob|onUserExit:bob|onUserVideoAvailable:bob, available:1|onUserAudioAvailable:bob, "
       "available:0|onConnectionLost|onTryToReconnect|onConnectionRecovery|onWarning:hot, code=5|"
       "onError:camera failed, code=-1301|onCameraDidReady: ThreadId=$me|onMicDidReady: ThreadId=$me"},
      {"StartRemoteDesktopView(carol,85); StopRemoteDesktopView(carol); onUserSubStreamAvailable(carol,0); "
       "onUserSubStreamAvailable(dave,1); onUserSubStreamAvailable(carol,1)",
       "startRemoteSubStreamView(carol,85)|stopRemoteSubStreamView(carol)|startRemoteSubStreamView(carol,0)",
       "OnUserSubStreamAvailable(carol,0)|OnUserSubStreamAvailable(dave,1)|OnUserSubStreamAvailable(carol,1)",
       "StartRemoteDesktopView:carol|StopRemoteDesktopView:carol|onUserSubStreamAvailable:carol, available:0|"
       "onUserSubStreamAvailable:dave, available:1|onUserSubStreamAvailable:carol, available:1|"
       "onUserSubStreamAvailable call startRemoteSubStreamView:carol"},
      {"onNetworkQuality(1); onNetworkQuality(2); onNetworkQuality(3); onNetworkQuality(4); "
       "onNetworkQuality(5); "
       "onNetworkQuality(6); onNetworkQuality(0); onNetworkQuality(7); EnterRoom(1400,1234,alice,sig); "
       "onNetworkQuality(0); onNetworkQuality(6)",
       kEnter,
       "OnNetworkQuality(0)|OnNetworkQuality(0)|OnNetworkQuality(0)|OnNetworkQuality(0)|OnNetworkQuality(1)|"
       "OnNetworkQuality(1)|OnNetworkQuality(1)|OnNetworkQuality(1)|=1|OnNetworkQuality(0)|OnNetworkQuality("
       "1)",
       "EnterRoom:app_id:1400, room_id:1234, usr_id:alice, usr_sign:sig"},
      {kEntered + std::string("onUserVoiceVolume(:50,bob:30); onUserVoiceVolume(); StartMicDeviceTest; "
                              "onUserVoiceVolume(bob:30,:61,x*300:2)"),
       "startMicDeviceTest(400)",
       "OnUserVoiceVolume(alice:50,bob:30)|OnMicTestVolume(61)|OnUserVoiceVolume(bob:30,alice:61,x*127:2)",
       "StartMicDeviceTest"},
      {"GetMicDevices; GetCameraDevices; GetSpeakerDevices; SetCameraDevice(Cam B); SetSpeakerDevice(*); "
       "SetCameraDevice(null); SetSpeakerDevice(null)",
       "getSpeakerDevicesList()|setCurrentCameraDevice(Cam B)|setCurrentSpeakerDevice(z*512)",
       "=Mic A/Mic B|=Cam A/Cam B|=Speaker A", "SetCameraDevice:Cam B"},
      {"devices(0); devices(2,n*510\xE2\x82\xAC); devices(1); onDeviceChange(x,0,1); drain; "
       "onDeviceChange(y,2,1); "
       "drain; GetMicDevices; GetCameraDevices; GetSpeakerDevices",
       "getCurrentMicDevice()@T|getMicDevicesList()@T|getCameraDevicesList()@T|getSpeakerDevicesList()",
       "OnDeviceChanged(1)@T|OnDeviceChanged(0)@T|=<false>|=n*510|=<false>",
       "onDeviceChange: x , mic state is 1|onDeviceChange: y , camera state is 1|OnCameraChangedTask"},
      {"current(0,Mic A); devices(0,Mic B,Mic C); watchMics; onDeviceChange(Mic C,0,0); drain; "
       "onDeviceChange(Mic C,0,1); drain; onDeviceChange(Mic C,0,2)",
       "getCurrentMicDevice()@T|getMicDevicesList()@T|getCurrentMicDevice()@T|getMicDevicesList()@T|"
       "getCurrentMicDevice()@T|getMicDevicesList()@T",
       "=Mic B/Mic C@T|OnDeviceChanged(1)@T|=Mic B/Mic C@T|OnDeviceChanged(1)@T|=Mic B/Mic C@T|"
       "OnDeviceChanged(1)@T",
       "onDeviceChange: Mic C , mic state is 0|OnMicChangedTask, get_dev: Mic A|onDeviceChange: Mic C , mic "
       "state is 1|OnMicChangedTask, get_dev: Mic A|onDeviceChange: Mic C , mic state is 2|OnMicChangedTask, "
       "get_dev: Mic A"},
      {"SetCameraDevice(Cam A); OpenCamera(0); StartCameraDeviceTest(0); forget; devices(2,Cam B); "
       "watchCameras; "
       "onDeviceChange(Cam B,2,1); drain; onDeviceChange(Cam A,2,0); drain; onDeviceChange(Cam A,2,2); "
       "drain; "
       "onDeviceChange(Cam A,2,1)",
       "getCameraDevicesList()@T|getCameraDevicesList()@T|getCameraDevicesList()@T|stopCameraDeviceTest()@T|"
       "getCameraDevicesList()@T",
       "=Cam B@T|OnDeviceChanged(0)@T|=Cam B@T|OnDeviceChanged(0)@T|=Cam B@T|OnDeviceChanged(0)@T|=Cam B@T|"
       "OnDeviceChanged(0)@T",
       "onDeviceChange: Cam B , camera state is 1|OnCameraChangedTask|onDeviceChange: Cam A , camera state "
       "is "
       "0|OnCameraChangedTask|onDeviceChange: Cam A , camera state is 2|OnCameraChangedTask|onDeviceChange: "
       "Cam "
       "A , camera state is 1|OnCameraChangedTask|CloseCamera|StopCameraDeviceTest|inner "
       "stopCameraDeviceTest"},
      {"onDeviceChange(Speaker A,1,1); drain; onDeviceChange(Speaker A,1,0); drain; onDeviceChange(Speaker "
       "A,1,2); drain; onDeviceChange(Thing,7,0)",
       "getCurrentSpeakerDevice()@T|getCurrentSpeakerDevice()@T", "",
       "onDeviceChange: Speaker A , speaker state is 1|OnSpeakChangeTask|EnableCaptureSystemAudio:0|"
       "EnableCaptureSystemAudio:0|OnEnableCaptureSystemAudioTask, enable: 0, is_record_system_voice_: 0|"
       "onDeviceChange: Speaker A , speaker state is 0|OnSpeakChangeTask|EnableCaptureSystemAudio:1|"
       "EnableCaptureSystemAudio:1|OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0|"
       "onDeviceChange: Speaker A , speaker state is 2|OnSpeakChangeTask"},
      {"EnableCaptureSystemAudio(1); drain; current(1,Speaker A); EnableCaptureSystemAudio(0); drain; "
       "current(1,null,nameless); EnableCaptureSystemAudio(1)",
       "getCurrentSpeakerDevice()@T|getCurrentSpeakerDevice()@T|getCurrentSpeakerDevice()@T", "",
       "EnableCaptureSystemAudio:1|OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: 0|"
       "EnableCaptureSystemAudio:0|OnEnableCaptureSystemAudioTask, enable: 0, is_record_system_voice_: 0|"
       "OnEnableCaptureSystemAudioTask, getCurrentSpeakerDevice: Speaker A|EnableCaptureSystemAudio:1|"
       "OnEnableCaptureSystemAudioTask, enable: 1, is_record_system_voice_: "
       "0|OnEnableCaptureSystemAudioTask, "
       "getCurrentSpeakerDevice: nulllptr"},
      {"OpenCamera(4660); OpenCamera(4660); CloseCamera; CloseCamera; OpenCamera(0); "
       "StartCameraDeviceTest(0); "
       "StartCameraDeviceTest(0); CloseCamera; StopCameraDeviceTest; StartCameraDeviceTest(0); "
       "OpenCamera(0); "
       "StopCameraDeviceTest; StartCameraDeviceTest(0)",
       "V|startLocalPreview(4660)|V|stopLocalPreview()|V|startLocalPreview(0)|V|startCameraDeviceTest(0)|V|"
       "stopCameraDeviceTest()|V|startCameraDeviceTest(0)|V|startLocalPreview(0)|V|startCameraDeviceTest(0)",
       "",
       "OpenCamera|startLocalPreview|OpenCamera|CloseCamera|stopLocalPreview|CloseCamera|OpenCamera|"
       "startLocalPreview|StartCameraDeviceTest|inner "
       "startCameraDeviceTest|StartCameraDeviceTest|CloseCamera|"
       "StopCameraDeviceTest|inner stopCameraDeviceTest|StartCameraDeviceTest|inner startCameraDeviceTest|"
       "OpenCamera|startLocalPreview|StopCameraDeviceTest|StartCameraDeviceTest|inner startCameraDeviceTest"},
      {"StopMicDeviceTest; StartMicDeviceTest; StopMicDeviceTest; onTestMicVolume(42); StartMicDeviceTest; "
       "EnableCaptureDesktopVideo(1); StopMicDeviceTest",
       "startMicDeviceTest(400)|stopMicDeviceTest()|startMicDeviceTest(400)|setStreamDataSource(source,0)",
       "OnMicTestVolume(42)",
       "StartMicDeviceTest|StopMicDeviceTest|StartMicDeviceTest|EnableCaptureDesktopVideo:1|"
       "StopMicDeviceTest"},
      {"OpenMicDevice(null); drain; OpenMicDevice(Mic B); drain; OpenMicDevice(); drain; CloseMicDevice",
       "setCurrentMicDevice(Mic B)@T|getCurrentMicDevice()@T|setCurrentMicDevice(Mic "
       "B)@T|getCurrentMicDevice()@T",
       "",
       "OpenMicDevice:null.default device.|OnOpenMicDeviceTask, is_in_room_: 0, is_open_mic_: "
       "0|OpenMicDevice:Mic "
       "B|OnOpenMicDeviceTask, is_in_room_: 0, is_open_mic_: 0|OnOpenMicDeviceTask, set_dev: Mic B, get_dev: "
       "Mic "
       "B|OpenMicDevice:|OnOpenMicDeviceTask, is_in_room_: 0, is_open_mic_: 0|OnOpenMicDeviceTask, set_dev: "
       "Mic "
       "B, get_dev: Mic B|CloseMicDevice|OnCloseMicDeviceTask: 0"},
      {"current(0,Mic A); volume(0,33); volume(1,44); EnableLocalAudio(1); EnableLocalAudio(0); "
       "EnableLocalVideo(1); "
       "EnableLocalVideo(0); GetMicVolume; GetSpeakerVolume; SetSpeakerVolume(101); SetSpeakerVolume(-1); "
       "SetSpeakerVolume(100); SetSpeakerVolume(0); Reserved1(5); Reserved2; Reserved3(6)",
       "startLocalAudio()|getCurrentMicDevice()|stopLocalAudio()|getCurrentMicDevice()|muteLocalVideo(0)|"
       "muteLocalVideo(1)|getCurrentMicDeviceVolume()|getCurrentSpeakerVolume()|setCurrentSpeakerVolume(100)|"
       "setCurrentSpeakerVolume(0)",
       "=33|=44",
       "EnableLocalAudio: 1, is_in_room_: 0|EnableLocalAudio, get_dev: Mic A|EnableLocalAudio: 0, "
       "is_in_room_: "
       "0|EnableLocalAudio, get_dev: Mic A|EnableLocalVideo:1|EnableLocalVideo:0"},
      {"StartRemoteCameraView(null,0); StopRemoteCameraView(null); StartRemoteDesktopView(null,0); "
       "StopRemoteDesktopView(null); MuteRemoteAudio(null,1); StartRemoteCameraView(bob,7); "
       "StopRemoteCameraView(bob); StartAllRemoteVidw; StopAllRemoteView; MuteRemoteAudio(bob,1); "
       "MuteAllRemoteAudio(1); SetRemoteStreamType(null,1); SetRemoteStreamType(bob,2)",
       "startRemoteView(bob,7)|stopRemoteView(bob)|stopAllRemoteView()|muteRemoteAudio(bob,1)|"
       "muteAllRemoteAudio(1)|setPriorRemoteVideoStreamType(1)|setRemoteVideoStreamType(bob,2)",
       "",
       "StartRemoteCameraView:usr_id is null.failed!|StopRemoteCameraView:usr_id is null.failed!|"
       "StartRemoteDesktopView:usr_id is null.failed!|StopRemoteDesktopView:usr_id is null.failed!|"
       "MuteRemoteAudio:UserID is Null, bMute=1.Failed!|StartRemoteCameraView:bob|StopRemoteCameraView:bob|"
       "StartAllRemoteVidw|StopAllRemoteView|MuteRemoteAudio:UserID=bob, "
       "bMute=1|MuteAllRemoteAudio:enable=1"},
      {kEntered +
           std::string("onUserEnter(bob); forget; render(,0,3,640,360); render(bob,1,1,641,361); "
                       "render(bob,0,2,10,10); render(bob,5,3,1,1); render(bob,2,3,4,4); render(,2,3,4,4); "
                       "render(,1,3,1,1,1); render(,1,3,1,1,2); render(,1,3,1,1,3); render(,1,3,1,1,9); "
                       "render(bob,1,3,1,1,1); render(bob,1,3,1,1,2); render(bob,1,3,1,1,3)"),
       "setLocalViewRotation(3)|setLocalViewRotation(2)|setLocalViewRotation(1)|setRemoteViewRotation(bob,3)|"
       "setRemoteViewRotation(bob,2)|setRemoteViewRotation(bob,1)",
       "OnLocalVideoFrame(alice,data,921600,640,360,1)|OnRemoteVideoFrame(bob,data,347101,641,361,1)|"
       "OnRemoteVideoFrame(bob,data,0,10,10,1)|OnRemoteVideoFrame(bob,data,4,1,1,0)|"
       "OnRemoteVideoFrame(bob,data,64,4,4,2)|OnLocalVideoFrame(alice,data,4,1,1,1)|"
       "OnLocalVideoFrame(alice,data,4,1,1,1)|OnLocalVideoFrame(alice,data,4,1,1,1)|"
       "OnLocalVideoFrame(alice,data,4,1,1,1)|OnRemoteVideoFrame(bob,data,4,1,1,1)|"
       "OnRemoteVideoFrame(bob,data,4,1,1,1)|OnRemoteVideoFrame(bob,data,4,1,1,1)",
       ""},
      {"UnInitialize; onUserEnter(bob); onEnterRoom(10); onError(-1,boom); onNetworkQuality(6); "
       "onDeviceChange(Cam A,2,1); onTestMicVolume(5); onUserVoiceVolume(:10); onStatistics; "
       "render(,0,3,2,2,1); "
       "IsInRoom",
       "setRemoteVideoRenderCallback(bob,3,1,callback)|setAudioFrameCallback(callback)|startRemoteView(bob,0)"
       "|" +
           std::string(kRoomVideo),
       "=1", "UnInitialize|onUserEnter:bob|onEnterRoom|onError:boom, code=-1"},
  };
  const std::string me = std::to_string(GetCurrentThreadId());
  const Strings video = {"setVideoEncoderParam(56,0,12,250)", "setNetworkQosParam(1,1)",
                         "setLocalViewMirror(1)", "setBeautyStyle(0,2,2,1)"};
  for (const Case& c : cases) {
    Start(false);
    Run(c.script);
    if (engine_) Drain();
    events_.on_event = nullptr;
    Strings calls;
    for (const std::string& call : Split(c.calls, '|')) {
      if (call == "V") calls.insert(calls.end(), video.begin(), video.end());
      if (call != "V") calls.push_back(call);
    }
    EXPECT_EQ(SdkCalls(task_), calls) << c.script;
    EXPECT_EQ(events_.Texts(), Split(c.events, '|')) << c.script;
    Lines log, expected;
    for (const std::wstring& line : Log()) {
      if (line.find(L"VideoFrame:thread=") == line.npos) log.push_back(line);  // one in 60: see below
    }
    for (std::string line : Split(c.log, '|')) {
      if (line.find("$me") != line.npos) line.replace(line.find("$me"), 3, me);
      expected.emplace_back();
      for (unsigned char ch : line) expected.back() += ch;  // Latin-1 is enough here
    }
    EXPECT_EQ(log, expected) << c.script;
  }
}

}  // namespace
}  // namespace engine_test
