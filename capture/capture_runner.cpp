#include "capture/capture_runner.h"

#include <mmsystem.h>

#include <cstring>
#include <new>

#include "base/thread_start.h"
#include "capture/capture_platform.h"
#include "capture/dib_image_internal.h"
#include "fundus/fundus.h"
#include "roomcore/clock.h"
#include "roomcore/dib_image.h"

namespace capture {
namespace {

constexpr DWORD kStopWaitMs = 10000;
constexpr int kPollMs = 4;
constexpr int kPixelFormatBgra = 28;  // AV_PIX_FMT_BGRA
constexpr int kFitAndCentre = 2;

uint64_t PackSize(int width, int height) {
  return (static_cast<uint64_t>(static_cast<uint32_t>(width)) << 32) | static_cast<uint32_t>(height);
}

// No size packs to this: widths and heights of a failure are never both -1.
constexpr uint64_t kNoSize = ~uint64_t(0);

// What GetDIBits may write: at 8 bits a pixel or fewer a whole colour table
// follows the header.
struct ReadOutInfo {
  BITMAPINFOHEADER header;
  RGBQUAD colors[256];
};

}  // namespace

int64_t PeriodMicroseconds(int frames_per_second) {
  // A rate that isn't positive would make no period at all; the default holds.
  if (frames_per_second <= 0) frames_per_second = 12;
  return static_cast<int64_t>(1000000.0 / frames_per_second + 0.5);
}

MemoryPicture::MemoryPicture(HDC compatible_with, int width, int height)
    : dc_(CreateCompatibleDC(compatible_with)),
      bitmap_(width > 0 && height > 0 ? CreateCompatibleBitmap(compatible_with, width, height) : nullptr) {
  if (dc_ && bitmap_) previous_ = SelectObject(dc_, bitmap_);
}

MemoryPicture::~MemoryPicture() {
  if (dc_) {
    if (previous_) SelectObject(dc_, previous_);
    DeleteDC(dc_);
  }
  if (bitmap_) DeleteObject(bitmap_);
}

CaptureRunner::CaptureRunner(CaptureClient* client, const wchar_t* log_module)
    : client_(client),
      log_module_(log_module),
      stopped_event_(CreateEventW(nullptr, TRUE, TRUE, nullptr)),
      output_size_(PackSize(1920, 1080)),
      frame_failure_logged_(kNoSize),
      buffer_failure_logged_(kNoSize) {}

CaptureRunner::~CaptureRunner() {
  Shutdown();
  FreeOutputFrame();
}

void CaptureRunner::set_output_size(int width, int height) { output_size_.store(PackSize(width, height)); }

void CaptureRunner::output_size(int* width, int* height) const {
  const uint64_t packed = output_size_.load();
  *width = static_cast<int>(static_cast<uint32_t>(packed >> 32));
  *height = static_cast<int>(static_cast<uint32_t>(packed));
}

bool CaptureRunner::RunEnded() const { return WaitForSingleObject(stopped_event_.get(), 0) == WAIT_OBJECT_0; }

bool CaptureRunner::Start() {
  base::AutoLock guard(lock_);
  if (capturing_.load()) return false;
  // A thread that outlived the last Stop's wait still owns the buffers.
  if (base::WaitLettingSentMessagesThrough(stopped_event_.get(), kStopWaitMs) != WAIT_OBJECT_0) return false;
  stop_requested_.store(false);
  capturing_.store(true);
  ResetEvent(stopped_event_.get());
  DWORD thread_id = 0;
  HANDLE thread = base::StartThread(&CaptureRunner::ThreadMain, this, &thread_id);
  if (!thread) {
    stop_requested_.store(true);
    capturing_.store(false);
    SetEvent(stopped_event_.get());
    return false;
  }
  thread_id_.store(thread_id);
  // Detached: the end of the run is told by the stopped event alone.
  CloseHandle(thread);
  return true;
}

bool CaptureRunner::Stop() {
  base::AutoLock guard(lock_);
  if (stop_requested_.load()) return true;
  stop_requested_.store(true);
  capturing_.store(false);
  base::WaitLettingSentMessagesThrough(stopped_event_.get(), kStopWaitMs);
  return true;
}

void CaptureRunner::Shutdown() {
  Stop();
  if (!RunEnded() && GetCurrentThreadId() != thread_id_.load()) {
    base::WaitLettingSentMessagesThrough(stopped_event_.get(), INFINITE);
  }
}

bool CaptureRunner::DestroyAtRunEnd() {
  // Only the run's own thread, while the run lasts: an ended run may have
  // left its id to an unrelated thread.
  if (GetCurrentThreadId() != thread_id_.load() || RunEnded()) return false;
  stop_requested_.store(true);
  capturing_.store(false);
  destroy_at_end_.store(true);
  return true;
}

DWORD WINAPI CaptureRunner::ThreadMain(LPVOID param) {
  auto* runner = static_cast<CaptureRunner*>(param);
  // Before the first event: a host may release the capture from inside it.
  runner->thread_id_.store(GetCurrentThreadId());
  runner->Run();
  return 0;
}

void CaptureRunner::Run() {
  frame_failure_logged_ = kNoSize;
  buffer_failure_logged_ = kNoSize;
  client_->BeginRun();
  const int64_t period = PeriodMicroseconds(frame_rate_.load());
  // Starting from 0 makes the first pass due at once. Each pass counts from
  // the time it was found due: time lost to a slow pass isn't made up.
  int64_t last = 0;
  while (!stop_requested_.load()) {
    const int64_t now = TimeMicroseconds();
    if (now - last < period) {
      SleepAccurate(kPollMs);
      continue;
    }
    last = now;
    client_->Pass();
  }
  client_->EndRun();
  // Read before the signal: once it is given, an owner that isn't ours to
  // destroy may be destroyed by the thread that waits for it.
  const bool destroy = destroy_at_end_.load();
  CaptureClient* const client = client_;
  SetEvent(stopped_event_.get());
  if (!destroy) return;
  // A Start or Stop that another thread is inside finishes first.
  { base::AutoLock guard(lock_); }
  client->DestroyOwner();
}

I420Frame* CaptureRunner::OutputFrame(int width, int height) {
  if (output_frame_ && (output_frame_->width != width || output_frame_->height != height)) FreeOutputFrame();
  if (!output_frame_) output_frame_ = CreateI420Frame(width, height, false, 1);
  if (!output_frame_)
    LogFailureOnce(&frame_failure_logged_, L"CaptureThread, no output frame of width: %d, height: %d", width,
                   height);
  return output_frame_;
}

void CaptureRunner::LogFailureOnce(uint64_t* logged, const wchar_t* format, int width, int height) const {
  const uint64_t size = PackSize(width, height);
  if (*logged == size) return;
  *logged = size;
  Util::Log::Info(log_module_, format, width, height);
}

void CaptureRunner::PrepareOutputFrame() {
  int width = 0;
  int height = 0;
  output_size(&width, &height);
  if (width > 0 && height > 0) OutputFrame(width, height);
}

void CaptureRunner::FreeOutputFrame() {
  if (output_frame_) FreeI420Frame(output_frame_);
  output_frame_ = nullptr;
}

void CaptureRunner::DestroyScaler() { scaler_.reset(); }

void CaptureRunner::FreeGrabBuffer() {
  grab_buffer_.reset();
  grab_buffer_size_ = 0;
}

const uint8_t* CaptureRunner::ReadOut(HDC dc, HBITMAP bitmap, int width, int height, int bits) {
  if (width <= 0 || height <= 0 || !bitmap) return nullptr;
  // Sized in 64 bits: a wrapped size would be a small buffer that the
  // read-out overruns by gigabytes.
  const uint64_t bytes = PictureBytes(width, height);
  if (!FitsSizeField(bytes)) {
    LogFailureOnce(&buffer_failure_logged_, L"CaptureThread, no grab buffer of width: %d, height: %d", width,
                   height);
    return nullptr;
  }
  ReadOutInfo info = {};
  InitBitMapInfo(width, height, true, bits, reinterpret_cast<BITMAPINFO*>(&info));
  if (bytes != grab_buffer_size_ || !grab_buffer_) {
    grab_buffer_.reset();
    grab_buffer_size_ = 0;
    grab_buffer_.reset(new (std::nothrow) uint8_t[static_cast<size_t>(bytes)]);
    if (!grab_buffer_) {
      LogFailureOnce(&buffer_failure_logged_, L"CaptureThread, no grab buffer of width: %d, height: %d",
                     width, height);
      return nullptr;
    }
    grab_buffer_size_ = static_cast<uint32_t>(bytes);
  }
  if (!Platform().get_di_bits(dc, bitmap, 0, static_cast<UINT>(height), grab_buffer_.get(),
                              reinterpret_cast<BITMAPINFO*>(&info), DIB_RGB_COLORS)) {
    return nullptr;
  }
  return grab_buffer_.get();
}

void CaptureRunner::Deliver(const uint8_t* data, int width, int height, int64_t timestamp) {
  if (stop_requested_.load()) return;
  int output_width = 0;
  int output_height = 0;
  output_size(&output_width, &output_height);
  if (output_width <= 0 || output_height <= 0) return;
  I420Frame* frame = OutputFrame(output_width, output_height);
  if (!frame) return;
  if (!scaler_) scaler_.reset(new (std::nothrow) FrameScaler());
  if (!scaler_) return;
  scaler_->Scale(frame->planes[0], frame->linesizes[0], frame->planes[1], frame->linesizes[1],
                 frame->planes[2], frame->linesizes[2], frame->width, frame->height, data, width * 4, width,
                 height, kPixelFormatBgra, kFitAndCentre);
  if (!stop_requested_.load() && client_->HasEvent()) {
    client_->SendFrame(frame->data, frame->size, output_width, output_height, timestamp);
  }
}

void CaptureRunner::DeliverBlack() {
  if (stop_requested_.load() || !client_->HasEvent()) return;
  int output_width = 0;
  int output_height = 0;
  output_size(&output_width, &output_height);
  if (output_width <= 0 || output_height <= 0) return;
  I420Frame* frame = OutputFrame(output_width, output_height);
  if (!frame) return;
  const size_t luma = static_cast<size_t>(frame->planes[1] - frame->planes[0]);
  std::memset(frame->planes[0], 1, luma);
  std::memset(frame->planes[1], 128, frame->size - luma);
  client_->SendFrame(frame->data, frame->size, output_width, output_height, TimeMicroseconds());
}

void CaptureRunner::LogPass(int width, int height, DWORD begin) const {
  Util::Log::Info(log_module_, L"CaptureThread, width: %d, height: %d, Cost: %u", width, height,
                  static_cast<unsigned>(timeGetTime() - begin));
}

}  // namespace capture
