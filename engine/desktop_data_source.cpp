#include "engine/desktop_data_source.h"

#include <cstring>

DesktopDataSource::DesktopDataSource() : queue_(new FrameQueue(kQueueCapacity, &pool_)) {}

DesktopDataSource::~DesktopDataSource() {
  // The SDK pulls while it holds `mutex`. Taking it waits for a pull under
  // way; telling the SDK through its hook while holding it, as the base
  // would, means that no pull starts afterwards. The hook then has run and
  // the base finds nothing more to tell. Only after the mutex is given back
  // does the queue go, under its own lock alone.
  WaitForSingleObject(mutex, INFINITE);
  void (*hook)(void*) = on_destroy;
  on_destroy = nullptr;
  if (hook) hook(on_destroy_context);
  ReleaseMutex(mutex);
  delete queue_;
  queue_ = nullptr;
}

bool DesktopDataSource::Enable() {
  pool_.Open();
  enabled_ = true;
  queue_->Clear();
  return true;
}

bool DesktopDataSource::Disable() {
  enabled_ = false;
  // Nothing streams until the next Enable: the frames' memory goes back,
  // also that of a frame a pull under way gives back later.
  pool_.Close();
  queue_->Clear();
  return true;
}

void DesktopDataSource::Trim() { pool_.Clear(); }

void DesktopDataSource::PushFrame(const void* data, int32_t /*size*/, int32_t width, int32_t height,
                                  int64_t pts) {
  if (!enabled_ || !data || width <= 0 || height <= 0) return;
  I420Frame* frame = pool_.Take(width, height);
  // A size whose picture can't be made (or allocated) is dropped.
  if (!frame) return;
  memcpy(frame->data, data, frame->size);
  frame->timestamp = pts;
  queue_->Push(frame);
  // A Disable that ran meanwhile has emptied the queue already: this
  // picture must not stay in it until the next Enable.
  if (!enabled_) queue_->Clear();
}

int32_t DesktopDataSource::onPullVideo(TRTCVideoFrame* out) {
  if (!enabled_ || !queue_ || !out) return 0;
  I420Frame* frame = nullptr;
  if (!queue_->Pop(&frame) || !frame) return 0;
  out->width = frame->width;
  out->height = frame->height;
  out->buffer_type = TRTCVideoBufferType_Buffer;
  out->video_format = TRTCVideoPixelFormat_I420;
  if (out->data) {
    memcpy(out->data, frame->data, frame->size);
    out->length = frame->size;
  } else {
    out->length = 0;  // nowhere to put it: the picture is dropped
  }
  out->timestamp = static_cast<uint64_t>(frame->timestamp);
  pool_.Give(frame);
  return static_cast<int32_t>(out->length);
}

int32_t DesktopDataSource::onPullAudio(TRTCAudioFrame* /*out*/) { return 0; }
