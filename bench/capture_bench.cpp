// The captures on the test display (run it at 1920 x 1080): the cost of each
// step of one pass (grab, cursor, read-out, scale and deliver) for the whole
// display and for a 1280 x 720 window, then real runs at 12 and 30 frames a
// second: the capture thread's CPU share, the spread of frame intervals
// against the period, and allocations per frame.
#include <windows.h>

#include <benchmark/benchmark.h>
#include <mmsystem.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "allocation_hooks.h"
#include "capture/capture_platform.h"
#include "capture/capture_runner.h"
#include "capture/draw_cursor.h"
#include "roomcore/capture.h"
#include "roomcore/clock.h"

namespace {

constexpr int kWindowWidth = 1280;
constexpr int kWindowHeight = 720;

// Xvfb shows no pointer: the cursor facts say one shows mid-screen, so that
// each grab draws it as on a desktop with a mouse.
BOOL WINAPI ShowingCursor(PCURSORINFO info) {
  info->flags = CURSOR_SHOWING;
  info->hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));  // IDC_ARROW
  info->ptScreenPos = {400, 300};
  return TRUE;
}

class CursorShown {
 public:
  CursorShown() : table_(capture::Platform()) {
    table_.get_cursor_info = &ShowingCursor;
    capture::SetCapturePlatformForTesting(&table_);
  }
  ~CursorShown() { capture::SetCapturePlatformForTesting(nullptr); }

 private:
  capture::CapturePlatform table_;
};

// A frame sink for the steps measured one by one: the host's call and
// nothing else.
class NullClient : public capture::CaptureClient {
 public:
  void BeginRun() override {}
  void Pass() override {}
  void EndRun() override {}
  bool HasEvent() override { return true; }
  void SendFrame(const uint8_t* data, uint32_t, int, int, int64_t) override {
    benchmark::DoNotOptimize(data);
  }
  void DestroyOwner() override {}
};

// A 1280 x 720 window with four solid quadrants, on its own pumping thread
// (PrintWindow asks that thread to paint).
class BenchWindow {
 public:
  BenchWindow() {
    thread_ = std::thread([this] { Run(); });
    std::unique_lock<std::mutex> guard(mutex_);
    ready_.wait(guard, [this] { return hwnd_ != nullptr; });
  }
  ~BenchWindow() {
    SendMessageW(hwnd_, WM_CLOSE, 0, 0);
    thread_.join();
  }
  HWND hwnd() const { return hwnd_; }

 private:
  static void Paint(HWND hwnd, HDC dc) {
    RECT client;
    GetClientRect(hwnd, &client);
    const COLORREF colours[4] = {RGB(200, 30, 30), RGB(30, 200, 30), RGB(30, 30, 200), RGB(240, 240, 240)};
    for (int i = 0; i < 4; ++i) {
      RECT r = {(i % 2) * client.right / 2, (i / 2) * client.bottom / 2, (i % 2 + 1) * client.right / 2,
                (i / 2 + 1) * client.bottom / 2};
      HBRUSH brush = CreateSolidBrush(colours[i]);
      FillRect(dc, &r, brush);
      DeleteObject(brush);
    }
  }
  static LRESULT CALLBACK Proc(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    switch (message) {
      case WM_ERASEBKGND:
        return 1;
      case WM_PAINT: {
        PAINTSTRUCT ps;
        Paint(hwnd, BeginPaint(hwnd, &ps));
        EndPaint(hwnd, &ps);
        return 0;
      }
      case WM_PRINTCLIENT:
        Paint(hwnd, reinterpret_cast<HDC>(wparam));
        return 0;
      case WM_DESTROY:
        PostQuitMessage(0);
        return 0;
    }
    return DefWindowProcW(hwnd, message, wparam, lparam);
  }
  void Run() {
    WNDCLASSW wc = {};
    wc.lpfnWndProc = &Proc;
    wc.hInstance = GetModuleHandleW(nullptr);
    wc.lpszClassName = L"RoomcoreCaptureBenchWindow";
    RegisterClassW(&wc);
    HWND hwnd = CreateWindowExW(WS_EX_TOOLWINDOW, wc.lpszClassName, L"bench", WS_POPUP, 100, 100,
                                kWindowWidth, kWindowHeight, nullptr, nullptr, wc.hInstance, nullptr);
    ShowWindow(hwnd, SW_SHOWNOACTIVATE);
    UpdateWindow(hwnd);
    {
      std::lock_guard<std::mutex> guard(mutex_);
      hwnd_ = hwnd;
    }
    ready_.notify_all();
    MSG msg;
    while (GetMessageW(&msg, nullptr, 0, 0) > 0) DispatchMessageW(&msg);
  }

  std::thread thread_;
  std::mutex mutex_;
  std::condition_variable ready_;
  HWND hwnd_ = nullptr;
};

