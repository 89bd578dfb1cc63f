// CAvResampler: converts audio samples between sample formats, rates and channel layouts
// (libswresample). The decoders use it to make interleaved 16-bit samples of whatever a
// codec decodes, the encoders to make what a codec takes of interleaved samples.
//
// setup() is called before every conversion with what goes in and what comes out; the
// converter is made anew only when either changes. A converter that changes rate holds
// samples back; drain() emits them at the end.
//
// Belongs to the one thread that converts with it.
#ifndef CM_COMPONENTS_AV_AVRESAMPLER_H
#define CM_COMPONENTS_AV_AVRESAMPLER_H

#include "av/AvObjects.h"

namespace cmcomponents {

// A form of audio samples: channel layout, sample format, rate.
struct SampleShape {
    AVChannelLayout layout{};
    AVSampleFormat format = AV_SAMPLE_FMT_NONE;
    int rate = 0;

    // Only native-order layouts are used: copies of them own nothing.
    bool operator==(const SampleShape& other) const noexcept {
        return av_channel_layout_compare(&layout, &other.layout) == 0 && format == other.format &&
               rate == other.rate;
    }
    bool operator!=(const SampleShape& other) const noexcept { return !(*this == other); }
};

class CAvResampler {
public:
    // 0, or an FFmpeg error when no converter can be made for the pair.
    int setup(const SampleShape& in, const SampleShape& out);
    // Room needed in the output for count samples (per channel) in, those held back included.
    int outputRoom(int count) const;
    // Converts count samples from in (one pointer per plane, or one for interleaved
    // samples) into out, which has room for capacity samples; the number made, or an
    // FFmpeg error.
    int convert(const std::uint8_t* const* in, int count, std::uint8_t* const* out, int capacity);
    // Emits the samples held back; the number made, or an FFmpeg error.
    int drain(std::uint8_t* const* out, int capacity) { return convert(nullptr, 0, out, capacity); }

private:
    ResamplerPtr mContext;
    SampleShape mIn;
    SampleShape mOut;
};

}  // namespace cmcomponents

#endif
