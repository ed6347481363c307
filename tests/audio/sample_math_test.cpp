// Sample arithmetic through roomcore.dll, on 16-byte aligned buffers (the
// four-lane path) and one float past them (the per-sample path).
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "roomcore/audio.h"

namespace {

// Runs `f` on a copy of `a` (and `b`) at each alignment; both must agree.
template <typename F>
std::vector<float> Aligned(std::vector<float>& a, std::vector<float>& b, F f) {
  std::vector<float> results[2], sources[2];
  for (int offset : {0, 1}) {
    alignas(16) float x[1100], y[1100];
    std::memcpy(x + offset, a.data(), a.size() * 4);
    std::memcpy(y + offset, b.data(), b.size() * 4);
    f(x + offset, y + offset);
    results[offset].assign(x + offset, x + offset + a.size());
    sources[offset].assign(y + offset, y + offset + b.size());
  }
  EXPECT_EQ(0, std::memcmp(results[0].data(), results[1].data(), a.size() * 4)) << "aligned and not differ";
  EXPECT_EQ(sources[0], sources[1]);
  b = sources[0];
  return results[0];
}

TEST(SampleMath, MixAddsClipsAndDownmixesTheSourceInPlace) {
  const struct {
    std::vector<float> dst, src;
    bool downmix;
    std::vector<float> mixed, src_after;
  } cases[] = {
      {{0.75f, -0.75f, 0.75f, 0.25f, 0.5f},
       {0.5f, -0.5f, 0.25f, 0.5f, 0.5f},
       false,
       {1, -1, 1, 0.75f, 1},
       {}},
      {{0, 0, 0, 0}, {1, 0, -1, 0.5f}, true, {0.5f, 0.5f, -0.25f, -0.25f}, {0.5f, 0.5f, -0.25f, -0.25f}},
      {{0, 0, 0, 0, 0, 0},
       {0.25f, 0.75f, 0.5f, 1, -0.5f, 1},
       true,  // a block of four and a pair
       {0.5f, 0.5f, 0.75f, 0.75f, 0.25f, 0.25f},
       {0.5f, 0.5f, 0.75f, 0.75f, 0.25f, 0.25f}},
  };
  for (auto c : cases) {
    const std::vector<float> src = c.src;
    EXPECT_EQ(
        Aligned(c.dst, c.src, [&](float* d, float* s) { MixAudio(d, s, unsigned(src.size()), c.downmix); }),
        c.mixed);
    EXPECT_EQ(c.src, c.downmix ? c.src_after : src);  // untouched without downmix
  }
  std::mt19937 random(42);
  std::uniform_real_distribution<float> any(-1.5f, 1.5f);
  for (unsigned count : {1u, 3u, 6u, 7u, 33u, 1000u}) {
    std::vector<float> dst(count), src(count);
    for (size_t i = 0; i < count; ++i) dst[i] = any(random), src[i] = any(random);
    for (float v : Aligned(dst, src, [&](float*d, float*s) { MixAudio(d, s, count, count % 2 == 0); }))
      EXPECT_TRUE(v >= -1 && v <= 1);
  }
  float dst = 0.5f, src = 0.25f;
  MixAudio(&dst, &src, 0, true);
  EXPECT_TRUE(dst == 0.5f && src == 0.25f);
}

TEST(SampleMath, MultiplyAppliesGainWithoutClipping) {
  const struct {
    float gain;
    int count;
    std::vector<float> want;
  } cases[] = {{2, 6, {1.5f, -1, 0.5f, 2, 1, -2}},
               {0, 6, {0, 0, 0, 0, 0, 0}},
               {5, 0, {0.75f, -0.5f, 0.25f, 1, 0.5f, -1}}};
  for (const auto& c : cases) {
    std::vector<float> samples = {0.75f, -0.5f, 0.25f, 1, 0.5f, -1}, none;
    EXPECT_EQ(Aligned(samples, none, [&](float* s, float*) { MultiplyAudio(s, c.count, c.gain); }), c.want);
  }
}

}  // namespace
