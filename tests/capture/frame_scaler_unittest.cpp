#include "capture/frame_scaler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "bench/allocation_hooks.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace {

constexpr int kFit = 2;
constexpr int kStretch = 1;
constexpr uint8_t kSentinel = 0x55;  // never a value the scaler writes in these pictures

struct Rgb {
  int r, g, b;
};

// BT.601, limited range: what libswscale's defaults give for RGB into YUV.
double Bt601(Rgb c, int plane) {
  if (plane == 0) return 16 + (65.481 * c.r + 128.553 * c.g + 24.966 * c.b) / 255.0;
  if (plane == 1) return 128 + (-37.797 * c.r - 74.203 * c.g + 112.0 * c.b) / 255.0;
  return 128 + (112.0 * c.r - 93.786 * c.g - 18.214 * c.b) / 255.0;
}

// 4 x 2 cells of distinct colours: a mirrored, flipped or channel-swapped
// picture shows.
const Rgb kCells[2][4] = {{{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0}},
                          {{255, 0, 255}, {255, 0, 0}, {0, 0, 255}, {0, 0, 0}}};
Rgb Grid(int x, int y, int w, int h) { return kCells[y * 2 / h][x * 4 / w]; }
Rgb Gradient(int x, int y, int, int) { return {(x * 7) & 255, (y * 5) & 255, ((x + y) * 3) & 255}; }
Rgb White(int, int, int, int) { return {255, 255, 255}; }

// A BGRA picture with black padding behind each line.
struct Bgra {
  Bgra(int w, int h, Rgb (*colour)(int, int, int, int))
      : width(w), height(h), stride(w * 4 + 64), pixels(static_cast<size_t>(stride) * h) {
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const Rgb c = colour(x, y, w, h);
        uint8_t* p = &pixels[static_cast<size_t>(y) * stride + x * 4];
        p[0] = static_cast<uint8_t>(c.b), p[1] = static_cast<uint8_t>(c.g), p[2] = static_cast<uint8_t>(c.r);
        p[3] = 255;
      }
    }
  }
  int width, height, stride;
  std::vector<uint8_t> pixels;
};

// Three target planes of the given line sizes, filled with a sentinel so that a
// byte nobody wrote shows, with 64 more bytes behind each that must stay so.
struct Planes {
  Planes(int w, int h, int y_stride = 0, int c_stride = 0) : width(w), height(h) {
    stride[0] = y_stride ? y_stride : w;
    stride[1] = stride[2] = c_stride ? c_stride : (w + 1) / 2;
    for (int p = 0; p < 3; ++p) data[p].assign(Painted(p) + 64, kSentinel);
  }
  int Rows(int p) const { return p ? (height + 1) / 2 : height; }
  size_t Painted(int p) const { return static_cast<size_t>(stride[p]) * Rows(p); }
  int width, height, stride[3];
  std::vector<uint8_t> data[3];
};

void Scale(FrameScaler& scaler, Planes& t, const Bgra& source, int mode = kFit,
           int format = AV_PIX_FMT_BGRA) {
  scaler.Scale(t.data[0].data(), t.stride[0], t.data[1].data(), t.stride[1], t.data[2].data(), t.stride[2],
               t.width, t.height, source.pixels.data(), source.stride, source.width, source.height, format,
               mode);
}

// Whether source coordinate `at` lies within `margin` pixels of an edge
// between two of `cells` cells over `size` pixels, where the bicubic filter
// mixes neighbours. The picture's own outer edges don't count.
bool NearCellEdge(double at, int size, int cells, double margin) {
  for (int k = 1; k < cells; ++k) {
    if (std::fabs(at - (k * size + cells - 1) / cells) < margin) return true;
  }
  return false;
}

