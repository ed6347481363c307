// The captures' inner pieces, and through the platform table what a virtual
// display can't show: cursor, scale, depth, an old Windows, a grab that sends.
#include <cwchar>

#include "base/i420_frame.h"
#include "base/thread_start.h"
#include "capture/capture_platform.h"
#include "capture/capture_runner.h"
#include "capture/draw_cursor.h"
#include "capture/window_capture_impl.h"
#include "capture_fixture.h"

namespace capture_suite {
namespace {

// The platform while it lives; the cursor a white 32 x 32 square, hotspot top left.
struct FakePlatform {
  explicit FakePlatform(Host* h = nullptr) : host(h) {
    std::vector<BYTE> and_plane(128, 0x00), xor_plane(128, 0xFF);
    cursor = CreateCursor(GetModuleHandleW(nullptr), 0, 0, 32, 32, and_plane.data(), xor_plane.data());
    capture::SetCapturePlatformForTesting(&(self = this)->table);
  }
  ~FakePlatform() {
    capture::SetCapturePlatformForTesting(nullptr);
    DestroyCursor(cursor), CloseHandle(read_out), CloseHandle(print_go);
  }
  static BOOL WINAPI CursorInfo(PCURSORINFO info) {
    info->flags = self->cursor_showing ? CURSOR_SHOWING : 0, info->hCursor = self->cursor;
    return info->ptScreenPos = self->cursor_at, TRUE;
  }
  static int WINAPI DeviceCaps(HDC dc, int index) {
    const int real = GetDeviceCaps(dc, index);
    if (index == DESKTOPHORZRES || index == DESKTOPVERTRES) return static_cast<int>(real * self->scale);
    return index == BITSPIXEL && self->bits_per_pixel >= 0 ? self->bits_per_pixel : real;
  }
  static HRESULT WINAPI CompositionEnabled(BOOL* enabled) { return *enabled = self->composition, S_OK; }
  static HRESULT WINAPI EnableComposition(UINT action) {
    self->statuses_at_enable = self->host->Now().statuses.size();
    return self->enable_calls.push_back(action), S_OK;
  }
  static int WINAPI DIBits(HDC dc, HBITMAP bitmap, UINT start, UINT lines, LPVOID bits, LPBITMAPINFO info,
                           UINT use) {
    self->asked_bits = info->bmiHeader.biBitCount;
    const int result = GetDIBits(dc, bitmap, start, lines, bits, info, use);
    return SetEvent(self->read_out), result;
  }
  static BOOL WINAPI Print(HWND window, HDC target, UINT flags) {  // tells, waits for `print_go`, sends
    if (HWND to = self->send_to.exchange(nullptr))
      SetEvent(self->read_out), WaitForSingleObject(self->print_go, INFINITE),
          SendMessageW(to, WM_NULL, 0, 0);
    return PrintWindow(window, target, flags);
  }
  static FakePlatform* self;
  static int Version() { return self->version; }
  static capture::DwmEnableCompositionFunction FindEnable() { return &EnableComposition; }
  capture::CapturePlatform table{&CursorInfo, &DeviceCaps, &Version, &CompositionEnabled,
                                 &FindEnable, &DIBits,     &Print};
  Host* host;
  HCURSOR cursor;
  bool cursor_showing = true;
  POINT cursor_at = {0, 0};
  double scale = 1.0;  // device pixels per logical pixel
  int version = 7, bits_per_pixel = -1;
  BOOL composition = FALSE;
  size_t statuses_at_enable = 99;
  std::vector<UINT> enable_calls;
  std::atomic<int> asked_bits{-1};
  HANDLE read_out = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::atomic<HWND> send_to{nullptr};
  HANDLE print_go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};
FakePlatform* FakePlatform::self = nullptr;
// Periods and trims; no frame, header size, fit or grab buffer wraps past 4 GiB.
TEST_F(CaptureTest, PeriodsTrimsAndSizesThatNeverWrap) {
  const int periods[][2] = {{12, 83333}, {30, 33333}, {15, 66667}, {0, 83333}, {-5, 83333}};
  for (const auto& p : periods) EXPECT_EQ(capture::PeriodMicroseconds(p[0]), p[1]) << p[0];
  const int trims[][4] = {
      {1280, 720, 1264, 706}, {1001, 701, 984, 686}, {1500, 900, 1484, 886}, {16, 14, 0, 0}};
  for (const auto& t : trims)
    EXPECT_TRUE(capture::TrimmedWidth(t[0]) == t[2] && capture::TrimmedHeight(t[1]) == t[3]) << t[0];
  const int no_frame[][2] = {{65536, 43691}, {1 << 20, 1 << 20}, {-2, 4}, {4, -2}};
  for (const auto& c : no_frame) EXPECT_EQ(CreateI420Frame(c[0], c[1], false, 1), nullptr) << c[0];
  const int64_t headers[][3] = {{65535, 16384, 4294901760}, {65536, 16384, 0}, {1 << 20, 1 << 20, 0}};
  BITMAPINFOHEADER header;
  for (const auto& c : headers)
    EXPECT_EQ((InitBitMapInfoHeader(int(c[0]), int(c[1]), true, 32, &header), header.biSizeImage), c[2])
        << c[0];
  BITMAPINFO info;
  InitBitMapInfo(1 << 20, 1 << 20, true, 32, &info);
  const uint8_t pixel[4] = {};
  EXPECT_EQ(DibImage(&info, pixel).bits_data(), nullptr);
  const int fits[][6] = {{1920, 1080, 1280, 1024, 1350, 1080},
                         {60000, 50000, 50000, 40000, 60000, 48000},
                         {50000, 60000, 40000, 50000, 48000, 60000}};
  for (const auto& f : fits)
    EXPECT_TRUE(FrameScaler::Fit(f[0], f[1], f[2], f[3], 2).width == f[4] &&
                FrameScaler::Fit(f[0], f[1], f[2], f[3], 2).height == f[5])
        << f[0];
  struct : capture::CaptureClient {
    void BeginRun() override {}
    void Pass() override {}
    void EndRun() override {}
    bool HasEvent() override { return false; }
    void SendFrame(const uint8_t*, uint32_t, int, int, int64_t) override {}
    void DestroyOwner() override {}
  } client;
  capture::CaptureRunner runner(&client, L"DisplayCaptureImpl");
  HDC screen = GetDC(nullptr);
  capture::MemoryPicture picture(screen, 4, 4);
  for (int i = 0; i < 4; ++i)  // a size logs once
    EXPECT_EQ(
        runner.ReadOut(picture.dc(), picture.bitmap(), i < 2 ? 65536 : 1 << 20, i < 2 ? 16385 : 1 << 20, 32),
        nullptr);
  EXPECT_NE(runner.ReadOut(picture.dc(), picture.bitmap(), 4, 4, 32), nullptr);
  ReleaseDC(nullptr, screen);
  EXPECT_EQ(host_.Now().Lines(L"CaptureThread, no grab buffer of width: 65536, height: 16385"), 1u);
  EXPECT_EQ(host_.Now().Lines(L"CaptureThread, no grab buffer of width: 1048576, height: 1048576"), 1u);
}
// Placed by the scale from the window's corner plus the rectangle's, at its own size; not while hidden.
TEST_F(CaptureTest, TheCursorIsPlacedByScaleWindowAndRectangle) {
  FakePlatform fake;
  TestWindow window(200, 100, 300, 200);
  const int cases[][9] = {// in the window?, rectangle's corner, cursor, scale in %, showing, drawn at
                          {0, 0, 0, 100, 40, 125, 1, 125, 50},
                          {1, 10, 5, 260, 130, 100, 1, 50, 25},
                          {0, 0, 0, 10, 10, 100, 0, 10, 10}};
  HDC screen = GetDC(nullptr);
  for (const auto& c : cases) {
    capture::MemoryPicture picture(screen, 400, 300);
    RECT all = {0, 0, 400, 300};
    FillRect(picture.dc(), &all, static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH)));
    fake.cursor_at = {c[3], c[4]}, fake.cursor_showing = c[6];
    capture::DrawCursor(c[0] ? window.hwnd() : GetDesktopWindow(), picture.dc(), {c[1], c[2], 400, 300},
                        c[5] / 100.0, c[5] / 100.0);
    auto white = [&](int x, int y) { return (GetPixel(picture.dc(), x, y) & 0xFFFFFF) == 0xFFFFFF; };
    const int x = c[7], y = c[8];
    EXPECT_EQ(white(x, y) && white(x + 31, y + 31), c[6] == 1) << x;
    EXPECT_FALSE(white(x - 1, y) || white(x, y - 1) || white(x + 32, y) || white(x, y + 32)) << x;
  }
  ReleaseDC(nullptr, screen);
}
// A fresh capture: 1920 x 1080 frames, 12 a second (also after the window capture's SetFrameRate(0)), the
// cursor drawn. The display's 1280 x 1024 is fitted 1.0547 times at column 285; the window's cursor goes
// into the untrimmed picture: 100, 50 from its corner is 92, 43 of 384 x 286, fitted 3.776 times at 235.
TEST_F(CaptureTest, AFreshCaptureHasTheDefaults) {
  FakePlatform fake;
  TestWindow cover(0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN), true),
      window(0, 0, 400, 300);
  cover.Fill(kBlack), window.Fill(kBlack);
  const int cases[][8] = {// kind, rate (1: not set), cursor, a spot inside it and one just outside
                          {kDisplay, 1, 100, 80, 285 + 116 * 1080 / 1024, 96 * 1080 / 1024,
                           285 + 96 * 1080 / 1024, 70 * 1080 / 1024},
                          {kWindow, 1, 100, 50, 593, 173, 235 + 128 * 3776 / 1000, 78 * 3776 / 1000},
                          {kWindow, 0, 100, 50, 593, 173, 235 + 128 * 3776 / 1000, 78 * 3776 / 1000}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c[0]) + std::to_string(c[1]));
    host_.Clear();
    Capture capture(static_cast<Kind>(c[0]));
    capture.Do([&](auto* object) { object->SetCaptureEvent(&host_); });
    if (c[1] < 1) capture.window->SetFrameRate(c[1]);
    if (c[0] == kWindow) capture.window->SelectWindow(window.hwnd());
    fake.cursor_at = {c[2], c[3]};
    ASSERT_TRUE(capture.Start());
    ASSERT_TRUE(host_.Frames(8));
    capture.Release();
    const Record record = host_.Now();
    EXPECT_TRUE(record.frames.back().width == 1920 && record.frames.back().height == 1080);
    EXPECT_LUMA(record.frames.back(), c[4], c[5], kWhite);
    EXPECT_LUMA(record.frames.back(), c[6], c[7], kBlack);
    // A pass begins a period after the last, or as that one ends if later, within 20 ms; a frame precedes
    // its pass's log line, which tells the pass's cost in ms.
    std::vector<int64_t> cost;
    for (const auto& line : record.log)
      cost.push_back(1000 *
                     (std::wcstoll(line.second.c_str() + line.second.find(L"Cost: ") + 6, nullptr, 10) + 2));
    ASSERT_GE(cost.size(), 8u);
    int64_t most = cost[7];
    for (int k = 2; k < 7; ++k) most += std::max<int64_t>(83333, cost[k]) + 20000;
    const int64_t span = record.frames[7].timestamp - record.frames[2].timestamp;
    EXPECT_TRUE(span >= 5 * 83333 - cost[2] && span <= most) << span << " " << most;
  }
}
// At 1.25 device pixels a pixel the record tells device pixels and the grab places the cursor by the
// scale; a window is grabbed at its device size, which the log line tells.
TEST_F(CaptureTest, ScaledDisplaysPlaceTheCursorAndSizeTheWindowGrab) {
  FakePlatform fake;
  fake.scale = 1.25;
  DisplayCapture* display = Open(kDisplay, 1000, 750).display;
  EXPECT_EQ(display->GetDisplay(0)->width, GetSystemMetrics(SM_CXSCREEN) * 5 / 4);
  TestWindow cover(0, 0, 1280, 1024, true);
  cover.Fill(kBlack);
  DisplayInfo scaled;  // 1000 device pixels across 800
  scaled.width = 1000, scaled.height = 750, scaled.monitor_rect = {0, 0, 800, 600};
  display->SelectDisplay(&scaled);
  fake.cursor_at = {100, 80};
  for (bool draw : {true, false}) {
    display->SetDrawCursor(draw);
    ASSERT_TRUE(display->Start());
    const Frame frame = host_.Fresh();
    display->Stop();
    const int spots[][3] = {{140, 120, draw}, {125, 100, draw}, {121, 110, false}, {135, 96, false}};
    for (const auto& s : spots) EXPECT_LUMA(frame, s[0], s[1], s[2] ? kWhite : kBlack);
  }
  fake.scale = 1.5;
  TestWindow window(0, 0, 1000, 600);
  WindowCapture* capture = Open(kWindow, 1484, 886).window;
  capture->SelectWindow(window.hwnd());
  ASSERT_TRUE(capture->Start());
  EXPECT_TRUE(host_.Lines(L"CaptureThread, width: 1500, height: 900, Cost: "));
}
TEST_F(CaptureTest, BeforeWindows8CompositionGoesOffOnceAndTheWindowsContextIsCopied) {
  FakePlatform fake(&host_);
  fake.version = 4, fake.composition = TRUE;
  TestWindow window(60, 60, 400, 300);
  WindowCapture* capture = Open(kWindow, 384, 286).window;
  capture->SelectWindow(window.hwnd());
  ASSERT_TRUE(capture->Start());
  const Frame frame = host_.Fresh();
  capture->Stop();
  EXPECT_EQ(fake.statuses_at_enable, 0u);  // before the run's first status
  EXPECT_EQ(fake.enable_calls, std::vector<UINT>{0});
  EXPECT_LUMA(frame, 0, 50, kMagenta);  // the pattern, from the window's own context
  EXPECT_LUMA(frame, 50, 50, kRed);
  EXPECT_LUMA(frame, 300, 250, kWhite);
  fake.version = 5;  // from Windows 8 on composition is left alone
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(host_.Statuses(2, 2));
  capture->Stop();
  EXPECT_EQ(fake.enable_calls.size(), 1u);
}
// The read-out asks for the screen's depth: 0 means 32 for a display grab and a still, not for a window.
TEST_F(CaptureTest, TheReadOutAsksForTheScreensDepth) {
  FakePlatform fake;
  const int cases[][4] = {{kDisplay, 0, 16, 16}, {kDisplay, 0, 0, 32},
                          {kDisplay, 1, 24, 24}, {kDisplay, 1, 0, 32},
                          {kWindow, 0, 16, 16},  {kWindow, 0, 0, 0}};  // still?, screen, asked
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c[0]) + std::to_string(c[1]) + std::to_string(c[2]));
    fake.bits_per_pixel = c[2], fake.asked_bits = -1;
    Capture& capture = Open(static_cast<Kind>(c[0]));
    ResetEvent(fake.read_out);
    if (c[1]) {
      const DibImage* image = capture.display->CaptureImage(capture.display->GetDisplay(0));
      ASSERT_NE(image, nullptr);
      EXPECT_EQ(image->bitmap_info()->bmiHeader.biBitCount, c[3]);
    } else {
      ASSERT_TRUE(capture.Start());
      EXPECT_EQ(WaitForSingleObject(fake.read_out, 10000), WAIT_OBJECT_0);
    }
    EXPECT_EQ(fake.asked_bits.load(), c[3]);
    capture.Release();
  }
}
// A host thread owning a window waits for the capture thread whose grab sends to that window: the wait lets
// it through; so do Start and Release after a Stop that ran out, neither running beside the old thread.
TEST_F(CaptureTest, WaitsForTheCaptureThreadLetSentMessagesThrough) {
  FakePlatform fake;
  HWND own = CreateWindowExW(0, L"STATIC", L"host", 0, 0, 0, 10, 10, HWND_MESSAGE, nullptr, nullptr, nullptr);
  enum Op { kStop, kRelease, kStartAfterStuck, kReleaseAfterStuck };
  for (Op op : {kStop, kRelease, kStartAfterStuck, kReleaseAfterStuck}) {
    SCOPED_TRACE(op);
    host_.Clear();
    Capture& capture = Open(kWindow);
    const bool stuck = op >= kStartAfterStuck;
    fake.send_to = own;
    stuck ? ResetEvent(fake.print_go) : SetEvent(fake.print_go);
    ResetEvent(fake.read_out);
    ASSERT_TRUE(capture.Start());
    ASSERT_EQ(WaitForSingleObject(fake.read_out, 10000), WAIT_OBJECT_0);  // inside the grab
    int64_t before = TimeMicroseconds();
    if (stuck) {
      EXPECT_TRUE(capture.Stop());
      EXPECT_GE(TimeMicroseconds() - before, 9900000);
      EXPECT_EQ(host_.Now().Count(3), 0u);  // the old thread is still in its grab
      SetEvent(fake.print_go), before = TimeMicroseconds();
    }
    EXPECT_TRUE(op == kStartAfterStuck ? capture.Start()
                : op == kStop          ? capture.Stop()
                                       : (capture.Release(), true));
    EXPECT_LT(TimeMicroseconds() - before, 5000000);
    EXPECT_EQ(host_.Now().Count(3), 1u);  // the run ended before the call returned
    EXPECT_TRUE(op != kStartAfterStuck || host_.Statuses(2, 2));
    capture.Release();
  }
  DestroyWindow(own);
}
HANDLE WINAPI RefuseThread(LPSECURITY_ATTRIBUTES, SIZE_T, LPTHREAD_START_ROUTINE, LPVOID, DWORD, LPDWORD) {
  return SetLastError(ERROR_NOT_ENOUGH_MEMORY), nullptr;
}
std::atomic<HANDLE> g_last_thread{nullptr};
HANDLE WINAPI KeepThread(LPSECURITY_ATTRIBUTES attributes, SIZE_T stack, LPTHREAD_START_ROUTINE routine,
                         LPVOID param, DWORD flags, LPDWORD id) {
  HANDLE thread = CreateThread(attributes, stack, routine, param, flags, id), copy = nullptr;
  DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &copy, SYNCHRONIZE, FALSE, 0);
  return g_last_thread = copy, thread;
}
// A refused thread leaves the capture idle; a Release right after Start leaves no thread and ends the run.
TEST_F(CaptureTest, CaptureThreadsStartAndEndWithTheirObject) {
  Capture& refused = Open(kWindow);
  base::SetThreadStarterForTesting(&RefuseThread);
  EXPECT_FALSE(refused.Start() || refused.window->IsCapturing());
  base::SetThreadStarterForTesting(&KeepThread);
  EXPECT_TRUE(refused.Start() && refused.window->IsCapturing());
  refused.Release();
  CloseHandle(g_last_thread.exchange(nullptr));
  for (int i = 0; i < 40; ++i) {
    host_.Clear();
    Capture capture(i % 2 ? kWindow : kDisplay);
    capture.Do([&](auto* c) { c->SetCaptureEvent(&host_); });
    ASSERT_TRUE(capture.Start());
    capture.Release();
    HANDLE thread = g_last_thread.exchange(nullptr);
    EXPECT_EQ(WaitForSingleObject(thread, 5000), WAIT_OBJECT_0);
    CloseHandle(thread);
    EXPECT_EQ(host_.Now().Count(capture.ended()), 1u);
  }
  base::SetThreadStarterForTesting(nullptr);
}

}  // namespace
}  // namespace capture_suite
