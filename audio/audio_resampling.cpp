#include "audio/audio_resampling.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace audio {
namespace {

// KSDATAFORMAT_SUBTYPE_IEEE_FLOAT, spelled out so that no translation unit
// has to instantiate the system's media-format GUIDs.
const GUID kFloatSubformat = {0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};

// The integer channel layouts are what this FFmpeg's resampler options take;
// their successor API isn't needed for a default layout by channel count.
int64_t DefaultLayout(int channels) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return av_get_default_channel_layout(channels);
#pragma GCC diagnostic pop
}

}  // namespace

bool IsPackedFloat(const WAVEFORMATEX& mix) {
  if (mix.wBitsPerSample != 32 || mix.nChannels == 0 || mix.nBlockAlign != 4 * mix.nChannels) return false;
  if (mix.wFormatTag == WAVE_FORMAT_IEEE_FLOAT) return true;
  if (mix.wFormatTag != WAVE_FORMAT_EXTENSIBLE ||
      mix.cbSize < sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX))
    return false;
  return IsEqualGUID(reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(mix).SubFormat, kFloatSubformat) != 0;
}

AVSampleFormat SampleFormatFor(int bits_per_sample) {
  return bits_per_sample == 32 ? AV_SAMPLE_FMT_FLT : AV_SAMPLE_FMT_S16;
}

bool ConfigureResampler(SwrContext** resampler, const WAVEFORMATEX& mix, int sample_rate, int channels,
                        AVSampleFormat sample_format) {
  FreeResampler(resampler);
  SwrContext* context = swr_alloc();
  *resampler = context;
  if (!context) return false;
  av_opt_set_int(context, "in_channel_layout", DefaultLayout(mix.nChannels), 0);
  av_opt_set_int(context, "in_sample_rate", mix.nSamplesPerSec, 0);
  av_opt_set_sample_fmt(context, "in_sample_fmt", AV_SAMPLE_FMT_FLT, 0);
  av_opt_set_int(context, "out_channel_layout", DefaultLayout(channels), 0);
  av_opt_set_int(context, "out_sample_rate", sample_rate, 0);
  av_opt_set_sample_fmt(context, "out_sample_fmt", sample_format, 0);
  return swr_init(context) >= 0;
}

int ConvertPacket(SwrContext* resampler, const BYTE* in, int frames, BYTE* out, int out_capacity) {
  const uint8_t* in_planes[1] = {in};
  uint8_t* out_planes[1] = {out};
  return swr_convert(resampler, out_planes, out_capacity, in_planes, frames);
}

void FreeResampler(SwrContext** resampler) {
  if (*resampler) swr_free(resampler);
  *resampler = nullptr;
}

}  // namespace audio
