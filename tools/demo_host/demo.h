// The demo host's shared pieces: printing, text, the results that the stages
// fill in, and the stages themselves (one file each).
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "roomcore/capture.h"
#include "roomcore/rtc_engine.h"

const int kOutputWidth = 1920;
const int kOutputHeight = 1080;
const int kFrameRate = 12;

// One line of progress, prefixed with the seconds since the start.
void Print(const char* format, ...);
double Elapsed();
void StartClock();

std::string Narrow(const std::wstring& text);
std::wstring Wide(const std::string& text);
// The path as the user of the machine sees it: under Wine, the Unix path
// (Wine's kernel32 tells it); on Windows, the path itself.
std::string DisplayPath(const std::wstring& path);
std::wstring FullPath(const std::wstring& path);

// Percentile of a copy of `values` (0 when empty).
double Percentile(std::vector<double> values, double p);
int64_t ThreadCpuMicroseconds();

// A manual-reset event a callback signals and the script waits for.
class Signal {
 public:
  Signal() : handle_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
  ~Signal() { CloseHandle(handle_); }
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;
  void Set() { SetEvent(handle_); }
  bool Wait(DWORD ms) { return WaitForSingleObject(handle_, ms) == WAIT_OBJECT_0; }

 private:
  HANDLE handle_;
};

struct ShareResult {
  int captured = 0;
  int pushed = 0;
  int statuses = 0;
  double seconds = 0;
  double cpu_ms_per_frame = 0;
  double interval_p50_ms = 0;
  double interval_p99_ms = 0;
};

struct Results {
  int remote_frames = 0;
  int windows_listed = 0;
  int snapshots_saved = 0;
  ShareResult display, window;
  int y4m_frames = -1;
  int strokes_sent = 0;
  int strokes_acknowledged = 0;
  int strokes_echoed = 0;
  int strokes_matching = 0;
  std::vector<int> levels;
  std::vector<std::string> outputs;  // relative to the output folder
  std::vector<std::string> failures;
};

// The demo's own windows (demo_windows.cpp): three painted windows and a
// full-screen stage behind them, on a thread of their own.
struct DemoWindowLook {
  const wchar_t* title;
  COLORREF colour;
  int x, y, width, height;
};
extern const DemoWindowLook kDemoWindows[3];

class DemoWindows {
 public:
  ~DemoWindows() { Close(); }
  bool Open();
  void Close();
  const std::vector<HWND>& windows() const { return windows_; }
  // The stage goes behind the demo's windows, as a desktop backdrop.
  void ShowStage(bool show);

 private:
  static DWORD WINAPI Thread(LPVOID context);

  HANDLE thread_ = nullptr;
  DWORD thread_id_ = 0;
  Signal ready_;
  std::vector<HWND> windows_;
  HWND stage_ = nullptr;
};

// Stage 1 (stage_engine.cpp): the engine's events, which stage 5 reads too.
class EngineEvents : public RTCEngineEvent {
 public:
  Signal entered, exited, remote_entered, remote_frame;
  std::atomic<int> enter_result{-1};
  std::atomic<int> remote_frames{0};
  std::mutex levels_mutex;
  std::vector<int> levels;

  void OnError(int32_t code, const char* message) override;
  void OnEnterRoom(int32_t result, const char*) override;
  void OnExitRoom(int32_t, const char*) override { exited.Set(); }
  void OnUserEnter(const char* usr_id) override;
  void OnUserExit(const char* usr_id, int32_t) override;
  void OnTryToReconnect() override {}
  void OnConnectionLost() override {}
  void OnConnectionRecovery() override {}
  void OnLocalVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) override {}
  void OnRemoteVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) override;
  void OnDeviceChanged(int32_t) override {}
  void OnUserVideoAvailable(const char*, bool) override {}
  void OnUserSubStreamAvailable(const char*, bool) override {}
  void OnUserAudioAvailable(const char*, bool) override {}
  void OnUserVoiceVolume(const VolumeRecord*, uint32_t) override {}
  void OnMicTestVolume(int32_t volume) override;
  void OnStatistics(const EngineStatistics*) override {}
  void OnNetworkQuality(const int32_t*) override {}
};

// Each stage records its figures and failures in `results`; false when it
// failed.
bool RunEnterRoom(RTCEngine* engine, EngineEvents* events, Results* results);
bool RunPicker(const std::wstring& out, Results* results);
bool RunDisplayShare(RTCEngine* engine, DemoWindows* demo, double seconds, Results* results);
bool RunWindowShare(RTCEngine* engine, DemoWindows* demo, double seconds, Results* results);
bool RunMicTest(RTCEngine* engine, EngineEvents* events, Results* results);
bool RunIm(int strokes, Results* results);

// The report (report.cpp): frames in the Y4M record, the summary table.
int CountY4mFrames(const std::wstring& path);
std::string SummaryText(const Results& results);
