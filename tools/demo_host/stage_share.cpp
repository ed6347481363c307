// Stages 3 and 4: sharing the display, then one window. Each capture
// delivers into a sink that forwards every frame to the engine, as the
// meeting application does; the stand-in's pull records the stream.
#include <algorithm>

#include "demo.h"
#include "roomcore/clock.h"

namespace {

class ShareSink : public DisplayCaptureEvent, public WindowCaptureEvent {
 public:
  explicit ShareSink(RTCEngine* engine) : engine_(engine) {}

  void OnCaptureStatus(int) override {
    std::lock_guard<std::mutex> hold(mutex_);
    ++statuses_;
  }
  void OnCaptureFrame(const uint8_t* data, uint32_t size, int width, int height, int,
                      int64_t timestamp) override {
    const bool pushed = engine_->PushDesktopFrame(data, static_cast<int32_t>(size), width, height, timestamp);
    // The capture thread's CPU time so far: grab, cursor, scale and delivery.
    const int64_t cpu = ThreadCpuMicroseconds();
    std::lock_guard<std::mutex> hold(mutex_);
    ++captured_;
    pushed_ += pushed ? 1 : 0;
    if (last_timestamp_) intervals_.push_back((timestamp - last_timestamp_) / 1000.0);
    last_timestamp_ = timestamp;
    if (cpu_first_ < 0) cpu_first_ = cpu;
    cpu_last_ = cpu;
  }
  int captured() {
    std::lock_guard<std::mutex> hold(mutex_);
    return captured_;
  }
  ShareResult Result(double seconds) {
    std::lock_guard<std::mutex> hold(mutex_);
    ShareResult r;
    r.captured = captured_;
    r.pushed = pushed_;
    r.statuses = statuses_;
    r.seconds = seconds;
    // The first frame's own cost is before the first reading; the rest are
    // between the first and the last.
    if (captured_ > 1) r.cpu_ms_per_frame = (cpu_last_ - cpu_first_) / 1000.0 / (captured_ - 1);
    r.interval_p50_ms = Percentile(intervals_, 0.5);
    r.interval_p99_ms = Percentile(intervals_, 0.99);
    return r;
  }

 private:
  RTCEngine* engine_;
  std::mutex mutex_;
  int captured_ = 0, pushed_ = 0, statuses_ = 0;
  std::vector<double> intervals_;
  int64_t last_timestamp_ = 0;
  int64_t cpu_first_ = -1, cpu_last_ = -1;
};

// Keeps a share's counts and says how it went; a share without a frame is a failure of the run.
bool Conclude(const char* what, bool started, const ShareResult& result, ShareResult* out, Results* results) {
  *out = result;
  Print("%s: %d frame(s) captured, %d pushed", what, result.captured, result.pushed);
  if (started && result.captured > 0) return true;
  results->failures.push_back(std::string(what) + ": no frame captured");
  return false;
}

void PrintShareProgress(const char* what, ShareSink* sink, double seconds) {
  const int64_t start = TimeMicroseconds();
  int last_second = 0;
  while ((TimeMicroseconds() - start) / 1e6 < seconds) {
    Sleep(100);
    const int second = static_cast<int>((TimeMicroseconds() - start) / 1000000);
    if (second != last_second) {
      last_second = second;
      Print("%s: %d s, %d frame(s) captured", what, second, sink->captured());
    }
  }
}

}  // namespace

bool RunDisplayShare(RTCEngine* engine, DemoWindows* demo, double seconds, Results* results) {
  DisplayCapture* capture = DisplayCapture::Create();
  const int displays = capture->GetDisplayCount();
  const DisplayInfo* display = capture->GetDisplay(0);
  if (!display) {
    results->failures.push_back("display: no display listed");
    DisplayCapture::Release(capture);
    return false;
  }
  Print("display: %d display(s); sharing %s (%dx%d) for %.0f s at %d fps", displays,
        Narrow(display->device_name).c_str(), display->width, display->height, seconds, kFrameRate);
  demo->ShowStage(true);
  ShareSink sink(engine);
  capture->SelectDisplay(display);
  capture->SetCaptureEvent(&sink);
  capture->SetFrameRate(kFrameRate);
  capture->SetOutputSize(kOutputWidth, kOutputHeight);
  capture->SetDrawCursor(true);
  const bool started = capture->Start();
  PrintShareProgress("display", &sink, seconds);
  capture->Stop();
  DisplayCapture::Release(capture);
  demo->ShowStage(false);
  return Conclude("display", started, sink.Result(seconds), &results->display, results);
}

bool RunWindowShare(RTCEngine* engine, DemoWindows* demo, double seconds, Results* results) {
  HWND window = demo->windows().front();
  Print("window: sharing \"roomcore demo: whiteboard\" for %.0f s at %d fps while it moves and grows",
        seconds, kFrameRate);
  WindowCapture* capture = WindowCapture::Create();
  ShareSink sink(engine);
  capture->SetCaptureEvent(&sink);
  capture->SetFrameRate(kFrameRate);
  capture->SetOutputSize(kOutputWidth, kOutputHeight);
  capture->SetDrawCursor(true);
  capture->SelectWindow(window);
  const bool started = capture->Start();
  // Move and resize the window in steps over the run.
  const int steps = std::max(1, static_cast<int>(seconds * 2));
  for (int i = 0; i < steps; ++i) {
    const int w = 800 + (i % 5) * 60, h = 600 + (i % 5) * 40;
    SetWindowPos(window, HWND_TOP, 40 + (i % 7) * 30, 40 + (i % 3) * 20, w, h, SWP_SHOWWINDOW);
    PrintShareProgress("window", &sink, seconds / steps);
  }
  capture->Stop();
  WindowCapture::Release(capture);
  return Conclude("window", started, sink.Result(seconds), &results->window, results);
}
