// The WAV importer's header parser on arbitrary bytes, read through the components' byte
// reader. A header it accepts travels as the exporter would carry it: the description
// announced from it, and the header written from that, must both give the same format back.
#include "MemoryStream.h"

#include <common/StreamIO.h>
#include <common/WavFormat.h>
#include <zr/RPtr.h>

#include <cstdlib>
#include <string>

namespace {

using cmcomponents::WavFormat;

bool sameFormat(const WavFormat& a, const WavFormat& b) {
    return a.channels == b.channels && a.sampleRate == b.sampleRate &&
           a.bitsPerSample == b.bitsPerSample && a.channelMask == b.channelMask;
}

int readHeader(const std::uint8_t* data, std::size_t size, WavFormat& format) {
    cmcomponents::CByteReader reader(ZR::RPtr<ZR::CM::RStream>(new MemoryStream(data, size)));
    std::string why;
    return cmcomponents::readWavHeader(reader, format, why);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    WavFormat format;
    if (readHeader(data, size, format) != 0) {
        return 0;
    }
    const ZR::RPtr<ZR::CM::RAudioDescription> description(format.createDescription());
    WavFormat announced;
    if (!announced.setFromDescription(*description) || !sameFormat(format, announced)) {
        std::abort();
    }
    const std::vector<unsigned char> header = cmcomponents::makeWavHeader(announced);
    WavFormat written;
    if (readHeader(header.data(), header.size(), written) != 0 || !sameFormat(format, written)) {
        std::abort();
    }
    return 0;
}
