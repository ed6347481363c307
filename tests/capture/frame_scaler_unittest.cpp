#include "capture/frame_scaler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "base/i420_frame.h"

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
struct Yuv {
  double y, u, v;
};
Yuv Bt601(Rgb c) {
  return {16 + (65.481 * c.r + 128.553 * c.g + 24.966 * c.b) / 255.0,
          128 + (-37.797 * c.r - 74.203 * c.g + 112.0 * c.b) / 255.0,
          128 + (112.0 * c.r - 93.786 * c.g - 18.214 * c.b) / 255.0};
}

// A packed BGRA picture.
struct Bgra {
  Bgra(int w, int h) : width(w), height(h), pixels(static_cast<size_t>(w) * h * 4) {}
  void Set(int x, int y, Rgb c) {
    uint8_t* p = &pixels[(static_cast<size_t>(y) * width + x) * 4];
    p[0] = static_cast<uint8_t>(c.b);
    p[1] = static_cast<uint8_t>(c.g);
    p[2] = static_cast<uint8_t>(c.r);
    p[3] = 255;
  }
  void Fill(const std::function<Rgb(int, int)>& colour) {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) Set(x, y, colour(x, y));
  }
  int width, height;
  std::vector<uint8_t> pixels;
};

// A target frame filled with a sentinel, so that a byte nobody wrote shows.
struct Target {
  Target(int w, int h) : frame(CreateI420Frame(w, h, false, 0)) {
    std::memset(frame->data, kSentinel, frame->size);
  }
  ~Target() { FreeI420Frame(frame); }
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
  I420Frame* frame;
};

void Scale(FrameScaler& scaler, const Target& target, const Bgra& source, int mode = kFit,
           int format = AV_PIX_FMT_BGRA) {
  I420Frame* f = target.frame;
  scaler.Scale(f->planes[0], f->linesizes[0], f->planes[1], f->linesizes[1], f->planes[2], f->linesizes[2],
               f->width, f->height, source.pixels.data(), source.width * 4, source.width, source.height,
               format, mode);
}

struct Rect {
  int x, y, w, h;
  bool Contains(int px, int py) const { return px >= x && px < x + w && py >= y && py < y + h; }
};

// Checks every byte of a plane: outside `picture` exactly `bar`; inside, within
// 2 of what `expected` gives (a negative result means "not checked": the
// blur across an edge between two colours).
::testing::AssertionResult CheckPlane(const char* name, const uint8_t* plane, int stride, int w, int h,
                                      const Rect& picture, int bar,
                                      const std::function<double(int, int)>& expected) {
  int failures = 0;
  std::string first;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const int got = plane[static_cast<size_t>(y) * stride + x];
      bool ok;
      double want;
      if (picture.Contains(x, y)) {
        want = expected(x, y);
        ok = want < 0 || std::fabs(got - want) <= 2.0;
      } else {
        want = bar;
        ok = got == bar;
      }
      if (!ok && failures++ < 5) {
        first += std::string(" (") + std::to_string(x) + "," + std::to_string(y) +
                 ")=" + std::to_string(got) + " want " + std::to_string(want) + ";";
      }
    }
  }
  if (failures == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << name << ": " << failures << " wrong bytes:" << first;
}

// Where the picture lies in each plane of a target of `width` x `height`.
struct Placement {
  Rect luma;
  Rect chroma;
};
Placement PlacementFor(int width, int height, int fitted_width, int fitted_height) {
  const int offset_x = (width - fitted_width) / 2;
  const int offset_y = (height - fitted_height) / 2;
  return {{offset_x, offset_y, fitted_width, fitted_height},
          {offset_x / 2, offset_y / 2, (fitted_width + 1) / 2, (fitted_height + 1) / 2}};
}

struct FitCase {
  int source_width, source_height;
  int fitted_width, fitted_height;
  int offset_x, offset_y;
};

void PrintTo(const FitCase& c, std::ostream* os) {
  *os << c.source_width << "x" << c.source_height << " -> " << c.fitted_width << "x" << c.fitted_height
      << " at " << c.offset_x << "," << c.offset_y;
}

class FrameScalerFit : public ::testing::TestWithParam<FitCase> {};

