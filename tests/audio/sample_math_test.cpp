#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "roomcore/audio.h"

namespace {

// 16-byte aligned storage, or one float past it, to run the same numbers
// through the block path and the per-sample path.
class Samples {
 public:
  Samples(const std::vector<float>& values, bool aligned)
      : storage_(values.size() + 8), size_(values.size()) {
    const uintptr_t base = reinterpret_cast<uintptr_t>(storage_.data());
    data_ = reinterpret_cast<float*>((base + 15) & ~uintptr_t(15)) + (aligned ? 0 : 1);
    std::memcpy(data_, values.data(), size_ * sizeof(float));
  }
  float* data() { return data_; }
  std::vector<float> values() const { return std::vector<float>(data_, data_ + size_); }

 private:
  std::vector<float> storage_;
  float* data_;
  size_t size_;
};

std::vector<float> Mix(std::vector<float> dst, std::vector<float>& src, bool downmix, bool aligned) {
  Samples d(dst, aligned), s(src, aligned);
  MixAudio(d.data(), s.data(), static_cast<unsigned>(dst.size()), downmix);
  src = s.values();
  return d.values();
}

TEST(MixAudio, AddsClipsAndDownmixesSourcePairsInPlace) {
  const struct {
    std::vector<float> dst, src;
    bool downmix;
    std::vector<float> want_dst, want_src;
  } cases[] = {
      {{0.75f, -0.75f, 0.75f, 0.25f}, {0.5f, -0.5f, 0.25f, 0.5f}, false, {1, -1, 1, 0.75f}, {}},  // clips
      {{0, 0, 0, 0, 0, 0}, {1, 0, -1, 0.5f, 0.3f, 0.1f}, false, {1, 0, -1, 0.5f, 0.3f, 0.1f}, {}},
      {{0, 0, 0, 0}, {1, 0, -1, 0.5f}, true, {0.5f, 0.5f, -0.25f, -0.25f}, {0.5f, 0.5f, -0.25f, -0.25f}},
      // six samples: one block of four and a tail of one pair
      {{0, 0, 0, 0, 0, 0},
       {0.25f, 0.75f, 0.5f, 1, -0.5f, 1},
       true,
       {0.5f, 0.5f, 0.75f, 0.75f, 0.25f, 0.25f},
       {0.5f, 0.5f, 0.75f, 0.75f, 0.25f, 0.25f}},
  };
  for (const auto& c : cases) {
    for (bool aligned : {true, false}) {
      std::vector<float> src = c.src;
      EXPECT_EQ(Mix(c.dst, src, c.downmix, aligned), c.want_dst) << aligned;
      EXPECT_EQ(src, c.downmix ? c.want_src : c.src) << aligned;  // untouched without downmix
    }
  }
  float dst = 0.5f, src = 0.25f;
  MixAudio(&dst, &src, 0, true);
  EXPECT_TRUE(dst == 0.5f && src == 0.25f);
}

TEST(MixAudio, AlignedAndUnalignedGiveIdenticalNumbers) {
  std::mt19937 random(42);
  std::uniform_real_distribution<float> any(-1.5f, 1.5f);
  for (unsigned count : {1u, 2u, 3u, 4u, 6u, 7u, 8u, 33u, 1000u}) {
    for (bool downmix : {false, true}) {
      if (downmix && count % 2) continue;
      std::vector<float> dst(count), src(count);
      for (auto& v : dst) v = any(random);
      for (auto& v : src) v = any(random);
      std::vector<float> src_a = src, src_u = src;
      std::vector<float> a = Mix(dst, src_a, downmix, true);
      std::vector<float> u = Mix(dst, src_u, downmix, false);
      ASSERT_EQ(0, std::memcmp(a.data(), u.data(), count * 4)) << count << " " << downmix;
      ASSERT_EQ(0, std::memcmp(src_a.data(), src_u.data(), count * 4)) << count << " " << downmix;
      for (float v : a) ASSERT_TRUE(v >= -1.0f && v <= 1.0f);
    }
  }
}

TEST(MultiplyAudio, AppliesGainWithoutClipping) {
  for (bool aligned : {true, false}) {
    Samples s({0.75f, -0.5f, 0.25f, 1.0f, 0.5f, -1.0f}, aligned);
    MultiplyAudio(s.data(), 6, 2.0f);
    EXPECT_EQ(s.values(), (std::vector<float>{1.5f, -1.0f, 0.5f, 2.0f, 1.0f, -2.0f}));
    MultiplyAudio(s.data(), 6, 0.0f);
    EXPECT_EQ(s.values(), std::vector<float>(6, 0.0f));
  }
  float one = 0.3f;
  MultiplyAudio(&one, 0, 5.0f);
  EXPECT_EQ(one, 0.3f);
}

}  // namespace
