// The walk's callback, device sizes, the picture at its limits, thumbnails on a scripted window manager.
#include <windows.h>

#include <gtest/gtest.h>

#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "base/scoped_handle.h"
#include "picker/thumbnail_render_mgr_impl.h"
#include "picker/top_window_enum_impl.h"
#include "picker/window_snapshot_impl.h"
#include "roomcore/clock.h"
#include "tests/common/refuse_threads.h"
#include "tests/picker/test_windows.h"

// From this size on arrays can't be had: an address space runs out before any bitmap limit.
static size_t g_refuse_arrays_from = SIZE_MAX;
void* operator new[](size_t size) {
  void* p = size < g_refuse_arrays_from ? std::malloc(size ? size : 1) : nullptr;
  return p ? p : throw std::bad_alloc();
}
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }

namespace {

struct ThrowingFilter : picker::TopWindowEnumImpl {
  bool Accepts(HWND window) override {
    return window == bad ? throw std::runtime_error("bad") : TopWindowEnumImpl::Accepts(window);
  }
  HWND bad = nullptr;
};
TEST(TopWindowEnumCallback, NoWindowEndsTheWalkAndOneThatThrowsIsLeftOut) {
  picker_testing::TestWindow bad({}), kept({});
  ThrowingFilter windows;
  windows.bad = bad.hwnd();
  EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(kept.hwnd(), 0), TRUE);  // no object
  for (HWND window : {HWND(nullptr), reinterpret_cast<HWND>(0x7FFFFFF0), bad.hwnd(), kept.hwnd()})
    EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(window, reinterpret_cast<LPARAM>(&windows)), TRUE);
  EXPECT_TRUE(windows.GetWindowAt(0) == kept.hwnd() && windows.GetWindowAt(1) == nullptr);
}

TEST(PictureOfWindow, ScaledDownOnlyWhereTheDisplayIsScaledAndNoneWhenTooLargeOrOutOfMemory) {
  const int cases[][8] = {{300, 200, 1280, 1024, 1280, 1024, 300, 200},  // unscaled
                          {301, 201, 1280, 720, 1920, 1080, 451, 301},   // 150 %, truncated
                          {300, 200, 0, 0, 1920, 1080, 300, 200},        // no answer from the device
                          {1 << 30, 1 << 30, 960, 540, 1920, 1080, INT_MAX, INT_MAX}};  // held at the limit
  for (const auto& c : cases) {
    const SIZE size = picker::DeviceSize(c[0], c[1], c[2], c[3], c[4], c[5]);
    EXPECT_TRUE(size.cx == c[6] && size.cy == c[7]) << c[0] << " at " << c[2] << " -> " << c[4];
  }
  picker_testing::TestWindow window({L"scaled", WS_POPUP | WS_VISIBLE});  // 200 x 150
  const HDC dc = GetDC(window.hwnd());
  // Drawn at twice the pixels, the unscaled window fills the top left quarter.
  std::unique_ptr<DibImage> picture = picker::PictureOfWindow(window.hwnd(), dc, 200, 150, SIZE{400, 300});
  ASSERT_NE(picture, nullptr);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(picker_testing::PixelAt(picture.get(), 200, 150, 25 + i % 2 * 50, 18 + i / 2 * 37),
              picker_testing::kQuadrantColors[i]);
  EXPECT_EQ(picker_testing::PixelAt(picture.get(), 200, 150, 150, 110), RGB(0, 0, 0));
  g_refuse_arrays_from = 200 * 150 * 4;
  EXPECT_EQ(picker::PictureOfWindow(window.hwnd(), dc, 200, 150, SIZE{200, 150}), nullptr);
  g_refuse_arrays_from = SIZE_MAX;
  ReleaseDC(window.hwnd(), dc);
  // Monochrome, 65536 x 16384 is a 128 MB bitmap; its picture has 2^32 bytes, 0 in 32 bits.
  const HDC monochrome = CreateCompatibleDC(nullptr);
  EXPECT_EQ(picker::PictureOfWindow(window.hwnd(), monochrome, 65536, 16384, SIZE{65536, 16384}), nullptr);
  DeleteDC(monochrome);
}