// A solid colour in every fit case: the bars are exactly black (1, 128, 128),
// the picture is the colour, every byte of the target is written.
TEST_P(FrameScalerFit, SolidColourOnBlackBars) {
  const FitCase c = GetParam();
  const Rgb colour = {200, 60, 30};  // distinct channels: a swap of R and B shows
  const Yuv want = Bt601(colour);
  Bgra source(c.source_width, c.source_height);
  source.Fill([&](int, int) { return colour; });
  Target target(1920, 1080);
  FrameScaler scaler;
  Scale(scaler, target, source);

  ASSERT_EQ(scaler.fitted_width(), c.fitted_width);
  ASSERT_EQ(scaler.fitted_height(), c.fitted_height);
  const Placement p = PlacementFor(1920, 1080, c.fitted_width, c.fitted_height);
  EXPECT_EQ(p.luma.x, c.offset_x);
  EXPECT_EQ(p.luma.y, c.offset_y);
  const I420Frame* f = target.frame;
  EXPECT_TRUE(CheckPlane("Y", f->planes[0], 1920, 1920, 1080, p.luma, 1, [&](int, int) { return want.y; }));
  EXPECT_TRUE(CheckPlane("U", f->planes[1], 960, 960, 540, p.chroma, 128, [&](int, int) { return want.u; }));
  EXPECT_TRUE(CheckPlane("V", f->planes[2], 960, 960, 540, p.chroma, 128, [&](int, int) { return want.v; }));
}

INSTANTIATE_TEST_SUITE_P(
    IntoFullHd, FrameScalerFit,
    ::testing::Values(FitCase{1920, 1080, 1920, 1080, 0, 0},    // same size: no black remains
                      FitCase{1280, 1024, 1350, 1080, 285, 0},  // narrower: bars left and right, odd offset
                      FitCase{1000, 200, 1920, 384, 0, 348},    // wider: bars above and below
                      FitCase{1366, 768, 1920, 1079, 0, 0},     // truncation leaves the last luma line black
                      FitCase{1000, 201, 1920, 385, 0, 347},    // odd vertical offset
                      FitCase{3840, 2160, 1920, 1080, 0,
                              0},  // same ratio, larger: the tie goes to full width
                      FitCase{1001, 1000, 1081, 1080, 419, 0}),  // odd width and offset
    [](const ::testing::TestParamInfo<FitCase>& info) {
      return std::to_string(info.param.source_width) + "x" + std::to_string(info.param.source_height);
    });

// Eight vertical bars of known colours in a 1280 x 1024 source: each bar lands
// at its scaled position right of the 285 column offset, in order, not mirrored.
TEST(FrameScalerPlace, VerticalBarsLandInOrder) {
  const Rgb bars[8] = {{255, 255, 255}, {255, 255, 0}, {0, 255, 255}, {0, 255, 0},
                       {255, 0, 255},   {255, 0, 0},   {0, 0, 255},   {0, 0, 0}};
  Bgra source(1280, 1024);
  source.Fill([&](int x, int) { return bars[x / 160]; });
  Target target(1920, 1080);
  FrameScaler scaler;
  Scale(scaler, target, source);
  ASSERT_EQ(scaler.fitted_width(), 1350);
  const Placement p = PlacementFor(1920, 1080, 1350, 1080);
  // Bar i covers fitted columns [i * 168.75, (i + 1) * 168.75); stay 4 columns
  // clear of each edge, where the bicubic filter mixes neighbours.
  auto bar_at = [](double fitted_x, double bar_width) -> int {
    const int i = static_cast<int>(fitted_x / bar_width);
    const double into = fitted_x - i * bar_width;
    return (into < 4 || bar_width - into < 4) ? -1 : i;
  };
  const I420Frame* f = target.frame;
  EXPECT_TRUE(CheckPlane("Y", f->planes[0], 1920, 1920, 1080, p.luma, 1, [&](int x, int) {
    const int i = bar_at(x - p.luma.x + 0.5, 168.75);
    return i < 0 ? -1.0 : Bt601(bars[i]).y;
  }));
  EXPECT_TRUE(CheckPlane("U", f->planes[1], 960, 960, 540, p.chroma, 128, [&](int x, int) {
    const int i = bar_at(x - p.chroma.x + 0.5, 168.75 / 2);
    return i < 0 ? -1.0 : Bt601(bars[i]).u;
  }));
  EXPECT_TRUE(CheckPlane("V", f->planes[2], 960, 960, 540, p.chroma, 128, [&](int x, int) {
    const int i = bar_at(x - p.chroma.x + 0.5, 168.75 / 2);
    return i < 0 ? -1.0 : Bt601(bars[i]).v;
  }));
}

