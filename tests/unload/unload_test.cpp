// A host that loads roomcore.dll at run time, runs every object that has a
// thread of its own, releases them all and unloads the library while their
// threads are still on their way out. The process must outlive them all.
#include <windows.h>

#include <gtest/gtest.h>
#include <psapi.h>
#include <tlhelp32.h>

#include <cstdio>
#include <vector>

#include "common/silent_engine_events.h"
#include "roomcore/audio.h"
#include "roomcore/capture.h"
#include "roomcore/im_manager.h"
#include "roomcore/picker.h"

namespace {

// The host's side of one object: signalled once the object has done its work.
struct Host : DisplayCaptureEvent, WindowCaptureEvent, AudioCaptureEvent, ImManagerEvent {
  void OnCaptureStatus(int) override {}
  void OnCaptureFrame(const uint8_t*, uint32_t, int, int, int, int64_t) override { SetEvent(ran); }
  void OnAudioData(void*, const void*, int, int, int, int, int64_t) override { SetEvent(ran); }
  void OnImEvent(int event, int, const char*) override {
    SetEvent(event == IMEvent_JoinGroup ? ran : nullptr);
  }
  void OnRecvC2CTextMessage(const char*, const char*) override {}
  void OnRecvGroupTextMessage(const char*, const char*, const char*) override {}
  void OnRecvC2CCustomMessage(const char*, const char*, int) override {}

  // Waits for the object to have run, serving the messages of the window that the capture draws.
  bool Ran() {
    while (MsgWaitForMultipleObjects(1, &ran, FALSE, 10000, QS_ALLINPUT) == WAIT_OBJECT_0 + 1)
      for (MSG msg; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);) DispatchMessageW(&msg);
    return WaitForSingleObject(ran, 0) == WAIT_OBJECT_0;
  }
  HANDLE ran = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

template <typename R, typename... A>
R Call(HMODULE dll, const char* name, A... args) {
  return reinterpret_cast<R (*)(A...)>(reinterpret_cast<void*>(GetProcAddress(dll, name)))(args...);
}

// Handles of this process's threads that began in `module`'s code.
std::vector<HANDLE> ThreadsOf(HMODULE module) {
  using Query = LONG(WINAPI*)(HANDLE, int, PVOID, ULONG, PULONG);
  const auto query = reinterpret_cast<Query>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread")));
  MODULEINFO image = {};
  GetModuleInformation(GetCurrentProcess(), module, &image, sizeof(image));
  const auto begin = static_cast<const char*>(image.lpBaseOfDll), end = begin + image.SizeOfImage;
  std::vector<HANDLE> threads;
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry = {sizeof(entry), 0, 0, 0, 0, 0, 0};
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID != GetCurrentProcessId()) continue;
    const HANDLE thread =
        OpenThread(SYNCHRONIZE | THREAD_QUERY_INFORMATION | THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID);
    const char* start = nullptr;  // ThreadQuerySetWin32StartAddress
    const bool ours = query(thread, 9, &start, sizeof(start), nullptr) == 0 && start >= begin && start < end;
    ours ? threads.push_back(thread) : void(CloseHandle(thread));
  }
  CloseHandle(snapshot);
  return threads;
}

LONG WINAPI Fault(EXCEPTION_POINTERS* e) {
  fprintf(stderr, "a thread faulted at %p after the unload\n", e->ExceptionRecord->ExceptionAddress);
  return TerminateProcess(GetCurrentProcess(), 3);
}

TEST(Unload, ThreadsStillEndingOutliveTheLibrary) {
  SetUnhandledExceptionFilter(&Fault);
  // The SDKs are the host's as much as the library's: their own threads live on.
  HMODULE dll = nullptr;
  ASSERT_TRUE(LoadLibraryW(L"liteav.dll") && LoadLibraryW(L"imsdk.dll") &&
              (dll = LoadLibraryW(L"roomcore.dll")));
  Host im_host, display_host, window_host, audio_host;
  SilentEngineEvents engine_events;
  // The thumbnail worker first, alone, to tell it from the others.
  auto* thumbnails = Call<ThumbnailRenderMgr*>(dll, "_ZN18ThumbnailRenderMgr6CreateEv");
  thumbnails->Start();
  const std::vector<HANDLE> worker = ThreadsOf(dll);
  ASSERT_EQ(worker.size(), 1u);
  Call<RTCEngine*>(dll, "CreaeRTCEngine")->Initialize(nullptr, &engine_events);
  auto* im = Call<ImManager*>(dll, "_ZN9ImManager20GetImManagerInstanceEv");
  im->SetEventCallback(&im_host);
  im->LogInAndJoinGroup("1400000001", "36862", "alice", "sig-alice", "group-1");
  auto* display = Call<DisplayCapture*>(dll, "_ZN14DisplayCapture6CreateEv");
  display->SetCaptureEvent(&display_host);
  const HWND window = CreateWindowExW(0, L"STATIC", L"unload", WS_POPUP | WS_VISIBLE, 0, 0, 160, 90, nullptr,
                                      nullptr, nullptr, nullptr);
  auto* window_capture = Call<WindowCapture*>(dll, "_ZN13WindowCapture6CreateEv");
  window_capture->SetCaptureEvent(&window_host);
  window_capture->SelectWindow(window);
  auto* audio = Call<AudioCapture*>(dll, "_ZN12AudioCapture6CreateEv");
  audio->SetCaptureEvent(&audio_host, nullptr);
  ASSERT_TRUE(display->Start() && window_capture->Start() && audio->StartDevice(true, L""));
  EXPECT_TRUE(im_host.Ran() && display_host.Ran() && window_host.Ran() && audio_host.Ran());
  const std::vector<HANDLE> threads = ThreadsOf(dll);
  EXPECT_EQ(threads.size(), 6u);  // the worker, the engine's, IM's, both captures', audio's
  Call<void>(dll, "ReleaseRTCEngine");
  Call<void>(dll, "_ZN9ImManager24DestroyImManagerInstanceEv");
  Call<void>(dll, "_ZN14DisplayCapture7ReleaseEPS_", display);
  Call<void>(dll, "_ZN13WindowCapture7ReleaseEPS_", window_capture);
  Call<void>(dll, "_ZN12AudioCapture7ReleaseEPS_", audio);
  // The worker ends on its own, up to a pass after Release. A busy machine
  // may not run it for a while: held, it is in the library's code as it goes.
  ASSERT_NE(SuspendThread(worker[0]), static_cast<DWORD>(-1));
  Call<void>(dll, "_ZN18ThumbnailRenderMgr7ReleaseEPS_", thumbnails);
  FreeLibrary(dll);
  ResumeThread(worker[0]);
  ASSERT_EQ(WaitForMultipleObjects(DWORD(threads.size()), threads.data(), TRUE, 10000), WAIT_OBJECT_0);
  EXPECT_EQ(GetModuleHandleW(L"roomcore.dll"), nullptr) << "the last thread to end lets the library go";
}

}  // namespace
