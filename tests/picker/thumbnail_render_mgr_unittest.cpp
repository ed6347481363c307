// The thumbnail manager's worker, layout and lifetime against a scripted
// window manager.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "base/scoped_handle.h"
#include "base/thread_start.h"
#include "picker/thumbnail_render_mgr_impl.h"
#include "tests/common/refuse_threads.h"
#include "tests/picker/fake_dwm.h"

namespace {

using picker::ThumbnailEntry;
using picker::ThumbnailRenderMgrImpl;
using picker_testing::FakeDwm;

const HWND kDestination = reinterpret_cast<HWND>(0x1000);
const HWND kOtherDestination = reinterpret_cast<HWND>(0x1004);
const HWND kWide = reinterpret_cast<HWND>(0x2000);
const HWND kTall = reinterpret_cast<HWND>(0x2004);
const RECT kBox = {10, 20, 330, 260};  // 320 x 240 at (10, 20)

bool SameRect(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

TEST(FitThumbnail, KeepsTheAspectRatioCentredAndRefusesAnEmptySource) {
  struct Case {
    SIZE source;
    RECT box;
    RECT fitted;
  } cases[] = {
      {{1600, 900}, kBox, {10, 50, 330, 230}},     // 1600 * 240 is not below 900 * 320: full width
      {{900, 1600}, kBox, {102, 20, 237, 260}},    // full height, 135 wide, 92 to the side
      {{640, 480}, kBox, {10, 20, 330, 260}},      // the box's own ratio fills it
      {{1000, 999}, {0, 0, 7, 5}, {1, 0, 6, 5}},   // truncating divisions
      {{100, 100}, {5, 5, 5, 45}, {5, 25, 5, 25}}  // a box without width gives an empty rectangle
  };
  for (const Case& c : cases) {
    RECT fitted = {};
    ASSERT_TRUE(picker::FitThumbnail(c.source, c.box, &fitted));
    EXPECT_TRUE(SameRect(fitted, c.fitted)) << c.source.cx << "x" << c.source.cy << ": " << fitted.left << ","
                                            << fitted.top << "," << fitted.right << "," << fitted.bottom;
  }
  RECT untouched = {1, 2, 3, 4};
  for (SIZE empty : {SIZE{0, 900}, SIZE{1600, 0}, SIZE{0, 0}, SIZE{-5, 10}}) {
    EXPECT_FALSE(picker::FitThumbnail(empty, kBox, &untouched));
    EXPECT_TRUE(SameRect(untouched, RECT{1, 2, 3, 4}));
  }
}

class RecordingEvent : public ThumbnailRenderEvent {
 public:
  void OnThumbnailSourceLost(HWND source) override {
    std::lock_guard<std::mutex> hold(mutex_);
    lost_.push_back(source);
    if (released && WaitForSingleObject(released, 0) == WAIT_OBJECT_0) ++late;
  }
  // Set once Release has returned; calls after it count as late.
  HANDLE released = nullptr;
  int late = 0;
  std::vector<HWND> lost() {
    std::lock_guard<std::mutex> hold(mutex_);
    return lost_;
  }

 private:
  std::mutex mutex_;
  std::vector<HWND> lost_;
};

// Counts the threads the library starts, and starts them.
std::atomic<int> g_threads_started{0};
HANDLE WINAPI CountingStarter(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE routine,
                              LPVOID param, DWORD flags, LPDWORD id) {
  ++g_threads_started;
  return CreateThread(attributes, stack, routine, param, flags, id);
}

// A manager on the fake, released at the end of each test; the test waits
// for the worker to have destroyed it, so nothing outlives the fake.
class ThumbnailManager : public ::testing::Test {
 protected:
  void SetUp() override {
    g_threads_started = 0;
    base::SetThreadStarterForTesting(&CountingStarter);
    manager_ = new ThumbnailRenderMgrImpl(dwm_.table());
    manager_->SetDestroyedEventForTesting(destroyed_.get());
    manager_->SetRenderEvent(&event_);
  }
  void TearDown() override {
    if (manager_) ReleaseAndWait();
    base::SetThreadStarterForTesting(nullptr);
  }
  void ReleaseAndWait() {
    manager_->Stop();
    ThumbnailRenderMgr::Release(manager_);
    manager_ = nullptr;
    EXPECT_EQ(WaitForSingleObject(destroyed_.get(), 5000), WAIT_OBJECT_0);
  }
  // The last update for `source`'s thumbnail showed `fitted`.
  bool WaitForFit(HWND source, const RECT& fitted) {
    return dwm_.WaitUntil([&] {
      const HTHUMBNAIL thumbnail = dwm_.thumbnail_of(source);
      const std::vector<FakeDwm::Update> updates = dwm_.updates();
      for (auto it = updates.rbegin(); it != updates.rend(); ++it) {
        if (it->thumbnail == thumbnail) return SameRect(it->properties.rcDestination, fitted);
      }
      return false;
    });
  }
  size_t UpdatesOf(HWND source) {
    const HTHUMBNAIL thumbnail = dwm_.thumbnail_of(source);
    size_t count = 0;
    for (const FakeDwm::Update& update : dwm_.updates()) count += update.thumbnail == thumbnail;
    return count;
  }

  FakeDwm dwm_;
  RecordingEvent event_;
  base::ScopedHandle destroyed_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  ThumbnailRenderMgrImpl* manager_ = nullptr;
};

TEST_F(ThumbnailManager, TheWorkerFitsEachSourceIntoItsRectangle) {
  dwm_.SetSize(kWide, {1600, 900});
  dwm_.SetSize(kTall, {900, 1600});
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 7, 8, 9, kWide));
  ASSERT_TRUE(manager_->SetThumbnail(kOtherDestination, &kBox, 0, 0, 0, kTall));
  // Registered, but nothing is shown before the worker runs.
  EXPECT_EQ(dwm_.registrations(), 2);
  EXPECT_TRUE(dwm_.updates().empty());
  manager_->Start();

