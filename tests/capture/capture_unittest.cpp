// The captures' inner pieces and the cases a virtual display can't show by
// itself: cursor facts, display scale, an old Windows with composition on.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "base/i420_frame.h"
#include "base/thread_start.h"
#include "capture/capture_platform.h"
#include "capture/capture_runner.h"
#include "capture/draw_cursor.h"
#include "capture/frame_scaler.h"
#include "capture/window_capture_impl.h"
#include "capture_fixture.h"
#include "roomcore/dib_image.h"

namespace capture_suite {
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
  static int bits_per_pixel;  // what BITSPIXEL tells; -1: the real value
  static std::atomic<int> asked_bits;
  static HANDLE read_out;  // signalled by each read-out
  static HWND send_to;     // the print step sends here first, when set
  static HANDLE print_go;  // and waits for this before it sends

  static BOOL WINAPI GetCursorInfo(PCURSORINFO info) {
    info->flags = cursor_showing.load() ? CURSOR_SHOWING : 0;
    info->hCursor = cursor;
    info->ptScreenPos = cursor_position;
    return TRUE;
  }
  static int WINAPI GetDeviceCaps(HDC dc, int index) {
    const int real = ::GetDeviceCaps(dc, index);
    if (index == DESKTOPHORZRES || index == DESKTOPVERTRES) return static_cast<int>(real * scale);
    if (index == BITSPIXEL && bits_per_pixel >= 0) return bits_per_pixel;
    return real;
  }
  static int WINAPI GetDIBits(HDC dc, HBITMAP bitmap, UINT start, UINT lines, LPVOID bits, LPBITMAPINFO info,
                              UINT usage) {
    asked_bits = info->bmiHeader.biBitCount;
    const int result = ::GetDIBits(dc, bitmap, start, lines, bits, info, usage);
    SetEvent(read_out);
    return result;
  }
  static BOOL WINAPI PrintWindow(HWND window, HDC target, UINT flags) {
    if (send_to) {
      SetEvent(read_out);
      WaitForSingleObject(print_go, INFINITE);
      SendMessageW(send_to, WM_NULL, 0, 0);
    }
    return ::PrintWindow(window, target, flags);
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
int FakePlatform::bits_per_pixel = -1;
std::atomic<int> FakePlatform::asked_bits{-1};
HANDLE FakePlatform::read_out = CreateEventW(nullptr, FALSE, FALSE, nullptr);
HWND FakePlatform::send_to = nullptr;
HANDLE FakePlatform::print_go = CreateEventW(nullptr, TRUE, FALSE, nullptr);

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
    FakePlatform::table.get_di_bits = &FakePlatform::GetDIBits;
    FakePlatform::table.print_window = &FakePlatform::PrintWindow;
    FakePlatform::bits_per_pixel = -1;
    FakePlatform::send_to = nullptr;
    ResetEvent(FakePlatform::print_go);
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
  Host recorder;
  capture->SetCaptureEvent(&recorder);
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(recorder.WaitFrames(1));
  capture->Stop();
  const Frame frame = recorder.Last();
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
  EXPECT_LUMA(recorder.Last(), 140, 120, kBlack);
  DisplayCapture::Release(capture);
}

TEST_F(CaptureSeamTest, AWindowOnAScaledDisplayIsGrabbedAtDeviceSize) {
  FakePlatform::scale = 1.5;
  TestWindow window(0, 0, 1000, 600);
  WindowCapture* capture = WindowCapture::Create();
  Host recorder;
  capture->SetCaptureEvent(&recorder);
  capture->SetOutputSize(1484, 886);
  capture->SelectWindow(window.hwnd());
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(recorder.WaitFrames(1));
  capture->Stop();
  WindowCapture::Release(capture);
  bool seen = false;
  const std::wstring expected = L"CaptureThread, width: 1500, height: 900, Cost: ";
  for (const auto& line : recorder.Log()) {
    seen = seen ||
           (line.first == L"WindowCaptureImpl" && line.second.compare(0, expected.size(), expected) == 0);
  }
  EXPECT_TRUE(seen);
}

TEST_F(CaptureSeamTest, BeforeWindows8CompositionIsTurnedOffOnceAndTheWindowsContextIsCopied) {
  FakePlatform::version = 4;
  FakePlatform::composition = TRUE;
  TestWindow window(60, 60, 400, 300);
  WindowCapture* capture = WindowCapture::Create();
  // The composition step comes before the run's first status.
  struct Events : Host {
    void OnCaptureStatus(int status) override {
      if (status == 2) calls_at_start = FakePlatform::enable_calls.size();
      Host::OnCaptureStatus(status);
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
  const Frame frame = recorder.Last();
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
    Host display_events;
    display->SetCaptureEvent(&display_events);
    ASSERT_TRUE(display->Start());
    DisplayCapture::Release(display);
    HANDLE thread = g_last_thread.exchange(nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, 5000), WAIT_OBJECT_0);
    CloseHandle(thread);
    EXPECT_EQ(display_events.StatusCount(2), 1u);  // the run ended before Release returned

    WindowCapture* window = WindowCapture::Create();
    Host window_events;
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

// The depth a read-out asks for is the screen's: 0 means 32 for a display
// grab and a still picture, and is taken as it comes by a window grab.
TEST_F(CaptureSeamTest, TheReadOutAsksForTheScreensDepth) {
  struct Case {
    Kind kind;
    bool still;
    int screen, asked;
  };
  const Case cases[] = {{kDisplay, false, 16, 16}, {kDisplay, false, 0, 32}, {kDisplay, true, 24, 24},
                        {kDisplay, true, 0, 32},   {kWindow, false, 16, 16}, {kWindow, false, 0, 0}};
  TestWindow window(60, 60, 300, 200);
  Host host;
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(Name(c.kind)) + (c.still ? " still " : " grab ") + std::to_string(c.screen));
    FakePlatform::bits_per_pixel = c.screen;
    FakePlatform::asked_bits = -1;
    Capture capture(c.kind);
    if (c.still) {
      DibImage* image = capture.display()->CaptureImage(capture.display()->GetDisplay(0));
      ASSERT_NE(image, nullptr);
      EXPECT_EQ(image->bitmap_info()->bmiHeader.biBitCount, c.asked);
    } else {
      capture.SetCaptureEvent(&host);
      if (c.kind == kWindow) capture.window()->SelectWindow(window.hwnd());
      ResetEvent(FakePlatform::read_out);
      ASSERT_TRUE(capture.Start());
      EXPECT_EQ(WaitForSingleObject(FakePlatform::read_out, 10000), WAIT_OBJECT_0);
    }
    EXPECT_EQ(FakePlatform::asked_bits.load(), c.asked);
    capture.Release();
  }
}

// A host thread that owns a window and waits for the capture thread while
// that thread's grab sends to the window: the wait lets the message through.
// After a Stop whose wait ran out, the waits of Start and of Release do too,
// and neither runs beside nor destroys under the old thread.
TEST_F(CaptureSeamTest, WaitsForTheCaptureThreadLetSentMessagesThrough) {
  enum Op { kStop, kRelease, kStartAfterStuck, kReleaseAfterStuck };
  TestWindow window(60, 60, 300, 200);
  HWND own = CreateWindowExW(0, L"STATIC", L"host", 0, 0, 0, 10, 10, HWND_MESSAGE, nullptr, nullptr, nullptr);
  ASSERT_NE(own, nullptr);
  for (Op op : {kStop, kRelease, kStartAfterStuck, kReleaseAfterStuck}) {
    SCOPED_TRACE(op);
    Host host;
    Capture capture(kWindow);
    capture.SetCaptureEvent(&host);
    capture.SetOutputSize(160, 90);
    capture.window()->SelectWindow(window.hwnd());
    FakePlatform::send_to = own;
    const bool stuck = op == kStartAfterStuck || op == kReleaseAfterStuck;
    stuck ? ResetEvent(FakePlatform::print_go) : SetEvent(FakePlatform::print_go);
    ResetEvent(FakePlatform::read_out);
    ASSERT_TRUE(capture.Start());
    ASSERT_EQ(WaitForSingleObject(FakePlatform::read_out, 10000), WAIT_OBJECT_0);  // inside the grab
    int64_t before = TimeMicroseconds();
    if (stuck) {
      EXPECT_TRUE(capture.Stop());
      EXPECT_GE(TimeMicroseconds() - before, 9900000);
      EXPECT_EQ(host.StatusCount(3), 0u);  // the old thread is still in its grab
      FakePlatform::send_to = nullptr;     // for the next run's grabs
      SetEvent(FakePlatform::print_go);
      before = TimeMicroseconds();
    }
    if (op == kStop) {
      EXPECT_TRUE(capture.Stop());
    }
    if (op == kRelease || op == kReleaseAfterStuck) capture.Release();
    if (op == kStartAfterStuck) {
      EXPECT_TRUE(capture.Start());
    }
    EXPECT_LT(TimeMicroseconds() - before, 5000000);
    EXPECT_EQ(host.StatusCount(3), 1u);  // the run ended before the call returned
    if (op == kStartAfterStuck) {
      ASSERT_TRUE(host.WaitStatus(2, 2));
      const auto statuses = host.Statuses();
      EXPECT_EQ(statuses[1].first, 3);  // the old run ended before the new one began
    }
    capture.Release();
  }
  FakePlatform::send_to = nullptr;
  DestroyWindow(own);
}

TEST(PictureSizes, FramesAndBitmapHeadersNeverWrap) {
  // Frames: null where the bytes pass the 32-bit size or can't be had.
  const struct { int width, height; } no_frame[] = {{65536, 43691}, {1 << 20, 1 << 20}, {-2, 4}, {4, -2}};
  for (const auto& c : no_frame) EXPECT_EQ(CreateI420Frame(c.width, c.height, false, 1), nullptr) << c.width;
  I420Frame* frame = CreateI420Frame(5, 3, false, 1);
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->size, 27u);
  FreeI420Frame(frame);
  // Headers: biSizeImage is the exact product while it fits 32 bits, else 0.
  const struct {
    int width, height;
    DWORD size;
  } headers[] = {{100, 50, 20000},
                 {65535, 16384, 4294901760u},
                 {65536, 16384, 0},
                 {65536, 16385, 0},
                 {1 << 20, 1 << 20, 0}};
  for (const auto& c : headers) {
    BITMAPINFOHEADER header;
    InitBitMapInfoHeader(c.width, c.height, true, 32, &header);
    EXPECT_EQ(header.biSizeImage, c.size) << c.width << "x" << c.height;
  }
  // An image whose pixels can't be had is empty, and nothing throws.
  BITMAPINFO info;
  InitBitMapInfo(1 << 20, 1 << 20, true, 32, &info);
  const uint8_t pixel[4] = {};
  const DibImage image(&info, pixel);
  EXPECT_EQ(image.bitmap_info(), nullptr);
  EXPECT_EQ(image.bits_data(), nullptr);
  // The fit of a scaler in 64 bits, where 32-bit products wrap.
  const struct {
    int width, height, source_width, source_height, fitted_width, fitted_height;
  } fits[] = {{1920, 1080, 1280, 1024, 1350, 1080},
              {60000, 50000, 50000, 40000, 60000, 48000},
              {50000, 60000, 40000, 50000, 48000, 60000}};
  for (const auto& c : fits) {
    const FrameScaler::Size fitted = FrameScaler::Fit(c.width, c.height, c.source_width, c.source_height, 2);
    EXPECT_EQ(fitted.width, c.fitted_width) << c.width;
    EXPECT_EQ(fitted.height, c.fitted_height) << c.width;
  }
}

