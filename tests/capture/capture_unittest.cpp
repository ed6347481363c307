// Inner pieces, and through the platform table what a virtual display can't show.
#include "base/clock_internal.h"
#include "capture/capture_platform.h"
#include "capture/capture_runner.h"
#include "capture/scoped_gdi.h"
#include "capture/window_capture_impl.h"
#include "capture_fixture.h"
#include "common/refuse_threads.h"

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
    return self->enable_calls.push_back({action, self->host->Now().statuses.size()}), S_OK;
  }
  static int WINAPI DIBits(HDC dc, HBITMAP bitmap, UINT start, UINT lines, LPVOID bits, LPBITMAPINFO info,
                           UINT use) {
    self->asked_bits = info->bmiHeader.biBitCount;
    return SetEvent(self->read_out), GetDIBits(dc, bitmap, start, lines, bits, info, use);
  }
  static BOOL WINAPI Print(HWND window, HDC target, UINT flags) {  // tells, waits for `print_go`, sends
    if (HWND to = self->send_to.exchange(nullptr))
      SetEvent(self->read_out), WaitForSingleObject(self->print_go, INFINITE),
          SendMessageW(to, WM_NULL, 0, 0);
    return PrintWindow(window, target, flags);
  }
  static inline FakePlatform* self = nullptr;
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
  std::vector<std::pair<UINT, size_t>> enable_calls;  // with the number of statuses before
  std::atomic<int> asked_bits{-1};
  HANDLE read_out = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::atomic<HWND> send_to{nullptr};
  HANDLE print_go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
};
// Periods and trims; no fit or grab buffer wraps past 4 GiB.
TEST_F(CaptureTest, PeriodsTrimsAndSizesThatNeverWrap) {
  const int periods[][2] = {{12, 83333}, {30, 33333}, {15, 66667}, {0, 83333}, {-5, 83333}};
  for (const auto& p : periods) EXPECT_EQ(capture::PeriodMicroseconds(p[0]), p[1]) << p[0];
  const int trims[][4] = {{1280, 720, 1264, 706}, {1001, 701, 984, 686}, {16, 14, 0, 0}};
  for (const auto& t : trims)
    EXPECT_TRUE(capture::TrimmedWidth(t[0]) == t[2] && capture::TrimmedHeight(t[1]) == t[3]) << t[0];
  const FrameScaler::Size wide = FrameScaler::Fit(60000, 50000, 50000, 40000, 2),
                          tall = FrameScaler::Fit(50000, 60000, 40000, 50000, 2);
  EXPECT_TRUE(wide.width == 60000 && wide.height == 48000 && tall.width == 48000 && tall.height == 60000);
  struct : capture::CaptureClient {
    void BeginRun() override {}
    void Pass() override {}
    void EndRun() override {}
    bool HasEvent() override { return false; }
    void SendFrame(const uint8_t*, uint32_t, int, int, int64_t) override {}
    void DestroyOwner() override {}
  } client;
  capture::CaptureRunner runner(&client, L"DisplayCaptureImpl");
  capture::ScopedGetDC screen(nullptr);
  capture::MemoryPicture picture(screen.get(), 4, 4);
  for (int w : {65536, 65536, 1 << 20, 1 << 20})  // a size logs once
    EXPECT_EQ(runner.ReadOut(picture.dc(), picture.bitmap(), w, w < (1 << 20) ? 16385 : w, 32), nullptr);
  EXPECT_NE(runner.ReadOut(picture.dc(), picture.bitmap(), 4, 4, 32), nullptr);
  EXPECT_EQ(host_.Now().Lines(L"CaptureThread, no grab buffer of width: 65536, height: 16385"), 1u);
  EXPECT_EQ(host_.Now().Lines(L"CaptureThread, no grab buffer of width: 1048576, height: 1048576"), 1u);
}
// 1920 x 1080, 12 a second (a window's also after SetFrameRate(0)), the cursor drawn: at 1.25 device pixels
// a pixel fitted 1.44 times at 240, into the untrimmed window 3.776 times at 235; composition off below 8.
// The library's clock moves only when the capture sleeps: a pass takes no time, so periods show exactly.
std::atomic<DWORD> g_tick{1000};
DWORD WINAPI StillTick() { return g_tick.load(); }
VOID WINAPI SleepMoves(DWORD ms) { g_tick += ms, Sleep(0); }
TEST_F(CaptureTest, AFreshCaptureHasTheDefaults) {
  static const base::ClockPlatform kClock = {&StillTick, &SleepMoves};
  base::SetClockPlatformForTesting(&kClock);
  FakePlatform fake(&host_);
  fake.version = 4, fake.composition = TRUE;
  TestWindow cover(0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN), true),
      window(20, 10, 400, 300);
  cover.Fill(kBlack), window.Fill(kBlack);
  DisplayInfo scaled;
  scaled.width = 1000, scaled.height = 750, scaled.monitor_rect = {40, 24, 840, 624};
  const int spots[][6] = {{100, 80, 384, 136, 401, 124}, {120, 60, 593, 173, 718, 294}};  // at, in, out
  for (int row : {0, 1, 2, 3}) {  // the display's cursor drawn, not drawn, hidden; the window's drawn
    SCOPED_TRACE(row);
    const Kind kind = row < 3 ? kDisplay : kWindow;
    const int cursor = row % 3, *at = spots[kind];
    host_.Clear();
    fake.scale = row < 3 ? 1.25 : 1, fake.cursor_showing = cursor != 2, fake.cursor_at = {at[0], at[1]};
    Capture capture(kind);
    capture.Do([&](auto* object) { object->SetCaptureEvent(&host_); });
    if (cursor == 1) capture.Do([](auto* object) { object->SetDrawCursor(false); });
    if (kind == kWindow)  // last: the pattern, uncovered
      ShowWindow(cover.hwnd(), SW_HIDE), window.Fill(CLR_INVALID), capture.window->SetFrameRate(0),
          capture.window->SelectWindow(window.hwnd());
    if (kind == kDisplay) capture.display->SelectDisplay(&scaled);
    EXPECT_TRUE(kind == kWindow ||
                capture.display->GetDisplay(0)->width == GetSystemMetrics(SM_CXSCREEN) * 5 / 4);
    ASSERT_TRUE(capture.Start() && host_.Frames(8));
    capture.Release();
    const Record record = host_.Now();
    EXPECT_TRUE(record.frames.back().width == 1920 && record.frames.back().height == 1080);
    EXPECT_LUMA(record.frames.back(), at[2], at[3], cursor ? kBlack : kWhite);
    EXPECT_LUMA(record.frames.back(), at[4], at[5], kind == kWindow ? kRed : kBlack);
    for (size_t k = 1; k < 8; ++k)  // 12 fps: due after 83,333 us, seen at the 21st poll of 4 ms
      EXPECT_EQ(record.frames[k].timestamp - record.frames[k - 1].timestamp, 84000) << k;
  }
  base::SetClockPlatformForTesting(nullptr);
  EXPECT_EQ(fake.enable_calls, (std::vector<std::pair<UINT, size_t>>{{0, 0}}));
  fake.scale = 1.5, fake.version = 5;  // a window is grabbed at its device size; composition stays
  TestWindow big(0, 0, 1000, 600);
  WindowCapture* capture = Open(kWindow).window;
  capture->SelectWindow(big.hwnd());
  const std::wstring pass = L"CaptureThread, width: 1500, height: 900, Cost: ";
  ASSERT_TRUE(capture->Start() && host_.Wait([&](const Record& r) { return r.Lines(pass) > 0; }));
  EXPECT_EQ(fake.enable_calls.size(), 1u);
}
// The read-out asks for the screen's depth: 0 means 32 for a display grab and a still, not for a window.
TEST_F(CaptureTest, TheReadOutAsksForTheScreensDepth) {
  FakePlatform fake;
  const int cases[][4] = {{kDisplay, 0, 16, 16}, {kDisplay, 0, 0, 32}, {kDisplay, 1, 24, 24},
                          {kDisplay, 1, 0, 32},  {kWindow, 0, 16, 16}, {kWindow, 0, 0, 0}};
  for (const auto& c : cases) {  // kind, a still?, the screen's depth, the depth asked for
    SCOPED_TRACE(std::to_string(c[0]) + std::to_string(c[1]) + std::to_string(c[2]));
    fake.bits_per_pixel = c[2], fake.asked_bits = -1;
    Capture& capture = Open(static_cast<Kind>(c[0]));
    ResetEvent(fake.read_out);
    if (c[1]) {
      const DibImage* image = capture.display->CaptureImage(capture.display->GetDisplay(0));
      EXPECT_TRUE(image && image->bitmap_info()->bmiHeader.biBitCount == c[3]);
    } else {
      EXPECT_TRUE(capture.Start() && WaitForSingleObject(fake.read_out, 10000) == WAIT_OBJECT_0);
    }
    EXPECT_EQ(fake.asked_bits.load(), c[3]);
    capture.Release();
  }
}
// Waits for a grab that sends to the waiter's window let it through; so do Start, Release after a stuck Stop.
TEST_F(CaptureTest, WaitsForTheCaptureThreadLetSentMessagesThrough) {
  FakePlatform fake;
  HWND own = CreateWindowExW(0, L"STATIC", L"host", 0, 0, 0, 10, 10, HWND_MESSAGE, nullptr, nullptr, nullptr);
  enum Op { kStop, kStartAfterStuck, kReleaseAfterStuck };  // a plain Release waits as Stop does
  for (Op op : {kStop, kStartAfterStuck, kReleaseAfterStuck}) {
    SCOPED_TRACE(op);
    host_.Clear();
    Capture& capture = Open(kWindow);
    const bool stuck = op >= kStartAfterStuck;
    fake.send_to = own;
    stuck ? ResetEvent(fake.print_go) : SetEvent(fake.print_go);
    ResetEvent(fake.read_out);
    ASSERT_TRUE(capture.Start() &&
                WaitForSingleObject(fake.read_out, 10000) == WAIT_OBJECT_0);  // in the grab
    int64_t before = TimeMicroseconds();
    if (stuck) {
      EXPECT_TRUE(capture.Stop());
      EXPECT_GE(TimeMicroseconds() - before, 9900000);
      EXPECT_EQ(host_.Now().Count(3), 0u);  // the old thread is still in its grab
      SetEvent(fake.print_go), before = TimeMicroseconds();
    }
    EXPECT_TRUE(op == kStartAfterStuck ? capture.Start()
                                       : (op == kStop ? capture.Stop() : (capture.Release(), 1)));
    EXPECT_LT(TimeMicroseconds() - before, 5000000);
    EXPECT_EQ(host_.Now().Count(3), 1u);  // the run ended before the call returned
    EXPECT_TRUE(op != kStartAfterStuck || host_.Wait([](const Record& r) { return r.Count(2) == 2; }));
    capture.Release();
  }
  DestroyWindow(own);
}
// A refused thread leaves the capture idle; a Release right after Start ends the run before it returns.
TEST_F(CaptureTest, CaptureThreadsStartAndEndWithTheirObject) {
  {
    testing_support::RefuseThreads refuse;
    Capture refused(kWindow);  // the loop's first window capture, started again
    EXPECT_FALSE(refused.Start() || refused.window->IsCapturing());
  }
  for (int i = 0; i < 40; ++i) {
    host_.Clear();
    Capture& capture = Open(i % 2 ? kWindow : kDisplay);
    ASSERT_TRUE(capture.Start() && capture.Do([](auto* c) { return c->IsCapturing(); }));
    capture.Release();
    EXPECT_EQ(host_.Now().Count(capture.ended()), 1u);
  }
}
}  // namespace
}  // namespace capture_suite