// Four horizontal bands in a 1000 x 200 source: top band on top, below the
// 348-line bar, 96 lines each.
TEST(FrameScalerPlace, HorizontalBandsLandTopDown) {
  const Rgb bands[4] = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}};
  Bgra source(1000, 200);
  source.Fill([&](int, int y) { return bands[y / 50]; });
  Target target(1920, 1080);
  FrameScaler scaler;
  Scale(scaler, target, source);
  ASSERT_EQ(scaler.fitted_height(), 384);
  const Placement p = PlacementFor(1920, 1080, 1920, 384);
  ASSERT_EQ(p.luma.y, 348);
  auto band_at = [](double fitted_y, double band_height) -> int {
    const int i = static_cast<int>(fitted_y / band_height);
    const double into = fitted_y - i * band_height;
    return (into < 4 || band_height - into < 4) ? -1 : i;
  };
  const I420Frame* f = target.frame;
  EXPECT_TRUE(CheckPlane("Y", f->planes[0], 1920, 1920, 1080, p.luma, 1, [&](int, int y) {
    const int i = band_at(y - p.luma.y + 0.5, 96);
    return i < 0 ? -1.0 : Bt601(bands[i]).y;
  }));
  EXPECT_TRUE(CheckPlane("U", f->planes[1], 960, 960, 540, p.chroma, 128, [&](int, int y) {
    const int i = band_at(y - p.chroma.y + 0.5, 48);
    return i < 0 ? -1.0 : Bt601(bands[i]).u;
  }));
  EXPECT_TRUE(CheckPlane("V", f->planes[2], 960, 960, 540, p.chroma, 128, [&](int, int y) {
    const int i = band_at(y - p.chroma.y + 0.5, 48);
    return i < 0 ? -1.0 : Bt601(bands[i]).v;
  }));
}

// Odd target sizes: the chroma planes round up, the placing steps by width and
// (width + 1) / 2, and every byte of all three planes is still written.
TEST(FrameScalerPlace, OddTargetIsWrittenCompletely) {
  const Rgb colour = {20, 180, 90};
  const Yuv want = Bt601(colour);
  Bgra source(64, 64);
  source.Fill([&](int, int) { return colour; });
  Target target(101, 51);
  FrameScaler scaler;
  Scale(scaler, target, source);
  ASSERT_EQ(scaler.fitted_width(), 51);
  ASSERT_EQ(scaler.fitted_height(), 51);
  const Placement p = PlacementFor(101, 51, 51, 51);
  ASSERT_EQ(p.luma.x, 25);
  ASSERT_EQ(p.chroma.x, 12);
  const I420Frame* f = target.frame;
  EXPECT_TRUE(CheckPlane("Y", f->planes[0], 101, 101, 51, p.luma, 1, [&](int, int) { return want.y; }));
  EXPECT_TRUE(CheckPlane("U", f->planes[1], 51, 51, 26, p.chroma, 128, [&](int, int) { return want.u; }));
  EXPECT_TRUE(CheckPlane("V", f->planes[2], 51, 51, 26, p.chroma, 128, [&](int, int) { return want.v; }));
}

// Mode 1 scales straight into the target, whole, with the target's own line
// sizes: the padding behind each line stays untouched.
TEST(FrameScalerStretch, FillsTheTargetThroughItsLineSizes) {
  const Rgb left = {255, 0, 0};
  const Rgb right = {0, 0, 255};
  Bgra source(1280, 1024);
  source.Fill([&](int x, int) { return x < 640 ? left : right; });
  const int width = 1920, height = 1080, pad = 64;
  const int y_stride = width + pad, c_stride = width / 2 + pad;
  std::vector<uint8_t> y(static_cast<size_t>(y_stride) * height, kSentinel);
  std::vector<uint8_t> u(static_cast<size_t>(c_stride) * height / 2, kSentinel);
  std::vector<uint8_t> v(static_cast<size_t>(c_stride) * height / 2, kSentinel);
  FrameScaler scaler;
  scaler.Scale(y.data(), y_stride, u.data(), c_stride, v.data(), c_stride, width, height,
               source.pixels.data(), 1280 * 4, 1280, 1024, AV_PIX_FMT_BGRA, kStretch);
  EXPECT_EQ(scaler.fitted_width(), width);
  EXPECT_EQ(scaler.fitted_height(), height);
  // The picture fills [0, width) of each line, the padding is the "bar" that
  // nobody writes.
  auto side = [](int x, int w) -> double {
    return std::abs(2 * x + 1 - w) < 16 ? -1.0 : (2 * x < w ? 0 : 1);
  };
  EXPECT_TRUE(CheckPlane("Y", y.data(), y_stride, y_stride, height, {0, 0, width, height}, kSentinel,
                         [&](int x, int) {
                           const double s = side(x, width);
                           return s < 0 ? -1.0 : Bt601(s == 0 ? left : right).y;
                         }));
  EXPECT_TRUE(CheckPlane("U", u.data(), c_stride, c_stride, height / 2, {0, 0, width / 2, height / 2},
                         kSentinel, [&](int x, int) {
                           const double s = side(x, width / 2);
                           return s < 0 ? -1.0 : Bt601(s == 0 ? left : right).u;
                         }));
  EXPECT_TRUE(CheckPlane("V", v.data(), c_stride, c_stride, height / 2, {0, 0, width / 2, height / 2},
                         kSentinel, [&](int x, int) {
                           const double s = side(x, width / 2);
                           return s < 0 ? -1.0 : Bt601(s == 0 ? left : right).v;
                         }));
}

