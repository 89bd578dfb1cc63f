// gain.filter: changes the level of "lpcm" audio (WavFormat.h: 8-bit unsigned, 16- and
// 24-bit signed little-endian samples) by a gain in decibels. Every sample is multiplied
// by 10^(gain / 20), rounded to the nearest value (halves away from zero) and clipped to
// the range of its width; a gain of 0 dB leaves every sample as it was. The description
// passes on unchanged.
//
// Configuration (RComponentConfiguration, see RFrameFilter for how it arrives):
//   "gain-db"  float, the gain in dB; default 0.0, -120.0 to 60.0
//
// A description other than audio of 1 to 3 bytes per sample, or a frame that is not
// "lpcm" audio, fails the run with kResultNoValidTracks.
#ifndef CM_COMPONENTS_GAINFILTER_H
#define CM_COMPONENTS_GAINFILTER_H

#include "common/FrameFilter.h"

#include <cstddef>

namespace cmcomponents {

// Applies factor to the bytes / bytesPerSample samples of in (1, 2 or 3 bytes each),
// writing them to out; a trailing incomplete sample is copied as it is, and so is
// everything for any other sample width. in and out may be the same buffer.
void applyGain(const unsigned char* in, unsigned char* out, std::size_t bytes,
               unsigned int bytesPerSample, double factor);

class RGainFilter : public RFrameFilter {
public:
    static constexpr float kMinGain = -120.0f;
    static constexpr float kMaxGain = 60.0f;

    int configure(ZR::CM::RComponentConfiguration& configuration) override;

    float getGain() const noexcept { return mGain; }
    double getFactor() const noexcept { return mFactor; }

protected:
    int acceptDescription(const ZR::CM::RDescription& description, std::string& why) override;
    ZR::CM::RFrame* transform(const ZR::CM::RFrame& frame, int& result, std::string& why) override;

private:
    float mGain = 0.0f;
    double mFactor = 1.0;
    unsigned int mBytesPerSample = 0;
};

}  // namespace cmcomponents

#endif
