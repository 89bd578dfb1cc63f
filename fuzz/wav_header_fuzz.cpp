// The WAV importer's header parser on arbitrary bytes, read through the components' byte
// reader; a header it accepts must describe itself and write back.
#include "MemoryStream.h"

#include <common/StreamIO.h>
#include <common/WavFormat.h>
#include <zr/RPtr.h>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ZR::RPtr<ZR::CM::RStream> stream(new MemoryStream(data, size));
    cmcomponents::CByteReader reader(stream);
    cmcomponents::WavFormat format;
    std::string why;
    if (cmcomponents::readWavHeader(reader, format, why) == 0) {
        ZR::RPtr<ZR::CM::RAudioDescription> description(format.createDescription());
        cmcomponents::makeWavHeader(format);
    }
    return 0;
}
