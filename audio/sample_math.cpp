#include <xmmintrin.h>

#include <cstdint>

#include "roomcore/audio.h"

namespace {

bool IsAligned16(const void* p) { return (reinterpret_cast<uintptr_t>(p) & 15u) == 0; }

inline float Clip(float v) {
  // Same order as the vector path: min with 1, then max with -1.
  v = v < 1.0f ? v : 1.0f;
  return v > -1.0f ? v : -1.0f;
}

}  // namespace

void MixAudio(float* dst, float* src, unsigned int count, bool downmix) {
  unsigned int i = 0;
  if (IsAligned16(dst) && IsAligned16(src)) {
    const unsigned int blocks = count & ~3u;
    const __m128 half = _mm_set1_ps(0.5f);
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 minus_one = _mm_set1_ps(-1.0f);
    if (downmix) {
      for (; i < blocks; i += 4) {
        __m128 s = _mm_load_ps(src + i);
        __m128 swapped = _mm_shuffle_ps(s, s, _MM_SHUFFLE(2, 3, 0, 1));
        s = _mm_mul_ps(_mm_add_ps(s, swapped), half);
        _mm_store_ps(src + i, s);
        __m128 sum = _mm_add_ps(_mm_load_ps(dst + i), s);
        _mm_store_ps(dst + i, _mm_max_ps(_mm_min_ps(sum, one), minus_one));
      }
    } else {
      for (; i < blocks; i += 4) {
        __m128 sum = _mm_add_ps(_mm_load_ps(dst + i), _mm_load_ps(src + i));
        _mm_store_ps(dst + i, _mm_max_ps(_mm_min_ps(sum, one), minus_one));
      }
    }
  }
  // The tail (or all of an unaligned buffer). `i` is even here, so pairs
  // still start at even indices.
  if (downmix) {
    for (unsigned int k = i; k + 1 < count; k += 2) {
      const float mean = (src[k] + src[k + 1]) * 0.5f;
      src[k] = mean;
      src[k + 1] = mean;
    }
  }
  for (; i < count; ++i) dst[i] = Clip(dst[i] + src[i]);
}

void MultiplyAudio(float* samples, int count, float gain) {
  int i = 0;
  if (IsAligned16(samples)) {
    const int blocks = count & ~3;
    const __m128 g = _mm_set1_ps(gain);
    for (; i < blocks; i += 4) _mm_store_ps(samples + i, _mm_mul_ps(_mm_load_ps(samples + i), g));
  }
  for (; i < count; ++i) samples[i] = samples[i] * gain;
}
