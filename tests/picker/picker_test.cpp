// The picker as a host uses it (roomcore.dll), over real windows and pixels.
#include "roomcore/picker.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "tests/picker/test_windows.h"

namespace {

using namespace picker_testing;

std::vector<HWND> Walk(TopWindowEnum* windows) {
  std::vector<HWND> listed(windows->EnumerateWindows());
  for (size_t i = 0; i < listed.size(); ++i) listed[i] = windows->GetWindowAt(static_cast<int>(i));
  EXPECT_TRUE(windows->GetWindowAt(-1) == nullptr && windows->GetWindowAt(int(listed.size())) == nullptr);
  return listed;
}

TEST(TopWindowEnum, ListsTheOfferableWindowsInTheWalksOrderAndEachWalkAnew) {
  const struct {
    WindowOptions options;
    bool offered;
  } cases[] = {{{L"normal"}, true},
               {{L"popup with a minimise box", WS_POPUP | WS_VISIBLE | WS_MINIMIZEBOX}, true},
               {{L"tool window"}, true},
               {{L"minimised"}, true},
               {{L""}, false},
               {{L"no minimise box", WS_POPUP | WS_VISIBLE | WS_CAPTION | WS_SYSMENU}, false},
               {{L"invisible", WS_OVERLAPPEDWINDOW}, false},
               {{L"owned"}, false},
               {{L"child style"}, false},
               {{L"disabled"}, false}};
  std::vector<std::unique_ptr<TestWindow>> windows;
  for (const auto& c : cases) {
    WindowOptions options = c.options;
    if (options.title == L"tool window") options.ex_style = WS_EX_TOOLWINDOW;
    if (options.title == L"owned") options.owner = windows[0]->hwnd();
    windows.push_back(std::make_unique<TestWindow>(options));
    const HWND hwnd = windows.back()->hwnd();
    ASSERT_NE(hwnd, nullptr);
    if (options.title == L"minimised") ShowWindow(hwnd, SW_MINIMIZE);
    if (options.title == L"child style") SetWindowLongW(hwnd, GWL_STYLE, options.style | WS_CHILD);
    if (options.title == L"disabled") EnableWindow(hwnd, FALSE);
  }
  TopWindowEnum* list = TopWindowEnum::Create();
  EXPECT_EQ(list->GetWindowAt(0), nullptr);  // nothing walked yet
  std::vector<HWND> listed = Walk(list), walked;
  const auto collect = [](HWND window, LPARAM to) WINAPI -> BOOL {
    return reinterpret_cast<std::vector<HWND>*>(to)->push_back(window), TRUE;
  };
  EnumDesktopWindows(GetThreadDesktop(GetCurrentThreadId()), collect, reinterpret_cast<LPARAM>(&walked));
  for (size_t i = 0; i < windows.size(); ++i)
    EXPECT_EQ(std::count(listed.begin(), listed.end(), windows[i]->hwnd()), cases[i].offered ? 1 : 0) << i;
  auto at = walked.begin();  // the list follows the platform's walk, in its order
  for (HWND hwnd : listed) at = std::find(at, walked.end(), hwnd);
  EXPECT_TRUE(!listed.empty() && at != walked.end());
  const HWND closed = windows[0]->hwnd();
  windows.clear();
  listed = Walk(list);
  EXPECT_EQ(std::count(listed.begin(), listed.end(), closed), 0);
  TopWindowEnum::Release(list);
}

using Snapshot = std::unique_ptr<WindowSnapshot, void (*)(WindowSnapshot*)>;
Snapshot Take(HWND window) { return Snapshot(WindowSnapshot::Create(window), &WindowSnapshot::Release); }
TEST(WindowSnapshot, TitleAndProcessAreReadOnceThePictureIsTheWholeWindowOfTheMomentAGoneOneGivesNothing) {
  const std::wstring title(600, L'T');
  TestWindow window({title, WS_POPUP | WS_VISIBLE, 300, 200});  // no frame: all client area
  Snapshot snapshot = Take(window.hwnd());
  SetWindowTextW(window.hwnd(), L"renamed");  // nothing refreshes them
  EXPECT_EQ(snapshot->GetWindow(), window.hwnd());
  EXPECT_EQ(snapshot->GetTitle(), title.substr(0, 510));  // room for 511 and the end mark
  EXPECT_EQ(snapshot->GetProcessId(), GetCurrentProcessId());
  EXPECT_EQ(_wcsicmp(snapshot->GetProcessName().c_str(), L"picker_tests.exe"), 0);
  const DibImage* picture = snapshot->GetPicture();
  ASSERT_NE(picture, nullptr);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(PixelAt(picture, 300, 200, 75 + i % 2 * 150, 50 + i / 2 * 100), kQuadrantColors[i]);
  SetWindowPos(window.hwnd(), nullptr, 0, 0, 120, 80, SWP_NOMOVE | SWP_NOZORDER);
  ASSERT_NE(picture = snapshot->GetPicture(), nullptr);
  EXPECT_EQ(PixelAt(picture, 120, 80, 119, 79), kQuadrantColors[3]);
  HWND gone = TestWindow({L"gone", WS_OVERLAPPEDWINDOW}).hwnd();
  for (HWND hwnd : {gone, static_cast<HWND>(nullptr)}) {
    snapshot = Take(hwnd);
    EXPECT_EQ(snapshot->GetTitle() + snapshot->GetProcessName(), L"");
    EXPECT_TRUE(snapshot->GetProcessId() == 0 && !snapshot->GetIcon() && !snapshot->GetPicture());
  }
}

TEST(WindowSnapshot, TheIconIsTheWindowsBigOneElseItsClassesElseTheSmallOnes) {
  const COLORREF red = RGB(255, 0, 0), blue = RGB(0, 0, 255), green = RGB(0, 255, 0);
  const HICON r = SolidIcon(32, red), b = SolidIcon(32, blue), g = SolidIcon(16, green);
  const struct {
    HICON big_answer, class_icon, small2_answer, class_small_icon;
    COLORREF color;
    int size;
    std::vector<WPARAM> requests;
  } cases[] = {{r, b, g, g, red, 32, {ICON_BIG}},
               {nullptr, b, g, g, blue, 32, {ICON_BIG}},
               {nullptr, nullptr, g, nullptr, green, 16, {ICON_BIG, ICON_SMALL2}},
               {nullptr, nullptr, nullptr, g, green, 16, {ICON_BIG, ICON_SMALL2}},
               {nullptr, nullptr, nullptr, nullptr, 0, 0, {ICON_BIG, ICON_SMALL2}}};
  for (const auto& c : cases) {
    WindowOptions options{L"icon", WS_OVERLAPPEDWINDOW};  // hidden: no wait for the desktop to show it
    options.big_answer = c.big_answer, options.class_icon = c.class_icon;
    options.small2_answer = c.small2_answer, options.class_small_icon = c.class_small_icon;
    TestWindow window(options);
    Snapshot snapshot = Take(window.hwnd());
    const DibImage* icon = snapshot->GetIcon();
    ASSERT_EQ(icon != nullptr, c.size != 0);
    for (int at = 0; icon && at < c.size; at += c.size - 1)
      EXPECT_EQ(PixelAt(icon, c.size, c.size, at, at), c.color);
    EXPECT_EQ(window.icon_requests, c.requests);
  }
  for (HICON icon : {r, b, g}) DestroyIcon(icon);
}

}  // namespace