// The black paint covers the target by the line sizes passed in, even where
// they are larger than the picture's lines.
TEST(FrameScalerPaint, CoversLineSizesTimesHeight) {
  Bgra source(16, 16);
  source.Fill([](int, int) { return Rgb{255, 255, 255}; });
  const int width = 32, height = 16;
  const int y_stride = 40, c_stride = 24;
  std::vector<uint8_t> y(static_cast<size_t>(y_stride) * height + 1, kSentinel);
  std::vector<uint8_t> u(static_cast<size_t>(c_stride) * height / 2 + 1, kSentinel);
  std::vector<uint8_t> v(static_cast<size_t>(c_stride) * height / 2 + 1, kSentinel);
  FrameScaler scaler;
  scaler.Scale(y.data(), y_stride, u.data(), c_stride, v.data(), c_stride, width, height,
               source.pixels.data(), 16 * 4, 16, 16, AV_PIX_FMT_BGRA, kFit);
  ASSERT_EQ(scaler.fitted_width(), 16);
  // The picture goes by `width` a line: luma rows of 32 bytes from column 8.
  const double white_y = Bt601({255, 255, 255}).y;
  for (size_t i = 0; i < static_cast<size_t>(y_stride) * height; ++i) {
    const bool in_picture = i < static_cast<size_t>(width) * height && (i % width) >= 8 && (i % width) < 24;
    if (in_picture) {
      ASSERT_NEAR(y[i], white_y, 2) << i;
    } else {
      ASSERT_EQ(y[i], 1) << i;
    }
  }
  EXPECT_EQ(y.back(), kSentinel);  // one past the painted area
  for (size_t i = 0; i < static_cast<size_t>(c_stride) * height / 2; ++i) {
    ASSERT_NEAR(u[i], 128, 2) << i;  // white and black share the chroma
    ASSERT_NEAR(v[i], 128, 2) << i;
  }
  EXPECT_EQ(u.back(), kSentinel);
  EXPECT_EQ(v.back(), kSentinel);
}

// The fitted picture is the plain conversion at the fitted size (what mode 1
// makes when the target has that size), placed on black byte for byte: paint
// all of line size times lines, then copy by `width` and (`width` + 1) / 2.
struct ExactCase {
  int source_width, source_height, width, height, y_linesize, c_linesize;
};
void PrintTo(const ExactCase& c, std::ostream* os) {
  *os << c.source_width << "x" << c.source_height << " into " << c.width << "x" << c.height << " lines "
      << c.y_linesize << "/" << c.c_linesize;
}

class FrameScalerExact : public ::testing::TestWithParam<ExactCase> {};

