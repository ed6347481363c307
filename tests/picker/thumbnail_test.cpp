// The thumbnail manager against the system's own window manager, as a host
// uses it. Without composition (as under Wine) no thumbnail can be made, and
// the manager says so instead of pretending.
#include <windows.h>

#include <gtest/gtest.h>

#include "roomcore/picker.h"
#include "tests/picker/test_windows.h"

namespace {

using picker_testing::TestWindow;
using picker_testing::WindowOptions;

class CountingEvent : public ThumbnailRenderEvent {
 public:
  void OnThumbnailSourceLost(HWND) override { ++lost; }
  volatile LONG lost = 0;
};

TEST(ThumbnailRenderMgr, FollowsTheSystemsCompositionThroughAWholeLife) {
  TestWindow destination{WindowOptions()};
  TestWindow source{WindowOptions()};
  CountingEvent event;
  ThumbnailRenderMgr* manager = ThumbnailRenderMgr::Create();
  manager->SetRenderEvent(&event);
  manager->Start();
  const RECT rect = {10, 20, 330, 260};
  const bool composed = manager->IsCompositionEnabled();
  const bool shown = manager->SetThumbnail(destination.hwnd(), &rect, 0, 0, 0, source.hwnd());
  if (!composed) {
    EXPECT_FALSE(shown);
  }
  EXPECT_FALSE(manager->SetThumbnail(destination.hwnd(), nullptr, 0, 0, 0, source.hwnd()));
  manager->RemoveThumbnail(source.hwnd());
  manager->Stop();
  ThumbnailRenderMgr::Release(manager);
  ThumbnailRenderMgr::Release(nullptr);

  // A manager that never ran goes too.
  ThumbnailRenderMgr::Release(ThumbnailRenderMgr::Create());
}

}  // namespace
