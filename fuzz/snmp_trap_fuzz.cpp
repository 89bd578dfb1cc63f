// The SNMP trap encoder fed arbitrary variable bindings, OIDs and community strings. Each
// command byte picks an operation; the texts and numbers follow it in the input. The
// encoded bytes must always lie inside the trap's buffer.
#include "FuzzInput.h"

#include <cm/CMSNMPTrap.h>
#include <zr/RPtr.h>

#include <cstdlib>

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
                trap->encodeTrap(trapOid.c_str(), community.c_str());
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
