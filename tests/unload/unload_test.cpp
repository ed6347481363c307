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
#include "roomcore/rtc_engine.h"

namespace {

// The host's side of one object: signalled once the object has done its work.
struct Host : DisplayCaptureEvent, WindowCaptureEvent, AudioCaptureEvent, ImManagerEvent {
  ~Host() override { CloseHandle(ran); }
  void OnCaptureStatus(int) override {}
  void OnCaptureFrame(const uint8_t*, uint32_t, int, int, int, int64_t) override { SetEvent(ran); }
  void OnAudioData(void*, const void*, int, int, int, int, int64_t) override { SetEvent(ran); }
  void OnImEvent(int event, int, const char*) override {
    if (event == IMEvent_JoinGroup) SetEvent(ran);
  }
  void OnRecvC2CTextMessage(const char*, const char*) override {}
  void OnRecvGroupTextMessage(const char*, const char*, const char*) override {}
  void OnRecvC2CCustomMessage(const char*, const char*, int) override {}

  // Waits for the object to have run, serving messages meanwhile: the
  // window capture draws this thread's window.
  bool Ran() {
    for (const DWORD start = GetTickCount(); GetTickCount() - start < 10000;) {
      if (MsgWaitForMultipleObjects(1, &ran, FALSE, 10000, QS_ALLINPUT) == WAIT_OBJECT_0) return true;
      for (MSG msg; PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE);) DispatchMessageW(&msg);
    }
    return false;
  }
  HANDLE ran = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

template <typename F>
F Export(HMODULE dll, const char* name) {
  return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(dll, name)));
}

// Handles of this process's threads that began in `module`'s code.
std::vector<HANDLE> ThreadsOf(HMODULE module) {
  using Query = LONG(WINAPI*)(HANDLE, int, PVOID, ULONG, PULONG);
  const auto query = Export<Query>(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread");
  MODULEINFO image = {};
  GetModuleInformation(GetCurrentProcess(), module, &image, sizeof(image));
  const auto begin = static_cast<const char*>(image.lpBaseOfDll), end = begin + image.SizeOfImage;
  std::vector<HANDLE> threads;
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID != GetCurrentProcessId()) continue;
    const HANDLE thread =
        OpenThread(SYNCHRONIZE | THREAD_QUERY_INFORMATION | THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID);
    const char* start = nullptr;  // ThreadQuerySetWin32StartAddress
    if (thread && query(thread, 9, &start, sizeof(start), nullptr) == 0 && start >= begin && start < end) {
      threads.push_back(thread);
    } else if (thread) {
      CloseHandle(thread);
    }
  }
  CloseHandle(snapshot);
  return threads;
}

LONG WINAPI Fault(EXCEPTION_POINTERS* e) {
  fprintf(stderr, "a thread faulted at %p after the unload\n", e->ExceptionRecord->ExceptionAddress);
  fflush(stderr);
  TerminateProcess(GetCurrentProcess(), 3);
  return EXCEPTION_EXECUTE_HANDLER;
}

TEST(Unload, ThreadsStillEndingOutliveTheLibrary) {
  SetUnhandledExceptionFilter(&Fault);
  // The SDKs are the host's as much as the library's: their own threads live on.
  ASSERT_TRUE(LoadLibraryW(L"liteav.dll") && LoadLibraryW(L"imsdk.dll"));
  const HMODULE dll = LoadLibraryW(L"roomcore.dll");
  ASSERT_NE(dll, nullptr);
  Host im_host, display_host, window_host, audio_host;
  SilentEngineEvents engine_events;

  RTCEngine* engine = Export<RTCEngine* (*)()>(dll, "CreaeRTCEngine")();
  engine->Initialize(nullptr, &engine_events);
  ImManager* im = Export<ImManager* (*)()>(dll, "_ZN9ImManager20GetImManagerInstanceEv")();
  im->SetEventCallback(&im_host);
  im->LogInAndJoinGroup("1400000001", "36862", "alice", "sig-alice", "group-1");
  EXPECT_TRUE(im_host.Ran());
  DisplayCapture* display = Export<DisplayCapture* (*)()>(dll, "_ZN14DisplayCapture6CreateEv")();
  display->SetCaptureEvent(&display_host);
  ASSERT_TRUE(display->Start());
  EXPECT_TRUE(display_host.Ran());
  const HWND window = CreateWindowExW(0, L"STATIC", L"unload", WS_POPUP | WS_VISIBLE, 0, 0, 160, 90, nullptr,
                                      nullptr, nullptr, nullptr);
  WindowCapture* window_capture = Export<WindowCapture* (*)()>(dll, "_ZN13WindowCapture6CreateEv")();
  window_capture->SetCaptureEvent(&window_host);
  window_capture->SelectWindow(window);
  ASSERT_TRUE(window_capture->Start());
  EXPECT_TRUE(window_host.Ran());
  AudioCapture* audio = Export<AudioCapture* (*)()>(dll, "_ZN12AudioCapture6CreateEv")();
  audio->SetCaptureEvent(&audio_host, nullptr);
  audio->StartDevice(true, L"");
  EXPECT_TRUE(audio_host.Ran()) << "no audio endpoint";
  const std::vector<HANDLE> others = ThreadsOf(dll);
  ThumbnailRenderMgr* thumbnails =
      Export<ThumbnailRenderMgr* (*)()>(dll, "_ZN18ThumbnailRenderMgr6CreateEv")();
  thumbnails->Start();
  const std::vector<HANDLE> threads = ThreadsOf(dll);
  EXPECT_EQ(threads.size(), 6u);  // engine, IM, display, window, audio, thumbnails
  HANDLE worker = nullptr;
  for (HANDLE thread : threads) {
    bool known = false;
    for (HANDLE other : others) known |= GetThreadId(other) == GetThreadId(thread);
    if (!known) worker = thread;
  }
  for (HANDLE other : others) CloseHandle(other);
  ASSERT_NE(worker, nullptr);

  Export<void (*)()>(dll, "ReleaseRTCEngine")();
  Export<void (*)()>(dll, "_ZN9ImManager24DestroyImManagerInstanceEv")();
  Export<void (*)(DisplayCapture*)>(dll, "_ZN14DisplayCapture7ReleaseEPS_")(display);
  Export<void (*)(WindowCapture*)>(dll, "_ZN13WindowCapture7ReleaseEPS_")(window_capture);
  Export<void (*)(AudioCapture*)>(dll, "_ZN12AudioCapture7ReleaseEPS_")(audio);
  // The thumbnail worker ends on its own, up to a pass after Release. On a
  // busy machine it may not run for a while: held here, it is still in the
  // library's code when the library is unloaded.
  ASSERT_NE(SuspendThread(worker), static_cast<DWORD>(-1));
  Export<void (*)(ThumbnailRenderMgr*)>(dll, "_ZN18ThumbnailRenderMgr7ReleaseEPS_")(thumbnails);
  FreeLibrary(dll);
  ResumeThread(worker);

  ASSERT_EQ(WaitForMultipleObjects(static_cast<DWORD>(threads.size()), threads.data(), TRUE, 10000),
            WAIT_OBJECT_0);
  EXPECT_EQ(GetModuleHandleW(L"roomcore.dll"), nullptr) << "the last thread to end lets the library go";
  for (HANDLE thread : threads) CloseHandle(thread);
  DestroyWindow(window);
}

}  // namespace
