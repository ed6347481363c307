// The captures' inner pieces and the cases a virtual display can't show by
// itself: cursor facts, display scale, an old Windows with composition on.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "base/thread_start.h"
#include "capture/capture_platform.h"
#include "capture/capture_runner.h"
#include "capture/draw_cursor.h"
#include "capture/window_capture_impl.h"
#include "capture_test_support.h"
#include "common/log_capture.h"

namespace capture_test {
namespace {

// The platform table the tests steer; each field starts as the real call.
struct FakePlatform {
  static capture::CapturePlatform table;
  static std::atomic<bool> cursor_showing;
  static POINT cursor_position;
  static HCURSOR cursor;
  static double scale;  // device pixels per logical pixel
  static int version;
  static BOOL composition;
  static std::vector<UINT> enable_calls;

  static BOOL WINAPI GetCursorInfo(PCURSORINFO info) {
    info->flags = cursor_showing.load() ? CURSOR_SHOWING : 0;
    info->hCursor = cursor;
    info->ptScreenPos = cursor_position;
    return TRUE;
  }
  static int WINAPI GetDeviceCaps(HDC dc, int index) {
    const int real = ::GetDeviceCaps(dc, index);
    if (index == DESKTOPHORZRES || index == DESKTOPVERTRES) return static_cast<int>(real * scale);
    return real;
  }
  static int WindowsVersion() { return version; }
  static HRESULT WINAPI DwmIsCompositionEnabled(BOOL* enabled) {
    *enabled = composition;
    return S_OK;
  }
  static HRESULT WINAPI DwmEnableComposition(UINT action) {
    enable_calls.push_back(action);
    return S_OK;
  }
  static capture::DwmEnableCompositionFunction FindDwmEnableComposition() { return &DwmEnableComposition; }
};

capture::CapturePlatform FakePlatform::table = {};
std::atomic<bool> FakePlatform::cursor_showing{true};
POINT FakePlatform::cursor_position = {};
HCURSOR FakePlatform::cursor = nullptr;
double FakePlatform::scale = 1.0;
int FakePlatform::version = 7;
BOOL FakePlatform::composition = FALSE;
std::vector<UINT> FakePlatform::enable_calls;

// A white 32 x 32 cursor with its hotspot in the top left corner: where it
// is drawn shows exactly.
HCURSOR WhiteSquareCursor() {
  std::vector<BYTE> and_plane(32 * 4, 0x00);
  std::vector<BYTE> xor_plane(32 * 4, 0xFF);
  return CreateCursor(GetModuleHandleW(nullptr), 0, 0, 32, 32, and_plane.data(), xor_plane.data());
}

class CaptureSeamTest : public ::testing::Test {
 protected:
  void SetUp() override {
    FakePlatform::table = capture::Platform();
    FakePlatform::cursor = WhiteSquareCursor();
    ASSERT_NE(FakePlatform::cursor, nullptr);
    FakePlatform::cursor_showing = true;
    FakePlatform::cursor_position = {0, 0};
    FakePlatform::scale = 1.0;
    FakePlatform::version = 7;
    FakePlatform::composition = FALSE;
    FakePlatform::enable_calls.clear();
    FakePlatform::table.get_cursor_info = &FakePlatform::GetCursorInfo;
    FakePlatform::table.get_device_caps = &FakePlatform::GetDeviceCaps;
    FakePlatform::table.windows_version = &FakePlatform::WindowsVersion;
    FakePlatform::table.dwm_is_composition_enabled = &FakePlatform::DwmIsCompositionEnabled;
    FakePlatform::table.find_dwm_enable_composition = &FakePlatform::FindDwmEnableComposition;
    capture::SetCapturePlatformForTesting(&FakePlatform::table);
  }
  void TearDown() override {
    capture::SetCapturePlatformForTesting(nullptr);
    DestroyCursor(FakePlatform::cursor);
  }
};

// A black memory picture to draw a cursor into.
class BlackPicture {
 public:
  BlackPicture(int width, int height) : screen_(GetDC(nullptr)), picture_(screen_, width, height) {
    RECT all = {0, 0, width, height};
    FillRect(picture_.dc(), &all, static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH)));
  }
  ~BlackPicture() { ReleaseDC(nullptr, screen_); }
  HDC dc() const { return picture_.dc(); }
  bool White(int x, int y) const { return (GetPixel(picture_.dc(), x, y) & 0xFFFFFF) == 0xFFFFFF; }

 private:
  HDC screen_;
  capture::MemoryPicture picture_;
};