// The fits: 1600 x 900 in the 320 x 240 box is full width; 900 x 1600 full height, 135 wide, 92 to the side.
const HWND kWide = reinterpret_cast<HWND>(0x20), kTall = reinterpret_cast<HWND>(0x30),
           kDestination = reinterpret_cast<HWND>(0x10);
const RECT kBox = {10, 20, 330, 260};  // 320 x 240 at (10, 20)
const std::string kWideFit = "update wide 10,50,330,230 1d 255 1 1",
                  kTallFit = "update tall 102,20,237,260 1d 255 1 1";
int g_threads_started = 0;  // Start runs on the test's thread
HANDLE NewEvent() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }
// A scripted window manager (each source its own thumbnail, each call a line), the host's event object too.
struct ThumbnailManager : ::testing::Test, ThumbnailRenderEvent {
  void SetUp() override {
    g_fake = this, g_threads_started = 0;
    base::SetThreadStarterForTesting(
        [](LPSECURITY_ATTRIBUTES a, SIZE_T s, LPTHREAD_START_ROUTINE r, LPVOID p, DWORD f, LPDWORD id)
            WINAPI { return ++g_threads_started, CreateThread(a, s, r, p, f, id); });
    manager_ = new picker::ThumbnailRenderMgrImpl({&Register, &Unregister, &Query, &Update, &Composition});
    manager_->SetDestroyedEventForTesting(destroyed_.get());
    manager_->SetRenderEvent(this);
  }
  void TearDown() override {
    if (manager_) manager_->Stop(), ThumbnailRenderMgr::Release(manager_);
    EXPECT_EQ(WaitForSingleObject(destroyed_.get(), 5000), WAIT_OBJECT_0);
    EXPECT_EQ(late_, 0);
    base::SetThreadStarterForTesting(nullptr);
  }
  // Lost sources, and how many came once `released_` was set.
  void OnThumbnailSourceLost(HWND source) override {
    lost_.push_back(source);
    late_ += WaitForSingleObject(released_.get(), 0) == WAIT_OBJECT_0;
  }
  bool Show(HWND source, const RECT& rect = kBox, HWND destination = kDestination) {
    return manager_->SetThumbnail(destination, &rect, 7, 8, 9, source);
  }
  void Script(HWND source, SIZE size, HRESULT result = S_OK) {
    std::lock_guard<std::mutex> hold(mutex_);
    sources_[source == kWide] = {size, result};
  }
  template <typename T>
  T Locked(const T& value) {  // a copy of the fake's `value`
    std::lock_guard<std::mutex> hold(mutex_);
    return value;
  }
  // How many lines begin with `call`, once `more` more have come; -1 if not within 5 s.
  int Count(const std::string& call, int more = 0) {
    std::unique_lock<std::mutex> hold(mutex_);
    const auto count = [&] {
      return int(std::count_if(log_.begin(), log_.end(), [&](auto& l) { return !l.find(call); }));
    };
    const int target = count() + more;
    return changed_.wait_for(hold, std::chrono::seconds(5), [&] { return count() >= target; }) ? count() : -1;
  }
  bool WaitFor(const std::string& call, int times = 1) { return Count(call, times) >= 0; }
  // A query (with `size`) waits at the gate if set; an update (with `more`) is refused while failures remain.
  static HRESULT Call(const char* call, HTHUMBNAIL thumbnail, SIZE* size = nullptr,
                      const std::string& more = "") {
    std::unique_lock<std::mutex> hold(g_fake->mutex_);
    const bool wide = thumbnail == reinterpret_cast<HTHUMBNAIL>(kWide);
    HRESULT result = !more.empty() && g_fake->failing_updates_-- > 0 ? E_FAIL : S_OK;
    if (const HANDLE gate = size ? std::exchange(g_fake->gate_, nullptr) : nullptr) {
      hold.unlock();
      SignalObjectAndWait(g_fake->entered_.get(), gate, INFINITE, FALSE);
      hold.lock();
    }
    if (size) {
      if (wide) g_fake->wide_query_ms_.push_back(TimeMicroseconds() / 1e3);
      result = g_fake->sources_[wide].second;
      if (result == S_OK) *size = g_fake->sources_[wide].first;
    }
    g_fake->log_.push_back(call + std::string(wide ? " wide" : " tall") + more);
    g_fake->changed_.notify_all();
    return result;
  }
  static HRESULT WINAPI Register(HWND, HWND source, PHTHUMBNAIL thumbnail) {
    *thumbnail = reinterpret_cast<HTHUMBNAIL>(source);
    return FAILED(g_fake->register_result_) ? g_fake->register_result_ : Call("register", *thumbnail);
  }
  static HRESULT WINAPI Unregister(HTHUMBNAIL thumbnail) { return Call("unregister", thumbnail); }
  static HRESULT WINAPI Query(HTHUMBNAIL thumbnail, PSIZE size) { return Call("query", thumbnail, size); }
  static HRESULT WINAPI Update(HTHUMBNAIL thumbnail, const DWM_THUMBNAIL_PROPERTIES* p) {
    char more[80];
    const RECT& r = p->rcDestination;
    snprintf(more, sizeof(more), " %ld,%ld,%ld,%ld %lx %d %d %d", r.left, r.top, r.right, r.bottom,
             p->dwFlags, p->opacity, p->fVisible, p->fSourceClientAreaOnly);
    return Call("update", thumbnail, nullptr, more);
  }
  static HRESULT WINAPI Composition(BOOL* on) { return *on = g_fake->register_result_ == S_OK, S_OK; }
  static inline ThumbnailManager* g_fake = nullptr;
  std::mutex mutex_;  // the fake's state, below
  std::condition_variable changed_;
  std::vector<std::string> log_;
  std::vector<double> wide_query_ms_;
  std::pair<SIZE, HRESULT> sources_[2] = {};  // tall, wide
  HRESULT register_result_ = S_OK;
  int failing_updates_ = 0;
  HANDLE gate_ = nullptr;
  base::ScopedHandle entered_{NewEvent()}, released_{NewEvent()}, destroyed_{NewEvent()};
  std::vector<HWND> lost_;
  int late_ = 0;
  picker::ThumbnailRenderMgrImpl* manager_ = nullptr;
};

