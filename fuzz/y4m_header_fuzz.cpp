// The Y4M importer's header parsing on arbitrary bytes: the stream header line as the
// importer reads it, then frame header lines; an accepted header must describe itself and
// print back.
#include "MemoryStream.h"

#include <common/StreamIO.h>
#include <common/Y4MFormat.h>
#include <zr/RPtr.h>

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace cmcomponents;
    ZR::RPtr<ZR::CM::RStream> stream(new MemoryStream(data, size));
    CByteReader reader(stream);
    std::string line;
    if (reader.readLine(line, Y4MFormat::kMaxHeaderLength) != CByteReader::Line::kComplete) {
        return 0;
    }
    Y4MFormat format;
    std::string why;
    if (parseY4MHeader(line, format, why) == 0) {
        ZR::RPtr<ZR::CM::RVideoDescription> description(format.createDescription());
        makeY4MHeader(format);
    }
    while (reader.readLine(line, Y4MFormat::kMaxFrameHeaderLength) ==
           CByteReader::Line::kComplete) {
        isY4MFrameHeader(line);
    }
    return 0;
}
