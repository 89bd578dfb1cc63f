// The YUV4MPEG2 (Y4M) video format: its stream header and frame headers.
//
// A Y4M file is a header line "YUV4MPEG2 W<width> H<height> F<n>:<d> C<chroma> ..." and
// then, per picture, a line starting with "FRAME" followed by the picture's planes in the
// layout of PlanarPicture, which is how the pictures travel between the components too.
// The siting variants of 4:2:0 (C420jpeg, C420paldv, C420mpeg2, C420) all read as I420 and
// are written as C420jpeg; interlacing (I), pixel aspect (A) and extensions (X) are read
// past and not written.
#ifndef CM_COMPONENTS_COMMON_Y4MFORMAT_H
#define CM_COMPONENTS_COMMON_Y4MFORMAT_H

#include "common/PlanarPicture.h"

#include <cm/CMFrame.h>

#include <cstddef>
#include <string>

namespace cmcomponents {

struct Y4MFormat {
    // Longest header and frame-header lines read.
    static constexpr std::size_t kMaxHeaderLength = 4096;
    static constexpr std::size_t kMaxFrameHeaderLength = 1024;
    // Denominators up to this bring rates such as 30000/1001 back from a double exactly.
    static constexpr unsigned int kMaxRateDenominator = 1000000;

    PlanarPicture picture;
    unsigned int rateNumerator = 0;
    unsigned int rateDenominator = 0;

    double frameRate() const noexcept {
        return rateDenominator ? static_cast<double>(rateNumerator) / rateDenominator : 0.0;
    }
    ZR::CM::RVideoDescription* createDescription() const {
        return picture.createDescription(frameRate());
    }
    // The format a description announces; false when its picture is not valid or its
    // frame rate is not positive. The rate becomes the nearest fraction (rationalFromRate).
    bool setFromDescription(const ZR::CM::RDescription& description);
};

// Parses a stream header line (without its '\n'). W, H and F must be there; C defaults to
// 4:2:0. Returns 0; kResultInputMetaDataParseFailed for a line that is not a Y4M header or
// has a missing, malformed or out-of-range W, H or F (a rate below one frame in a million
// seconds is out of range); kResultNoValidTracks for a chroma layout other than the three
// of PlanarPicture (monochrome, more than 8 bits, alpha). why receives a line on what was
// wrong.
int parseY4MHeader(const std::string& line, Y4MFormat& format, std::string& why);

// The header line for format, with its '\n'.
std::string makeY4MHeader(const Y4MFormat& format);

// True for a frame header line (without its '\n'): "FRAME", alone or followed by a space
// and parameters.
bool isY4MFrameHeader(const std::string& line);

// The fraction n/d nearest to rate with d at most maxDenominator (stopping at the first
// that matches rate to 1e-9 of its value), so that rates that went through a double
// (30000/1001, 24000/1001, 25/2) come back exactly. False for a rate that is not positive
// and finite or whose numerator would not fit 32 bits.
bool rationalFromRate(double rate, unsigned int maxDenominator, unsigned int& numerator,
                      unsigned int& denominator);

}  // namespace cmcomponents

#endif
