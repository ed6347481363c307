// Demo host: drives roomcore.dll the way the meeting and whiteboard
// application does, through the public headers alone, and leaves what a
// person can look at in one output folder. Against the stand-in SDKs it runs
// a scripted meeting:
//
//   1. engine    create, list devices, enter a room; a remote user appears
//                and its camera frames arrive
//   2. picker    open a few windows of its own, list the windows a share
//                picker offers, save a snapshot picture and icon of each and
//                a contact sheet of them
//   3. display   share the display at 12 fps (DisplayCapture ->
//                PushDesktopFrame); the stand-in's pull records the stream
//   4. window    share one of its windows (WindowCapture) while moving and
//                resizing it
//   5. mic       the microphone test on the default input while a tone plays
//   6. im        log in, join the group, send whiteboard strokes; the
//                stand-in's echo peer sends them back
//
// It prints one line per stage with elapsed time and counts, a summary table,
// and the paths of what it wrote; it exits non-zero when a stage fails.
#include <windows.h>
// (after windows.h)
#include <mmsystem.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "roomcore/capture.h"
#include "roomcore/clock.h"
#include "roomcore/dib_image.h"
#include "roomcore/im_manager.h"
#include "roomcore/picker.h"
#include "roomcore/rtc_engine.h"

namespace {

const char kUsage[] =
    "usage: demo_host.exe [--seconds N] [--out DIR] [--strokes N] [--help]\n"
    "\n"
    "Runs a scripted meeting against roomcore.dll and writes its results into DIR:\n"
    "  shared.y4m            the desktop stream as the SDK pulled it (1920x1080, 12 fps)\n"
    "  windows\\*.bmp         a snapshot picture and icon of every window a picker offers\n"
    "  contact_sheet.bmp     those pictures side by side\n"
    "  summary.txt           the summary table\n"
    "\n"
    "  --seconds N   how long each share (display, then window) runs; default 20\n"
    "  --out DIR     the output folder; default demo-out\n"
    "  --strokes N   whiteboard strokes to send; default 40\n"
    "\n"
    "Against the stand-in SDKs the demo asks them (through their environment\n"
    "variables, unless already set) for a remote user, a pull of the custom\n"
    "stream at 30 a second into DIR\\shared.y4m, a few devices and an echo peer.\n";

const int kOutputWidth = 1920;
const int kOutputHeight = 1080;
const int kFrameRate = 12;

std::mutex g_print_mutex;
int64_t g_start_us = 0;

double Elapsed() { return (TimeMicroseconds() - g_start_us) / 1e6; }

void Print(const char* format, ...) {
  std::lock_guard<std::mutex> hold(g_print_mutex);
  va_list args;
  va_start(args, format);
  std::printf("[%6.1f s] ", Elapsed());
  std::vprintf(format, args);
  std::printf("\n");
  std::fflush(stdout);
  va_end(args);
}

std::string Narrow(const std::wstring& text) {
  if (text.empty()) return std::string();
  int n = WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0, nullptr,
                              nullptr);
  std::string out(n, '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &out[0], n, nullptr, nullptr);
  return out;
}

std::wstring Wide(const std::string& text) {
  if (text.empty()) return std::wstring();
  int n = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring out(n, L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.c_str(), static_cast<int>(text.size()), &out[0], n);
  return out;
}

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

// Percentile of a copy of `values` (0 when empty).
double Percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  size_t index = static_cast<size_t>(p * (values.size() - 1) + 0.5);
  return values[std::min(index, values.size() - 1)];
}

int64_t ThreadCpuMicroseconds() {
  FILETIME created, exited, kernel, user;
  if (!GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user)) return 0;
  auto value = [](const FILETIME& t) {
    return (static_cast<int64_t>(t.dwHighDateTime) << 32 | t.dwLowDateTime) / 10;
  };
  return value(kernel) + value(user);
}

// ---------------------------------------------------------------------------
// The demo's own windows: each painted in one colour with a white frame and a
// few bars, on a thread of their own with a message pump.

struct DemoWindowLook {
  const wchar_t* title;
  COLORREF colour;
  int x, y, width, height;
};

const DemoWindowLook kDemoWindows[] = {
    {L"roomcore demo: whiteboard", RGB(30, 90, 200), 40, 40, 800, 600},
    {L"roomcore demo: agenda", RGB(220, 120, 20), 480, 200, 640, 480},
    {L"roomcore demo: notes", RGB(40, 160, 70), 700, 420, 480, 360},
};
// The stage fills the screen behind the demo's windows while the display is
// shared.
const COLORREF kStageColour = RGB(150, 40, 160);

