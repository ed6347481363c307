// The conversion stage of a recording: packed 32-bit float at the endpoint's
// mix rate and channel count in, packed PCM of the host's format out.
#pragma once

#include <windows.h>

#include <mmreg.h>

extern "C" {
#include <libavutil/samplefmt.h>
}

struct SwrContext;

namespace audio {

// AV_SAMPLE_FMT_FLT for 32 bits, AV_SAMPLE_FMT_S16 for anything else.
AVSampleFormat SampleFormatFor(int bits_per_sample);

// True when `mix` is what the resampler is set up to read: packed 32-bit
// float, as a plain float format or an extensible one with the float
// subformat. Anything else would be read at the wrong sample size, past the
// end of the system's packet.
bool IsPackedFloat(const WAVEFORMATEX& mix);

// Frees `*resampler` if set and makes a new one for `mix` (always read as
// packed float, whatever its tag says) to the output format. False if
// swr_init fails; `*resampler` is then the context that failed to start.
bool ConfigureResampler(SwrContext** resampler, const WAVEFORMATEX& mix, int sample_rate, int channels,
                        AVSampleFormat sample_format);

// One packet: `frames` input frames at `in` into `out`, which holds
// `out_capacity` samples per channel. Output samples per channel; 0 or less
// delivers nothing.
int ConvertPacket(SwrContext* resampler, const BYTE* in, int frames, BYTE* out, int out_capacity);

void FreeResampler(SwrContext** resampler);

}  // namespace audio
