// Both captures as a host drives them through roomcore.dll, on real windows.
#include "capture_fixture.h"
#include "common/log_capture.h"

namespace capture_suite {
namespace {
// The display list, a still; an empty record idles; a frame at once, a period from when due, rates per run.
TEST_F(CaptureTest, TheDisplayListAStillPictureAndThePacing) {
  DisplayCapture* capture = Open(kDisplay).display;
  const int count = capture->GetDisplayCount();
  ASSERT_GE(count, 1);
  const DisplayInfo d = *capture->GetDisplay(0);
  EXPECT_TRUE(DisplayCapture::Create() == capture && !capture->GetDisplay(-1) && !capture->GetDisplay(count));
  EXPECT_TRUE(d.index == 0 && d.width == d.monitor_rect.right - d.monitor_rect.left &&
              d.height == d.monitor_rect.bottom - d.monitor_rect.top && d.is_primary && d.monitor &&
              !d.device_name.empty());
  capture->RefreshDisplays();
  EXPECT_EQ(capture->GetDisplayCount(), count);
  TestWindow cover(0, 0, d.width, d.height, true);
  HDC screen = GetDC(nullptr);
  const int depth = GetDeviceCaps(screen, BITSPIXEL) ? GetDeviceCaps(screen, BITSPIXEL) : 32,
            bytes = depth / 8;
  ReleaseDC(nullptr, screen);
  const DibImage* image = nullptr;
  auto pixel = [&](int x, int y) {
    const uint8_t* p = image->bits_data() + y * ((d.width * bytes + 3) & ~3) + x * bytes;
    return RGB(p[2], p[1], p[0]);
  };
  EXPECT_TRUE(testing_support::WaitUntil([&] {  // the screen shows a repaint a moment later
    return (image = capture->CaptureImage(&d)) && (depth < 24 || pixel(0, 0) == kYellow);
  }));
  ASSERT_NE(image, nullptr);
  const BITMAPINFOHEADER& h = image->bitmap_info()->bmiHeader;
  EXPECT_TRUE(h.biWidth == d.width && h.biHeight == -d.height && h.biBitCount == depth) << h.biBitCount;
  EXPECT_EQ(h.biSizeImage, static_cast<DWORD>(d.width * d.height * 4));
  EXPECT_TRUE(depth < 24 || (pixel(20, 20) == kRed && pixel(d.width - 20, d.height - 20) == kWhite));
  EXPECT_FALSE(capture->IsCapturing());
  DisplayInfo empty, corner;  // a full grab under Wine costs tens of ms, which would blur the timestamps
  corner.width = 320, corner.height = 240, corner.monitor_rect = {0, 0, 320, 240};
  capture->SelectDisplay(&empty);
  ASSERT_TRUE(capture->Start());
  EXPECT_FALSE(host_.Wait([](const Record& r) { return !r.log.empty(); }, 300));  // no pass, no line
  capture->Stop(), capture->SelectDisplay(&corner), capture->SetFrameRate(1);
  const int64_t start = TimeMicroseconds();
  ASSERT_TRUE(capture->Start() && host_.Frames(1));
  EXPECT_LT(host_.Now().frames[0].timestamp - start, 800000);  // not after a period of 1 s
  capture->Stop(), host_.Clear(), capture->SetFrameRate(5);    // 200 ms
  host_.on_frame = [&](size_t number) {
    if (number == 1) capture->SetFrameRate(25);  // not for this run
    if (number == 3) Sleep(500);                 // a pass that overruns the period
  };
  ASSERT_TRUE(capture->Start() && host_.Frames(7));
  capture->Stop(), host_.on_frame = nullptr;
  auto gap = [](const Record& r, size_t i) { return r.frames[i + 2].timestamp - r.frames[i + 1].timestamp; };
  const Record paced = host_.Now();  // the first pass builds the scaler
  EXPECT_TRUE(gap(paced, 2) >= 500000 && gap(paced, 2) <= 500000 + 200000);  // no later than one period
  for (size_t i : {0u, 1u, 3u, 4u}) EXPECT_GE(gap(paced, i), 200000 - 30000) << i;  // no burst to catch up
  EXPECT_LE(gap(paced, 0), 200000 + 100000);
  host_.Clear();
  ASSERT_TRUE(capture->Start() && host_.Frames(6));
  capture->Stop();
  const Record run = host_.Now();
  std::vector<int64_t> fast;
  for (size_t i = 0; i + 2 < run.frames.size(); ++i) fast.push_back(gap(run, i));
  std::sort(fast.begin(), fast.end());
  EXPECT_LT(fast[fast.size() / 2], 100000);  // 40 ms now
}
// The picture at each run's output size, statuses, a line a pass; a size no frame can have: one line a run.
TEST_F(CaptureTest, FramesShowThePictureAtTheSizeOfEachRun) {
  for (Kind kind : {kDisplay, kWindow}) {
    SCOPED_TRACE(kind);
    host_.Clear();
    const bool display = kind == kDisplay;  // a window loses 8 columns, 7 lines each side; the display none
    const int grab_w = display ? GetSystemMetrics(SM_CXSCREEN) : 800, w = display ? grab_w : 784;
    const int grab_h = display ? GetSystemMetrics(SM_CYSCREEN) : 600, h = display ? grab_h : 586;
    const int cx = display ? w / 2 : 392, cy = display ? h / 2 : 293, edge = display ? kYellow : kMagenta;
    Capture& capture = Open(kind, w, h);
    TestWindow cover(0, 0, grab_w, grab_h, true);
    display ? capture.display->SelectDisplay(nullptr) : capture.window->SelectWindow(cover.hwnd());
    ASSERT_TRUE(capture.Start() && !capture.Start());
    const Frame frame = host_.Fresh();
    EXPECT_TRUE(frame.width == w && frame.height == h && frame.reserved == 0);
    EXPECT_EQ(frame.size, static_cast<uint32_t>(w * h + 2 * ((w + 1) / 2) * ((h + 1) / 2)));
    const int spots[] = {0,           cy / 2,      edge,   cx / 2, 0,      edge,
                         w - 1,       cy / 2,      edge,   cx / 2, h - 1,  edge,
                         cx - 1,      cy / 2,      kRed,   cx / 2, cy - 1, kRed,
                         cx,          cy / 2,      kGreen, cx / 2, cy,     kBlue,
                         cx + cx / 2, cy + cy / 2, kWhite, 8,      cy / 2, int(display ? kMagenta : kRed)};
    for (int i = 0; i < 30; i += 3)  // x, y, colour
      EXPECT_LUMA(frame, spots[i], spots[i + 1], COLORREF(spots[i + 2]));
    cover.Fill(kGreen);
    EXPECT_LUMA(host_.Fresh(), 20, 20, kGreen);
    EXPECT_TRUE(capture.Stop() && capture.Stop());
    const Record first = host_.Now();
    EXPECT_TRUE(first.statuses.size() == 2 && first.statuses[0].status == capture.started() &&
                first.statuses[1].status == capture.ended());
    const std::wstring pass = L"CaptureThread, width: " + std::to_wstring(grab_w) + L", height: " +
                              std::to_wstring(grab_h) + L", Cost: ";  // the untrimmed size
    EXPECT_TRUE(first.log.size() >= first.frames.size() && first.Lines(pass) == first.log.size());
    const SIZE sizes[] = {{160, 90}, {0, 0}, {65536, 43691}, {65536, 43691}, {1 << 20, 1 << 20}};
    for (const SIZE& size : sizes) {  // just past 4 GiB, twice; far beyond any memory
      capture.Do([&](auto* c) { c->SetOutputSize(size.cx, size.cy); });
      const std::wstring failure = L"CaptureThread, no output frame of width: " + std::to_wstring(size.cx) +
                                   L", height: " + std::to_wstring(size.cy);
      const Record before = host_.Now();
      ASSERT_TRUE(capture.Start());
      ASSERT_TRUE(host_.Wait([&](const Record& r) { return r.Lines(pass) >= before.Lines(pass) + 3; }));
      capture.Stop();
      const Record after = host_.Now();
      ASSERT_EQ(after.frames.size() > before.frames.size(), size.cx == 160);
      EXPECT_TRUE(size.cx != 160 || (after.frames.back().width == 160 && after.frames.back().size == 21600));
      EXPECT_EQ(after.Lines(failure) - before.Lines(failure), size.cx > 160 ? 1u : 0u) << size.cx;
    }
    for (const auto& [tag, text] : host_.Now().log)  // the cost in digits
      EXPECT_TRUE(
          tag == (display ? L"DisplayCaptureImpl" : L"WindowCaptureImpl") &&
          (text.rfind(L"CaptureThread, no output frame", 0) == 0 ||
           (text.rfind(pass, 0) == 0 && text.find_first_not_of(L"0123456789", pass.size()) == text.npos)))
          << text;
  }
}
// Stop inside the capture's own event waits its 10 seconds for itself; Release waits for the thread.
TEST_F(CaptureTest, StopInsideAnEventWaitsItsFullTimeAndReleaseWaitsForTheThread) {
  Capture& capture = Open(kDisplay);
  HANDLE stopped = CreateEventW(nullptr, TRUE, FALSE, nullptr),
         go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::atomic<int64_t> took{-1};
  host_.on_frame = [&](size_t number) {
    const int64_t before = TimeMicroseconds();
    if (number == 0) capture.Stop(), took = TimeMicroseconds() - before, SetEvent(stopped);
    if (number == 0) WaitForSingleObject(go, 20000);
  };
  ASSERT_TRUE(capture.Start());
  ASSERT_EQ(WaitForSingleObject(stopped, 20000), WAIT_OBJECT_0);
  EXPECT_TRUE(took >= 9900000 && took < 15000000 && !capture.display->IsCapturing()) << took.load();
  std::thread later([&] { Sleep(300), SetEvent(go); });  // lets the event return while Release waits
  capture.Release();
  EXPECT_TRUE(host_.Now().Count(2) == 1 && host_.Now().frames.size() == 1);
  later.join(), CloseHandle(go), CloseHandle(stopped);
}
// Resizes, black frames when minimised or hidden, selection restores and raises; no window: 0 every 50 ms.
TEST_F(CaptureTest, TheWindowCaptureFollowsItsWindow) {
  WindowCapture* capture = Open(kWindow, 640, 360).window;
  capture->SetFrameRate(20);
  ASSERT_TRUE(capture->Start() && capture->IsCapturing());
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
  TestWindow next(40, 30, 400, 300), cover(0, 0, 1000, 800);
  ShowWindow(next.hwnd(), SW_MINIMIZE);
  capture->SelectWindow(next.hwnd());
  HWND above = GetWindow(cover.hwnd(), GW_HWNDPREV);  // raised over the cover
  while (above && above != next.hwnd()) above = GetWindow(above, GW_HWNDPREV);
  EXPECT_TRUE(above && !IsIconic(next.hwnd()) && !(GetWindowLongW(next.hwnd(), GWL_EXSTYLE) & WS_EX_TOPMOST));
  EXPECT_FALSE(host_.Fresh().Black());
  capture->SelectWindow(nullptr);  // 50 ms apart also at a faster rate
  capture->Stop(), capture->SetFrameRate(100), host_.Clear();
  ASSERT_TRUE(capture->Start() && host_.Wait([](const Record& r) { return r.Count(0) >= 5; }));
  capture->Stop();
  const Record none = host_.Now();
  EXPECT_TRUE(none.frames.empty() && none.Count(1) == 0);
  EXPECT_TRUE(none.statuses.front().status == 2 && none.statuses.back().status == 3);
  for (size_t i = 2; i + 1 < none.statuses.size(); ++i)  // 50 ms on a 1 ms clock
    EXPECT_GE(none.statuses[i].time - none.statuses[i - 1].time, 49000) << i;
}
// Runs from two threads end in Stop; Release in an event doesn't wait; Create then or beside it is new.
TEST_F(CaptureTest, RacesAndReleasesInsideAnEventOrBesideACreate) {
  for (Kind kind : {kDisplay, kWindow}) {
    SCOPED_TRACE(kind);
    host_.Clear();
    Capture& capture = Open(kind);
    std::atomic<int> started{0};
    auto churn = [&] {
      for (int i = 0; i < 40; ++i) started += capture.Start(), capture.Stop();
    };
    std::thread a(churn), b(churn);
    a.join(), b.join();
    const Record record = host_.Now();
    std::string runs, want;
    for (const Status& s : record.statuses) runs += std::to_string(s.status);
    for (int i = 0; i < started; ++i) want += std::to_string(capture.started() * 10 + capture.ended());
    EXPECT_TRUE(runs == want && record.statuses.back().frames == record.frames.size()) << runs;
    void *const old = capture.object(), *fresh = nullptr;
    std::atomic<int64_t> took{-1};
    host_.on_frame = [&](size_t number) {
      const int64_t before = TimeMicroseconds();
      if (number == 0) capture.Release(), took = TimeMicroseconds() - before, fresh = Capture(kind).object();
    };
    host_.Clear();
    ASSERT_TRUE(capture.Start() && host_.Wait([&](const Record& r) { return r.Count(capture.ended()) > 0; }));
    Capture& again = Open(kind);  // the one made inside the event
    EXPECT_TRUE(took.load() < 5000000 && fresh != old && again.object() == fresh);  // not Stop's 10 seconds
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    host_.on_frame = [&](size_t number) {
      if (number == 1) WaitForSingleObject(go, 20000);
    };
    ASSERT_TRUE(again.Start() && host_.Frames(2));
    void* const dying = again.object();
    std::thread releaser([&] { again.Release(); });
    EXPECT_TRUE(testing_support::WaitUntil([&] { return Capture(kind).object() != dying; }));
    SetEvent(go), releaser.join(), Capture(kind).Release(), CloseHandle(go);
  }
}
}  // namespace
}  // namespace capture_suite