TEST(CapturePacing, ThePeriodIsTheRoundedReciprocalOfTheRate) {
  EXPECT_EQ(capture::PeriodMicroseconds(12), 83333);
  EXPECT_EQ(capture::PeriodMicroseconds(30), 33333);
  EXPECT_EQ(capture::PeriodMicroseconds(15), 66667);
  EXPECT_EQ(capture::PeriodMicroseconds(0), 83333);  // no rate: the default
}

TEST(WindowTrim, SixteenColumnsAndFourteenLinesOffThenEven) {
  EXPECT_EQ(capture::TrimmedWidth(1280), 1264);
  EXPECT_EQ(capture::TrimmedHeight(720), 706);
  EXPECT_EQ(capture::TrimmedWidth(1001), 984);
  EXPECT_EQ(capture::TrimmedHeight(701), 686);
  EXPECT_EQ(capture::TrimmedWidth(1500), 1484);
  EXPECT_EQ(capture::TrimmedHeight(900), 886);
  EXPECT_LE(capture::TrimmedWidth(16), 0);
  EXPECT_LE(capture::TrimmedHeight(10), 0);
}

TEST_F(CaptureSeamTest, TheCursorIsPlacedByTheScaleAndDrawnAtItsOwnSize) {
  BlackPicture picture(400, 300);
  // 100 units right of the monitor's left edge on a display scaled 1.25.
  FakePlatform::cursor_position = {100, 40};
  capture::DrawCursor(GetDesktopWindow(), picture.dc(), RECT{0, 0, 320, 240}, 1.25, 1.25);
  EXPECT_TRUE(picture.White(125, 50));
  EXPECT_FALSE(picture.White(124, 50));
  EXPECT_FALSE(picture.White(125, 49));
  EXPECT_TRUE(picture.White(125 + 31, 50 + 31));  // not scaled: 32 pixels
  EXPECT_FALSE(picture.White(125 + 32, 50));
}

TEST_F(CaptureSeamTest, TheCursorIsPlacedRelativeToTheWindowAndTheRectangle) {
  TestWindow window(200, 100, 300, 200);
  BlackPicture picture(300, 200);
  FakePlatform::cursor_position = {260, 130};
  capture::DrawCursor(window.hwnd(), picture.dc(), RECT{10, 5, 0, 0}, 1.0, 1.0);
  EXPECT_TRUE(picture.White(50, 25));
  EXPECT_FALSE(picture.White(49, 25));
  EXPECT_FALSE(picture.White(50, 24));
}

TEST_F(CaptureSeamTest, AHiddenCursorIsNotDrawn) {
  BlackPicture picture(200, 200);
  FakePlatform::cursor_showing = false;
  FakePlatform::cursor_position = {10, 10};
  capture::DrawCursor(GetDesktopWindow(), picture.dc(), RECT{0, 0, 200, 200}, 1.0, 1.0);
  EXPECT_FALSE(picture.White(20, 20));
}

TEST_F(CaptureSeamTest, DisplayRecordsTellDevicePixelsAndTheGrabPlacesTheCursorByTheirScale) {
  FakePlatform::scale = 1.25;
  DisplayCapture* capture = DisplayCapture::Create();
  const DisplayInfo* display = capture->GetDisplay(0);
  ASSERT_NE(display, nullptr);
  const int logical_width = display->monitor_rect.right - display->monitor_rect.left;
  EXPECT_EQ(display->width, static_cast<int>(logical_width * 1.25));

  // A display of 1000 device pixels across on 800 logical ones, over a black
  // screen, with the cursor 100 units right of its left edge.
  TestWindow cover(0, 0, 1280, 1024, true);
  cover.Fill(kBlack);
  DisplayInfo scaled;
  scaled.width = 1000;
  scaled.height = 750;
  scaled.monitor_rect = {0, 0, 800, 600};
  capture->SelectDisplay(&scaled);
  capture->SetOutputSize(1000, 750);
  FakePlatform::cursor_position = {100, 80};
  DisplayRecorder recorder;
  capture->SetCaptureEvent(&recorder);
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(recorder.WaitFrames(1));
  capture->Stop();
  const Frame frame = recorder.LastFrame();
  EXPECT_LUMA(frame, 125, 100, kWhite);
  EXPECT_LUMA(frame, 140, 120, kWhite);
  EXPECT_LUMA(frame, 121, 110, kBlack);
  EXPECT_LUMA(frame, 135, 96, kBlack);

  // Without the cursor the same place stays black.
  recorder.Clear();
  capture->SetDrawCursor(false);
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(recorder.WaitFrames(1));
  capture->Stop();
  EXPECT_LUMA(recorder.LastFrame(), 140, 120, kBlack);
  DisplayCapture::Release(capture);
}