// The grab buffer of a size past 32 bits isn't made; the pass logs it once.
TEST(PictureSizes, TheGrabBufferIsSizedIn64Bits) {
  struct NoClient : capture::CaptureClient {
    void BeginRun() override {}
    void Pass() override {}
    void EndRun() override {}
    bool HasEvent() override { return false; }
    void SendFrame(const uint8_t*, uint32_t, int, int, int64_t) override {}
    void DestroyOwner() override {}
  } client;
  Host host;
  capture::CaptureRunner runner(&client, L"DisplayCaptureImpl");
  HDC screen = GetDC(nullptr);
  capture::MemoryPicture picture(screen, 4, 4);
  for (int i = 0; i < 4; ++i) {
    const int width = i < 2 ? 65536 : 1 << 20, height = i < 2 ? 16385 : 1 << 20;
    EXPECT_EQ(runner.ReadOut(picture.dc(), picture.bitmap(), width, height, 32), nullptr);
  }
  EXPECT_NE(runner.ReadOut(picture.dc(), picture.bitmap(), 4, 4, 32), nullptr);
  ReleaseDC(nullptr, screen);
  EXPECT_EQ(host.LogCount(L"CaptureThread, no grab buffer of width: 65536, height: 16385"), 1u);
  EXPECT_EQ(host.LogCount(L"CaptureThread, no grab buffer of width: 1048576, height: 1048576"), 1u);
}

}  // namespace
}  // namespace capture_suite
