#include "gain.filter/GainFilter.h"

#include "common/WavFormat.h"

#include <cm/CMComponentStatus.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

using ZR::CM::CComponentStatus;
using ZR::CM::RAudioDescription;
using ZR::CM::RAudioFrame;
using ZR::CM::RDescription;
using ZR::CM::RFrame;

namespace cmcomponents {

namespace {

long scaled(long sample, double factor, long lowest, long highest) {
    const double value = static_cast<double>(sample) * factor;
    if (value <= static_cast<double>(lowest)) {
        return lowest;
    }
    if (value >= static_cast<double>(highest)) {
        return highest;
    }
    return std::lround(value);
}

}  // namespace

void applyGain(const unsigned char* in, unsigned char* out, std::size_t bytes,
               unsigned int bytesPerSample, double factor) {
    const std::size_t samples = bytesPerSample ? bytes / bytesPerSample : 0;
    std::size_t done = samples * bytesPerSample;
    switch (bytesPerSample) {
        case 1:
            for (std::size_t i = 0; i < samples; ++i) {
                out[i] = static_cast<unsigned char>(scaled(in[i] - 128, factor, -128, 127) + 128);
            }
            break;
        case 2:
            for (std::size_t i = 0; i < samples; ++i) {
                const unsigned char* p = in + 2 * i;
                const long s = static_cast<std::int16_t>(p[0] | (p[1] << 8));
                const long v = scaled(s, factor, -32768, 32767);
                out[2 * i] = static_cast<unsigned char>(v);
                out[2 * i + 1] = static_cast<unsigned char>(v >> 8);
            }
            break;
        case 3:
            for (std::size_t i = 0; i < samples; ++i) {
                const unsigned char* p = in + 3 * i;
                long s = p[0] | (p[1] << 8) | (p[2] << 16);
                s -= (s & 0x800000) << 1;  // sign of the 24-bit value
                const long v = scaled(s, factor, -8388608, 8388607);
                out[3 * i] = static_cast<unsigned char>(v);
                out[3 * i + 1] = static_cast<unsigned char>(v >> 8);
                out[3 * i + 2] = static_cast<unsigned char>(v >> 16);
            }
            break;
        default:
            done = 0;
            break;
    }
    std::memmove(out + done, in + done, bytes - done);
}

int RGainFilter::configure(ZR::CM::RComponentConfiguration& configuration) {
    mGain = configuration.getFloat("gain-db", 0.0f, kMinGain, kMaxGain);
    mFactor = std::pow(10.0, static_cast<double>(mGain) / 20.0);
    mRun.setPhase(CComponentStatus::kConfigured);
    return ZR::CM::kResultOK;
}

int RGainFilter::acceptDescription(const RDescription& description, std::string& why) {
    const auto* audio = description.type() == ZR::fourcc("audi")
                            ? static_cast<const RAudioDescription*>(&description)
                            : nullptr;
    if (!audio || audio->mBytesPerSample == 0 || audio->mBytesPerSample > 3) {
        why = "the input is not 8-, 16- or 24-bit audio";
        return ZR::CM::kResultNoValidTracks;
    }
    mBytesPerSample = audio->mBytesPerSample;
    return ZR::CM::kResultOK;
}

RFrame* RGainFilter::transform(const RFrame& frame, int& result, std::string& why) {
    if (frame.type() != ZR::fourcc("audi") || frame.getDataFormat() != kLinearPCM) {
        result = ZR::CM::kResultNoValidTracks;
        why = "a frame that is not lpcm audio";
        return nullptr;
    }
    const auto& audio = static_cast<const RAudioFrame&>(frame);
    const unsigned int size = frame.getSize();
    // Frames keep 64 bytes behind their data that readers may touch.
    auto* block = static_cast<unsigned char*>(std::malloc(size + 64u));
    if (!block) {
        result = ZR::CM::kResultUnspecified;
        why = "out of memory";
        return nullptr;
    }
    applyGain(frame.getData(), block, size, mBytesPerSample, mFactor);
    return RAudioFrame::createWithData(&audio, kLinearPCM, size, block, audio.getAudioValue1(),
                                       audio.getAudioValue2(), ZR::ConstructionAdopt);
}

}  // namespace cmcomponents