TEST_F(CaptureSeamTest, AWindowOnAScaledDisplayIsGrabbedAtDeviceSize) {
  FakePlatform::scale = 1.5;
  testing_support::LogCapture log;
  TestWindow window(0, 0, 1000, 600);
  WindowCapture* capture = WindowCapture::Create();
  WindowRecorder recorder;
  capture->SetCaptureEvent(&recorder);
  capture->SetOutputSize(1484, 886);
  capture->SelectWindow(window.hwnd());
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(recorder.WaitFrames(1));
  capture->Stop();
  WindowCapture::Release(capture);
  bool seen = false;
  const std::wstring expected = L"CaptureThread, width: 1500, height: 900, Cost: ";
  for (const std::wstring& line : log.Messages(L"WindowCaptureImpl")) {
    seen = seen || line.compare(0, expected.size(), expected) == 0;
  }
  EXPECT_TRUE(seen);
}

TEST_F(CaptureSeamTest, BeforeWindows8CompositionIsTurnedOffOnceAndTheWindowsContextIsCopied) {
  FakePlatform::version = 4;
  FakePlatform::composition = TRUE;
  TestWindow window(60, 60, 400, 300);
  WindowCapture* capture = WindowCapture::Create();
  // The composition step comes before the run's first status.
  struct Events : WindowRecorder {
    void OnCaptureStatus(int status) override {
      if (status == 2) calls_at_start = FakePlatform::enable_calls.size();
      WindowRecorder::OnCaptureStatus(status);
    }
    size_t calls_at_start = 99;
  } recorder;
  capture->SetCaptureEvent(&recorder);
  capture->SetOutputSize(384, 286);
  capture->SelectWindow(window.hwnd());
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(recorder.WaitFrames(2));
  capture->Stop();
  EXPECT_EQ(recorder.calls_at_start, 1u);
  ASSERT_EQ(FakePlatform::enable_calls.size(), 1u);
  EXPECT_EQ(FakePlatform::enable_calls[0], 0u);
  // Copied from the window's own context: the pattern shows.
  const Frame frame = recorder.LastFrame();
  EXPECT_LUMA(frame, 0, 50, kMagenta);
  EXPECT_LUMA(frame, 50, 50, kRed);
  EXPECT_LUMA(frame, 300, 250, kWhite);

  // From Windows 8 on composition is left alone.
  FakePlatform::version = 5;
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(recorder.WaitStatus(2, 2));
  capture->Stop();
  EXPECT_EQ(FakePlatform::enable_calls.size(), 1u);
  WindowCapture::Release(capture);
}

HANDLE WINAPI RefuseThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

std::atomic<HANDLE> g_last_thread{nullptr};
HANDLE WINAPI KeepThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE routine,
                         LPVOID param, DWORD flags, LPDWORD id) {
  HANDLE thread = CreateThread(attributes, stack, routine, param, flags, id);
  HANDLE copy = nullptr;
  DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &copy, SYNCHRONIZE, FALSE, 0);
  g_last_thread.store(copy);
  return thread;
}

TEST(CaptureThreads, ARefusedThreadLeavesTheCaptureIdleAndStartableAgain) {
  WindowCapture* capture = WindowCapture::Create();
  base::SetThreadStarterForTesting(&RefuseThread);
  EXPECT_FALSE(capture->Start());
  EXPECT_FALSE(capture->IsCapturing());
  base::SetThreadStarterForTesting(nullptr);
  EXPECT_TRUE(capture->Start());
  EXPECT_TRUE(capture->IsCapturing());
  WindowCapture::Release(capture);
}

TEST(CaptureThreads, ReleaseRightAfterStartLeavesNoThreadBehind) {
  base::SetThreadStarterForTesting(&KeepThread);
  for (int i = 0; i < 20; ++i) {
    DisplayCapture* display = DisplayCapture::Create();
    DisplayRecorder display_events;
    display->SetCaptureEvent(&display_events);
    ASSERT_TRUE(display->Start());
    DisplayCapture::Release(display);
    HANDLE thread = g_last_thread.exchange(nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, 5000), WAIT_OBJECT_0);
    CloseHandle(thread);
    EXPECT_EQ(display_events.StatusCount(2), 1u);  // the run ended before Release returned

    WindowCapture* window = WindowCapture::Create();
    WindowRecorder window_events;
    window->SetCaptureEvent(&window_events);
    ASSERT_TRUE(window->Start());
    WindowCapture::Release(window);
    thread = g_last_thread.exchange(nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, 5000), WAIT_OBJECT_0);
    CloseHandle(thread);
    EXPECT_EQ(window_events.StatusCount(3), 1u);
  }
  base::SetThreadStarterForTesting(nullptr);
}

}  // namespace
}  // namespace capture_test