void PaintDemoWindow(HWND window, HDC dc) {
  RECT client;
  GetClientRect(window, &client);
  const COLORREF colour = static_cast<COLORREF>(GetWindowLongPtrW(window, GWLP_USERDATA));
  HBRUSH fill = CreateSolidBrush(colour);
  FillRect(dc, &client, fill);
  DeleteObject(fill);
  // A few pale bars near the edges, so that a moving picture shows; the
  // middle stays the window's own colour.
  HBRUSH bar = CreateSolidBrush(RGB(245, 245, 245));
  for (int i = 0; i < 4; ++i) {
    RECT r = {client.left + 10, client.top + 10 + i * 18, client.left + 10 + (i + 2) * 40,
              client.top + 20 + i * 18};
    FillRect(dc, &r, bar);
  }
  DeleteObject(bar);
  HBRUSH frame = CreateSolidBrush(RGB(255, 255, 255));
  FrameRect(dc, &client, frame);
  DeleteObject(frame);
}

LRESULT CALLBACK DemoWindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_PAINT: {
      PAINTSTRUCT paint;
      HDC dc = BeginPaint(window, &paint);
      PaintDemoWindow(window, dc);
      EndPaint(window, &paint);
      return 0;
    }
    case WM_PRINTCLIENT:  // a snapshot asks for the picture into its own DC
      PaintDemoWindow(window, reinterpret_cast<HDC>(wparam));
      return 0;
    case WM_ERASEBKGND:
      return 1;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

class DemoWindows {
 public:
  ~DemoWindows() { Close(); }

  bool Open() {
    thread_ = CreateThread(nullptr, 0, &DemoWindows::Thread, this, 0, &thread_id_);
    return thread_ && ready_.Wait(10000) && windows_.size() == std::size(kDemoWindows) && stage_;
  }
  void Close() {
    if (!thread_) return;
    PostThreadMessageW(thread_id_, WM_QUIT, 0, 0);
    WaitForSingleObject(thread_, 10000);
    CloseHandle(thread_);
    thread_ = nullptr;
  }
  const std::vector<HWND>& windows() const { return windows_; }
  HWND stage() const { return stage_; }
  // The stage goes behind the demo's windows, as a desktop backdrop.
  void ShowStage(bool show) {
    SetWindowPos(stage_, HWND_BOTTOM, 0, 0, 0, 0,
                 SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE | (show ? SWP_SHOWWINDOW : SWP_HIDEWINDOW));
    // Without a window manager a window that is shown comes up on top
    // whatever its place in the order, so the others are raised again.
    for (auto it = windows_.rbegin(); show && it != windows_.rend(); ++it) {
      SetWindowPos(*it, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    }
  }

 private:
  static DWORD WINAPI Thread(LPVOID context) {
    auto* self = static_cast<DemoWindows*>(context);
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = &DemoWindowProc;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.hIcon = LoadIconW(nullptr, IDI_INFORMATION);
    window_class.hIconSm = LoadIconW(nullptr, IDI_INFORMATION);
    window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
    window_class.lpszClassName = L"RoomcoreDemoWindow";
    RegisterClassExW(&window_class);
    for (const DemoWindowLook& look : kDemoWindows) {
      HWND window =
          CreateWindowExW(0, window_class.lpszClassName, look.title, WS_OVERLAPPEDWINDOW, look.x, look.y,
                          look.width, look.height, nullptr, nullptr, window_class.hInstance, nullptr);
      if (!window) continue;
      SetWindowLongPtrW(window, GWLP_USERDATA, static_cast<LONG_PTR>(look.colour));
      ShowWindow(window, SW_SHOWNORMAL);
      UpdateWindow(window);
      self->windows_.push_back(window);
    }
    // The stage: a popup as large as the screen, hidden until the display is
    // shared, so that the shared screen shows known content everywhere.
    self->stage_ =
        CreateWindowExW(WS_EX_TOOLWINDOW, window_class.lpszClassName, L"roomcore demo: stage", WS_POPUP, 0, 0,
                        GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN), nullptr, nullptr,
                        window_class.hInstance, nullptr);
    if (self->stage_) SetWindowLongPtrW(self->stage_, GWLP_USERDATA, static_cast<LONG_PTR>(kStageColour));
    self->ready_.Set();
    MSG message;
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
      TranslateMessage(&message);
      DispatchMessageW(&message);
    }
    for (HWND window : self->windows_) DestroyWindow(window);
    if (self->stage_) DestroyWindow(self->stage_);
    return 0;
  }

  HANDLE thread_ = nullptr;
  DWORD thread_id_ = 0;
  Signal ready_;
  std::vector<HWND> windows_;
  HWND stage_ = nullptr;
};

// ---------------------------------------------------------------------------
// Results, for the summary.

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
  std::vector<std::string> outputs;
  std::vector<std::string> failures;
};

// ---------------------------------------------------------------------------
// Stage 1: the engine and the room.

