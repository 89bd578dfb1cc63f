// The Y4M importer's header parsing on arbitrary bytes: the stream header line as the
// importer reads it, then frame header lines. A header it accepts travels as the exporter
// would carry it: the description announced from it must give the same picture back (the
// rate may become a nearby fraction), and the header written from that must read back the
// same.
#include "MemoryStream.h"

#include <common/StreamIO.h>
#include <common/Y4MFormat.h>
#include <zr/RPtr.h>

#include <cstdlib>
#include <string>

namespace {

using cmcomponents::Y4MFormat;

bool samePicture(const Y4MFormat& a, const Y4MFormat& b) {
    return a.picture.width == b.picture.width && a.picture.height == b.picture.height &&
           a.picture.chroma == b.picture.chroma;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace cmcomponents;
    CByteReader reader(ZR::RPtr<ZR::CM::RStream>(new MemoryStream(data, size)));
    std::string line;
    if (reader.readLine(line, Y4MFormat::kMaxHeaderLength) != CByteReader::Line::kComplete) {
        return 0;
    }
    Y4MFormat format;
    std::string why;
    if (parseY4MHeader(line, format, why) == 0) {
        const ZR::RPtr<ZR::CM::RVideoDescription> description(format.createDescription());
        Y4MFormat announced;
        if (!announced.setFromDescription(*description) || !samePicture(format, announced)) {
            std::abort();
        }
        std::string header = makeY4MHeader(announced);
        header.pop_back();
        Y4MFormat written;
        if (parseY4MHeader(header, written, why) != 0 || !samePicture(announced, written) ||
            written.rateNumerator != announced.rateNumerator ||
            written.rateDenominator != announced.rateDenominator) {
            std::abort();
        }
    }
    while (reader.readLine(line, Y4MFormat::kMaxFrameHeaderLength) ==
           CByteReader::Line::kComplete) {
        isY4MFrameHeader(line);
    }
    return 0;
}