  ASSERT_TRUE(WaitForFit(kWide, {10, 50, 330, 230}));
  ASSERT_TRUE(WaitForFit(kTall, {102, 20, 237, 260}));
  for (const FakeDwm::Update& update : dwm_.updates()) {
    const DWM_THUMBNAIL_PROPERTIES& p = update.properties;
    EXPECT_EQ(p.dwFlags, 0x1Du);
    EXPECT_EQ(p.opacity, 255);
    EXPECT_EQ(p.fVisible, TRUE);
    EXPECT_EQ(p.fSourceClientAreaOnly, TRUE);
    EXPECT_NE(update.thread_id, GetCurrentThreadId());
  }
  const std::vector<ThumbnailEntry> entries = manager_->EntriesForTesting();
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].source, kWide);  // in the order of registration
  EXPECT_EQ(entries[1].destination, kOtherDestination);
  EXPECT_EQ(entries[1].source_size.cy, 1600);
}

TEST_F(ThumbnailManager, ASecondRectangleMovesTheOneThumbnailAndAtRestNothingIsResent) {
  dwm_.SetSize(kWide, {1600, 900});
  manager_->Start();
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  ASSERT_TRUE(WaitForFit(kWide, {10, 50, 330, 230}));
  const RECT moved = {0, 0, 160, 90};
  ASSERT_TRUE(manager_->SetThumbnail(kOtherDestination, &moved, 0, 0, 0, kWide));
  ASSERT_TRUE(WaitForFit(kWide, moved));
  EXPECT_EQ(dwm_.registrations(), 1);
  EXPECT_EQ(manager_->EntriesForTesting().at(0).destination, kDestination);  // the first destination stays

  const size_t sent = UpdatesOf(kWide);
  ASSERT_TRUE(dwm_.WaitForPasses(kWide, 3));
  EXPECT_EQ(UpdatesOf(kWide), sent);
  // A resized source is fitted anew.
  dwm_.SetSize(kWide, {90, 90});
  ASSERT_TRUE(WaitForFit(kWide, {35, 0, 125, 90}));
}

