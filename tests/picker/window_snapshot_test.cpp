// Snapshots of real windows as a host takes them: title, process, icon and
// picture, and the pictures saved and read back by the system's own reader.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "roomcore/dib_image.h"
#include "roomcore/picker.h"
#include "tests/picker/test_windows.h"

namespace {

using picker_testing::kQuadrantColors;
using picker_testing::SolidIcon;
using picker_testing::TestWindow;
using picker_testing::WindowOptions;

struct SnapshotDeleter {
  void operator()(WindowSnapshot* snapshot) const { WindowSnapshot::Release(snapshot); }
};
using Snapshot = std::unique_ptr<WindowSnapshot, SnapshotDeleter>;

Snapshot Take(HWND window) { return Snapshot(WindowSnapshot::Create(window)); }

// The colour at (x, y) of a top-down 32-bit picture, as a COLORREF.
COLORREF PixelAt(const DibImage* image, int x, int y) {
  const uint8_t* p =
      image->bits_data() + (static_cast<size_t>(y) * image->bitmap_info()->bmiHeader.biWidth + x) * 4;
  return RGB(p[2], p[1], p[0]);
}

// Owns the icons of one test.
struct Icons {
  HICON red = SolidIcon(32, RGB(255, 0, 0));
  HICON blue = SolidIcon(32, RGB(0, 0, 255));
  HICON green_small = SolidIcon(16, RGB(0, 255, 0));
  ~Icons() {
    DestroyIcon(red);
    DestroyIcon(blue);
    DestroyIcon(green_small);
  }
};

void ExpectSolidIcon(DibImage* icon, int size, COLORREF color) {
  ASSERT_NE(icon, nullptr);
  const BITMAPINFOHEADER& header = icon->bitmap_info()->bmiHeader;
  EXPECT_EQ(header.biWidth, size);
  EXPECT_EQ(header.biHeight, -size);
  EXPECT_EQ(header.biSizeImage, static_cast<DWORD>(size * size * 4));
  ASSERT_EQ(header.biBitCount, 32);  // the test display's depth
  EXPECT_EQ(PixelAt(icon, 0, 0), color);
  EXPECT_EQ(PixelAt(icon, size - 1, size - 1), color);
}

TEST(WindowSnapshot, ReadsTitleAndProcessAtCreation) {
  const std::wstring long_title(600, L'T');
  WindowOptions options;
  options.title = long_title;
  TestWindow window(options);
  Snapshot snapshot = Take(window.hwnd());
  EXPECT_EQ(snapshot->GetWindow(), window.hwnd());
  // Read with room for 511 characters and the end mark: 510 of them arrive.
  EXPECT_EQ(snapshot->GetTitle(), long_title.substr(0, 510));
  EXPECT_EQ(snapshot->GetProcessId(), GetCurrentProcessId());
  EXPECT_EQ(_wcsicmp(snapshot->GetProcessName().c_str(), L"picker_tests.exe"), 0)
      << snapshot->GetProcessName();

  // Nothing refreshes them.
  SetWindowTextW(window.hwnd(), L"renamed");
  EXPECT_EQ(snapshot->GetTitle(), long_title.substr(0, 510));
}

TEST(WindowSnapshot, TakesTheIconTheWindowAnswersBeforeTheClassIcon) {
  Icons icons;
  WindowOptions answers;
  answers.class_icon = icons.blue;
  answers.big_answer = icons.red;
  TestWindow answering(answers);
  Snapshot snapshot = Take(answering.hwnd());
  ExpectSolidIcon(snapshot->GetIcon(), 32, RGB(255, 0, 0));
  EXPECT_EQ(answering.icon_requests(), std::vector<WPARAM>{ICON_BIG});

  // Silent window with a class icon: one message, then the class.
  WindowOptions silent;
  silent.class_icon = icons.blue;
  TestWindow class_only(silent);
  snapshot = Take(class_only.hwnd());
  ExpectSolidIcon(snapshot->GetIcon(), 32, RGB(0, 0, 255));
  EXPECT_EQ(class_only.icon_requests(), std::vector<WPARAM>{ICON_BIG});

  // Only a small icon, from the window itself or from its class.
  WindowOptions small_answer;
  small_answer.small2_answer = icons.green_small;
  TestWindow small_window(small_answer);
  snapshot = Take(small_window.hwnd());
  ExpectSolidIcon(snapshot->GetIcon(), 16, RGB(0, 255, 0));
  EXPECT_EQ(small_window.icon_requests(), (std::vector<WPARAM>{ICON_BIG, ICON_SMALL2}));

  WindowOptions small_class;
  small_class.class_small_icon = icons.green_small;
  TestWindow small_class_window(small_class);
  snapshot = Take(small_class_window.hwnd());
  ExpectSolidIcon(snapshot->GetIcon(), 16, RGB(0, 255, 0));
}

TEST(WindowSnapshot, AWindowWithoutAnyIconGivesNullAfterBothMessages) {
  TestWindow bare{WindowOptions()};
  Snapshot snapshot = Take(bare.hwnd());
  EXPECT_EQ(snapshot->GetIcon(), nullptr);
  EXPECT_EQ(bare.icon_requests(), (std::vector<WPARAM>{ICON_BIG, ICON_SMALL2}));
}

TEST(WindowSnapshot, PictureIsTheWholeWindowTopDownWithItsContent) {
  WindowOptions options;
  options.style = WS_POPUP | WS_VISIBLE;  // no frame: the window is its client area
  options.width = 300;
  options.height = 200;
  TestWindow window(options);
  Snapshot snapshot = Take(window.hwnd());
  DibImage* picture = snapshot->GetPicture();
  ASSERT_NE(picture, nullptr);
  const BITMAPINFOHEADER& header = picture->bitmap_info()->bmiHeader;
  EXPECT_EQ(header.biWidth, 300);
  EXPECT_EQ(header.biHeight, -200);
  EXPECT_EQ(header.biBitCount, 32);
  EXPECT_EQ(header.biSizeImage, 300u * 200u * 4u);
  EXPECT_EQ(PixelAt(picture, 75, 50), kQuadrantColors[0]);
  EXPECT_EQ(PixelAt(picture, 225, 50), kQuadrantColors[1]);
  EXPECT_EQ(PixelAt(picture, 75, 150), kQuadrantColors[2]);
  EXPECT_EQ(PixelAt(picture, 225, 150), kQuadrantColors[3]);

  // Each request takes the window afresh, at its new size.
  SetWindowPos(window.hwnd(), nullptr, 0, 0, 120, 80, SWP_NOMOVE | SWP_NOZORDER);
  picture = snapshot->GetPicture();
  ASSERT_NE(picture, nullptr);
  EXPECT_EQ(picture->bitmap_info()->bmiHeader.biWidth, 120);
  EXPECT_EQ(picture->bitmap_info()->bmiHeader.biHeight, -80);
}

// 2^32 bytes and more: counted in 32 bits, the size would wrap to 0, and the
// read-out would write the whole window into an empty buffer.
TEST(WindowSnapshot, AWindowLargerThanAnyPictureGivesNone) {
  for (SIZE size : {SIZE{65536, 16384}, SIZE{1 << 30, 2}}) {
    WindowOptions options;
    options.style = WS_POPUP;  // hidden: nothing to show on the screen
    options.x = options.y = 0;
    options.width = size.cx;
    options.height = size.cy;
    TestWindow window(options);
    RECT rect = {};
    ASSERT_TRUE(GetWindowRect(window.hwnd(), &rect));
    ASSERT_EQ(rect.right - rect.left, size.cx) << "the platform made it smaller";
    ASSERT_EQ(rect.bottom - rect.top, size.cy);
    EXPECT_EQ(Take(window.hwnd())->GetPicture(), nullptr) << size.cx << "x" << size.cy;
  }
}

TEST(WindowSnapshot, AWindowThatHasGoneGivesNothing) {
  Icons icons;
  WindowOptions options;
  options.class_icon = icons.blue;
  auto window = std::make_unique<TestWindow>(options);
  const HWND gone = window->hwnd();
  window.reset();
  Snapshot snapshot = Take(gone);
  EXPECT_EQ(snapshot->GetTitle(), L"");
  EXPECT_EQ(snapshot->GetProcessName(), L"");
  EXPECT_EQ(snapshot->GetProcessId(), 0u);
  EXPECT_EQ(snapshot->GetIcon(), nullptr);
  EXPECT_EQ(snapshot->GetPicture(), nullptr);

  Snapshot null_window = Take(nullptr);
  EXPECT_EQ(null_window->GetIcon(), nullptr);
  EXPECT_EQ(null_window->GetPicture(), nullptr);
  WindowSnapshot::Release(nullptr);
}

// The file `path` as the system's bitmap reader loads it, compared pixel by
// pixel with `image`.
void ExpectFileShows(const std::wstring& path, const DibImage& image) {
  HBITMAP loaded = static_cast<HBITMAP>(
      LoadImageW(nullptr, path.c_str(), IMAGE_BITMAP, 0, 0, LR_LOADFROMFILE | LR_CREATEDIBSECTION));
  ASSERT_NE(loaded, nullptr) << "unreadable: " << std::string(path.begin(), path.end());
  DIBSECTION section = {};
  ASSERT_EQ(GetObjectW(loaded, sizeof(section), &section), static_cast<int>(sizeof(section)));
  const BITMAPINFOHEADER& header = image.bitmap_info()->bmiHeader;
  const int width = header.biWidth, height = -header.biHeight;
  EXPECT_EQ(section.dsBm.bmWidth, width);
  EXPECT_EQ(section.dsBm.bmHeight, height);
  ASSERT_EQ(section.dsBm.bmBitsPixel, 32);
  int wrong = 0;
  const auto* file_bits = static_cast<const uint8_t*>(section.dsBm.bmBits);
  for (int y = 0; y < height && section.dsBm.bmWidth == width; ++y) {
    // A bottom-up section: its first line is the picture's last.
    const uint8_t* file_line = file_bits + static_cast<size_t>(height - 1 - y) * section.dsBm.bmWidthBytes;
    const uint8_t* line = image.bits_data() + static_cast<size_t>(y) * width * 4;
    for (int x = 0; x < width; ++x) {
      if (std::memcmp(file_line + x * 4, line + x * 4, 3) != 0) ++wrong;
    }
  }
  EXPECT_EQ(wrong, 0) << "of " << width * height << " pixels";
  DeleteObject(loaded);
}

TEST(WindowSnapshot, EveryListedWindowSavesPictureAndIconThatReadBack) {
  Icons icons;
  WindowOptions options;
  options.title = L"picker saved window";
  options.style = WS_POPUP | WS_VISIBLE | WS_MINIMIZEBOX;
  options.width = 160;
  options.height = 90;
  options.big_answer = icons.red;
  TestWindow window(options);

  wchar_t temp[MAX_PATH];
  GetTempPathW(MAX_PATH, temp);
  const std::wstring prefix =
      std::wstring(temp) + L"roomcore_picker_" + std::to_wstring(GetCurrentProcessId());

  TopWindowEnum* windows = TopWindowEnum::Create();
  const int count = windows->EnumerateWindows();
  bool saw_ours = false;
  for (int i = 0; i < count; ++i) {
    const HWND listed = windows->GetWindowAt(i);
    Snapshot snapshot = Take(listed);
    DibImage* picture = snapshot->GetPicture();
    DibImage* icon = snapshot->GetIcon();
    if (listed == window.hwnd()) {
      saw_ours = true;
      ASSERT_NE(picture, nullptr);
      ASSERT_NE(icon, nullptr);
      EXPECT_EQ(PixelAt(picture, 10, 10), kQuadrantColors[0]);
      EXPECT_EQ(PixelAt(picture, 150, 80), kQuadrantColors[3]);
    }
    const std::wstring base = prefix + L"_" + std::to_wstring(i);
    for (const auto& [image, path] :
         {std::make_pair(picture, base + L"_picture.bmp"), std::make_pair(icon, base + L"_icon.bmp")}) {
      if (!image) continue;
      ASSERT_TRUE(image->Save(path));
      ExpectFileShows(path, *image);
      DeleteFileW(path.c_str());
    }
  }
  EXPECT_TRUE(saw_ours);
  TopWindowEnum::Release(windows);
}

}  // namespace
