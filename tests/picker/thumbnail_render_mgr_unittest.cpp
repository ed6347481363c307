// The thumbnail manager's worker, fit and lifetime against a scripted window
// manager (Wine has no thumbnails). The fits: 1600 x 900 in the 320 x 240 box
// is full width; 900 x 1600 full height, 135 wide, truncated 92 to the side.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/scoped_handle.h"
#include "base/thread_start.h"
#include "picker/thumbnail_render_mgr_impl.h"
#include "roomcore/clock.h"
#include "tests/common/refuse_threads.h"

namespace {

const HWND kWide = reinterpret_cast<HWND>(0x20), kTall = reinterpret_cast<HWND>(0x30);
const RECT kBox = {10, 20, 330, 260};  // 320 x 240 at (10, 20)
const std::string kWideFit = "update wide 10,50,330,230 1d 255 1 1",
                  kTallFit = "update tall 102,20,237,260 1d 255 1 1";

// The window manager: each source is its own thumbnail, with a size or a
// failure; refusals on demand; a query held at a gate; every call a line.
struct FakeDwm {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<std::string> log;
  std::vector<double> wide_query_ms;
  std::map<HTHUMBNAIL, std::pair<SIZE, HRESULT>> sources;
  HRESULT register_result = S_OK;
  int failing_updates = 0;
  std::atomic<DWORD> worker{0};  // the thread of the last query
  HANDLE entered = nullptr, gate = nullptr;
} * g_dwm;

HRESULT Add(HTHUMBNAIL thumbnail, const char* call, HRESULT result = S_OK, const std::string& more = "") {
  g_dwm->log.push_back(
      call + std::string(thumbnail == reinterpret_cast<HTHUMBNAIL>(kWide) ? " wide" : " tall") + more);
  g_dwm->changed.notify_all();
  return result;
}
HRESULT WINAPI Register(HWND, HWND source, PHTHUMBNAIL thumbnail) {
  std::lock_guard<std::mutex> hold(g_dwm->mutex);
  *thumbnail = reinterpret_cast<HTHUMBNAIL>(source);
  return FAILED(g_dwm->register_result) ? g_dwm->register_result : Add(*thumbnail, "register");
}
HRESULT WINAPI Unregister(HTHUMBNAIL thumbnail) {
  std::lock_guard<std::mutex> hold(g_dwm->mutex);
  return Add(thumbnail, "unregister");
}
HRESULT WINAPI Query(HTHUMBNAIL thumbnail, PSIZE size) {
  std::unique_lock<std::mutex> hold(g_dwm->mutex);
  if (const HANDLE gate = std::exchange(g_dwm->gate, nullptr)) {
    hold.unlock();
    SignalObjectAndWait(g_dwm->entered, gate, INFINITE, FALSE);
    hold.lock();
  }
  g_dwm->worker = GetCurrentThreadId();
  if (thumbnail == reinterpret_cast<HTHUMBNAIL>(kWide))
    g_dwm->wide_query_ms.push_back(TimeMicroseconds() / 1e3);
  const auto& [known, result] = g_dwm->sources[thumbnail];
  if (result == S_OK) *size = known;
  return Add(thumbnail, "query", result);
}
HRESULT WINAPI Update(HTHUMBNAIL thumbnail, const DWM_THUMBNAIL_PROPERTIES* p) {
  std::lock_guard<std::mutex> hold(g_dwm->mutex);
  char more[80];
  const RECT& r = p->rcDestination;
  snprintf(more, sizeof(more), " %ld,%ld,%ld,%ld %lx %d %d %d", r.left, r.top, r.right, r.bottom, p->dwFlags,
           p->opacity, p->fVisible, p->fSourceClientAreaOnly);
  return Add(thumbnail, "update", g_dwm->failing_updates-- > 0 ? E_FAIL : S_OK, more);
}
HRESULT WINAPI Composition(BOOL* enabled) {
  *enabled = g_dwm->register_result == S_OK;
  return S_OK;
}

// Lost sources, and how many came once `released` was set.
struct LostSources : ThumbnailRenderEvent {
  void OnThumbnailSourceLost(HWND source) override {
    lost.push_back(source);
    late += released && WaitForSingleObject(released, 0) == WAIT_OBJECT_0;
  }
  std::vector<HWND> lost;
  HANDLE released = nullptr;
  int late = 0;
};

int g_threads_started = 0;  // Start runs on the test's thread
HANDLE WINAPI CountingStarter(LPSECURITY_ATTRIBUTES a, SIZE_T s, LPTHREAD_START_ROUTINE r, LPVOID p, DWORD f,
                              LPDWORD id) {
  ++g_threads_started;
  return CreateThread(a, s, r, p, f, id);
}

// One manager on the fake; after each test it is stopped and released, and
// the worker must have destroyed it.
class ThumbnailManager : public ::testing::Test {
 protected:
  void SetUp() override {
    g_dwm = &dwm_;
    g_threads_started = 0;
    base::SetThreadStarterForTesting(&CountingStarter);
    manager_ = New(destroyed_.get());
  }
  void TearDown() override {
    if (manager_) manager_->Stop(), ThumbnailRenderMgr::Release(manager_);
    EXPECT_EQ(WaitForSingleObject(destroyed_.get(), 5000), WAIT_OBJECT_0);
    base::SetThreadStarterForTesting(nullptr);
  }
  picker::ThumbnailRenderMgrImpl* New(HANDLE destroyed) {
    auto* manager =
        new picker::ThumbnailRenderMgrImpl({&Register, &Unregister, &Query, &Update, &Composition});
    manager->SetDestroyedEventForTesting(destroyed);
    manager->SetRenderEvent(&lost_);
    return manager;
  }
  void Script(HWND source, SIZE size, HRESULT result = S_OK) {
    std::lock_guard<std::mutex> hold(dwm_.mutex);
    dwm_.sources[reinterpret_cast<HTHUMBNAIL>(source)] = {size, result};
  }
  bool Show(HWND source, const RECT& rect = kBox, HWND destination = reinterpret_cast<HWND>(0x10)) {
    return manager_->SetThumbnail(destination, &rect, 7, 8, 9, source);
  }
  std::vector<std::string> Log() {
    std::lock_guard<std::mutex> hold(dwm_.mutex);
    return dwm_.log;
  }
  int Count(const std::string& call) {
    const std::vector<std::string> log = Log();
    return static_cast<int>(std::count(log.begin(), log.end(), call));
  }
  // Waits until `call` has come `times` more times.
  bool WaitFor(const std::string& call, int times = 1) {
    std::unique_lock<std::mutex> hold(dwm_.mutex);
    const auto count = [&] { return std::count(dwm_.log.begin(), dwm_.log.end(), call); };
    const auto target = count() + times;
    return dwm_.changed.wait_for(hold, std::chrono::seconds(5), [&] { return count() >= target; });
  }

