#include "capture/frame_scaler.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/mem.h>
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

namespace {

constexpr int kStretch = 1;
constexpr uint8_t kBlackLuma = 1;
constexpr uint8_t kBlackChroma = 128;

// Writes `value` to the bytes [0, length) of `plane` that the placing of a
// picture will not cover: `rows` lines from line `first_row`, `columns` bytes
// from byte `column` of each, lines being `stride` bytes apart. Because
// `column` + `columns` never exceeds `stride`, the covered spans come in
// increasing order and never overlap, so the gaps between them are the bars.
void PaintAround(uint8_t* plane, size_t length, int stride, int first_row, int rows, int column, int columns,
                 uint8_t value) {
  size_t painted_to = 0;  // everything below is painted or covered
  for (int r = first_row; r < first_row + rows && painted_to < length; ++r) {
    const size_t start = static_cast<size_t>(r) * stride + column;
    if (start > painted_to) std::memset(plane + painted_to, value, std::min(start, length) - painted_to);
    painted_to = start + columns;
  }
  if (painted_to < length) std::memset(plane + painted_to, value, length - painted_to);
}

}  // namespace

FrameScaler::Size FrameScaler::Fit(int width, int height, int source_width, int source_height, int mode) {
  // Modes 0 and 2 fit and centre; a value without a meaning of its own is
  // taken as fitting too, the mode that keeps the picture's proportions.
  if (mode == kStretch || width <= 0 || height <= 0 || source_width <= 0 || source_height <= 0) {
    return Size{width, height};
  }
  // In 64 bits: products of real sizes pass 2^31, and a wrapped product could
  // make a fitted picture larger than the target it is placed into. Each
  // quotient is at most the target's own side, so it fits back into 32 bits.
  const int64_t w = width, h = height, sw = source_width, sh = source_height;
  if (sw * h < sh * w) return Size{static_cast<int>(h * sw / sh), height};
  return Size{width, static_cast<int>(w * sh / sw)};
}

FrameScaler::FrameScaler() = default;

FrameScaler::~FrameScaler() { Release(); }

void FrameScaler::Release() {
  if (fitted_.planes[0]) av_freep(&fitted_.planes[0]);
  fitted_ = {};
  if (context_) {
    sws_freeContext(context_);
    context_ = nullptr;
  }
}

void FrameScaler::Rebuild(int width, int height, int source_width, int source_height, int source_format,
                          int mode) {
  ++rebuild_count_;
  output_width_ = width;
  output_height_ = height;
  source_width_ = source_width;
  source_height_ = source_height;
  source_format_ = source_format;
  mode_ = mode;

  // The old context goes before anything is made for the new size, so that a
  // failure below can never leave a stale context next to a new image.
  Release();

  const Size fitted = Fit(width, height, source_width, source_height, mode);
  const int fitted_width = fitted.width;
  const int fitted_height = fitted.height;

  Image image = {};
  image.width = fitted_width;
  image.height = fitted_height;
  if (av_image_alloc(image.planes, image.linesizes, fitted_width, fitted_height, AV_PIX_FMT_YUV420P, 1) < 0) {
    return;
  }
  // libswscale asserts on a format value it has no description for, so an
  // unknown value is refused here as a failed rebuild instead.
  SwsContext* context =
      !sws_isSupportedInput(static_cast<AVPixelFormat>(source_format))
          ? nullptr
          : sws_getContext(source_width, source_height, static_cast<AVPixelFormat>(source_format),
                           fitted_width, fitted_height, AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr,
                           nullptr);
  if (!context) {
    av_freep(&image.planes[0]);
    return;
  }
  fitted_ = image;
  context_ = context;
}

