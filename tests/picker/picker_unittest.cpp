// The walk's callback, device sizes, the picture at its limits, thumbnails on a scripted window manager.
#include <windows.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <thread>

#include "base/scoped_handle.h"
#include "picker/thumbnail_render_mgr_impl.h"
#include "picker/top_window_enum_impl.h"
#include "picker/window_snapshot_impl.h"
#include "roomcore/clock.h"
#include "tests/common/journal.h"
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
    return window ? TopWindowEnumImpl::Accepts(window) : throw std::runtime_error("no window");
  }
};
TEST(TopWindowEnumCallback, NoWindowEndsTheWalkAndOneThatThrowsIsLeftOut) {
  picker_testing::TestWindow kept({});
  ThrowingFilter windows;
  EXPECT_EQ(picker::TopWindowEnumImpl::OnWindow(kept.hwnd(), 0), TRUE);  // no object
  for (HWND window : {HWND(nullptr), reinterpret_cast<HWND>(0x7FFFFFF0), kept.hwnd()})
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
HANDLE NewEvent() { return CreateEventW(nullptr, TRUE, FALSE, nullptr); }
std::string Name(const void* source) { return source == kWide ? " wide" : " tall"; }
// A scripted window manager (each source its own thumbnail, each call a line), the host's event object too.
struct ThumbnailManager : ::testing::Test, ThumbnailRenderEvent, testing_support::Journal {
  void SetUp() override {
    g_fake = this;
    base::SetThreadStarterForTesting(
        [](LPSECURITY_ATTRIBUTES a, SIZE_T s, LPTHREAD_START_ROUTINE r, LPVOID p, DWORD f, LPDWORD id)
            WINAPI { return g_fake->Add("thread"), CreateThread(a, s, r, p, f, id); });
    manager_ = new picker::ThumbnailRenderMgrImpl({&Register, &Unregister, &Query, &Update, &Composition});
    manager_->SetDestroyedEventForTesting(destroyed_.get());
    manager_->SetRenderEvent(this);
  }
  void TearDown() override {
    if (manager_) manager_->Stop(), ThumbnailRenderMgr::Release(manager_);
    EXPECT_EQ(WaitForSingleObject(destroyed_.get(), 5000), WAIT_OBJECT_0);
    EXPECT_EQ(Count("late"), 0);
    base::SetThreadStarterForTesting(nullptr);
  }
  void OnThumbnailSourceLost(HWND source) override {  // "late" once `released_` was set
    Add((WaitForSingleObject(released_.get(), 0) == WAIT_OBJECT_0 ? "late lost" : "lost") + Name(source));
  }
  bool Show(HWND source, const RECT& rect = kBox, HWND destination = kDestination) {
    return manager_->SetThumbnail(destination, &rect, 7, 8, 9, source);
  }
  void Script(SIZE wide, SIZE tall, HRESULT wide_result = S_OK, HRESULT tall_result = S_OK) {
    Locked([&] { sources_[0] = {tall, tall_result}, sources_[1] = {wide, wide_result}; });
  }
  // A query (with `size`) waits at the gate if set; an update (with `more`) is refused while failures remain.
  static HRESULT Call(const char* call, HTHUMBNAIL thumbnail, SIZE* size = nullptr,
                      const std::string& more = "") {
    ThumbnailManager& f = *g_fake;
    const bool wide = thumbnail == reinterpret_cast<HTHUMBNAIL>(kWide);
    if (const HANDLE gate = size ? f.Locked([&] { return std::exchange(f.gate_, nullptr); }) : nullptr)
      SignalObjectAndWait(f.entered_.get(), gate, INFINITE, FALSE);
    const HRESULT result = f.Locked([&] {
      if (!size) return !more.empty() && f.failing_updates_-- > 0 ? E_FAIL : S_OK;
      if (wide) f.wide_query_ms_.push_back(TimeMicroseconds() / 1e3);
      if (f.sources_[wide].second == S_OK) *size = f.sources_[wide].first;
      return f.sources_[wide].second;
    });
    f.Add(call + Name(thumbnail) + more);
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
  std::vector<double> wide_query_ms_;         // the fake's state, under the journal's lock
  std::pair<SIZE, HRESULT> sources_[2] = {};  // tall, wide
  int failing_updates_ = 0;
  HANDLE gate_ = nullptr;
  HRESULT register_result_ = S_OK;  // the test's thread only
  base::ScopedHandle entered_{NewEvent()}, released_{NewEvent()}, destroyed_{NewEvent()};
  picker::ThumbnailRenderMgrImpl* manager_ = nullptr;
};

// A refused update (the first) is sent again at the next pass; a taken one isn't while nothing changes.
TEST_F(ThumbnailManager,
       ARectangleMovesTheOneThumbnailAZeroWidthOneRemovesItTheWorkerFitsEachAbout35MsApart) {
  EXPECT_TRUE(Show(kWide));
  EXPECT_TRUE(Show(kWide, {50, 20, 50, 260}));  // known: removed
  EXPECT_TRUE(Show(kTall, {50, 20, 50, 260}));  // unknown: registered
  manager_->RemoveThumbnail(reinterpret_cast<HWND>(0x99));
  EXPECT_TRUE(Show(kWide));
  manager_->Stop();
  EXPECT_EQ(Take(), (Lines{"register wide", "unregister wide", "register tall", "register wide",
                           "unregister tall", "unregister wide"}));
  register_result_ = E_NOTIMPL;  // as without composition
  EXPECT_FALSE(manager_->IsCompositionEnabled() || Show(kWide) ||
               manager_->SetThumbnail(kWide, nullptr, 0, 0, 0, kTall) ||
               !manager_->EntriesForTesting().empty());
  register_result_ = S_OK;
  EXPECT_TRUE(manager_->IsCompositionEnabled());
  Script({1600, 900}, {900, 1600});
  Locked([&] { failing_updates_ = 1; });
  ASSERT_TRUE(Show(kWide) && Show(kTall));
  manager_->Start();
  ASSERT_TRUE(WaitFor("query wide", 7));
  const Lines log = Of();
  EXPECT_EQ(Lines(log.begin(), log.begin() + 7),
            (Lines{"register wide", "register tall", "thread", "query wide", kWideFit, "query tall",
                   kTallFit}));  // by the worker only
  EXPECT_EQ(Of("update"), (Lines{kWideFit, kTallFit, kWideFit}));
  // 33,333 us by the library's clock, a 30 ms rest, 5 ms steps; a late pass shortens the next gap.
  const std::vector<double> at = Locked([&] { return wide_query_ms_; });
  double shortest = 1e9;
  for (size_t i = 1; i < at.size(); ++i) shortest = std::min(shortest, at[i] - at[i - 1]);
  EXPECT_TRUE((at.back() - at.front()) / (at.size() - 1) >= 32.0 && shortest <= 50.0) << shortest;
  ASSERT_TRUE(Show(kWide, {0, 0, 160, 90}, kTall) && WaitFor("update wide 0,0,160,90 1d 255 1 1"));
  Script({90, 90}, {900, 1600});  // a resized source is fitted anew
  ASSERT_TRUE(WaitFor("update wide 35,0,125,90 1d 255 1 1"));
  EXPECT_EQ(Count("register"), 2);
  EXPECT_EQ(manager_->EntriesForTesting().at(0).destination, kDestination);  // the first stays
  Script({0, 900}, {}, S_OK, S_FALSE);  // S_FALSE: not negative, and still no size
  ASSERT_TRUE(WaitFor("unregister tall"));
  const int tall_queries = Count("query tall");
  ASSERT_TRUE(WaitFor("query wide", Count("query wide") + 3));
  EXPECT_EQ(Of("lost"), Lines{"lost tall"});
  EXPECT_TRUE(Count("query tall") == tall_queries && Count("update") == 5);  // dropped; left as it was
}

TEST_F(ThumbnailManager, OneWorkerServesTheWholeLifeReleaseAlwaysFreesItAndNoLossIsReportedOnceItReturned) {
  manager_->Start(), manager_->Start(), manager_->Stop(), manager_->Start();
  EXPECT_EQ(Count("thread"), 1);
  base::ScopedHandle gate(NewEvent());
  Script({}, {}, E_INVALIDARG);
  Locked([&] { gate_ = gate.get(); });  // read by the first query, once Show has handed the entry over
  ASSERT_TRUE(Show(kWide));
  ASSERT_EQ(WaitForSingleObject(entered_.get(), 5000), WAIT_OBJECT_0);  // a pass is under way
  std::thread host(
      [&] { ThumbnailRenderMgr::Release(std::exchange(manager_, nullptr)), SetEvent(released_.get()); });
  // Release may wait for the pass, not the pass for Release: the gate opens once it returned or had time to.
  WaitForSingleObject(released_.get(), 200);
  SetEvent(gate.get());
  host.join();
  EXPECT_EQ(Of("lost"), Lines{"lost wide"});  // the pass under way reported, before Release returned
  ThumbnailRenderMgr::Release(nullptr);
}

TEST_F(ThumbnailManager, ReleaseFreesAManagerWhoseWorkerWasRefused) {
  testing_support::RefuseThreads(), manager_->Start();  // no worker: Release frees it, the fixture checks
}

}  // namespace
