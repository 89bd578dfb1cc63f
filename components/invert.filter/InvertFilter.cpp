#include "invert.filter/InvertFilter.h"

#include <cm/CMComponentStatus.h>

#include <cstdlib>
#include <cstring>

using ZR::CM::CComponentStatus;
using ZR::CM::RDescription;
using ZR::CM::RFrame;
using ZR::CM::RVideoFrame;

namespace cmcomponents {

namespace {

void invertOrCopy(bool invert, const unsigned char* in, unsigned char* out, std::size_t n) {
    if (invert) {
        invertBytes(in, out, n);
    } else {
        std::memcpy(out, in, n);
    }
}

}  // namespace

void invertBytes(const unsigned char* in, unsigned char* out, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        out[i] = static_cast<unsigned char>(255 - in[i]);
    }
}

int RInvertFilter::configure(ZR::CM::RComponentConfiguration& configuration) {
    mLuma = configuration.getInt("invert-luma", 1, 0, 1) != 0;
    mChroma = configuration.getInt("invert-chroma", 1, 0, 1) != 0;
    mRun.setPhase(CComponentStatus::kConfigured);
    return ZR::CM::kResultOK;
}

int RInvertFilter::acceptDescription(const RDescription& description, std::string& why) {
    if (!mPicture.setFromDescription(description)) {
        why = "the input is not 8-bit planar 4:2:0, 4:2:2 or 4:4:4 video";
        return ZR::CM::kResultNoValidTracks;
    }
    return ZR::CM::kResultOK;
}

RFrame* RInvertFilter::transform(const RFrame& frame, int& result, std::string& why) {
    const unsigned int size = frame.getSize();
    if (frame.type() != ZR::fourcc("vide") || frame.getDataFormat() != mPicture.chroma ||
        size != mPicture.frameBytes()) {
        result = ZR::CM::kResultNoValidTracks;
        why = "a frame that is not one picture of the described layout";
        return nullptr;
    }
    // Frames keep 64 bytes behind their data that readers may touch.
    auto* block = static_cast<unsigned char*>(std::malloc(size + 64u));
    if (!block) {
        result = ZR::CM::kResultUnspecified;
        why = "out of memory";
        return nullptr;
    }
    const auto luma = static_cast<std::size_t>(mPicture.lumaBytes());
    invertOrCopy(mLuma, frame.getData(), block, luma);
    invertOrCopy(mChroma, frame.getData() + luma, block + luma, size - luma);
    const auto& video = static_cast<const RVideoFrame&>(frame);
    return RVideoFrame::createWithData(&video, mPicture.chroma, size, block, video.getVideoValue(),
                                       ZR::ConstructionAdopt);
}

}  // namespace cmcomponents