class EngineEvents : public RTCEngineEvent {
 public:
  Signal entered, exited, remote_entered, remote_frame;
  std::atomic<int> enter_result{-1};
  std::atomic<int> remote_frames{0};
  std::mutex levels_mutex;
  std::vector<int> levels;

  void OnError(int32_t code, const char* message) override {
    Print("engine: OnError %d %s", code, message ? message : "");
  }
  void OnEnterRoom(int32_t result, const char*) override {
    enter_result = result;
    entered.Set();
  }
  void OnExitRoom(int32_t, const char*) override { exited.Set(); }
  void OnUserEnter(const char* usr_id) override {
    Print("engine: remote user %s entered", usr_id);
    remote_entered.Set();
  }
  void OnUserExit(const char* usr_id, int32_t) override { Print("engine: remote user %s left", usr_id); }
  void OnTryToReconnect() override {}
  void OnConnectionLost() override {}
  void OnConnectionRecovery() override {}
  void OnLocalVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) override {}
  void OnRemoteVideoFrame(const char*, const void*, int32_t, int32_t, int32_t, int32_t) override {
    if (++remote_frames >= 5) remote_frame.Set();
  }
  void OnDeviceChanged(int32_t) override {}
  void OnUserVideoAvailable(const char*, bool) override {}
  void OnUserSubStreamAvailable(const char*, bool) override {}
  void OnUserAudioAvailable(const char*, bool) override {}
  void OnUserVoiceVolume(const VolumeRecord*, uint32_t) override {}
  void OnMicTestVolume(int32_t volume) override {
    std::lock_guard<std::mutex> hold(levels_mutex);
    levels.push_back(volume);
  }
  void OnStatistics(const EngineStatistics*) override {}
  void OnNetworkQuality(const int32_t*) override {}
};

int ListDevices(RTCEngine* engine, bool (RTCEngine::*get)(DeviceRecord**, int32_t*), const char* kind) {
  DeviceRecord* devices = nullptr;
  int32_t count = 0;
  if (!(engine->*get)(&devices, &count)) return -1;
  std::string names;
  for (int32_t i = 0; i < count; ++i) names += std::string(i ? ", " : "") + devices[i].name;
  Print("engine: %d %s device(s)%s%s", count, kind, count ? ": " : "", names.c_str());
  FreeDeviceRecords(devices);
  return count;
}

// ---------------------------------------------------------------------------
// Stage 2: the picker.

// Fits `image` into the cell (x, y, w, h) of the sheet's DC, aspect kept.
void DrawIntoCell(HDC dc, const DibImage& image, int x, int y, int w, int h) {
  const BITMAPINFO* info = image.bitmap_info();
  if (!info || !image.bits_data()) return;
  const int iw = info->bmiHeader.biWidth;
  const int ih = std::abs(info->bmiHeader.biHeight);
  if (iw <= 0 || ih <= 0) return;
  const double scale = std::min(static_cast<double>(w) / iw, static_cast<double>(h) / ih);
  const int dw = std::max(1, static_cast<int>(iw * scale));
  const int dh = std::max(1, static_cast<int>(ih * scale));
  SetStretchBltMode(dc, HALFTONE);
  StretchDIBits(dc, x + (w - dw) / 2, y + (h - dh) / 2, dw, dh, 0, 0, iw, ih, image.bits_data(), info,
                DIB_RGB_COLORS, SRCCOPY);
}

bool SaveContactSheet(const std::vector<std::unique_ptr<DibImage>>& pictures, const std::wstring& path) {
  const int columns = 4, cell_w = 320, cell_h = 240, gap = 8;
  const int count = static_cast<int>(pictures.size());
  const int rows = std::max(1, (count + columns - 1) / columns);
  const int width = columns * (cell_w + gap) + gap;
  const int height = rows * (cell_h + gap) + gap;
  BITMAPINFO info;
  InitBitMapInfo(width, height, true, 32, &info);
  void* bits = nullptr;
  HDC screen = GetDC(nullptr);
  HDC dc = CreateCompatibleDC(screen);
  HBITMAP bitmap = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
  ReleaseDC(nullptr, screen);
  if (!dc || !bitmap || !bits) {
    if (bitmap) DeleteObject(bitmap);
    if (dc) DeleteDC(dc);
    return false;
  }
  HGDIOBJ old = SelectObject(dc, bitmap);
  RECT all = {0, 0, width, height};
  HBRUSH background = CreateSolidBrush(RGB(32, 32, 32));
  FillRect(dc, &all, background);
  DeleteObject(background);
  for (int i = 0; i < count; ++i) {
    DrawIntoCell(dc, *pictures[i], gap + (i % columns) * (cell_w + gap), gap + (i / columns) * (cell_h + gap),
                 cell_w, cell_h);
  }
  GdiFlush();
  DibImage sheet(&info, static_cast<const uint8_t*>(bits));
  const bool saved = sheet.Save(path);
  SelectObject(dc, old);
  DeleteObject(bitmap);
  DeleteDC(dc);
  return saved;
}

