// PlanarPicture: the layout of an 8-bit planar Y'CbCr picture as the video components pass
// it in a frame: all of Y, then Cb, then Cr, one byte per sample, rows without padding.
// The chroma planes of 4:2:0 are half the width and half the height of the picture, those
// of 4:2:2 half the width, those of 4:4:4 full size; halves round up for odd sizes.
//
// Frames carry the layout's planar FourCC as their data format: "I420" (4:2:0), "Y42B"
// (4:2:2) or "Y444" (4:4:4). The RVideoDescription of such frames says:
//   mVideoInt1  width in pixels
//   mVideoInt2  height in pixels
//   mVideoInt3  the layout's FourCC, as on the frames
//   mFrameRate  frames per second
//   mVideoReal1, mVideoReal2  unused, 0
#ifndef CM_COMPONENTS_COMMON_PLANARPICTURE_H
#define CM_COMPONENTS_COMMON_PLANARPICTURE_H

#include <cm/CMFrame.h>
#include <zr/ZRTypes.h>

namespace cmcomponents {

constexpr unsigned int kPlanar420 = ZR::fourcc("I420");
constexpr unsigned int kPlanar422 = ZR::fourcc("Y42B");
constexpr unsigned int kPlanar444 = ZR::fourcc("Y444");

struct PlanarPicture {
    // Bounds that keep every size well inside 32 bits.
    static constexpr unsigned int kMaxDimension = 32768;
    static constexpr unsigned long long kMaxFrameBytes = 1ull << 30;

    unsigned int width = 0;
    unsigned int height = 0;
    unsigned int chroma = 0;  // kPlanar420, kPlanar422 or kPlanar444

    unsigned int chromaWidth() const noexcept {
        return chroma == kPlanar444 ? width : (width + 1) / 2;
    }
    unsigned int chromaHeight() const noexcept {
        return chroma == kPlanar420 ? (height + 1) / 2 : height;
    }
    unsigned long long lumaBytes() const noexcept {
        return static_cast<unsigned long long>(width) * height;
    }
    // One chroma plane (Cb or Cr).
    unsigned long long chromaBytes() const noexcept {
        return static_cast<unsigned long long>(chromaWidth()) * chromaHeight();
    }
    unsigned long long frameBytes() const noexcept { return lumaBytes() + 2 * chromaBytes(); }

    // A size within the bounds and one of the three layouts.
    bool isValid() const noexcept;
    // The picture a description announces; false when it is not video or not valid.
    bool setFromDescription(const ZR::CM::RDescription& description);
    ZR::CM::RVideoDescription* createDescription(double frameRate) const;
};

}  // namespace cmcomponents

#endif
