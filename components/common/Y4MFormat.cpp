#include "common/Y4MFormat.h"

#include <cm/CMComponentStatus.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <sstream>

using ZR::CM::kResultInputMetaDataParseFailed;
using ZR::CM::kResultNoValidTracks;
using ZR::CM::kResultOK;

namespace cmcomponents {

namespace {

const char kMagic[] = "YUV4MPEG2";
const char kFrameMagic[] = "FRAME";
// A frame rate that went through a double comes back within this relative error.
constexpr double kRateTolerance = 1e-9;

// A decimal number of digits only, at most max; false otherwise.
bool parseNumber(const std::string& text, unsigned long long max, unsigned int& out) {
    if (text.empty() || text.size() > 10) {
        return false;
    }
    unsigned long long value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<unsigned long long>(c - '0');
    }
    if (value > max) {
        return false;
    }
    out = static_cast<unsigned int>(value);
    return true;
}

bool parseRate(const std::string& text, unsigned int& numerator, unsigned int& denominator) {
    const std::size_t colon = text.find(':');
    return colon != std::string::npos &&
           parseNumber(text.substr(0, colon), UINT32_MAX, numerator) &&
           parseNumber(text.substr(colon + 1), UINT32_MAX, denominator) && numerator != 0 &&
           denominator != 0;
}

// The planar FourCC of a C tag's value, or 0 for a layout this format does not carry.
unsigned int chromaOf(const std::string& value) {
    if (value == "420jpeg" || value == "420paldv" || value == "420mpeg2" || value == "420") {
        return kPlanar420;
    }
    if (value == "422") {
        return kPlanar422;
    }
    if (value == "444") {
        return kPlanar444;
    }
    return 0;
}

// The C tag's value for a planar FourCC; 4:2:0 for anything but 4:2:2 and 4:4:4.
const char* chromaTag(unsigned int chroma) {
    switch (chroma) {
        case kPlanar422:
            return "422";
        case kPlanar444:
            return "444";
        default:
            return "420jpeg";
    }
}

int malformed(std::string& why, const std::string& what) {
    why = what;
    return kResultInputMetaDataParseFailed;
}

}  // namespace

bool Y4MFormat::setFromDescription(const ZR::CM::RDescription& description) {
    Y4MFormat f;
    if (!f.picture.setFromDescription(description)) {
        return false;
    }
    const double rate = static_cast<const ZR::CM::RVideoDescription&>(description).mFrameRate;
    if (!rationalFromRate(rate, kMaxRateDenominator, f.rateNumerator, f.rateDenominator)) {
        return false;
    }
    *this = f;
    return true;
}

int parseY4MHeader(const std::string& line, Y4MFormat& format, std::string& why) {
    std::istringstream tokens(line);
    std::string token;
    if (!(tokens >> token) || token != kMagic) {
        return malformed(why, "not a YUV4MPEG2 header");
    }
    Y4MFormat f;
    PlanarPicture& p = f.picture;
    p.chroma = kPlanar420;
    bool haveWidth = false, haveHeight = false, haveRate = false;
    while (tokens >> token) {
        const std::string value = token.substr(1);
        switch (token[0]) {
            case 'W':
                haveWidth = parseNumber(value, PlanarPicture::kMaxDimension, p.width) && p.width;
                if (!haveWidth) {
                    return malformed(why, "bad width " + token);
                }
                break;
            case 'H':
                haveHeight = parseNumber(value, PlanarPicture::kMaxDimension, p.height) && p.height;
                if (!haveHeight) {
                    return malformed(why, "bad height " + token);
                }
                break;
            case 'F':
                haveRate = parseRate(value, f.rateNumerator, f.rateDenominator);
                if (!haveRate) {
                    return malformed(why, "bad frame rate " + token);
                }
                break;
            case 'C':
                p.chroma = chromaOf(value);
                if (!p.chroma) {
                    why = "chroma layout " + value + " is not 8-bit 4:2:0, 4:2:2 or 4:4:4";
                    return kResultNoValidTracks;
                }
                break;
            default:
                break;  // interlacing, aspect, extensions and unknown tags
        }
    }
    if (!haveWidth || !haveHeight || !haveRate) {
        return malformed(why, "the header lacks W, H or F");
    }
    // Descriptions carry the rate as a double, which the components bring back to a
    // fraction of denominator at most kMaxRateDenominator: a slower rate would become 0.
    if (static_cast<unsigned long long>(f.rateNumerator) * Y4MFormat::kMaxRateDenominator <
        f.rateDenominator) {
        return malformed(why, "frame rate " + std::to_string(f.rateNumerator) + ":" +
                                  std::to_string(f.rateDenominator) +
                                  " is below one frame in a million seconds");
    }
    if (!p.isValid()) {
        return malformed(why, "frames of more than 1 GiB");
    }
    format = f;
    return kResultOK;
}

std::string makeY4MHeader(const Y4MFormat& format) {
    const PlanarPicture& p = format.picture;
    return std::string(kMagic) + " W" + std::to_string(p.width) + " H" + std::to_string(p.height) +
           " F" + std::to_string(format.rateNumerator) + ":" +
           std::to_string(format.rateDenominator) + " C" + chromaTag(p.chroma) + "\n";
}

bool isY4MFrameHeader(const std::string& line) {
    const std::size_t n = sizeof kFrameMagic - 1;
    return line.compare(0, n, kFrameMagic) == 0 && (line.size() == n || line[n] == ' ');
}

// Walks the continued fraction of rate and stops at the first convergent that matches it.
// When the next convergent's denominator would be too large, the best fraction within the
// bound is either the last convergent or the largest semiconvergent between the two.
bool rationalFromRate(double rate, unsigned int maxDenominator, unsigned int& numerator,
                      unsigned int& denominator) {
    if (!(rate > 0) || !std::isfinite(rate) || rate > UINT32_MAX || maxDenominator == 0) {
        return false;
    }
    const auto errorOf = [rate](unsigned long long h, unsigned long long k) {
        return std::fabs(static_cast<double>(h) / static_cast<double>(k) - rate);
    };
    unsigned long long h0 = 0, h1 = 1, k0 = 1, k1 = 0;
    double x = rate;
    for (int i = 0; i < 64; ++i) {
        // After the first term, any term above the bound ends the walk; capping it there
        // keeps it convertible. The first is at most rate, which fits.
        const double a = k1 ? std::min(std::floor(x), maxDenominator + 1.0) : std::floor(x);
        const auto whole = static_cast<unsigned long long>(a);
        const unsigned long long h2 = whole * h1 + h0;
        const unsigned long long k2 = whole * k1 + k0;
        if (k2 > maxDenominator || h2 > UINT32_MAX) {
            const unsigned long long t = k1 ? (maxDenominator - k0) / k1 : 0;
            const unsigned long long hs = t * h1 + h0, ks = t * k1 + k0;
            if (t > 0 && hs <= UINT32_MAX && (k1 == 0 || errorOf(hs, ks) < errorOf(h1, k1))) {
                h1 = hs;
                k1 = ks;
            }
            break;
        }
        h0 = h1;
        h1 = h2;
        k0 = k1;
        k1 = k2;
        if (errorOf(h1, k1) <= kRateTolerance * rate || x == a) {
            break;
        }
        x = 1.0 / (x - a);
    }
    if (k1 == 0 || h1 == 0) {
        return false;
    }
    numerator = static_cast<unsigned int>(h1);
    denominator = static_cast<unsigned int>(k1);
    return true;
}

}  // namespace cmcomponents
