// Fits one packed picture of any size into an I420 picture of a fixed size:
// aspect ratio kept, centred, the rest black (Y 1, U and V 128).
#pragma once

#include <cstdint>

struct SwsContext;

class FrameScaler {
 public:
  FrameScaler();
  ~FrameScaler();
  FrameScaler(const FrameScaler&) = delete;
  FrameScaler& operator=(const FrameScaler&) = delete;

  // Target: three planes with their line sizes, and its size in pixels. In the
  // fitting modes (0 and 2) the target lines must be packed as in I420Frame:
  // the picture is placed by `width` and (`width` + 1) / 2 bytes a line. Mode 1
  // stretches the source straight into the target with its own line sizes.
  void Scale(uint8_t* y, int y_linesize, uint8_t* u, int u_linesize, uint8_t* v, int v_linesize, int width,
             int height, const uint8_t* source, int source_linesize, int source_width, int source_height,
             int source_format, int mode);

  struct Size {
    int width;
    int height;
  };
  // The size `source` is fitted to in the target: in modes 0 and 2 aspect
  // ratio kept, divisions truncating, never beyond the target; in mode 1 the
  // target's own.
  static Size Fit(int width, int height, int source_width, int source_height, int mode);

  // For tests and benchmarks: how often the conversion was set up anew, and the
  // size the picture was fitted to by the last rebuild (0 if it failed).
  int rebuild_count() const { return rebuild_count_; }
  int fitted_width() const { return fitted_.width; }
  int fitted_height() const { return fitted_.height; }

 private:
  struct Image {
    uint8_t* planes[4];
    int linesizes[4];
    int width;
    int height;
  };

  void Rebuild(int width, int height, int source_width, int source_height, int source_format, int mode);
  void Release();
  void PaintAndPlace(uint8_t* y, int y_linesize, uint8_t* u, int u_linesize, uint8_t* v, int v_linesize,
                     int width, int height);

  int mode_ = 0;
  SwsContext* context_ = nullptr;
  Image fitted_ = {};
  int source_width_ = 0;
  int source_height_ = 0;
  int output_width_ = 0;
  int output_height_ = 0;
  int source_format_ = -1;  // AV_PIX_FMT_NONE
  int rebuild_count_ = 0;
};