// A refused update (the first) is sent again at the next pass; a taken one isn't while nothing changes.
TEST_F(ThumbnailManager,
       TheWorkerFitsEachSourceAbout35MsApartUntilTakenDropsLostOnesAndLeavesOnesWithoutArea) {
  Script(kWide, {1600, 900});
  Script(kTall, {900, 1600});
  failing_updates_ = 1;
  ASSERT_TRUE(Show(kWide) && Show(kTall));
  manager_->Start();
  ASSERT_TRUE(WaitFor("query wide", 7));
  const std::vector<std::string> log = Locked(log_);
  EXPECT_EQ(std::vector<std::string>(log.begin(), log.begin() + 6),
            (std::vector<std::string>{"register wide", "register tall", "query wide", kWideFit, "query tall",
                                      kTallFit}));  // shown by the worker only, in list order
  EXPECT_TRUE(Count(kWideFit) == 2 && Count(kTallFit) == 1);
  // 33,333 us by the library's clock, a 30 ms rest, 5 ms steps; a late pass shortens the next gap.
  const std::vector<double> at = Locked(wide_query_ms_);
  double shortest = 1e9;
  for (size_t i = 1; i < at.size(); ++i) shortest = std::min(shortest, at[i] - at[i - 1]);
  EXPECT_TRUE((at.back() - at.front()) / (at.size() - 1) >= 32.0 && shortest <= 50.0) << shortest;
  Script(kWide, {0, 900});
  Script(kTall, {}, S_FALSE);  // not negative, and still no size
  ASSERT_TRUE(WaitFor("unregister tall"));
  const int tall_queries = Count("query tall");
  ASSERT_TRUE(WaitFor("query wide", 3));
  EXPECT_EQ(lost_, std::vector<HWND>{kTall});
  EXPECT_TRUE(Count("query tall") == tall_queries && Count("update wide") == 2);  // dropped; left as it was
}

