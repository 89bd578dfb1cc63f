// Parses arbitrary text as a URI and copies the result, so that every part it found is
// read back.
#include <zr/RURI.h>

#include <cstddef>
#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const ZR::RURI uri(text.c_str());
    const ZR::RURI copy(uri);
    return copy.getPort() + copy.getKind() + copy.getHost().getSize() < -1 ? -1 : 0;
}
