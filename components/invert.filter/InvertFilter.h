// invert.filter: inverts planar 8-bit video (PlanarPicture.h: "I420", "Y42B", "Y444"):
// every luma and chroma sample v becomes 255 - v, which turns the picture into its
// negative (light for dark, every colour for its opposite). Either kind of plane can be
// left alone. The description passes on unchanged.
//
// Configuration (RComponentConfiguration, see RFrameFilter for how it arrives):
//   "invert-luma"    int, 1 inverts the Y plane, 0 copies it; default 1
//   "invert-chroma"  int, 1 inverts the Cb and Cr planes, 0 copies them; default 1
//
// A description that is not a valid planar picture, or a frame that is not one picture of
// the described layout, fails the run with kResultNoValidTracks.
#ifndef CM_COMPONENTS_INVERTFILTER_H
#define CM_COMPONENTS_INVERTFILTER_H

#include "common/FrameFilter.h"
#include "common/PlanarPicture.h"

#include <cstddef>

namespace cmcomponents {

// out[i] = 255 - in[i] for n bytes; in and out may be the same buffer.
void invertBytes(const unsigned char* in, unsigned char* out, std::size_t n);

class RInvertFilter : public RFrameFilter {
public:
    int configure(ZR::CM::RComponentConfiguration& configuration) override;

    bool invertsLuma() const noexcept { return mLuma; }
    bool invertsChroma() const noexcept { return mChroma; }

protected:
    int acceptDescription(const ZR::CM::RDescription& description, std::string& why) override;
    ZR::CM::RFrame* transform(const ZR::CM::RFrame& frame, int& result, std::string& why) override;

private:
    bool mLuma = true;
    bool mChroma = true;
    PlanarPicture mPicture;
};

}  // namespace cmcomponents

#endif
