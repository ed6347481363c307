// Sample arithmetic through roomcore.dll, on 16-byte aligned buffers (the
// four-lane path) and one float past them (the per-sample path).
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "roomcore/audio.h"

namespace {

using Floats = std::vector<float>;

// Runs `f` on copies of `a` and `b` at each alignment; both must agree.
template <typename F>
Floats Aligned(Floats& a, Floats& b, F f) {
  Floats results[2], sources[2];
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

// In quarters of full scale.
Floats Q(std::initializer_list<int> quarters) {
  Floats samples;
  for (int q : quarters) samples.push_back(q / 4.0f);
  return samples;
}

TEST(SampleMath, MixAddsClipsAndDownmixesTheSourceInPlaceAndMultiplyAppliesGain) {
  const struct {
    bool downmix;  // onto silence: the mix is the downmixed source, which the source becomes
    Floats dst, src, mixed;
  } cases[] = {
      {false, Q({3, -3, 3, 1, 2}), Q({2, -2, 1, 2, 2}), Q({4, -4, 4, 3, 4})},
      {true, Q({0, 0, 0, 0}), Q({4, 0, -4, 2}), Q({2, 2, -1, -1})},
      {true, Floats(6), Q({1, 3, 2, 4, -2, 4}), Q({2, 2, 3, 3, 1, 1})},  // a block of four and a pair
  };
  for (auto c : cases) {
    const Floats src = c.src;
    EXPECT_EQ(
        Aligned(c.dst, c.src, [&](float* d, float* s) { MixAudio(d, s, unsigned(src.size()), c.downmix); }),
        c.mixed);
    EXPECT_EQ(c.src, c.downmix ? c.mixed : src);
  }
  std::mt19937 random(42);
  std::uniform_real_distribution<float> any(-1.5f, 1.5f);
  for (unsigned count : {1u, 3u, 6u, 7u, 33u, 1000u}) {
    Floats dst(count), src(count);
    for (size_t i = 0; i < count; ++i) dst[i] = any(random), src[i] = any(random);
    for (float v : Aligned(dst, src, [&](float*d, float*s) { MixAudio(d, s, count, count % 2 == 0); }))
      EXPECT_TRUE(v >= -1 && v <= 1);
  }
  float dst = 0.5f, src = 0.25f;
  MixAudio(&dst, &src, 0, true);
  EXPECT_TRUE(dst == 0.5f && src == 0.25f);
  const struct {
    float gain;
    int count;
    Floats want;
  } gains[] = {{2, 6, Q({6, -4, 2, 8, 4, -8})}, {0, 6, Floats(6)}, {5, 0, Q({3, -2, 1, 4, 2, -4})}};
  for (const auto& c : gains) {  // without clipping
    Floats samples = Q({3, -2, 1, 4, 2, -4}), none;
    EXPECT_EQ(Aligned(samples, none, [&](float* s, float*) { MultiplyAudio(s, c.count, c.gain); }), c.want);
  }
}

}  // namespace
