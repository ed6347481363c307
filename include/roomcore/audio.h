// Audio family: sample arithmetic on 32-bit float buffers (full scale -1..+1).
#pragma once

#include "roomcore_export.h"

// dst[i] = clip(dst[i] + src[i]) for `count` samples. With downmix, `src` is
// interleaved stereo and each pair is first replaced, in place, by two copies
// of its mean.
ROOMCORE_API void MixAudio(float* dst, float* src, unsigned int count, bool downmix);
// samples[i] *= gain; not clipped.
ROOMCORE_API void MultiplyAudio(float* samples, int count, float gain);