void ScreenSize(int* width, int* height) {
  HDC screen = GetDC(nullptr);
  *width = GetDeviceCaps(screen, DESKTOPHORZRES);
  *height = GetDeviceCaps(screen, DESKTOPVERTRES);
  ReleaseDC(nullptr, screen);
}

// What a display pass makes and copies in GDI: the screen's context, a
// memory picture, the copy, and all of it given back.
void BM_DisplayGrab(benchmark::State& state) {
  int width, height;
  ScreenSize(&width, &height);
  HWND desktop = GetDesktopWindow();
  for (auto _ : state) {
    HDC screen = GetDC(desktop);
    {
      capture::MemoryPicture picture(screen, width, height);
      StretchBlt(picture.dc(), 0, 0, width, height, screen, 0, 0, width, height, SRCCOPY);
    }
    ReleaseDC(desktop, screen);
  }
  state.counters["width"] = width;
  state.counters["height"] = height;
}

// What a window pass makes and copies in GDI: the window's context, the full
// picture through PrintWindow, the trimmed copy.
void BM_WindowGrab(benchmark::State& state) {
  BenchWindow window;
  const int width = kWindowWidth;
  const int height = kWindowHeight;
  const int trimmed_width = (width - 16) & ~1;
  const int trimmed_height = (height - 14) & ~1;
  for (auto _ : state) {
    HDC dc = GetWindowDC(window.hwnd());
    {
      capture::MemoryPicture full(dc, width, height);
      PrintWindow(window.hwnd(), full.dc(), 2);
      capture::MemoryPicture trimmed(dc, trimmed_width, trimmed_height);
      StretchBlt(trimmed.dc(), 0, 0, trimmed_width, trimmed_height, full.dc(), 8, 7, trimmed_width,
                 trimmed_height, SRCCOPY);
    }
    ReleaseDC(window.hwnd(), dc);
  }
}

// The cursor drawn into a grab (copy of the icon, its bitmaps, the draw).
void BM_Cursor(benchmark::State& state) {
  CursorShown cursor;
  HDC screen = GetDC(nullptr);
  capture::MemoryPicture picture(screen, 1920, 1080);
  const RECT monitor = {0, 0, 1920, 1080};
  for (auto _ : state) capture::DrawCursor(GetDesktopWindow(), picture.dc(), monitor, 1.0, 1.0);
  ReleaseDC(nullptr, screen);
}

// GetDIBits of a grab into the reused buffer, then the scaler into the
// 1920 x 1080 output frame and the host's call. Arg 0: the display (screen
// size); 1: the trimmed 1280 x 720 window.
void BM_ReadOutScaleDeliver(benchmark::State& state) {
  int width, height;
  ScreenSize(&width, &height);
  if (state.range(0) == 1) {
    width = (kWindowWidth - 16) & ~1;
    height = (kWindowHeight - 14) & ~1;
  }
  NullClient client;
  capture::CaptureRunner runner(&client, L"Bench");
  HDC screen = GetDC(nullptr);
  capture::MemoryPicture picture(screen, width, height);
  StretchBlt(picture.dc(), 0, 0, width, height, screen, 0, 0, width, height, SRCCOPY);
  // Deliver hands nothing on while the runner is stopped: a started run
  // whose passes do nothing lets the steps be driven from here.
  runner.Start();
  // The first pass makes the buffer, the frame and the scaler; count from the
  // second.
  runner.Deliver(runner.ReadOut(picture.dc(), picture.bitmap(), width, height, 32), width, height, 0);
  double read_ms = 0;
  double scale_ms = 0;
  int64_t allocations = 0;
  LARGE_INTEGER frequency;
  QueryPerformanceFrequency(&frequency);
  for (auto _ : state) {
    LARGE_INTEGER t0, t1, t2;
    const int64_t before = bench::AllocationCount();
    QueryPerformanceCounter(&t0);
    const uint8_t* pixels = runner.ReadOut(picture.dc(), picture.bitmap(), width, height, 32);
    QueryPerformanceCounter(&t1);
    runner.Deliver(pixels, width, height, 0);
    QueryPerformanceCounter(&t2);
    allocations += bench::AllocationCount() - before;
    read_ms += 1e3 * static_cast<double>(t1.QuadPart - t0.QuadPart) / static_cast<double>(frequency.QuadPart);
    scale_ms +=
        1e3 * static_cast<double>(t2.QuadPart - t1.QuadPart) / static_cast<double>(frequency.QuadPart);
  }
  runner.Stop();
  ReleaseDC(nullptr, screen);
  const double n = static_cast<double>(state.iterations());
  state.counters["read_out_ms"] = read_ms / n;
  state.counters["scale_deliver_ms"] = scale_ms / n;
  state.counters["allocs_per_frame"] = static_cast<double>(allocations) / n;
}

// ---- Real runs -------------------------------------------------------------

