#include "engine/desktop_data_source.h"

#include <cstring>

DesktopDataSource::DesktopDataSource() : queue_(new FrameQueue(kQueueCapacity)) {}

DesktopDataSource::~DesktopDataSource() {
  // The SDK pulls while it holds `mutex`. Taking it here waits for a pull
  // that is under way, and keeping it shuts out any new pull until the base
  // destructor, which takes the (recursive) mutex again, has told the SDK
  // through on_destroy. The base closes the handle while this thread still
  // owns it once; the mutex goes with its last handle.
  WaitForSingleObject(mutex, INFINITE);
  FrameQueue* queue = queue_;
  queue_ = nullptr;
  queue->Clear();
  delete queue;
  FreeI420Frame(spare_.exchange(nullptr));
}

bool DesktopDataSource::Enable() {
  enabled_ = true;
  queue_->Clear();
  return true;
}

bool DesktopDataSource::Disable() {
  enabled_ = false;
  queue_->Clear();
  // Nothing streams until the next Enable: give the spare's memory back.
  FreeI420Frame(spare_.exchange(nullptr));
  return true;
}

I420Frame* DesktopDataSource::TakeSpare(int32_t width, int32_t height) {
  I420Frame* frame = spare_.exchange(nullptr);
  if (frame && (frame->width != width || frame->height != height)) {
    FreeI420Frame(frame);
    frame = nullptr;
  }
  return frame;
}

void DesktopDataSource::KeepSpare(I420Frame* frame) { FreeI420Frame(spare_.exchange(frame)); }

void DesktopDataSource::PushFrame(const void* data, int32_t /*size*/, int32_t width, int32_t height,
                                  int64_t pts) {
  if (!enabled_ || !data || width <= 0 || height <= 0) return;
  I420Frame* frame = TakeSpare(width, height);
  if (!frame) frame = CreateI420Frame(width, height, false, 0);
  if (!frame) return;
  memcpy(frame->data, data, frame->size);
  frame->timestamp = pts;
  queue_->Push(frame);
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
  KeepSpare(frame);
  return static_cast<int32_t>(out->length);
}

int32_t DesktopDataSource::onPullAudio(TRTCAudioFrame* /*out*/) { return 0; }
