// The SNMP trap encoder fed arbitrary variable bindings, OIDs and community strings. Each
// command byte picks an operation; the texts and numbers follow it in the input. The
// encoded bytes must always lie inside the trap's buffer.
#include "FuzzInput.h"

#include <cm/CMSNMPTrap.h>
#include <zr/RPtr.h>

#include <cstdlib>

namespace {

// Whether the bytes are exactly one BER SEQUENCE: its tag, a definite length in short or
// long form, and that many content bytes to the end. Inner lengths are not checked: an
// identifier's length is one byte by design, whatever it holds.
bool isOneSequence(const unsigned char* bytes, int length) {
    if (length < 2 || bytes[0] != 0x30) {
        return false;
    }
    unsigned long content = bytes[1];
    int header = 2;
    if (content & 0x80) {
        const int count = static_cast<int>(content & 0x7F);
        if (count == 0 || count > 4 || length < 2 + count) {
            return false;
        }
        content = 0;
        for (int i = 0; i < count; ++i) {
            content = content << 8 | bytes[2 + i];
        }
        header += count;
    }
    return content == static_cast<unsigned long>(length - header);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    ZR::RPtr<ZR::CM::RSNMPTrap> trap(new ZR::CM::RSNMPTrap());
    while (!input.empty()) {
        switch (input.take<std::uint8_t>() % 4) {
            case 0: {
                const std::string oid = input.text();
                trap->setInt(oid.c_str(), input.take<long>());
                break;
            }
            case 1: {
                const std::string oid = input.text();
                trap->setuInt(oid.c_str(), input.take<unsigned long>());
                break;
            }
            case 2: {
                const std::string oid = input.text();
                const std::string value = input.text();
                trap->setOctString(oid.c_str(), value.c_str());
                break;
            }
            default: {
                const std::string trapOid = input.text();
                const std::string community = input.text();
                if (trap->encodeTrap(trapOid.c_str(), community.c_str()) &&
                    !isOneSequence(trap->getPosition(), trap->getLength())) {
                    std::abort();
                }
                // As sending does, so that later bindings start a new trap.
                trap->reset();
                break;
            }
        }
        const int length = trap->getLength();
        if (length < 0 || length > ZR::CM::RSNMPTrap::kBufferSize) {
            std::abort();
        }
        for (int i = 0; i < length; ++i) {
            volatile unsigned char byte = trap->getPosition()[i];
            (void)byte;
        }
    }
    return 0;
}