TEST_F(ThumbnailManager, AZeroWidthRectangleRemovesAKnownSourceAndRegistersANewOne) {
  dwm_.SetSize(kWide, {1600, 900});
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  const HTHUMBNAIL thumbnail = dwm_.thumbnail_of(kWide);
  const RECT no_width = {50, 20, 50, 260};
  EXPECT_TRUE(manager_->SetThumbnail(kDestination, &no_width, 0, 0, 0, kWide));
  EXPECT_TRUE(manager_->EntriesForTesting().empty());
  EXPECT_EQ(dwm_.unregistered(), std::vector<HTHUMBNAIL>{thumbnail});

  EXPECT_TRUE(manager_->SetThumbnail(kDestination, &no_width, 0, 0, 0, kTall));
  EXPECT_EQ(dwm_.registrations(), 2);
  EXPECT_EQ(manager_->EntriesForTesting().size(), 1u);
}

TEST_F(ThumbnailManager, RefusedRegistrationsAddNothingAndRemovalsFollowTheList) {
  dwm_.set_register_result(E_NOTIMPL);
  EXPECT_FALSE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  EXPECT_FALSE(manager_->SetThumbnail(kDestination, nullptr, 0, 0, 0, kWide));
  EXPECT_TRUE(manager_->EntriesForTesting().empty());
  dwm_.set_register_result(S_OK);

  const HWND sources[] = {kWide, kTall, reinterpret_cast<HWND>(0x2008)};
  for (HWND source : sources) ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, source));
  manager_->RemoveThumbnail(reinterpret_cast<HWND>(0x9999));  // unknown: nothing
  EXPECT_EQ(manager_->EntriesForTesting().size(), 3u);
  manager_->RemoveThumbnail(kTall);
  EXPECT_EQ(dwm_.unregistered().size(), 1u);
  manager_->Stop();
  EXPECT_TRUE(manager_->EntriesForTesting().empty());
  // Everything unregistered, in list order.
  EXPECT_EQ(dwm_.unregistered(),
            (std::vector<HTHUMBNAIL>{reinterpret_cast<HTHUMBNAIL>(2), reinterpret_cast<HTHUMBNAIL>(1),
                                     reinterpret_cast<HTHUMBNAIL>(3)}));
}

TEST_F(ThumbnailManager, ALostSourceIsDroppedAndReportedOnce) {
  dwm_.SetSize(kWide, {1600, 900});
  dwm_.SetSize(kTall, {900, 1600});
  manager_->Start();
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kTall));
  ASSERT_TRUE(WaitForFit(kWide, {10, 50, 330, 230}));
  const HTHUMBNAIL thumbnail = dwm_.thumbnail_of(kWide);

  dwm_.FailQuery(kWide, S_FALSE);  // not negative, still no size
  ASSERT_TRUE(dwm_.WaitUntil([&] { return !event_.lost().empty(); }));
  ASSERT_TRUE(dwm_.WaitForPasses(kTall, 3));
  EXPECT_EQ(event_.lost(), std::vector<HWND>{kWide});
  EXPECT_EQ(dwm_.unregistered(), std::vector<HTHUMBNAIL>{thumbnail});
  const std::vector<ThumbnailEntry> entries = manager_->EntriesForTesting();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].source, kTall);
}

TEST_F(ThumbnailManager, ARefusedUpdateIsSentAgainAtTheNextPass) {
  dwm_.SetSize(kWide, {1600, 900});
  dwm_.FailUpdates(1);
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  manager_->Start();
  ASSERT_TRUE(dwm_.WaitUntil([&] { return UpdatesOf(kWide) == 2; }));
  for (const FakeDwm::Update& update : dwm_.updates()) {
    EXPECT_TRUE(SameRect(update.properties.rcDestination, {10, 50, 330, 230}));
  }
  ASSERT_TRUE(dwm_.WaitForPasses(kWide, 2));
  EXPECT_EQ(UpdatesOf(kWide), 2u);  // taken: at rest from then on
}

