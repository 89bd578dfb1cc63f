#include "common/PlanarPicture.h"

namespace cmcomponents {

bool PlanarPicture::isValid() const noexcept {
    const bool knownChroma = chroma == kPlanar420 || chroma == kPlanar422 || chroma == kPlanar444;
    return knownChroma && width > 0 && height > 0 && width <= kMaxDimension &&
           height <= kMaxDimension && frameBytes() <= kMaxFrameBytes;
}

bool PlanarPicture::setFromDescription(const ZR::CM::RDescription& description) {
    if (description.type() != ZR::fourcc("vide")) {
        return false;
    }
    const auto& video = static_cast<const ZR::CM::RVideoDescription&>(description);
    PlanarPicture picture;
    picture.width = video.mVideoInt1;
    picture.height = video.mVideoInt2;
    picture.chroma = video.mVideoInt3;
    if (!picture.isValid()) {
        return false;
    }
    *this = picture;
    return true;
}

ZR::CM::RVideoDescription* PlanarPicture::createDescription(double frameRate) const {
    auto* description = new ZR::CM::RVideoDescription;
    description->mVideoInt1 = width;
    description->mVideoInt2 = height;
    description->mVideoInt3 = chroma;
    description->mFrameRate = frameRate;
    return description;
}

}  // namespace cmcomponents