TEST_F(ThumbnailManager, ARectangleMovesTheOneThumbnailAndAZeroWidthOneRemovesIt) {
  EXPECT_TRUE(Show(kWide));
  EXPECT_TRUE(Show(kWide, {50, 20, 50, 260}));  // known: removed
  EXPECT_TRUE(Show(kTall, {50, 20, 50, 260}));  // unknown: registered
  manager_->RemoveThumbnail(reinterpret_cast<HWND>(0x99));
  EXPECT_TRUE(Show(kWide));
  manager_->Stop();
  EXPECT_EQ(log_, (std::vector<std::string>{"register wide", "unregister wide", "register tall",
                                            "register wide", "unregister tall", "unregister wide"}));
  register_result_ = E_NOTIMPL;  // as without composition
  EXPECT_FALSE(manager_->IsCompositionEnabled() || Show(kWide) ||
               manager_->SetThumbnail(kWide, nullptr, 0, 0, 0, kTall) ||
               !manager_->EntriesForTesting().empty());
  register_result_ = S_OK;
  EXPECT_TRUE(manager_->IsCompositionEnabled());
  Script(kWide, {1600, 900});
  manager_->Start();
  ASSERT_TRUE(Show(kWide) && WaitFor(kWideFit));
  ASSERT_TRUE(Show(kWide, {0, 0, 160, 90}, kTall) && WaitFor("update wide 0,0,160,90 1d 255 1 1"));
  Script(kWide, {90, 90});  // a resized source is fitted anew
  ASSERT_TRUE(WaitFor("update wide 35,0,125,90 1d 255 1 1"));
  EXPECT_EQ(Count("register wide"), 3);
  EXPECT_EQ(manager_->EntriesForTesting().at(0).destination, kDestination);  // the first stays
}

TEST_F(ThumbnailManager, OneWorkerServesTheWholeLifeReleaseAlwaysFreesItAndNoLossIsReportedOnceItReturned) {
  manager_->Start(), manager_->Start(), manager_->Stop(), manager_->Start();
  EXPECT_EQ(g_threads_started, 1);
  base::ScopedHandle gate(NewEvent());
  Script(kWide, {}, E_INVALIDARG);
  gate_ = gate.get();  // read by the first query, once Show has handed the entry over
  ASSERT_TRUE(Show(kWide));
  ASSERT_EQ(WaitForSingleObject(entered_.get(), 5000), WAIT_OBJECT_0);  // a pass is under way
  std::thread host(
      [&] { ThumbnailRenderMgr::Release(std::exchange(manager_, nullptr)), SetEvent(released_.get()); });
  // Release may wait for the pass, not the pass for Release: the gate opens once it returned or had time to.
  WaitForSingleObject(released_.get(), 200);
  SetEvent(gate.get());
  host.join();
  EXPECT_EQ(lost_, std::vector<HWND>{kWide});  // the pass under way reported, before Release returned
  ThumbnailRenderMgr::Release(nullptr);
}

TEST_F(ThumbnailManager, ReleaseFreesAManagerWhoseWorkerWasRefused) {
  testing_support::RefuseThreads(), manager_->Start();  // no worker: Release frees it, the fixture checks
}

}  // namespace