TEST_F(ThumbnailManager, NoSourceIsReportedLostOnceReleaseHasReturned) {
  dwm_.SetSize(kWide, {1600, 900});
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  manager_->Start();
  ASSERT_TRUE(WaitForFit(kWide, {10, 50, 330, 230}));
  base::ScopedHandle entered(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  base::ScopedHandle gate(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  base::ScopedHandle released(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  event_.released = released.get();
  dwm_.FailQuery(kWide, E_INVALIDARG);
  dwm_.HoldNextQuery(entered.get(), gate.get());
  ASSERT_EQ(WaitForSingleObject(entered.get(), 5000), WAIT_OBJECT_0);  // a pass is under way
  std::thread host([&] {
    ThumbnailRenderMgr::Release(manager_);
    SetEvent(released.get());
  });
  // Release may wait for the pass, but the pass mustn't wait for Release: the
  // gate opens once Release has returned or has had ample time to.
  WaitForSingleObject(released.get(), 200);
  SetEvent(gate.get());
  host.join();
  manager_ = nullptr;
  EXPECT_EQ(WaitForSingleObject(destroyed_.get(), 5000), WAIT_OBJECT_0);
  EXPECT_EQ(event_.late, 0);
}

TEST_F(ThumbnailManager, ASourceWithoutAreaIsLeftAsItWas) {
  dwm_.SetSize(kWide, {0, 900});
  manager_->Start();
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  ASSERT_TRUE(dwm_.WaitForPasses(kWide, 2));
  EXPECT_TRUE(dwm_.updates().empty());
  EXPECT_EQ(manager_->EntriesForTesting().at(0).properties.dwFlags, 0u);
  dwm_.SetSize(kWide, {1600, 900});
  EXPECT_TRUE(WaitForFit(kWide, {10, 50, 330, 230}));
}

TEST_F(ThumbnailManager, OneWorkerServesTheWholeLifeAcrossStartsAndStops) {
  dwm_.SetSize(kWide, {1600, 900});
  manager_->Start();
  manager_->Start();
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  ASSERT_TRUE(WaitForFit(kWide, {10, 50, 330, 230}));
  const DWORD worker = dwm_.last_query_thread();
  manager_->Stop();
  manager_->Start();
  ASSERT_TRUE(manager_->SetThumbnail(kDestination, &kBox, 0, 0, 0, kWide));
  EXPECT_EQ(dwm_.registrations(), 2);
  ASSERT_TRUE(dwm_.WaitUntil([&] { return UpdatesOf(kWide) == 1; }));
  EXPECT_EQ(dwm_.last_query_thread(), worker);
  EXPECT_EQ(g_threads_started, 1);
}

TEST_F(ThumbnailManager, ReleaseRightAfterStartEndsTheWorkerAndFreesTheObject) {
  manager_->Start();
  ThumbnailRenderMgr::Release(manager_);
  manager_ = nullptr;
  EXPECT_EQ(WaitForSingleObject(destroyed_.get(), 5000), WAIT_OBJECT_0);
  EXPECT_EQ(g_threads_started, 1);
}

TEST_F(ThumbnailManager, AManagerWithoutAWorkerIsFreedByRelease) {
  ThumbnailRenderMgr::Release(manager_);  // never started
  manager_ = nullptr;
  EXPECT_EQ(WaitForSingleObject(destroyed_.get(), 0), WAIT_OBJECT_0);

  base::ScopedHandle refused_destroyed(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  auto* refused = new ThumbnailRenderMgrImpl(dwm_.table());
  refused->SetDestroyedEventForTesting(refused_destroyed.get());
  {
    testing_support::RefuseThreads no_threads;
    refused->Start();  // the start fails
  }
  ThumbnailRenderMgr::Release(refused);
  EXPECT_EQ(WaitForSingleObject(refused_destroyed.get(), 0), WAIT_OBJECT_0);
}

TEST_F(ThumbnailManager, CompositionIsAskedOfTheWindowManager) {
  dwm_.set_composition(TRUE);
  EXPECT_TRUE(manager_->IsCompositionEnabled());
  dwm_.set_composition(FALSE);
  EXPECT_FALSE(manager_->IsCompositionEnabled());
}

}  // namespace