struct FitCase {
  int source_width, source_height;
  int fitted_width, fitted_height, offset_x, offset_y;                           // worked out by hand
  int mode = kFit, width = 1920, height = 1080, y_linesize = 0, c_linesize = 0;  // 0: packed lines
};
void PrintTo(const FitCase& c, std::ostream* os) {
  *os << c.source_width << "x" << c.source_height << " mode " << c.mode << " into " << c.width << "x"
      << c.height << " lines " << c.y_linesize << "/" << c.c_linesize;
}

// Checks every byte of plane `p`, laid out in lines of `line` bytes: outside
// the picture exactly `outside`; inside, the grid cell at that spot of the
// source within 2 of BT.601; behind the painted area still the sentinel.
::testing::AssertionResult CheckGrid(const Planes& t, int p, int line, int outside, const Bgra& source,
                                     const FitCase& c) {
  const int sub = p ? 2 : 1;  // luma pixels per byte of this plane
  const int left = c.offset_x / sub, top = c.offset_y / sub;
  const int right = left + (c.fitted_width + sub - 1) / sub, bottom = top + (c.fitted_height + sub - 1) / sub;
  // In source pixels: a filter reaches 2 of them, or 2 output pixels when
  // shrinking; chroma twice as far.
  const double scale_x = static_cast<double>(source.width) / c.fitted_width;
  const double scale_y = static_cast<double>(source.height) / c.fitted_height;
  const double margin_x = sub * std::max(3.0, 2.5 * scale_x), margin_y = sub * std::max(3.0, 2.5 * scale_y);
  int failures = 0;
  std::string first;
  for (size_t i = 0; i < t.data[p].size(); ++i) {
    const int x = static_cast<int>(i % line), y = static_cast<int>(i / line);
    const int got = t.data[p][i];
    double want = i >= t.Painted(p) ? kSentinel : outside;
    bool ok = got == want;
    if (i < t.Painted(p) && x >= left && x < right && y >= top && y < bottom) {
      // The last chroma byte of an odd size half covers the picture.
      const double sx = std::min((x - left + 0.5) * sub * scale_x, source.width - 0.5);
      const double sy = std::min((y - top + 0.5) * sub * scale_y, source.height - 0.5);
      want = Bt601(Grid(static_cast<int>(sx), static_cast<int>(sy), source.width, source.height), p);
      ok = NearCellEdge(sx, source.width, 4, margin_x) || NearCellEdge(sy, source.height, 2, margin_y) ||
           std::fabs(got - want) <= 2.0;
    }
    if (!ok && failures++ < 5) {
      first += " (" + std::to_string(x) + "," + std::to_string(y) + ")=" + std::to_string(got) + " want " +
               std::to_string(want) + ";";
    }
  }
  if (failures == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "plane " << p << ": " << failures << " wrong bytes:" << first;
}

class FrameScalerPicture : public ::testing::TestWithParam<FitCase> {};

// A grid: the bars exactly black (1, 128, 128) around the picture at its
// offset, chroma at half of it rounded down, the lines packed by `width` and
// (`width` + 1) / 2; every cell in its place and colour. Mode 1 scales
// straight into the target through its line sizes, the padding untouched.
TEST_P(FrameScalerPicture, GridInPlace) {
  const FitCase c = GetParam();
  const Bgra grid(c.source_width, c.source_height, Grid);
  Planes target(c.width, c.height, c.y_linesize, c.c_linesize);
  FrameScaler scaler;
  Scale(scaler, target, grid, c.mode);
  ASSERT_EQ(scaler.fitted_width(), c.fitted_width);
  ASSERT_EQ(scaler.fitted_height(), c.fitted_height);
  const bool stretch = c.mode == kStretch;
  for (int p = 0; p < 3; ++p) {
    const int line = stretch ? target.stride[p] : (p ? (c.width + 1) / 2 : c.width);
    EXPECT_TRUE(CheckGrid(target, p, line, stretch ? kSentinel : (p ? 128 : 1), grid, c));
  }
}

// Byte for byte: the plain conversion at the fitted size (mode 1 into a target
// of that size) placed on black: all of line size times lines painted, then
// copied line by line.
class FrameScalerPlace : public FrameScalerPicture {};

TEST_P(FrameScalerPlace, EqualsConversionPlacedOnBlack) {
  const FitCase c = GetParam();
  const Bgra source(c.source_width, c.source_height, Gradient);
  Planes target(c.width, c.height, c.y_linesize, c.c_linesize);
  FrameScaler scaler;
  Scale(scaler, target, source, c.mode);
  Planes fitted(c.fitted_width, c.fitted_height);
  FrameScaler plain;
  Scale(plain, fitted, source, kStretch);
  Planes want(c.width, c.height, c.y_linesize, c.c_linesize);
  for (int p = 0; p < 3; ++p) {
    const int sub = p ? 2 : 1;
    std::memset(want.data[p].data(), p ? 128 : 1, want.Painted(p));
    for (int i = 0; i < fitted.Rows(p); ++i) {
      std::memcpy(&want.data[p][static_cast<size_t>(c.offset_y / sub + i) * ((c.width + sub - 1) / sub) +
                                c.offset_x / sub],
                  &fitted.data[p][static_cast<size_t>(i) * fitted.stride[p]], fitted.stride[p]);
    }
    EXPECT_TRUE(target.data[p] == want.data[p]) << "plane " << p;
  }
}

const FitCase kFitCases[] = {
    {1920, 1080, 1920, 1080, 0, 0},                    // same size: no black remains
    {1280, 1024, 1350, 1080, 285, 0},                  // bars left and right, odd offset
    {1000, 200, 1920, 384, 0, 348},                    // bars above and below
    {1366, 768, 1920, 1079, 0, 0},                     // truncation leaves the last line black
    {1000, 201, 1920, 385, 0, 347},                    // odd vertical offset
    {1001, 1000, 1081, 1080, 419, 0},                  // odd width: chroma rounds up
    {64, 64, 51, 51, 25, 0, 0, 101, 51},               // odd target; mode 0 fits too
    {64, 64, 64, 64, 0, 0, kFit, 65, 64},              // bars of one byte between the lines
    {300, 100, 64, 21, 0, 21, kFit, 64, 64, 80, 48}};  // line sizes beyond the lines: painted too
INSTANTIATE_TEST_SUITE_P(Fit, FrameScalerPicture, ::testing::ValuesIn(kFitCases));
INSTANTIATE_TEST_SUITE_P(Stretch, FrameScalerPicture,
                         ::testing::Values(FitCase{1280, 1024, 1920, 1080, 0, 0, kStretch, 1920, 1080, 1984,
                                                   1024}));
INSTANTIATE_TEST_SUITE_P(Fit, FrameScalerPlace, ::testing::ValuesIn(kFitCases));

// A rebuild exactly when one of the six values changed, and a frame without
// one allocates nothing (calls counted in this program, avutil and swscale).
TEST(FrameScalerRebuild, OnlyOnChangeAndSteadyFramesAllocateNothing) {
  bench::InstallAllocationHooks();
  const Bgra full(1920, 1080, Gradient), wide(1280, 1080, Gradient), small(1280, 1024, Gradient);
  Planes big(1920, 1080), narrow(960, 1080), half(960, 540);
  struct Step {
    const Bgra* source;
    Planes* target;
    int format, mode, rebuilds, fitted_width;
  };
  const int bgra = AV_PIX_FMT_BGRA, rgba = AV_PIX_FMT_RGBA;
  const Step steps[] = {{&full, &big, bgra, kFit, 1, 1920},         // the first frame
                        {&full, &big, bgra, kFit, 1, 1920},         // steady
                        {&wide, &big, bgra, kFit, 2, 1280},         // source width alone
                        {&wide, &big, bgra, kFit, 2, 1280},         // steady
                        {&small, &big, bgra, kFit, 3, 1350},        // source height alone
                        {&small, &big, rgba, kFit, 4, 1350},        // format alone
                        {&small, &big, rgba, 0, 5, 1350},           // mode 0 fits like 2, yet is another mode
                        {&small, &big, rgba, kStretch, 6, 1920},    // mode 1
                        {&small, &big, rgba, kStretch, 6, 1920},    // steady
                        {&small, &narrow, rgba, kStretch, 7, 960},  // target width alone
                        {&small, &half, rgba, kStretch, 8, 960},    // target height alone
                        {&small, &half, rgba, kFit, 9, 675},        // mode 2 again
                        {&small, &half, rgba, kFit, 9, 675}};       // steady
  FrameScaler scaler;
  int rebuilds = 0;
  for (size_t i = 0; i < sizeof(steps) / sizeof(steps[0]); ++i) {
    const Step& s = steps[i];
    const int64_t before = bench::AllocationCount();
    Scale(scaler, *s.target, *s.source, s.mode, s.format);
    const int64_t allocations = bench::AllocationCount() - before;
    EXPECT_EQ(scaler.rebuild_count(), s.rebuilds) << "step " << i;
    EXPECT_EQ(scaler.fitted_width(), s.fitted_width) << "step " << i;
    if (s.rebuilds > rebuilds) {
      EXPECT_GT(allocations, 0) << "step " << i << " makes a context and an image";
    } else {
      EXPECT_EQ(allocations, 0) << "step " << i;
    }
    rebuilds = s.rebuilds;
  }
}

// Values no rebuild can serve: the frame is dropped without a crash, the
// target keeps what it had, and a frame of good values works again.
TEST(FrameScalerFailure, BadValuesLeaveTheTargetUntouched) {
  const Bgra white(4000, 48, White);  // wide enough for every source below
  Planes target(64, 48);
  const Planes blank(64, 48);
  struct Call {
    int width, source_width, source_height;
    bool source;
    int format, rebuilds;
  };
  const Call calls[] = {
      {64, 0, 48, true, AV_PIX_FMT_BGRA, 0},  // sizes that describe no picture: refused before a rebuild
      {64, 64, -48, true, AV_PIX_FMT_BGRA, 0},
      {0, 64, 48, true, AV_PIX_FMT_BGRA, 0},
      {64, 64, 48, false, AV_PIX_FMT_BGRA, 0},
      {64, 64, 48, true, AV_PIX_FMT_VAAPI, 1},  // a hardware format: sws_getContext fails
      {64, 64, 48, true, 100000, 2},            // no such pixel format at all
      {64, 64, 48, true, 100000, 2},            // the same values: no second attempt
      {64, 4000, 1, true, AV_PIX_FMT_BGRA, 3},  // fitted height 64 * 1 / 4000 = 0: no image
  };
  FrameScaler scaler;
  auto scale = [&](int width, int source_width, int source_height, const uint8_t* source, int format) {
    scaler.Scale(target.data[0].data(), 64, target.data[1].data(), 32, target.data[2].data(), 32, width, 48,
                 source, white.stride, source_width, source_height, format, kFit);
  };
  for (const Call& c : calls) {
    scale(c.width, c.source_width, c.source_height, c.source ? white.pixels.data() : nullptr, c.format);
    EXPECT_EQ(scaler.rebuild_count(), c.rebuilds);
    EXPECT_EQ(scaler.fitted_height(), 0);
    for (int p = 0; p < 3; ++p)
      EXPECT_TRUE(target.data[p] == blank.data[p]) << "after rebuild " << c.rebuilds;
  }
  scale(64, 64, 48, white.pixels.data(), AV_PIX_FMT_BGRA);
  EXPECT_EQ(scaler.rebuild_count(), 4);
  EXPECT_NEAR(target.data[0][0], Bt601(White(0, 0, 0, 0), 0), 2);
}

}  // namespace