TEST_P(FrameScalerExact, EqualsConversionPlacedOnBlack) {
  const ExactCase c = GetParam();
  Bgra source(c.source_width, c.source_height);
  source.Fill([](int x, int y) { return Rgb{(x * 7) & 255, (y * 5) & 255, ((x + y) * 3) & 255}; });
  const int chroma_rows = (c.height + 1) / 2;
  std::vector<uint8_t> y(static_cast<size_t>(c.y_linesize) * c.height + 64, kSentinel);
  std::vector<uint8_t> u(static_cast<size_t>(c.c_linesize) * chroma_rows + 64, kSentinel);
  std::vector<uint8_t> v(static_cast<size_t>(c.c_linesize) * chroma_rows + 64, kSentinel);
  FrameScaler scaler;
  scaler.Scale(y.data(), c.y_linesize, u.data(), c.c_linesize, v.data(), c.c_linesize, c.width, c.height,
               source.pixels.data(), source.width * 4, source.width, source.height, AV_PIX_FMT_BGRA, kFit);
  const int fw = scaler.fitted_width(), fh = scaler.fitted_height();
  ASSERT_GT(fw, 0);

  Target fitted(fw, fh);
  FrameScaler plain;
  Scale(plain, fitted, source, kStretch);
  std::vector<uint8_t> want_y(y.size(), kSentinel), want_u(u.size(), kSentinel), want_v(v.size(), kSentinel);
  std::memset(want_y.data(), 1, static_cast<size_t>(c.y_linesize) * c.height);
  std::memset(want_u.data(), 128, static_cast<size_t>(c.c_linesize) * chroma_rows);
  std::memset(want_v.data(), 128, static_cast<size_t>(c.c_linesize) * chroma_rows);
  const int ox = (c.width - fw) / 2, oy = (c.height - fh) / 2;
  for (int i = 0; i < fh; ++i) {
    std::memcpy(&want_y[static_cast<size_t>(oy + i) * c.width + ox], fitted.frame->planes[0] + i * fw, fw);
  }
  const int cw = (c.width + 1) / 2, fcw = (fw + 1) / 2;
  for (int i = 0; i < (fh + 1) / 2; ++i) {
    const size_t at = static_cast<size_t>(oy / 2 + i) * cw + ox / 2;
    std::memcpy(&want_u[at], fitted.frame->planes[1] + i * fcw, fcw);
    std::memcpy(&want_v[at], fitted.frame->planes[2] + i * fcw, fcw);
  }
  EXPECT_TRUE(y == want_y);
  EXPECT_TRUE(u == want_u);
  EXPECT_TRUE(v == want_v);
}

INSTANTIATE_TEST_SUITE_P(Cases, FrameScalerExact,
                         ::testing::Values(ExactCase{1280, 1024, 1920, 1080, 1920, 960},
                                           ExactCase{1000, 201, 1920, 1080, 1920, 960},
                                           ExactCase{1001, 1000, 1920, 1080, 1920, 960},
                                           ExactCase{1366, 768, 1920, 1080, 1920, 960},
                                           ExactCase{1920, 1080, 1920, 1080, 1920, 960},
                                           ExactCase{64, 64, 101, 51, 101, 51},
                                           ExactCase{37, 64, 33, 17, 33, 17},
                                           // line sizes beyond the picture's lines: the paint covers them
                                           ExactCase{16, 16, 32, 16, 40, 24},
                                           ExactCase{300, 100, 64, 64, 80, 48}),
                         [](const ::testing::TestParamInfo<ExactCase>& info) {
                           const ExactCase& c = info.param;
                           return std::to_string(c.source_width) + "x" + std::to_string(c.source_height) +
                                  "_into_" + std::to_string(c.width) + "x" + std::to_string(c.height) +
                                  "_stride" + std::to_string(c.y_linesize);
                         });

TEST(FrameScalerRebuild, OncePerNewSizeAndNotForARepeat) {
  Bgra big(1920, 1080), small(1280, 1024);
  big.Fill([](int, int) { return Rgb{1, 2, 3}; });
  small.Fill([](int, int) { return Rgb{1, 2, 3}; });
  Target target(1920, 1080);
  FrameScaler scaler;
  EXPECT_EQ(scaler.rebuild_count(), 0);
  Scale(scaler, target, big);
  EXPECT_EQ(scaler.rebuild_count(), 1);
  Scale(scaler, target, small);
  EXPECT_EQ(scaler.rebuild_count(), 2);
  Scale(scaler, target, small);
  EXPECT_EQ(scaler.rebuild_count(), 2);
  EXPECT_EQ(scaler.fitted_width(), 1350);
}

TEST(FrameScalerRebuild, FormatOrModeAloneRebuilds) {
  Bgra source(640, 480);
  source.Fill([](int, int) { return Rgb{10, 20, 30}; });
  Target target(1920, 1080);
  FrameScaler scaler;
  Scale(scaler, target, source, kFit, AV_PIX_FMT_BGRA);
  EXPECT_EQ(scaler.rebuild_count(), 1);
  Scale(scaler, target, source, kFit, AV_PIX_FMT_RGBA);
  EXPECT_EQ(scaler.rebuild_count(), 2);
  Scale(scaler, target, source, 0, AV_PIX_FMT_RGBA);  // mode 0 fits like 2, yet is another mode
  EXPECT_EQ(scaler.rebuild_count(), 3);
  Scale(scaler, target, source, kStretch, AV_PIX_FMT_RGBA);
  EXPECT_EQ(scaler.rebuild_count(), 4);
  EXPECT_EQ(scaler.fitted_width(), 1920);
  Scale(scaler, target, source, kStretch, AV_PIX_FMT_RGBA);
  EXPECT_EQ(scaler.rebuild_count(), 4);
}