void FrameScaler::Scale(uint8_t* y, int y_linesize, uint8_t* u, int u_linesize, uint8_t* v, int v_linesize,
                        int width, int height, const uint8_t* source, int source_linesize, int source_width,
                        int source_height, int source_format, int mode) {
  // Sizes that cannot describe a picture (and would divide by zero in the
  // fit) are refused before they reach the rebuild, like a failed rebuild.
  if (width <= 0 || height <= 0 || source_width <= 0 || source_height <= 0 || !source || !y || !u || !v) {
    return;
  }
  // The painted area (line size times lines) is worked out in 64 bits: one
  // beyond what this process can address is no buffer of its, and wrapped it
  // would be painted short or far past its end.
  if (mode != kStretch) {
    const int64_t chroma_height = (static_cast<int64_t>(height) + 1) / 2;
    for (int64_t bytes :
         {static_cast<int64_t>(y_linesize) * height, static_cast<int64_t>(u_linesize) * chroma_height,
          static_cast<int64_t>(v_linesize) * chroma_height}) {
      if (bytes < 0 || static_cast<uint64_t>(bytes) > SIZE_MAX) return;
    }
  }
  if (width != output_width_ || height != output_height_ || source_width != source_width_ ||
      source_height != source_height_ || mode != mode_ || source_format != source_format_) {
    Rebuild(width, height, source_width, source_height, source_format, mode);
  }
  // A failed rebuild leaves no context: the target keeps its last picture
  // until a frame of other values brings a new rebuild.
  if (!context_) return;

  const uint8_t* const source_planes[4] = {source, nullptr, nullptr, nullptr};
  const int source_linesizes[4] = {source_linesize, 0, 0, 0};
  if (mode == kStretch) {
    uint8_t* const target_planes[4] = {y, u, v, nullptr};
    const int target_linesizes[4] = {y_linesize, u_linesize, v_linesize, 0};
    sws_scale(context_, source_planes, source_linesizes, 0, source_height, target_planes, target_linesizes);
    return;
  }
  sws_scale(context_, source_planes, source_linesizes, 0, source_height, fitted_.planes, fitted_.linesizes);
  PaintAndPlace(y, y_linesize, u, u_linesize, v, v_linesize, width, height);
}

void FrameScaler::PaintAndPlace(uint8_t* y, int y_linesize, uint8_t* u, int u_linesize, uint8_t* v,
                                int v_linesize, int width, int height) {
  const int offset_x = (width - fitted_.width) / 2;
  const int offset_y = (height - fitted_.height) / 2;
  const int chroma_width = (width + 1) / 2;
  const int chroma_height = (height + 1) / 2;
  const int fitted_chroma_width = (fitted_.width + 1) / 2;
  const int fitted_chroma_height = (fitted_.height + 1) / 2;

  // Black goes over the whole painted area (line size times lines) except
  // the bytes the picture is placed on right after: the result is the same as
  // painting everything first, without writing most of the target twice.
  PaintAround(y, static_cast<size_t>(y_linesize) * height, width, offset_y, fitted_.height, offset_x,
              fitted_.width, kBlackLuma);
  PaintAround(u, static_cast<size_t>(u_linesize) * chroma_height, chroma_width, offset_y / 2,
              fitted_chroma_height, offset_x / 2, fitted_chroma_width, kBlackChroma);
  PaintAround(v, static_cast<size_t>(v_linesize) * chroma_height, chroma_width, offset_y / 2,
              fitted_chroma_height, offset_x / 2, fitted_chroma_width, kBlackChroma);

  for (int i = 0; i < fitted_.height; ++i) {
    std::memcpy(y + static_cast<size_t>(offset_y + i) * width + offset_x,
                fitted_.planes[0] + static_cast<size_t>(i) * fitted_.linesizes[0], fitted_.width);
  }
  for (int i = 0; i < fitted_chroma_height; ++i) {
    const size_t at = static_cast<size_t>(offset_y / 2 + i) * chroma_width + offset_x / 2;
    std::memcpy(u + at, fitted_.planes[1] + static_cast<size_t>(i) * fitted_.linesizes[1],
                fitted_chroma_width);
    std::memcpy(v + at, fitted_.planes[2] + static_cast<size_t>(i) * fitted_.linesizes[2],
                fitted_chroma_width);
  }
}
