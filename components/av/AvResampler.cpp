#include "av/AvResampler.h"

namespace cmcomponents {

int CAvResampler::setup(const SampleShape& in, const SampleShape& out) {
    if (mContext && in == mIn && out == mOut) {
        return 0;
    }
    mContext.reset();
    SwrContext* context = nullptr;
    // FFmpeg only reads the layouts.
    int error = swr_alloc_set_opts2(&context, const_cast<AVChannelLayout*>(&out.layout), out.format,
                                    out.rate, const_cast<AVChannelLayout*>(&in.layout), in.format,
                                    in.rate, 0, nullptr);
    ResamplerPtr owned(context);
    if (error < 0 || (error = swr_init(context)) < 0) {
        return error;
    }
    mContext = std::move(owned);
    mIn = in;
    mOut = out;
    return 0;
}

int CAvResampler::outputRoom(int count) const {
    return mContext ? swr_get_out_samples(mContext.get(), count) : 0;
}

int CAvResampler::convert(const std::uint8_t* const* in, int count, std::uint8_t* const* out,
                          int capacity) {
    if (!mContext) {
        return AVERROR(EINVAL);
    }
    return swr_convert(mContext.get(), const_cast<std::uint8_t**>(out), capacity,
                       const_cast<const std::uint8_t**>(in), count);
}

}  // namespace cmcomponents
