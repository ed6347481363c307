// The share picker's costs: one walk of the desktop with 200 real top-level
// windows, one snapshot of a 1280 x 720 window (title, process, icon,
// picture), and the thumbnail worker's CPU share with 20 thumbnails at rest.
#include <windows.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "base/thread_start.h"
#include "picker/thumbnail_render_mgr_impl.h"
#include "roomcore/picker.h"
#include "tests/picker/test_windows.h"

namespace {

using picker_testing::TestWindow;
using picker_testing::WindowOptions;

// Windows live until the process ends: destroying a shown window costs Wine
// about 2 s without a window manager, and nothing here needs them gone.
std::vector<TestWindow*>& OfferedWindows(int count) {
  static std::vector<TestWindow*> windows;
  while (static_cast<int>(windows.size()) < count) {
    WindowOptions options;
    options.title = L"picker bench " + std::to_wstring(windows.size());
    options.x = static_cast<int>(windows.size() % 40) * 20;
    options.y = static_cast<int>(windows.size() / 40) * 20;
    windows.push_back(new TestWindow(options));
  }
  return windows;
}

void BM_EnumerateWindows(benchmark::State& state) {
  OfferedWindows(static_cast<int>(state.range(0)));
  TopWindowEnum* windows = TopWindowEnum::Create();
  int listed = 0;
  for (auto _ : state) {
    listed = windows->EnumerateWindows();
    benchmark::DoNotOptimize(listed);
  }
  state.counters["listed"] = listed;
  TopWindowEnum::Release(windows);
}
BENCHMARK(BM_EnumerateWindows)->Arg(200)->Unit(benchmark::kMillisecond)->Repetitions(5);

void BM_SnapshotWindow1280x720(benchmark::State& state) {
  static HICON icon = picker_testing::SolidIcon(32, RGB(255, 0, 0));
  static TestWindow* window = [] {
    WindowOptions options;
    options.title = L"picker bench snapshot";
    options.style = WS_POPUP | WS_VISIBLE | WS_MINIMIZEBOX;
    options.x = 0;
    options.y = 0;
    options.width = 1280;
    options.height = 720;
    options.big_answer = icon;
    return new TestWindow(options);
  }();
  // 0: the whole snapshot; 1: creation alone (title and process); 2: the
  // icon alone; 3: the picture alone.
  const int part = static_cast<int>(state.range(0));
  WindowSnapshot* kept = WindowSnapshot::Create(window->hwnd());
  for (auto _ : state) {
    if (part == 0 || part == 1) {
      WindowSnapshot* snapshot = WindowSnapshot::Create(window->hwnd());
      benchmark::DoNotOptimize(snapshot->GetTitle());
      benchmark::DoNotOptimize(snapshot->GetProcessName());
      if (part == 0 && (!snapshot->GetPicture() || !snapshot->GetIcon())) {
        state.SkipWithError("no picture or no icon");
      }
      WindowSnapshot::Release(snapshot);
    } else if (!(part == 2 ? kept->GetIcon() : kept->GetPicture())) {
      state.SkipWithError("no image");
    }
  }
  WindowSnapshot::Release(kept);
}
BENCHMARK(BM_SnapshotWindow1280x720)->DenseRange(0, 3)->Unit(benchmark::kMillisecond)->Repetitions(5);

// A window manager that answers at once: what remains is the library's own
// share of an idle pass (the real size queries are calls into the system's
// compositor, which this doesn't count).
HRESULT WINAPI RegisterAny(HWND, HWND source, PHTHUMBNAIL thumbnail) {
  *thumbnail = reinterpret_cast<HTHUMBNAIL>(source);
  return S_OK;
}
HRESULT WINAPI UnregisterAny(HTHUMBNAIL) { return S_OK; }
HRESULT WINAPI FixedSize(HTHUMBNAIL, PSIZE size) {
  *size = {1920, 1080};
  return S_OK;
}
HRESULT WINAPI AcceptProperties(HTHUMBNAIL, const DWM_THUMBNAIL_PROPERTIES*) { return S_OK; }
HRESULT WINAPI CompositionOn(BOOL* enabled) {
  *enabled = TRUE;
  return S_OK;
}

HANDLE g_worker = nullptr;
HANDLE WINAPI KeepWorkerHandle(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE routine,
                               LPVOID param, DWORD flags, LPDWORD id) {
  const HANDLE thread = CreateThread(attributes, stack, routine, param, flags, id);
  if (thread) {
    DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &g_worker, 0, FALSE,
                    DUPLICATE_SAME_ACCESS);
  }
  return thread;
}

double Seconds(const FILETIME& kernel, const FILETIME& user) {
  auto ticks = [](const FILETIME& t) {
    return (static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
  };
  return static_cast<double>(ticks(kernel) + ticks(user)) / 1e7;
}

double ThreadCpuSeconds(HANDLE thread) {
  FILETIME created, exited, kernel, user;
  return GetThreadTimes(thread, &created, &exited, &kernel, &user) ? Seconds(kernel, user) : -1;
}

double ProcessCpuSeconds() {
  FILETIME created, exited, kernel, user;
  return GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user) ? Seconds(kernel, user) : -1;
}

// Each iteration: 3 s of wall time in which this thread only waits.
void BM_ThumbnailWorkerIdle20(benchmark::State& state) {
  static const picker::DwmFunctions dwm = {&RegisterAny, &UnregisterAny, &FixedSize, &AcceptProperties,
                                           &CompositionOn};
  base::SetThreadStarterForTesting(&KeepWorkerHandle);
  auto* manager = new picker::ThumbnailRenderMgrImpl(dwm);
  const HWND destination = reinterpret_cast<HWND>(0x10);
  for (int i = 0; i < 20; ++i) {
    const RECT rect = {(i % 5) * 200, (i / 5) * 150, (i % 5) * 200 + 190, (i / 5) * 150 + 140};
    manager->SetThumbnail(destination, &rect, 0, 0, 0,
                          reinterpret_cast<HWND>(static_cast<intptr_t>(0x1000 + i)));
  }
  const HANDLE destroyed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  manager->SetDestroyedEventForTesting(destroyed);
  manager->Start();
  base::SetThreadStarterForTesting(nullptr);
  Sleep(200);  // the first passes lay everything out; measured is the rest

  const HANDLE never = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  double worker_cpu = 0, process_cpu = 0, wall = 0;
  for (auto _ : state) {
    const double worker_before = ThreadCpuSeconds(g_worker);
    const double process_before = ProcessCpuSeconds();
    LARGE_INTEGER frequency, start, end;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&start);
    WaitForSingleObject(never, 3000);
    QueryPerformanceCounter(&end);
    const double seconds =
        static_cast<double>(end.QuadPart - start.QuadPart) / static_cast<double>(frequency.QuadPart);
    state.SetIterationTime(seconds);
    wall += seconds;
    worker_cpu += ThreadCpuSeconds(g_worker) - worker_before;
    process_cpu += ProcessCpuSeconds() - process_before;
  }
  state.counters["worker_cpu_percent"] = 100.0 * worker_cpu / wall;
  state.counters["process_cpu_percent"] = 100.0 * process_cpu / wall;

  manager->Stop();
  ThumbnailRenderMgr::Release(manager);
  WaitForSingleObject(destroyed, 5000);
  CloseHandle(destroyed);
  CloseHandle(never);
  CloseHandle(g_worker);
  g_worker = nullptr;
}
BENCHMARK(BM_ThumbnailWorkerIdle20)
    ->UseManualTime()
    ->Iterations(1)
    ->Repetitions(3)
    ->Unit(benchmark::kMillisecond);

}  // namespace
