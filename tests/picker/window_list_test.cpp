// The window list as a host sees it, over real windows of every kind the
// filter tells apart.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "roomcore/picker.h"
#include "tests/picker/test_windows.h"

namespace {

using picker_testing::TestWindow;
using picker_testing::WindowOptions;

std::vector<HWND> Listed(TopWindowEnum* windows, int count) {
  std::vector<HWND> listed;
  for (int i = 0; i < count; ++i) listed.push_back(windows->GetWindowAt(i));
  return listed;
}

bool Contains(const std::vector<HWND>& list, HWND window) {
  return std::find(list.begin(), list.end(), window) != list.end();
}

BOOL CALLBACK CollectWindow(HWND window, LPARAM param) {
  reinterpret_cast<std::vector<HWND>*>(param)->push_back(window);
  return TRUE;
}

// The platform's own walk of this thread's desktop, unfiltered.
std::vector<HWND> RawWalk() {
  std::vector<HWND> walk;
  EnumDesktopWindows(GetThreadDesktop(GetCurrentThreadId()), &CollectWindow, reinterpret_cast<LPARAM>(&walk));
  return walk;
}

WindowOptions Titled(const std::wstring& title) {
  WindowOptions options;
  options.title = title;
  return options;
}

TEST(TopWindowEnum, ListsOnlyOfferableWindowsInTheWalksOrder) {
  TestWindow normal(Titled(L"picker normal"));
  WindowOptions tool = Titled(L"picker tool window");
  tool.ex_style = WS_EX_TOOLWINDOW;
  TestWindow tool_window(tool);
  TestWindow minimised(Titled(L"picker minimised"));
  ShowWindow(minimised.hwnd(), SW_MINIMIZE);
  // The title test only asks whether there is one.
  TestWindow long_title(Titled(std::wstring(2000, L'x')));
  WindowOptions popup = Titled(L"picker popup with a minimise box");
  popup.style = WS_POPUP | WS_VISIBLE | WS_MINIMIZEBOX;
  TestWindow popup_window(popup);

  TestWindow empty_title(Titled(L""));
  WindowOptions no_box = Titled(L"picker without a minimise box");
  no_box.style = WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU;
  TestWindow no_minimise_box(no_box);
  WindowOptions owned_options = Titled(L"picker owned");
  owned_options.owner = normal.hwnd();
  TestWindow owned(owned_options);
  TestWindow child_style(Titled(L"picker child style"));
  SetWindowLongW(child_style.hwnd(), GWL_STYLE, GetWindowLongW(child_style.hwnd(), GWL_STYLE) | WS_CHILD);
  TestWindow disabled(Titled(L"picker disabled"));
  EnableWindow(disabled.hwnd(), FALSE);
  WindowOptions hidden = Titled(L"picker invisible");
  hidden.style = WS_OVERLAPPEDWINDOW;
  TestWindow invisible(hidden);

  const std::vector<HWND> offered = {normal.hwnd(), tool_window.hwnd(), minimised.hwnd(), long_title.hwnd(),
                                     popup_window.hwnd()};
  const std::vector<HWND> refused = {empty_title.hwnd(), no_minimise_box.hwnd(), owned.hwnd(),
                                     child_style.hwnd(), disabled.hwnd(),        invisible.hwnd()};
  for (HWND window : offered) ASSERT_NE(window, nullptr);
  for (HWND window : refused) ASSERT_NE(window, nullptr);
  ASSERT_TRUE(IsIconic(minimised.hwnd()));
  ASSERT_TRUE(IsWindowVisible(minimised.hwnd()));

  TopWindowEnum* windows = TopWindowEnum::Create();
  const int count = windows->EnumerateWindows();
  const std::vector<HWND> listed = Listed(windows, count);
  const std::vector<HWND> walk = RawWalk();

  for (HWND window : offered) EXPECT_TRUE(Contains(listed, window)) << window;
  for (HWND window : refused) EXPECT_FALSE(Contains(listed, window)) << window;
  // Our offered windows come in the order the platform walks them.
  std::vector<HWND> ours_listed, ours_walked;
  for (HWND window : listed) {
    if (Contains(offered, window)) ours_listed.push_back(window);
  }
  for (HWND window : walk) {
    if (Contains(offered, window)) ours_walked.push_back(window);
  }
  EXPECT_EQ(ours_listed, ours_walked);
  EXPECT_EQ(windows->GetWindowAt(-1), nullptr);
  EXPECT_EQ(windows->GetWindowAt(count), nullptr);
  TopWindowEnum::Release(windows);
}

TEST(TopWindowEnum, ASecondWalkReplacesTheListAndAnEmptyListGivesNull) {
  TopWindowEnum* windows = TopWindowEnum::Create();
  EXPECT_EQ(windows->GetWindowAt(0), nullptr);  // nothing walked yet

  TestWindow kept(Titled(L"picker kept"));
  auto closed = std::make_unique<TestWindow>(Titled(L"picker closed"));
  const HWND closed_handle = closed->hwnd();
  const int first = windows->EnumerateWindows();
  ASSERT_TRUE(Contains(Listed(windows, first), closed_handle));

  closed.reset();
  const int second = windows->EnumerateWindows();
  const std::vector<HWND> listed = Listed(windows, second);
  EXPECT_FALSE(Contains(listed, closed_handle));
  EXPECT_EQ(std::count(listed.begin(), listed.end(), kept.hwnd()), 1);
  EXPECT_EQ(std::set<HWND>(listed.begin(), listed.end()).size(), listed.size());
  EXPECT_EQ(windows->GetWindowAt(second), nullptr);
  TopWindowEnum::Release(windows);
  TopWindowEnum::Release(nullptr);
}

}  // namespace
