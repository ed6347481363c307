// The picker as a host uses it (roomcore.dll), over real windows and pixels.
#include "roomcore/picker.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "tests/picker/test_windows.h"

namespace {

using picker_testing::kQuadrantColors;
using picker_testing::TestWindow;
using picker_testing::WindowOptions;

WindowOptions Options(const std::wstring& title, DWORD style = WS_OVERLAPPEDWINDOW | WS_VISIBLE,
                      int width = 200, int height = 150) {
  WindowOptions options;
  options.title = title;
  options.style = style;
  options.width = width;
  options.height = height;
  return options;
}

std::vector<HWND> Walk(TopWindowEnum* windows) {
  std::vector<HWND> listed(windows->EnumerateWindows());
  for (size_t i = 0; i < listed.size(); ++i) listed[i] = windows->GetWindowAt(static_cast<int>(i));
  EXPECT_EQ(windows->GetWindowAt(-1), nullptr);
  EXPECT_EQ(windows->GetWindowAt(static_cast<int>(listed.size())), nullptr);
  return listed;
}

BOOL CALLBACK Collect(HWND window, LPARAM list) {
  reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
  return TRUE;
}

TEST(TopWindowEnum, ListsTheOfferableWindowsInTheWalksOrderAndEachWalkAnew) {
  const DWORD popup = WS_POPUP | WS_VISIBLE;
  const struct {
    WindowOptions options;
    bool offered;
  } cases[] = {
      {Options(L"normal"), true},
      {Options(std::wstring(2000, L'x')), true},  // only whether there is a title counts
      {Options(L"popup with a minimise box", popup | WS_MINIMIZEBOX), true},
      {Options(L"tool window"), true},
      {Options(L"minimised"), true},
      {Options(L""), false},
      {Options(L"no minimise box", popup | WS_CAPTION | WS_SYSMENU), false},
      {Options(L"invisible", WS_OVERLAPPEDWINDOW), false},
      {Options(L"owned"), false},
      {Options(L"child style"), false},
      {Options(L"disabled"), false},
  };
  std::vector<std::unique_ptr<TestWindow>> windows;
  for (const auto& c : cases) {
    WindowOptions options = c.options;
    if (options.title == L"tool window") options.ex_style = WS_EX_TOOLWINDOW;
    if (options.title == L"owned") options.owner = windows[0]->hwnd();
    windows.push_back(std::make_unique<TestWindow>(options));
    const HWND hwnd = windows.back()->hwnd();
    ASSERT_NE(hwnd, nullptr);
    if (options.title == L"minimised") ShowWindow(hwnd, SW_MINIMIZE);
    if (options.title == L"child style")
      SetWindowLongW(hwnd, GWL_STYLE, GetWindowLongW(hwnd, GWL_STYLE) | WS_CHILD);
    if (options.title == L"disabled") EnableWindow(hwnd, FALSE);
  }
  TopWindowEnum* list = TopWindowEnum::Create();
  EXPECT_EQ(list->GetWindowAt(0), nullptr);  // nothing walked yet
  std::vector<HWND> listed = Walk(list), walked;
  EnumDesktopWindows(GetThreadDesktop(GetCurrentThreadId()), &Collect, reinterpret_cast<LPARAM>(&walked));
  for (size_t i = 0; i < windows.size(); ++i) {
    EXPECT_EQ(std::count(listed.begin(), listed.end(), windows[i]->hwnd()), cases[i].offered ? 1 : 0) << i;
  }
  auto at = walked.begin();  // the list follows the platform's walk, in its order
  for (HWND hwnd : listed) at = std::find(at, walked.end(), hwnd);
  EXPECT_TRUE(!listed.empty() && at != walked.end());

  const HWND closed = windows[0]->hwnd();
  windows.clear();
  listed = Walk(list);
  EXPECT_EQ(std::count(listed.begin(), listed.end(), closed), 0);
  TopWindowEnum::Release(list);
  TopWindowEnum::Release(nullptr);
}

using Snapshot = std::unique_ptr<WindowSnapshot, void (*)(WindowSnapshot*)>;
Snapshot Take(HWND window) { return Snapshot(WindowSnapshot::Create(window), &WindowSnapshot::Release); }

// The colour at (x, y) of a top-down 32-bit image; its header checked first.
COLORREF PixelAt(const DibImage* image, int width, int height, int x, int y) {
  const BITMAPINFOHEADER& header = image->bitmap_info()->bmiHeader;
  EXPECT_EQ(header.biWidth, width);
  EXPECT_EQ(header.biHeight, -height);
  EXPECT_EQ(header.biBitCount, 32);  // pictures always, icons at the test display's depth
  EXPECT_EQ(header.biSizeImage, static_cast<DWORD>(width * height * 4));
  const uint8_t* p = image->bits_data() + (static_cast<size_t>(y) * width + x) * 4;
  return RGB(p[2], p[1], p[0]);
}

TEST(WindowSnapshot, TitleAndProcessAreReadOnceAndAGoneWindowGivesNothing) {
  const std::wstring title(600, L'T');
  TestWindow window(Options(title));
  Snapshot snapshot = Take(window.hwnd());
  SetWindowTextW(window.hwnd(), L"renamed");  // nothing refreshes them
  EXPECT_EQ(snapshot->GetWindow(), window.hwnd());
  EXPECT_EQ(snapshot->GetTitle(), title.substr(0, 510));  // room for 511 and the end mark
  EXPECT_EQ(snapshot->GetProcessId(), GetCurrentProcessId());
  EXPECT_EQ(_wcsicmp(snapshot->GetProcessName().c_str(), L"picker_tests.exe"), 0);

  HWND gone = TestWindow(Options(L"gone")).hwnd();
  for (HWND hwnd : {gone, static_cast<HWND>(nullptr)}) {
    snapshot = Take(hwnd);
    EXPECT_EQ(snapshot->GetTitle() + snapshot->GetProcessName(), L"");
    EXPECT_EQ(snapshot->GetProcessId(), 0u);
    EXPECT_EQ(snapshot->GetIcon(), nullptr);
    EXPECT_EQ(snapshot->GetPicture(), nullptr);
  }
}

TEST(WindowSnapshot, TheIconIsTheWindowsBigOneElseItsClassesElseTheSmallOnes) {
  const HICON red = picker_testing::SolidIcon(32, RGB(255, 0, 0)),
              blue = picker_testing::SolidIcon(32, RGB(0, 0, 255)),
              green = picker_testing::SolidIcon(16, RGB(0, 255, 0));
  const struct {
    HICON big_answer, class_icon, small2_answer, class_small_icon;
    COLORREF color;
    int size;
    std::vector<WPARAM> requests;
  } cases[] = {
      {red, blue, green, green, RGB(255, 0, 0), 32, {ICON_BIG}},
      {nullptr, blue, green, green, RGB(0, 0, 255), 32, {ICON_BIG}},
      {nullptr, nullptr, green, nullptr, RGB(0, 255, 0), 16, {ICON_BIG, ICON_SMALL2}},
      {nullptr, nullptr, nullptr, green, RGB(0, 255, 0), 16, {ICON_BIG, ICON_SMALL2}},
      {nullptr, nullptr, nullptr, nullptr, 0, 0, {ICON_BIG, ICON_SMALL2}},
  };
  for (const auto& c : cases) {
    WindowOptions options;
    options.big_answer = c.big_answer;
    options.class_icon = c.class_icon;
    options.small2_answer = c.small2_answer;
    options.class_small_icon = c.class_small_icon;
    TestWindow window(options);
    Snapshot snapshot = Take(window.hwnd());
    const DibImage* icon = snapshot->GetIcon();
    ASSERT_EQ(icon != nullptr, c.size != 0);
    if (icon) {
      EXPECT_EQ(PixelAt(icon, c.size, c.size, 0, 0), c.color);
      EXPECT_EQ(PixelAt(icon, c.size, c.size, c.size - 1, c.size - 1), c.color);
    }
    EXPECT_EQ(window.icon_requests(), c.requests);
  }
  for (HICON icon : {red, blue, green}) DestroyIcon(icon);
}

TEST(WindowSnapshot, ThePictureIsTheWholeWindowAtItsSizeOfTheMoment) {
  TestWindow window(Options(L"picture", WS_POPUP | WS_VISIBLE, 300, 200));  // no frame: all client area
  Snapshot snapshot = Take(window.hwnd());
  const DibImage* picture = snapshot->GetPicture();
  ASSERT_NE(picture, nullptr);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(PixelAt(picture, 300, 200, 75 + i % 2 * 150, 50 + i / 2 * 100), kQuadrantColors[i]);
  SetWindowPos(window.hwnd(), nullptr, 0, 0, 120, 80, SWP_NOMOVE | SWP_NOZORDER);
  ASSERT_NE(picture = snapshot->GetPicture(), nullptr);
  EXPECT_EQ(PixelAt(picture, 120, 80, 119, 79), kQuadrantColors[3]);

  // From 2^32 bytes on, a count in 32 bits would wrap, and the read-out
  // would write the whole window into a buffer of nothing.
  for (SIZE size : {SIZE{65536, 16384}, SIZE{1 << 30, 2}}) {
    TestWindow huge(Options(L"huge", WS_POPUP, size.cx, size.cy));
    RECT rect = {};
    ASSERT_TRUE(GetWindowRect(huge.hwnd(), &rect) && rect.right - rect.left == size.cx);
    EXPECT_EQ(Take(huge.hwnd())->GetPicture(), nullptr) << size.cx << "x" << size.cy;
  }
}

// Without composition (Wine has none) the system refuses every thumbnail.
TEST(ThumbnailRenderMgr, ShowsAThumbnailExactlyWhenTheSystemComposes) {
  TestWindow destination(Options(L"destination")), source(Options(L"source"));
  ThumbnailRenderMgr* manager = ThumbnailRenderMgr::Create();
  manager->Start();
  const RECT rect = {10, 20, 330, 260};
  EXPECT_EQ(manager->SetThumbnail(destination.hwnd(), &rect, 0, 0, 0, source.hwnd()),
            manager->IsCompositionEnabled());
  EXPECT_FALSE(manager->SetThumbnail(destination.hwnd(), nullptr, 0, 0, 0, source.hwnd()));
  manager->Stop();
  ThumbnailRenderMgr::Release(manager);
  ThumbnailRenderMgr::Release(ThumbnailRenderMgr::Create());  // never started
  ThumbnailRenderMgr::Release(nullptr);
}

}  // namespace
