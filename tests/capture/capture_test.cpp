// Both captures as a host drives them through roomcore.dll, on real windows
// under the test display.
#include <random>

#include "capture_fixture.h"
#include "common/log_capture.h"

namespace capture_suite {
namespace {

std::wstring PassLine(int width, int height) {
  return L"CaptureThread, width: " + std::to_wstring(width) + L", height: " + std::to_wstring(height) +
         L", Cost: ";
}

TEST_F(CaptureTest, TheDisplayListAndAStillPicture) {
  DisplayCapture* capture = Open(kDisplay).display;
  EXPECT_EQ(DisplayCapture::Create(), capture);
  const int count = capture->GetDisplayCount();
  ASSERT_GE(count, 1);
  EXPECT_EQ(capture->GetDisplay(-1), nullptr);
  EXPECT_EQ(capture->GetDisplay(count), nullptr);
  const DisplayInfo& display = *capture->GetDisplay(0);
  EXPECT_EQ(display.index, 0);
  EXPECT_EQ(display.width, display.monitor_rect.right - display.monitor_rect.left);
  EXPECT_EQ(display.height, display.monitor_rect.bottom - display.monitor_rect.top);
  EXPECT_TRUE(display.is_primary && display.monitor && !display.device_name.empty());
  capture->RefreshDisplays();
  EXPECT_EQ(capture->GetDisplayCount(), count);
  // A still of the display's own size, top line first, at the screen's depth.
  TestWindow cover(0, 0, display.width, display.height, true);
  HDC screen = GetDC(nullptr);
  const int depth = GetDeviceCaps(screen, BITSPIXEL);
  ReleaseDC(nullptr, screen);
  for (COLORREF fill :
       {COLORREF(CLR_INVALID), kBlue}) {  // the pattern, then one colour: the second still replaces
    if (fill != CLR_INVALID) cover.Fill(fill);
    const DibImage* image = capture->CaptureImage(capture->GetDisplay(0));
    ASSERT_NE(image, nullptr);
    const BITMAPINFOHEADER& header = image->bitmap_info()->bmiHeader;
    EXPECT_EQ(header.biWidth, display.width);
    EXPECT_EQ(header.biHeight, -display.height);
    EXPECT_EQ(header.biBitCount, depth ? depth : 32);
    EXPECT_EQ(header.biSizeImage, static_cast<DWORD>(display.width * display.height * 4));
    if (header.biBitCount < 24) continue;  // colours read below as 3 or 4 bytes a pixel
    const int bytes = header.biBitCount / 8, stride = (display.width * bytes + 3) & ~3;
    auto pixel = [&](int x, int y) {
      const uint8_t* p = image->bits_data() + y * stride + x * bytes;
      return RGB(p[2], p[1], p[0]);
    };
    EXPECT_EQ(pixel(0, 0), fill == kBlue ? kBlue : kYellow);
    EXPECT_EQ(pixel(20, 20), fill == kBlue ? kBlue : kRed);
    EXPECT_EQ(pixel(display.width - 20, display.height - 20), fill == kBlue ? kBlue : kWhite);
  }
  EXPECT_FALSE(capture->IsCapturing());
}

// The picture fitted into the output size; the run's statuses and its log
// line per pass under the capture's tag. The window capture trims 8 columns
// each side and 7 lines top and bottom: an 800 x 600 window gives 784 x 586,
// whose edges are the magenta frame; the quadrants meet at 392 / 293.
TEST_F(CaptureTest, FramesShowThePictureAndEachPassLogsALine) {
  for (Kind kind : {kDisplay, kWindow}) {
    SCOPED_TRACE(Name(kind));
    host_.Clear();
    const int grab_w = kind == kDisplay ? GetSystemMetrics(SM_CXSCREEN) : 800;
    const int grab_h = kind == kDisplay ? GetSystemMetrics(SM_CYSCREEN) : 600;
    const int w = kind == kDisplay ? grab_w : 784, h = kind == kDisplay ? grab_h : 586;
    Capture& capture = Open(kind, w, h);
    TestWindow cover(0, 0, grab_w, grab_h, true);
    if (kind == kWindow) capture.window->SelectWindow(cover.hwnd());
    ASSERT_TRUE(capture.Start());
    EXPECT_FALSE(capture.Start());
    const Frame frame = host_.Fresh();
    EXPECT_EQ(frame.width, w);
    EXPECT_EQ(frame.height, h);
    EXPECT_EQ(frame.reserved, 0);
    EXPECT_EQ(frame.size, static_cast<uint32_t>(w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2)));
    const int cx = kind == kDisplay ? w / 2 : 392, cy = kind == kDisplay ? h / 2 : 293;
    const COLORREF edge = kind == kDisplay ? kYellow : kMagenta;
    EXPECT_LUMA(frame, 0, cy / 2, edge);
    EXPECT_LUMA(frame, cx / 2, 0, edge);
    EXPECT_LUMA(frame, w - 1, cy / 2, edge);
    EXPECT_LUMA(frame, cx / 2, h - 1, edge);
    EXPECT_LUMA(frame, 8, cy / 2, kind == kDisplay ? kMagenta : kRed);  // the display isn't trimmed
    EXPECT_LUMA(frame, cx - 1, cy / 2, kRed);
    EXPECT_LUMA(frame, cx / 2, cy - 1, kRed);
    EXPECT_LUMA(frame, cx, cy / 2, kGreen);
    EXPECT_LUMA(frame, cx / 2, cy, kBlue);
    EXPECT_LUMA(frame, cx + cx / 2, cy + cy / 2, kWhite);
    cover.Fill(kGreen);
    EXPECT_LUMA(host_.Fresh(), 20, 20, kGreen);
    EXPECT_TRUE(capture.Stop());
    EXPECT_TRUE(capture.Stop());
    const Record record = host_.Now();
    ASSERT_EQ(record.statuses.size(), 2u);
    EXPECT_EQ(record.statuses[0].status, capture.started());
    EXPECT_EQ(record.statuses[1].status, capture.ended());
    const std::wstring line = PassLine(grab_w, grab_h);  // the window's untrimmed size
    for (const auto& entry : record.log) {
      EXPECT_EQ(entry.first, kind == kDisplay ? L"DisplayCaptureImpl" : L"WindowCaptureImpl");
      ASSERT_EQ(entry.second.rfind(line, 0), 0u);
      EXPECT_EQ(entry.second.find_first_not_of(L"0123456789", line.size()), std::wstring::npos);
    }
    EXPECT_GE(record.log.size(), record.frames.size());
  }
}

// A run takes the output size in force at its Start; an empty one gives no
// frame while the passes go on.
TEST_F(CaptureTest, EachStartTakesTheOutputSizeInForce) {
  for (Kind kind : {kDisplay, kWindow}) {
    SCOPED_TRACE(Name(kind));
    host_.Clear();
    Capture& capture = Open(kind, 320, 240);
    const SIZE sizes[] = {{320, 240}, {160, 90}, {0, 0}};
    for (const SIZE& size : sizes) {
      capture.SetOutputSize(size.cx, size.cy);
      const Record before = host_.Now();
      ASSERT_TRUE(capture.Start());
      ASSERT_TRUE(host_.Lines(L"CaptureThread, width: ", before.Lines(L"CaptureThread, width: ") + 3));
      capture.Stop();
      const Record after = host_.Now();
      ASSERT_EQ(after.frames.size() > before.frames.size(), size.cx > 0);
      EXPECT_TRUE(size.cx == 0 ||
                  (after.frames.back().width == size.cx &&
                   after.frames.back().size == static_cast<uint32_t>(size.cx * size.cy * 3 / 2)));
    }
  }
}

// A record copied whole even while a grab reads it: every pass is of one of
// the two records, never half of each. Null changes nothing; a record
// without size idles.
TEST_F(CaptureTest, SelectDisplayDuringACaptureIsTakenWholeByTheNextGrab) {
  DisplayCapture* capture = Open(kDisplay).display;
  capture->SetFrameRate(60);
  const DisplayInfo whole = *capture->GetDisplay(0);
  DisplayInfo small;
  small.width = 64, small.height = 48, small.monitor_rect = {10, 10, 74, 58};
  small.device_name = std::wstring(300, L'x');  // too long to copy in one store
  ASSERT_TRUE(capture->Start());
  for (int i = 0; i < 300; ++i) capture->SelectDisplay(i % 2 ? &small : &whole);
  ASSERT_TRUE(host_.Lines(PassLine(64, 48)));
  capture->SelectDisplay(nullptr);
  ASSERT_TRUE(host_.Lines(PassLine(64, 48), host_.Now().Lines(PassLine(64, 48)) + 2));
  DisplayInfo empty;
  capture->SelectDisplay(&empty);
  const size_t lines = host_.Now().log.size();
  EXPECT_FALSE(host_.Wait([&](const Record& r) { return r.log.size() > lines + 1; }, 300));
  capture->SelectDisplay(&whole);
  ASSERT_TRUE(host_.Lines(PassLine(whole.width, whole.height),
                          host_.Now().Lines(PassLine(whole.width, whole.height)) + 1));
  capture->Stop();
  for (const auto& entry : host_.Now().log) {
    EXPECT_TRUE(entry.second.rfind(PassLine(64, 48), 0) == 0 ||
                entry.second.rfind(PassLine(whole.width, whole.height), 0) == 0)
        << std::string(entry.second.begin(), entry.second.end());
  }
  for (const Frame& frame : host_.Now().frames) EXPECT_EQ(frame.size, 160u * 90u * 3u / 2u);
}

// Frames at once after Start, then one per period from the time a pass was
// found due: a slow pass is followed by one frame at once and no burst; a
// new rate counts from the next Start.
TEST_F(CaptureTest, PacingFollowsTheRateOfTheRun) {
  DisplayCapture* capture = Open(kDisplay).display;
  DisplayInfo corner;  // a full grab under Wine costs tens of ms, which would blur the timestamps
  corner.width = 320, corner.height = 240, corner.monitor_rect = {0, 0, 320, 240};
  capture->SelectDisplay(&corner);
  capture->SetFrameRate(1);
  const int64_t start = TimeMicroseconds();
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(host_.Frames(1));
  EXPECT_LT(host_.Now().frames[0].timestamp - start, 800000);  // not after a period of 1 s
  capture->Stop();
  host_.Clear();
  capture->SetFrameRate(5);  // 200 ms
  host_.on_frame = [&](size_t number) {
    if (number == 1) capture->SetFrameRate(25);  // not for this run
    if (number == 3) Sleep(500);                 // a pass that overruns the period
  };
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(host_.Frames(7));
  capture->Stop();
  host_.on_frame = nullptr;
  const std::vector<int64_t> intervals = host_.Now().Intervals(2);  // the first pass builds the scaler
  EXPECT_GE(intervals[2], 500000);  // frame 4 right after the slow pass: no more than one period later
  EXPECT_LE(intervals[2], 500000 + 200000);
  for (size_t i : {0u, 1u, 3u, 4u}) EXPECT_GE(intervals[i], 200000 - 30000) << i;  // no burst to catch up
  EXPECT_LE(intervals[0], 200000 + 100000);
  host_.Clear();
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(host_.Frames(6));
  capture->Stop();
  std::vector<int64_t> fast = host_.Now().Intervals(2);
  std::sort(fast.begin(), fast.end());
  EXPECT_LT(fast[fast.size() / 2], 100000);  // 40 ms now
}

TEST_F(CaptureTest, StopFromInsideAnEventWaitsItsFullTime) {
  Capture& capture = Open(kDisplay);
  std::atomic<int64_t> took{-1};
  host_.on_frame = [&](size_t number) {
    const int64_t before = TimeMicroseconds();
    if (number == 0) capture.Stop(), took = TimeMicroseconds() - before;
  };
  ASSERT_TRUE(capture.Start());
  ASSERT_TRUE(host_.Wait([&](const Record& r) { return r.Count(capture.ended()) > 0; }, 20000));
  EXPECT_GE(took.load(), 9900000);
  EXPECT_EQ(host_.Now().frames.size(), 1u);
  EXPECT_FALSE(capture.display->IsCapturing());
}

// The window capture follows its window through resizes, sends black frames
// at its own rate while the window is minimised or hidden, and reports a
// lost window on every pass, 50 ms apart, until another is selected.
TEST_F(CaptureTest, TheWindowCaptureFollowsItsWindow) {
  WindowCapture* capture = Open(kWindow, 640, 360).window;
  capture->SetFrameRate(20);
  ASSERT_TRUE(capture->Start());
  EXPECT_TRUE(capture->IsCapturing());
  SetWindowPos(window_->hwnd(), nullptr, 0, 0, 1600, 1200, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  window_->Fill(kGreen);
  Frame frame = host_.Fresh();  // 1584 x 1186 fitted into 640 x 360: 480 x 359, bars left and right
  EXPECT_EQ(frame.width, 640);
  EXPECT_LUMA(frame, 320, 180, kGreen);
  EXPECT_TRUE(frame.Y(10, 180) == 1 && frame.Y(630, 180) == 1);
  for (int command : {SW_MINIMIZE, SW_RESTORE, SW_HIDE, SW_SHOW}) {
    ShowWindow(window_->hwnd(), command);
    const Record before = host_.Now();
    ASSERT_TRUE(host_.Frames(before.frames.size() + 4));
    const Record after = host_.Now();
    const bool black = command == SW_MINIMIZE || command == SW_HIDE;
    EXPECT_EQ(after.frames.back().Black(), black) << command;
    for (size_t i = before.frames.size() + 2; black && i < after.frames.size(); ++i)
      EXPECT_GE(after.frames[i].timestamp - after.frames[i - 1].timestamp, 45000);  // 20 a second, no faster
  }
  PostMessageW(window_->hwnd(), WM_CLOSE, 0, 0);
  ASSERT_TRUE(host_.Statuses(0, 5));
  const size_t frames = host_.Now().frames.size();
  ASSERT_TRUE(host_.Statuses(0, 8));
  const Record lost = host_.Now();
  EXPECT_EQ(lost.frames.size(), frames);
  int64_t last = -1;
  for (const Status& s : lost.statuses) {
    EXPECT_TRUE(s.status != 0 || last < 0 || s.time - last >= 49000);  // 50 ms on a 1 ms clock
    if (s.status == 0) last = s.time;
  }
  EXPECT_TRUE(capture->IsCapturing());
  TestWindow next(100, 100, 400, 300);
  capture->SelectWindow(next.hwnd());
  EXPECT_FALSE(host_.Fresh().Black());
  capture->SelectWindow(nullptr);  // no window at all: status 0 only, then the end
  capture->Stop();
  host_.Clear();
  ASSERT_TRUE(capture->Start());
  ASSERT_TRUE(host_.Statuses(0, 3));
  capture->Stop();
  const Record none = host_.Now();
  EXPECT_TRUE(none.frames.empty());
  EXPECT_EQ(none.statuses.front().status, 2);
  EXPECT_EQ(none.statuses.back().status, 3);
  EXPECT_EQ(none.Count(1), 0u);
}

TEST_F(CaptureTest, SelectWindowRestoresAndRaisesTheWindowAsAnOrdinaryOne) {
  TestWindow window(40, 30, 400, 300), cover(0, 0, 1000, 800);
  ShowWindow(window.hwnd(), SW_MINIMIZE);
  Open(kWindow).window->SelectWindow(window.hwnd());
  EXPECT_FALSE(IsIconic(window.hwnd()));
  EXPECT_EQ(GetWindowLongW(window.hwnd(), GWL_EXSTYLE) & WS_EX_TOPMOST, 0);
  bool raised = false;
  for (HWND above = GetWindow(cover.hwnd(), GW_HWNDPREV); above; above = GetWindow(above, GW_HWNDPREV))
    raised = raised || above == window.hwnd();
  EXPECT_TRUE(raised);
}

// Orderings a host can produce: windows that die in the middle of grabs,
// Start and Stop from two threads. Each run ends before Stop returns, and
// no frame follows its end.
TEST_F(CaptureTest, RacingHostsNeverSeeTwoRunsOrALateFrame) {
  WindowCapture* window = Open(kWindow).window;
  window->SetFrameRate(100);
  ASSERT_TRUE(window->Start());
  std::mt19937 random(7);
  std::vector<std::unique_ptr<TestWindow>> doomed;
  for (int i = 0; i < 100; ++i) {
    doomed.emplace_back(new TestWindow(20 + i % 50, 20, 200 + i % 300, 150 + i % 200));
    window->SelectWindow(doomed.back()->hwnd());
    Sleep(random() % 12);  // the grab in flight meets the window's end at any point
    PostMessageW(doomed.back()->hwnd(), WM_CLOSE, 0, 0);
  }
  window->Stop();
  for (Kind kind : {kDisplay, kWindow}) {
    host_.Clear();
    Capture& capture = kind == kDisplay ? Open(kDisplay) : *captures_.front();
    std::atomic<int> started{0};
    auto churn = [&] {
      for (int i = 0; i < 40; ++i) started += capture.Start(), capture.Stop();
    };
    std::thread a(churn), b(churn);
    a.join(), b.join();
    const Record record = host_.Now();
    EXPECT_EQ(record.Count(capture.started()), static_cast<size_t>(started.load()));
    EXPECT_EQ(record.Count(capture.ended()), static_cast<size_t>(started.load()));
    int open = 0;
    for (const Status& s : record.statuses) {
      open += s.status == capture.started() ? 1 : s.status == capture.ended() ? -1 : 0;
      EXPECT_TRUE(open == 0 || open == 1);
    }
    EXPECT_EQ(record.statuses.back().frames, record.frames.size());
  }
}

// A capture thread held in the host's event beyond Stop's 10 seconds: Stop
// returns anyway; Release waits for the thread before the object goes.
TEST_F(CaptureTest, ReleaseWaitsForAThreadThatOutlivedStop) {
  Capture& capture = Open(kDisplay);
  HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  host_.on_frame = [&](size_t number) {
    if (number == 0) WaitForSingleObject(go, 20000);
  };
  ASSERT_TRUE(capture.Start());
  ASSERT_TRUE(host_.Frames(1));
  const int64_t before = TimeMicroseconds();
  EXPECT_TRUE(capture.Stop());
  EXPECT_GE(TimeMicroseconds() - before, 9900000);
  EXPECT_FALSE(capture.display->IsCapturing());
  EXPECT_EQ(host_.Now().Count(2), 0u);
  std::thread later([&] { Sleep(300), SetEvent(go); });  // lets the event return while Release waits
  capture.Release();
  EXPECT_EQ(host_.Now().Count(2), 1u);
  later.join();
  CloseHandle(go);
}

TEST_F(CaptureTest, OutputSizesPastAFramesSizeGiveNoFrameAndOneLogLine) {
  const SIZE sizes[] = {{65536, 43691}, {1 << 20, 1 << 20}};  // just past 4 GiB; far beyond any memory
  for (Kind kind : {kDisplay, kWindow}) {
    for (const SIZE& size : sizes) {
      SCOPED_TRACE(Name(kind) + std::to_string(size.cx));
      host_.Clear();
      Capture& capture = Open(kind, size.cx, size.cy);
      const std::wstring failure = L"CaptureThread, no output frame of width: " + std::to_wstring(size.cx) +
                                   L", height: " + std::to_wstring(size.cy);
      ASSERT_TRUE(capture.Start());
      ASSERT_TRUE(host_.Lines(failure));
      ASSERT_TRUE(host_.Lines(L"CaptureThread, width: ", host_.Now().Lines(L"CaptureThread, width: ") + 3));
      capture.Stop();
      EXPECT_TRUE(host_.Now().frames.empty());
      EXPECT_EQ(host_.Now().Lines(failure), 1u);
      capture.Release();
    }
  }
}

// Release inside the capture's own event ends the run without waiting for
// it and leaves the object to the thread's end; Create then makes a fresh
// one. A Create while another thread releases never gets the dying object.
TEST_F(CaptureTest, ReleasesInsideAnEventOrBesideACreate) {
  for (Kind kind : {kDisplay, kWindow}) {
    SCOPED_TRACE(Name(kind));
    host_.Clear();
    Capture& capture = Open(kind);
    void* const old = capture.object();
    std::atomic<int64_t> took{-1};
    Capture fresh(kind, false);
    host_.on_frame = [&](size_t number) {
      const int64_t before = TimeMicroseconds();
      if (number == 0) capture.Release(), took = TimeMicroseconds() - before, fresh.Create();
    };
    ASSERT_TRUE(capture.Start());
    ASSERT_TRUE(host_.Statuses(capture.ended()));
    host_.on_frame = nullptr;
    EXPECT_LT(took.load(), 5000000);  // not Stop's 10 seconds
    EXPECT_NE(fresh.object(), old);
    EXPECT_EQ(Capture(kind).object(), fresh.object());
    fresh.Do([&](auto* c) { c->SetCaptureEvent(&host_); });
    if (kind == kWindow) fresh.window->SelectWindow(window_->hwnd());
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    host_.on_frame = [&](size_t number) {
      if (number == 1) WaitForSingleObject(go, 20000);
    };
    ASSERT_TRUE(fresh.Start());
    ASSERT_TRUE(host_.Frames(2));
    void* const dying = fresh.object();
    std::thread releaser([&] { fresh.Release(); });
    Capture other(kind, false);
    EXPECT_TRUE(testing_support::WaitUntil([&] { return other.Create() != dying; }));
    SetEvent(go);
    releaser.join();
    host_.on_frame = nullptr;
    other.Release();
    CloseHandle(go);
  }
}

}  // namespace
}  // namespace capture_suite