TEST(FrameScalerRebuild, NewTargetSizeRebuilds) {
  Bgra source(640, 480);
  source.Fill([](int, int) { return Rgb{10, 20, 30}; });
  Target full(1920, 1080), half(960, 540);
  FrameScaler scaler;
  Scale(scaler, full, source);
  Scale(scaler, half, source);
  EXPECT_EQ(scaler.rebuild_count(), 2);
  EXPECT_EQ(scaler.fitted_width(), 720);
  EXPECT_EQ(scaler.fitted_height(), 540);
}

// A rebuild that fails leaves the target as it was, and a later frame of
// other values works again.
TEST(FrameScalerFailure, UnknownFormatLeavesTargetUntouched) {
  Bgra source(64, 48);
  source.Fill([](int, int) { return Rgb{255, 255, 255}; });
  Target target(64, 48);
  FrameScaler scaler;
  Scale(scaler, target, source, kFit, AV_PIX_FMT_VAAPI);  // a hardware format: sws_getContext fails
  EXPECT_EQ(scaler.rebuild_count(), 1);
  for (uint32_t i = 0; i < target.frame->size; ++i) ASSERT_EQ(target.frame->data[i], kSentinel) << i;
  Scale(scaler, target, source, kFit, 100000);  // no such pixel format at all
  EXPECT_EQ(scaler.rebuild_count(), 2);
  for (uint32_t i = 0; i < target.frame->size; ++i) ASSERT_EQ(target.frame->data[i], kSentinel) << i;
  Scale(scaler, target, source, kFit, 100000);  // the same values: no second attempt, still nothing
  EXPECT_EQ(scaler.rebuild_count(), 2);
  for (uint32_t i = 0; i < target.frame->size; ++i) ASSERT_EQ(target.frame->data[i], kSentinel) << i;
  Scale(scaler, target, source);
  EXPECT_EQ(scaler.rebuild_count(), 3);
  EXPECT_NEAR(target.frame->planes[0][0], Bt601({255, 255, 255}).y, 2);
}

TEST(FrameScalerFailure, EmptyFittedImageLeavesTargetUntouched) {
  // 1920 * 1 / 4000 truncates to a fitted height of 0: no image can be made.
  Bgra source(4000, 1);
  source.Fill([](int, int) { return Rgb{255, 255, 255}; });
  Target target(1920, 1080);
  FrameScaler scaler;
  Scale(scaler, target, source);
  EXPECT_EQ(scaler.rebuild_count(), 1);
  EXPECT_EQ(scaler.fitted_height(), 0);
  for (uint32_t i = 0; i < target.frame->size; ++i) ASSERT_EQ(target.frame->data[i], kSentinel) << i;
}

TEST(FrameScalerFailure, SizesThatDescribeNoPictureAreRefused) {
  Bgra source(8, 8);
  Target target(16, 16);
  FrameScaler scaler;
  I420Frame* f = target.frame;
  scaler.Scale(f->planes[0], 16, f->planes[1], 8, f->planes[2], 8, 16, 16, source.pixels.data(), 32, 0, 8,
               AV_PIX_FMT_BGRA, kFit);
  scaler.Scale(f->planes[0], 16, f->planes[1], 8, f->planes[2], 8, 16, 16, source.pixels.data(), 32, 8, -8,
               AV_PIX_FMT_BGRA, kFit);
  scaler.Scale(f->planes[0], 16, f->planes[1], 8, f->planes[2], 8, 0, 16, source.pixels.data(), 32, 8, 8,
               AV_PIX_FMT_BGRA, kFit);
  scaler.Scale(f->planes[0], 16, f->planes[1], 8, f->planes[2], 8, 16, 16, nullptr, 32, 8, 8, AV_PIX_FMT_BGRA,
               kFit);
  EXPECT_EQ(scaler.rebuild_count(), 0);
  for (uint32_t i = 0; i < f->size; ++i) ASSERT_EQ(f->data[i], kSentinel) << i;
}

}  // namespace