  FakeDwm dwm_;
  LostSources lost_;
  base::ScopedHandle destroyed_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  picker::ThumbnailRenderMgrImpl* manager_ = nullptr;
};

// A refused update (the first) is sent again at the next pass; one that is
// taken is not sent again while nothing changes.
TEST_F(ThumbnailManager, TheWorkerFitsEachSourceAbout35MsApartUntilTheUpdateIsTaken) {
  Script(kWide, {1600, 900});
  Script(kTall, {900, 1600});
  dwm_.failing_updates = 1;
  ASSERT_TRUE(Show(kWide) && Show(kTall));
  EXPECT_EQ(Log(), (std::vector<std::string>{"register wide", "register tall"}));  // shown by the worker only
  manager_->Start();
  ASSERT_TRUE(WaitFor("query wide", 7));
  const std::vector<std::string> log = Log();
  EXPECT_EQ(std::vector<std::string>(log.begin() + 2, log.begin() + 6),
            (std::vector<std::string>{"query wide", kWideFit, "query tall", kTallFit}));  // in list order
  EXPECT_TRUE(Count(kWideFit) == 2 && Count(kTallFit) == 1 && dwm_.worker != GetCurrentThreadId());
  // By the library's clock 33,333 us at least, a 30 ms rest and 5 ms steps: about 35 ms. A pass that is
  // late shortens the gap after it, so the lower bound holds for the mean, the upper for the shortest.
  std::vector<double> at;
  {
    std::lock_guard<std::mutex> hold(dwm_.mutex);
    at = dwm_.wide_query_ms;
  }
  double shortest = 1e9;
  for (size_t i = 1; i < at.size(); ++i) shortest = std::min(shortest, at[i] - at[i - 1]);
  EXPECT_GE((at.back() - at.front()) / (at.size() - 1), 32.0);
  EXPECT_LE(shortest, 50.0);
}

TEST_F(ThumbnailManager, ARectangleMovesTheOneThumbnailAndAZeroWidthOneRemovesIt) {
  EXPECT_TRUE(Show(kWide));
  EXPECT_TRUE(Show(kWide, {50, 20, 50, 260}));  // known: removed
  EXPECT_TRUE(Show(kTall, {50, 20, 50, 260}));  // unknown: registered
  manager_->RemoveThumbnail(reinterpret_cast<HWND>(0x99));
  EXPECT_TRUE(Show(kWide));
  manager_->Stop();
  EXPECT_EQ(Log(), (std::vector<std::string>{"register wide", "unregister wide", "register tall",
                                             "register wide", "unregister tall", "unregister wide"}));
  EXPECT_TRUE(manager_->EntriesForTesting().empty());
  dwm_.register_result = E_NOTIMPL;  // as without composition
  EXPECT_FALSE(manager_->IsCompositionEnabled());
  EXPECT_FALSE(Show(kWide));
  EXPECT_FALSE(manager_->SetThumbnail(kWide, nullptr, 0, 0, 0, kTall));
  EXPECT_TRUE(manager_->EntriesForTesting().empty());

  dwm_.register_result = S_OK;
  EXPECT_TRUE(manager_->IsCompositionEnabled());
  Script(kWide, {1600, 900});
  manager_->Start();
  ASSERT_TRUE(Show(kWide));
  ASSERT_TRUE(WaitFor(kWideFit));
  ASSERT_TRUE(Show(kWide, {0, 0, 160, 90}, kTall));
  ASSERT_TRUE(WaitFor("update wide 0,0,160,90 1d 255 1 1"));
  Script(kWide, {90, 90});  // a resized source is fitted anew
  ASSERT_TRUE(WaitFor("update wide 35,0,125,90 1d 255 1 1"));
  EXPECT_EQ(Count("register wide"), 3);
  EXPECT_EQ(manager_->EntriesForTesting().at(0).destination,
            reinterpret_cast<HWND>(0x10));  // the first stays
}

TEST_F(ThumbnailManager, ALostSourceIsReportedOnceAndOneWithoutAreaIsLeftAsItWas) {
  Script(kWide, {0, 900});
  Script(kTall, {900, 1600});
  manager_->Start();
  ASSERT_TRUE(Show(kWide) && Show(kTall));
  ASSERT_TRUE(WaitFor(kTallFit));
  Script(kTall, {}, S_FALSE);  // not negative, and still no size
  ASSERT_TRUE(WaitFor("unregister tall"));
  const int tall_queries = Count("query tall");
  ASSERT_TRUE(WaitFor("query wide", 3));
  EXPECT_EQ(lost_.lost, std::vector<HWND>{kTall});
  EXPECT_EQ(Count("query tall"), tall_queries);  // dropped
  EXPECT_EQ(Count(kWideFit), 0);
  Script(kWide, {1600, 900});
  EXPECT_TRUE(WaitFor(kWideFit));
}

TEST_F(ThumbnailManager, NoSourceIsReportedLostOnceReleaseHasReturned) {
  Script(kWide, {1600, 900});
  ASSERT_TRUE(Show(kWide));
  manager_->Start();
  ASSERT_TRUE(WaitFor(kWideFit));
  base::ScopedHandle entered(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      gate(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      released(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  lost_.released = released.get();
  Script(kWide, {}, E_INVALIDARG);
  {
    std::lock_guard<std::mutex> hold(dwm_.mutex);
    dwm_.entered = entered.get();
    dwm_.gate = gate.get();
  }
  ASSERT_EQ(WaitForSingleObject(entered.get(), 5000), WAIT_OBJECT_0);  // a pass is under way
  std::thread host([&] {
    ThumbnailRenderMgr::Release(std::exchange(manager_, nullptr));
    SetEvent(released.get());
  });
  // Release may wait for the pass; the pass doesn't wait for Release: the
  // gate opens once Release has returned, or has had ample time to.
  WaitForSingleObject(released.get(), 200);
  SetEvent(gate.get());
  host.join();
  EXPECT_EQ(WaitForSingleObject(destroyed_.get(), 5000), WAIT_OBJECT_0);
  EXPECT_EQ(lost_.late, 0);
}

TEST_F(ThumbnailManager, OneWorkerServesTheWholeLifeAndReleaseAlwaysFreesTheManager) {
  Script(kWide, {1600, 900});
  manager_->Start();
  manager_->Start();
  ASSERT_TRUE(Show(kWide));
  ASSERT_TRUE(WaitFor(kWideFit));
  const DWORD worker = dwm_.worker;
  manager_->Stop();
  manager_->Start();
  ASSERT_TRUE(Show(kWide));
  ASSERT_TRUE(WaitFor(kWideFit));
  EXPECT_EQ(dwm_.worker, worker);
  EXPECT_EQ(g_threads_started, 1);

  base::ScopedHandle gone(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  ThumbnailRenderMgr::Release(New(gone.get()));  // never started: no worker to wait for
  EXPECT_EQ(WaitForSingleObject(gone.get(), 0), WAIT_OBJECT_0);
  ResetEvent(gone.get());
  auto* refused = New(gone.get());
  {
    testing_support::RefuseThreads no_threads;
    refused->Start();
  }
  ThumbnailRenderMgr::Release(refused);
  EXPECT_EQ(WaitForSingleObject(gone.get(), 0), WAIT_OBJECT_0);
}

}  // namespace