// The whole process: under Wine a thread's own times aren't dependable
// (GetThreadTimes gave more than one core's worth for one thread). The
// process holds nothing else that works during a run, so this bounds the
// capture thread's share from above. Xvfb's and the wineserver's share, which
// a screen read under Wine costs too, are outside it.
double ProcessCpuSeconds() {
  FILETIME created, exited, kernel, user;
  if (!GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user)) return 0;
  auto seconds = [](const FILETIME& t) {
    return static_cast<double>((static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime) * 1e-7;
  };
  return seconds(kernel) + seconds(user);
}

// Arrival times of the frames (performance counter) and the allocation count
// at each, from the host's side.
template <typename Event>
class Timeline : public Event {
 public:
  Timeline() {
    arrivals_.reserve(4096);  // the harness itself allocates nothing per frame
    allocations_.reserve(4096);
  }
  void OnCaptureStatus(int) override {}
  void OnCaptureFrame(const uint8_t* data, uint32_t, int, int, int, int64_t) override {
    benchmark::DoNotOptimize(data);
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    std::lock_guard<std::mutex> guard(mutex_);
    arrivals_.push_back(now.QuadPart);
    allocations_.push_back(bench::AllocationCount());
  }
  size_t Count() {
    std::lock_guard<std::mutex> guard(mutex_);
    return arrivals_.size();
  }
  std::vector<int64_t> arrivals_;
  std::vector<int64_t> allocations_;
  std::mutex mutex_;
};

double Percentile(std::vector<double> values, double p) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const size_t index =
      std::min(values.size() - 1, static_cast<size_t>(p * static_cast<double>(values.size())));
  return values[index];
}

template <typename Capture, typename Event>
void MeasureRun(benchmark::State& state, Capture* capture, Timeline<Event>* timeline, int fps) {
  const DWORD kRunMs = 6000;
  LARGE_INTEGER frequency;
  QueryPerformanceFrequency(&frequency);
  for (auto _ : state) {
    capture->SetFrameRate(fps);
    capture->SetOutputSize(1920, 1080);
    capture->SetCaptureEvent(timeline);
    capture->Start();
    // Past the first frames, which build the buffers and the scaler.
    while (timeline->Count() < 3) Sleep(5);
    const double cpu_before = ProcessCpuSeconds();
    const size_t first = timeline->Count();
    const DWORD begin = timeGetTime();
    Sleep(kRunMs);
    const double cpu = ProcessCpuSeconds() - cpu_before;
    const double wall = (timeGetTime() - begin) * 1e-3;
    capture->Stop();

    std::vector<double> intervals;
    std::lock_guard<std::mutex> guard(timeline->mutex_);
    const size_t last = timeline->arrivals_.size() - 1;
    for (size_t i = first; i <= last; ++i) {
      intervals.push_back(1e3 * static_cast<double>(timeline->arrivals_[i] - timeline->arrivals_[i - 1]) /
                          static_cast<double>(frequency.QuadPart));
    }
    const double frames = static_cast<double>(last - first + 1);
    state.counters["process_cpu_pct"] = 100.0 * cpu / wall;
    state.counters["fps"] = frames / wall;
    state.counters["period_ms"] = static_cast<double>(capture::PeriodMicroseconds(fps)) / 1e3;
    state.counters["p50_ms"] = Percentile(intervals, 0.5);
    state.counters["p99_ms"] = Percentile(intervals, 0.99);
    state.counters["max_ms"] = Percentile(intervals, 1.0);
    state.counters["allocs_per_frame"] =
        static_cast<double>(timeline->allocations_[last] - timeline->allocations_[first - 1]) / frames;
    state.counters["cpu_ms_per_frame"] = 1e3 * cpu / frames;
  }
}

void BM_DisplayCaptureRun(benchmark::State& state) {
  CursorShown cursor;
  DisplayCapture* capture = DisplayCapture::Create();
  Timeline<DisplayCaptureEvent> timeline;
  MeasureRun(state, capture, &timeline, static_cast<int>(state.range(0)));
  DisplayCapture::Release(capture);
}

void BM_WindowCaptureRun(benchmark::State& state) {
  CursorShown cursor;
  BenchWindow window;
  WindowCapture* capture = WindowCapture::Create();
  capture->SelectWindow(window.hwnd());
  Timeline<WindowCaptureEvent> timeline;
  MeasureRun(state, capture, &timeline, static_cast<int>(state.range(0)));
  WindowCapture::Release(capture);
}

}  // namespace

BENCHMARK(BM_DisplayGrab)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_WindowGrab)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_Cursor)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ReadOutScaleDeliver)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_DisplayCaptureRun)->Arg(12)->Arg(30)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WindowCaptureRun)->Arg(12)->Arg(30)->Iterations(1)->Unit(benchmark::kMillisecond);