std::string SafeName(const std::wstring& title, int index) {
  std::string name = "window_" + std::to_string(index);
  std::string t = Narrow(title);
  if (!t.empty()) name += "_";
  for (char c : t.substr(0, 40)) name += (std::isalnum(static_cast<unsigned char>(c)) ? c : '_');
  return name;
}

bool RunPicker(const std::wstring& out, Results* results) {
  const std::wstring folder = out + L"\\windows";
  CreateDirectoryW(folder.c_str(), nullptr);
  TopWindowEnum* windows = TopWindowEnum::Create();
  const int count = windows->EnumerateWindows();
  results->windows_listed = count;
  Print("picker: %d window(s) offered", count);
  std::vector<std::unique_ptr<DibImage>> pictures;
  for (int i = 0; i < count; ++i) {
    HWND window = windows->GetWindowAt(i);
    WindowSnapshot* snapshot = WindowSnapshot::Create(window);
    if (!snapshot) continue;
    const std::string name = SafeName(snapshot->GetTitle(), i);
    DibImage* picture = snapshot->GetPicture();
    DibImage* icon = snapshot->GetIcon();
    int width = 0, height = 0;
    if (picture && picture->bitmap_info()) {
      width = picture->bitmap_info()->bmiHeader.biWidth;
      height = std::abs(picture->bitmap_info()->bmiHeader.biHeight);
    }
    Print("picker:   %d: \"%s\" (%s, pid %u) picture %dx%d%s", i, Narrow(snapshot->GetTitle()).c_str(),
          Narrow(snapshot->GetProcessName()).c_str(), snapshot->GetProcessId(), width, height,
          icon ? ", icon" : "");
    bool saved = false;
    if (picture && picture->Save(folder + L"\\" + Wide(name) + L".bmp")) {
      pictures.push_back(std::make_unique<DibImage>(*picture));
      saved = true;
    }
    if (icon) icon->Save(folder + L"\\" + Wide(name) + L"_icon.bmp");
    results->snapshots_saved += saved ? 1 : 0;
    WindowSnapshot::Release(snapshot);
  }
  TopWindowEnum::Release(windows);
  const bool sheet = SaveContactSheet(pictures, out + L"\\contact_sheet.bmp");
  Print("picker: %d snapshot(s) saved; contact sheet %s", results->snapshots_saved,
        sheet ? "saved" : "FAILED");
  results->outputs.push_back(Narrow(folder) + "\\*.bmp");
  results->outputs.push_back(Narrow(out) + "\\contact_sheet.bmp");
  if (count < static_cast<int>(std::size(kDemoWindows))) {
    results->failures.push_back("picker: fewer windows listed than the demo opened");
    return false;
  }
  if (!sheet || results->snapshots_saved == 0) {
    results->failures.push_back("picker: no snapshot or contact sheet saved");
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// Stages 3 and 4: sharing. Both captures deliver into the same sink, which
// forwards each frame to the engine as the meeting application does.

class ShareSink : public DisplayCaptureEvent, public WindowCaptureEvent {
 public:
  explicit ShareSink(RTCEngine* engine) : engine_(engine) {}

  void Reset() {
    std::lock_guard<std::mutex> hold(mutex_);
    captured_ = pushed_ = statuses_ = 0;
    intervals_.clear();
    last_timestamp_ = 0;
    cpu_first_ = cpu_last_ = -1;
  }
  void OnCaptureStatus(int) override {
    std::lock_guard<std::mutex> hold(mutex_);
    ++statuses_;
  }
  void OnCaptureFrame(const uint8_t* data, uint32_t size, int width, int height, int,
                      int64_t timestamp) override {
    const bool pushed = engine_->PushDesktopFrame(data, static_cast<int32_t>(size), width, height, timestamp);
    // The capture thread's CPU time so far: grab, cursor, scale and delivery.
    const int64_t cpu = ThreadCpuMicroseconds();
    std::lock_guard<std::mutex> hold(mutex_);
    ++captured_;
    pushed_ += pushed ? 1 : 0;
    if (last_timestamp_) intervals_.push_back((timestamp - last_timestamp_) / 1000.0);
    last_timestamp_ = timestamp;
    if (cpu_first_ < 0) cpu_first_ = cpu;
    cpu_last_ = cpu;
  }
  int captured() {
    std::lock_guard<std::mutex> hold(mutex_);
    return captured_;
  }
  ShareResult Result(double seconds) {
    std::lock_guard<std::mutex> hold(mutex_);
    ShareResult r;
    r.captured = captured_;
    r.pushed = pushed_;
    r.statuses = statuses_;
    r.seconds = seconds;
    // The first frame's own cost is before the first reading; the rest are
    // between the first and the last.
    if (captured_ > 1) r.cpu_ms_per_frame = (cpu_last_ - cpu_first_) / 1000.0 / (captured_ - 1);
    r.interval_p50_ms = Percentile(intervals_, 0.5);
    r.interval_p99_ms = Percentile(intervals_, 0.99);
    return r;
  }

 private:
  RTCEngine* engine_;
  std::mutex mutex_;
  int captured_ = 0, pushed_ = 0, statuses_ = 0;
  std::vector<double> intervals_;
  int64_t last_timestamp_ = 0;
  int64_t cpu_first_ = -1, cpu_last_ = -1;
};

void PrintShareProgress(const char* what, ShareSink* sink, double seconds) {
  const int64_t start = TimeMicroseconds();
  int last_second = 0;
  while ((TimeMicroseconds() - start) / 1e6 < seconds) {
    Sleep(100);
    const int second = static_cast<int>((TimeMicroseconds() - start) / 1000000);
    if (second != last_second) {
      last_second = second;
      Print("%s: %d s, %d frame(s) captured", what, second, sink->captured());
    }
  }
}

bool RunDisplayShare(ShareSink* sink, DemoWindows* demo, double seconds, Results* results) {
  DisplayCapture* capture = DisplayCapture::Create();
  const int displays = capture->GetDisplayCount();
  const DisplayInfo* display = capture->GetDisplay(0);
  if (!display) {
    results->failures.push_back("display: no display listed");
    DisplayCapture::Release(capture);
    return false;
  }
  Print("display: %d display(s); sharing %s (%dx%d) for %.0f s at %d fps", displays,
        Narrow(display->device_name).c_str(), display->width, display->height, seconds, kFrameRate);
  demo->ShowStage(true);
  sink->Reset();
  capture->SelectDisplay(display);
  capture->SetCaptureEvent(sink);
  capture->SetFrameRate(kFrameRate);
  capture->SetOutputSize(kOutputWidth, kOutputHeight);
  capture->SetDrawCursor(true);
  const bool started = capture->Start();
  PrintShareProgress("display", sink, seconds);
  capture->Stop();
  DisplayCapture::Release(capture);
  demo->ShowStage(false);
  results->display = sink->Result(seconds);
  Print("display: %d frame(s) captured, %d pushed", results->display.captured, results->display.pushed);
  if (!started || results->display.captured == 0) {
    results->failures.push_back("display: no frame captured");
    return false;
  }
  return true;
}

bool RunWindowShare(ShareSink* sink, DemoWindows* demo, double seconds, Results* results) {
  HWND window = demo->windows().front();
  Print("window: sharing \"roomcore demo: whiteboard\" for %.0f s at %d fps while it moves and grows",
        seconds, kFrameRate);
  WindowCapture* capture = WindowCapture::Create();
  sink->Reset();
  capture->SetCaptureEvent(sink);
  capture->SetFrameRate(kFrameRate);
  capture->SetOutputSize(kOutputWidth, kOutputHeight);
  capture->SetDrawCursor(true);
  capture->SelectWindow(window);
  const bool started = capture->Start();
  // Move and resize the window in steps over the run.
  const int steps = std::max(1, static_cast<int>(seconds * 2));
  for (int i = 0; i < steps; ++i) {
    const int w = 800 + (i % 5) * 60, h = 600 + (i % 5) * 40;
    SetWindowPos(window, HWND_TOP, 40 + (i % 7) * 30, 40 + (i % 3) * 20, w, h, SWP_SHOWWINDOW);
    PrintShareProgress("window", sink, seconds / steps);
  }
  capture->Stop();
  WindowCapture::Release(capture);
  results->window = sink->Result(seconds);
  Print("window: %d frame(s) captured, %d pushed", results->window.captured, results->window.pushed);
  if (!started || results->window.captured == 0) {
    results->failures.push_back("window: no frame captured");
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// Stage 5: the microphone test while a tone plays into the default output.

class Tone {
 public:
  // A 441 Hz square wave at half scale, `seconds` long, 44.1 kHz mono.
  bool Play(double seconds) {
    WAVEFORMATEX format = {};
    format.wFormatTag = WAVE_FORMAT_PCM;
    format.nChannels = 1;
    format.nSamplesPerSec = 44100;
    format.wBitsPerSample = 16;
    format.nBlockAlign = 2;
    format.nAvgBytesPerSec = 88200;
    if (waveOutOpen(&device_, WAVE_MAPPER, &format, 0, 0, CALLBACK_NULL) != MMSYSERR_NOERROR) {
      device_ = nullptr;
      return false;
    }
    samples_.resize(static_cast<size_t>(44100 * seconds));
    for (size_t i = 0; i < samples_.size(); ++i) samples_[i] = ((i / 50) % 2) ? 16000 : -16000;
    header_ = WAVEHDR();
    header_.lpData = reinterpret_cast<LPSTR>(samples_.data());
    header_.dwBufferLength = static_cast<DWORD>(samples_.size() * sizeof(int16_t));
    return waveOutPrepareHeader(device_, &header_, sizeof(header_)) == MMSYSERR_NOERROR &&
           waveOutWrite(device_, &header_, sizeof(header_)) == MMSYSERR_NOERROR;
  }
  ~Tone() {
    if (!device_) return;
    waveOutReset(device_);
    waveOutUnprepareHeader(device_, &header_, sizeof(header_));
    waveOutClose(device_);
  }

 private:
  HWAVEOUT device_ = nullptr;
  WAVEHDR header_ = {};
  std::vector<int16_t> samples_;
};

bool RunMicTest(RTCEngine* engine, EngineEvents* events, Results* results) {
  Print("mic: the microphone test while the desktop is shared and a tone plays (6 s)");
  Tone tone;
  const bool playing = tone.Play(8.0);
  if (!playing) Print("mic: no audio output to play the tone on");
  engine->EnableCaptureDesktopVideo(true);
  engine->StartMicDeviceTest();
  for (int i = 1; i <= 6; ++i) {
    Sleep(1000);
    std::lock_guard<std::mutex> hold(events->levels_mutex);
    Print("mic: %d s, levels so far: %s", i,
          events->levels.empty() ? "none" : std::to_string(events->levels.back()).c_str());
  }
  engine->StopMicDeviceTest();
  engine->EnableCaptureDesktopVideo(false);
  {
    std::lock_guard<std::mutex> hold(events->levels_mutex);
    results->levels = events->levels;
  }
  const bool heard = std::any_of(results->levels.begin(), results->levels.end(), [](int v) { return v > 0; });
  if (!heard) {
    results->failures.push_back("mic: no level above 0 reached the host (is a sound server running?)");
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// Stage 6: whiteboard strokes through the IM group.

class ImEvents : public ImManagerEvent, public WhiteBoardEvent {
 public:
  Signal logged_in, joined, quit, all_acknowledged, all_echoed;
  std::atomic<int> login_code{-1}, join_code{-1};
  std::atomic<int> acknowledged{0};
  int expected = 0;
  std::mutex mutex;
  std::vector<std::string> echoed;

  void OnImEvent(int event, int code, const char* desc) override {
    if (event == IMEvent_Login) {
      login_code = code;
      if (code == 0) logged_in.Set();
      if (code != 0) Print("im: login attempt answered %d %s", code, desc ? desc : "");
    } else if (event == IMEvent_JoinGroup) {
      join_code = code;
      joined.Set();
    } else if (event == IMEvent_QuitGroup) {
      quit.Set();
    }
  }
  void OnRecvC2CTextMessage(const char*, const char*) override {}
  void OnRecvGroupTextMessage(const char*, const char*, const char*) override {}
  void OnRecvC2CCustomMessage(const char*, const char*, int) override {}
  void OnRecvWhiteBoardData(const char*, const char*, const char* data, int length) override {
    std::lock_guard<std::mutex> hold(mutex);
    echoed.emplace_back(data, length);
    if (static_cast<int>(echoed.size()) >= expected) all_echoed.Set();
  }
  void OnSendWhiteBoardDataResult(int code, const char*, void*) override {
    if (code == 0 && ++acknowledged >= expected) all_acknowledged.Set();
  }
};

bool RunIm(int strokes, Results* results) {
  ImManager* im = ImManager::GetImManagerInstance();
  ImEvents events;
  events.expected = strokes;
  im->SetEventCallback(&events);
  im->SetWhiteBoardCallback(&events);
  Print("im: LogInAndJoinGroup");
  im->LogInAndJoinGroup("1400000001", "36862", "demo_user", "demo_signature", "whiteboard_20261123");
  bool ok = true;
  std::vector<std::string> sent;
  if (!events.logged_in.Wait(15000) || !events.joined.Wait(15000) || events.join_code != 0) {
    results->failures.push_back("im: login or join did not complete");
    ok = false;
  } else {
    Print("im: logged in as %s and joined; sending %d stroke(s)", im->GetUsrId(), strokes);
    for (int i = 0; i < strokes; ++i) {
      char stroke[160];
      std::snprintf(stroke, sizeof(stroke),
                    "{\"type\":\"stroke\",\"seq\":%d,\"points\":[[%d,%d],[%d,%d]],\"color\":\"#%06x\"}", i,
                    i * 7, i * 3, i * 7 + 40, i * 3 + 25, (i * 2654435761u) & 0xffffff);
      sent.push_back(stroke);
      im->SendWhiteBoardData(stroke, static_cast<int>(std::strlen(stroke)), nullptr);
    }
    results->strokes_sent = strokes;
    events.all_acknowledged.Wait(15000);
    events.all_echoed.Wait(15000);
    results->strokes_acknowledged = events.acknowledged;
    {
      std::lock_guard<std::mutex> hold(events.mutex);
      results->strokes_echoed = static_cast<int>(events.echoed.size());
      for (size_t i = 0; i < events.echoed.size() && i < sent.size(); ++i) {
        results->strokes_matching += events.echoed[i] == sent[i] ? 1 : 0;
      }
    }
    Print("im: %d acknowledged, %d echoed back, %d identical and in order", results->strokes_acknowledged,
          results->strokes_echoed, results->strokes_matching);
    if (results->strokes_acknowledged != strokes) {
      results->failures.push_back("im: not every stroke was acknowledged");
      ok = false;
    }
    if (results->strokes_matching != strokes) {
      results->failures.push_back("im: the echo did not return every stroke unchanged and in order");
      ok = false;
    }
    im->LogoutAndQuitGroup();
    if (!events.quit.Wait(10000)) {
      results->failures.push_back("im: no IMEvent_QuitGroup");
      ok = false;
    }
  }
  im->SetWhiteBoardCallback(nullptr);
  im->SetEventCallback(nullptr);
  ImManager::DestroyImManagerInstance();
  return ok;
}

// ---------------------------------------------------------------------------

// Frames in the Y4M file the stand-in wrote: its size against one frame's.
int CountY4mFrames(const std::wstring& path) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return -1;
  char header[128] = {};
  DWORD read = 0;
  ReadFile(file, header, sizeof(header) - 1, &read, nullptr);
  LARGE_INTEGER size = {};
  GetFileSizeEx(file, &size);
  CloseHandle(file);
  const char* end = std::strchr(header, '\n');
  int width = 0, height = 0;
  const char* w = std::strstr(header, " W");
  const char* h = std::strstr(header, " H");
  if (!end || !w || !h) return -1;
  width = std::atoi(w + 2);
  height = std::atoi(h + 2);
  const int64_t frame = 6 + static_cast<int64_t>(width) * height + 2 * ((width + 1) / 2) * ((height + 1) / 2);
  return static_cast<int>((size.QuadPart - (end - header + 1)) / frame);
}

std::string SummaryText(const Results& r, const std::wstring& y4m) {
  std::string text;
  char line[256];
  auto add = [&](const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    text += line;
    text += "\n";
  };
  auto share = [&](const char* name, const ShareResult& s) {
    add("%-8s captured %5d  pushed %5d  fps %5.1f  cpu/frame %6.2f ms  interval p50 %6.1f ms  p99 %6.1f ms",
        name, s.captured, s.pushed, s.seconds > 0 ? s.captured / s.seconds : 0.0, s.cpu_ms_per_frame,
        s.interval_p50_ms, s.interval_p99_ms);
  };
  add("== summary");
  add("remote   frames received from the remote user: %d", r.remote_frames);
  add("picker   windows listed: %d, snapshots saved: %d", r.windows_listed, r.snapshots_saved);
  share("display", r.display);
  share("window", r.window);
  const int pushed = r.display.pushed + r.window.pushed;
  add("stream   pushed %d, pulled into the Y4M %d, dropped %d", pushed, r.y4m_frames,
      r.y4m_frames >= 0 ? pushed - r.y4m_frames : -1);
  std::string levels;
  int max_level = 0;
  for (int v : r.levels) {
    levels += (levels.empty() ? "" : " ") + std::to_string(v);
    max_level = std::max(max_level, v);
  }
  add("mic      levels: %s (max %d)", levels.empty() ? "none" : levels.c_str(), max_level);
  add("im       strokes sent %d, acknowledged %d, echoed %d, identical and in order %d", r.strokes_sent,
      r.strokes_acknowledged, r.strokes_echoed, r.strokes_matching);
  add("== outputs");
  add("%s", Narrow(y4m).c_str());
  for (const std::string& output : r.outputs) add("%s", output.c_str());
  return text;
}

void SetDefaultEnvironment(const char* name, const std::string& value) {
  char current[8];
  if (GetEnvironmentVariableA(name, current, sizeof(current)) == 0)
    SetEnvironmentVariableA(name, value.c_str());
}

std::wstring FullPath(const std::wstring& path) {
  wchar_t full[MAX_PATH];
  DWORD n = GetFullPathNameW(path.c_str(), MAX_PATH, full, nullptr);
  return (n > 0 && n < MAX_PATH) ? std::wstring(full, n) : path;
}

}  // namespace

int main(int argc, char** argv) {
  g_start_us = TimeMicroseconds();
  double seconds = 20;
  int strokes = 40;
  std::wstring out = L"demo-out";
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    } else if (arg == "--seconds" && i + 1 < argc) {
      seconds = std::atof(argv[++i]);
    } else if (arg == "--out" && i + 1 < argc) {
      out = Wide(argv[++i]);
    } else if (arg == "--strokes" && i + 1 < argc) {
      strokes = std::atoi(argv[++i]);
    } else {
      std::fprintf(stderr, "demo_host: unknown argument %s\n\n%s", arg.c_str(), kUsage);
      return 2;
    }
  }
  if (seconds <= 0 || strokes <= 0) {
    std::fprintf(stderr, "demo_host: --seconds and --strokes take positive numbers\n");
    return 2;
  }
  out = FullPath(out);
  if (!CreateDirectoryW(out.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
    std::fprintf(stderr, "demo_host: cannot make the output folder %s\n", Narrow(out).c_str());
    return 2;
  }
  const std::wstring y4m = out + L"\\shared.y4m";
  DeleteFileW(y4m.c_str());
  SetDefaultEnvironment("LITEAV_STANDIN_DEVICES", "1");
  SetDefaultEnvironment("LITEAV_STANDIN_REMOTE_USER", "remote_peer");
  SetDefaultEnvironment("LITEAV_STANDIN_PULL_FPS", "30");
  SetDefaultEnvironment("LITEAV_STANDIN_Y4M", Narrow(y4m));
  SetDefaultEnvironment("LITEAV_STANDIN_Y4M_RATE", std::to_string(kFrameRate));
  SetDefaultEnvironment("IMSDK_STANDIN_ECHO_PEER", "peer_user");

  Results results;
  const int stages = 6;
  int stage = 0;
  auto begin = [&](const char* name) { Print("== stage %d/%d: %s", ++stage, stages, name); };

  begin("engine and room");
  RTCEngine* engine = CreaeRTCEngine();
  EngineEvents events;
  engine->Initialize(nullptr, &events);
  ListDevices(engine, &RTCEngine::GetCameraDevices, "camera");
  ListDevices(engine, &RTCEngine::GetMicDevices, "microphone");
  ListDevices(engine, &RTCEngine::GetSpeakerDevices, "speaker");
  engine->EnterRoom("1400000001", "20261123", "demo_user", "demo_signature");
  bool in_room = events.entered.Wait(10000) && events.enter_result >= 0;
  if (!in_room) {
    results.failures.push_back("engine: no successful OnEnterRoom");
  } else {
    Print("engine: in the room (%d)", static_cast<int>(events.enter_result));
    if (!events.remote_entered.Wait(5000) || !events.remote_frame.Wait(5000)) {
      results.failures.push_back("engine: no remote user or no remote frames");
    }
    Print("engine: %d remote frame(s) so far", static_cast<int>(events.remote_frames));
  }

  DemoWindows demo;
  begin("share picker");
  if (!demo.Open()) {
    results.failures.push_back("picker: the demo's windows could not be opened");
  } else {
    RunPicker(out, &results);
  }

  ShareSink sink(engine);
  if (in_room) engine->EnableCaptureDesktopVideo(true);
  begin("share the display");
  if (in_room) RunDisplayShare(&sink, &demo, seconds, &results);
  begin("share a window");
  if (in_room && !demo.windows().empty()) RunWindowShare(&sink, &demo, seconds, &results);
  if (in_room) engine->EnableCaptureDesktopVideo(false);

  begin("microphone test");
  RunMicTest(engine, &events, &results);

  results.remote_frames = events.remote_frames;
  engine->ExitRoom();
  if (in_room && !events.exited.Wait(10000)) results.failures.push_back("engine: no OnExitRoom");
  engine->UnInitialize();
  ReleaseRTCEngine();
  demo.Close();

  begin("whiteboard through the IM group");
  RunIm(strokes, &results);

  results.y4m_frames = CountY4mFrames(y4m);
  if (results.y4m_frames <= 0) results.failures.push_back("stream: no frame reached the Y4M record");
  const std::string summary = SummaryText(results, y4m);
  std::fputs(summary.c_str(), stdout);
  if (FILE* file = _wfopen((out + L"\\summary.txt").c_str(), L"wb")) {
    std::fputs(summary.c_str(), file);
    std::fclose(file);
    std::printf("%s\\summary.txt\n", Narrow(out).c_str());
  }
  for (const std::string& failure : results.failures) std::printf("FAILED: %s\n", failure.c_str());
  std::printf("demo %s in %.1f s\n", results.failures.empty() ? "finished" : "FAILED", Elapsed());
  std::fflush(stdout);
  return results.failures.empty() ? 0 : 1;
}
