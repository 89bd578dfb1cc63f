// The SNMP trap encoder fed arbitrary variable bindings, OIDs and community strings, and
// the SNMP log destination fed arbitrary log messages. Each command byte picks an
// operation; the texts and numbers follow it in the input. The encoded bytes must always
// lie inside the trap's buffer, and every trap the destination sends must be whole.
#include "FuzzInput.h"
#include "LoopbackSocket.h"

#include <cm/CMNetworkLog.h>
#include <cm/CMSNMPTrap.h>
#include <cm/CMSysConf.h>
#include <zr/RPtr.h>

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
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

// The log destination, configured once to send its traps to a socket of 127.0.0.1 that
// the fuzzer reads.
struct LogDestination {
    int receiver = -1;
    ZR::CM::RSNMPLogInterface* snmp = nullptr;

    LogDestination() {
        int port = 0;
        receiver = loopbackSocket(SOCK_DGRAM, &port);
        ZR::CM::sys_conf& conf = ZR::CM::sys_conf::instance();
        conf.set_value("%snmp-traps", "true");
        conf.set_int("common.logging.snmp-priority", 7);
        conf.set_value("common.logging.snmp-host", "127.0.0.1");
        conf.set_int("common.logging.snmp-port", port);
        snmp = ZR::CM::RSNMPLogInterface::getDefault();
        if (!snmp) {
            std::abort();
        }
    }

    // Every trap sent so far must be one whole message.
    void checkSent() const {
        unsigned char datagram[2 * ZR::CM::RSNMPTrap::kBufferSize];
        ssize_t n;
        while ((n = ::recv(receiver, datagram, sizeof datagram, MSG_DONTWAIT)) >= 0) {
            if (n > ZR::CM::RSNMPTrap::kBufferSize ||
                !isOneSequence(datagram, static_cast<int>(n))) {
                std::abort();
            }
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    ZR::RPtr<ZR::CM::RSNMPTrap> trap(new ZR::CM::RSNMPTrap());
    while (!input.empty()) {
        switch (input.take<std::uint8_t>() % 5) {
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
            case 3: {
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
            default: {
                static const LogDestination destination;
                const int priority = input.take<std::uint8_t>() % 8;
                const int category = input.take<int>();
                destination.snmp->log(priority, category, input.text().c_str());
                destination.checkSent();
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
