#include "support/RtpStreams.h"

#include <algorithm>

namespace cmtest {

Bytes rtpPacket(std::uint16_t sequence, std::uint32_t timestamp, bool marker,
                unsigned int payloadType, const Bytes& payload) {
    Bytes packet{0x80, static_cast<unsigned char>((marker ? 0x80 : 0) | (payloadType & 0x7F))};
    const auto put = [&packet](std::uint32_t value, int bytes) {
        for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
            packet.push_back(static_cast<unsigned char>(value >> shift));
        }
    };
    put(sequence, 2);
    put(timestamp, 4);
    put(0x12345678, 4);  // the source
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

Bytes annexB(const std::vector<Bytes>& nals) {
    Bytes out;
    for (const Bytes& nal : nals) {
        out.insert(out.end(), {0, 0, 0, 1});
        out.insert(out.end(), nal.begin(), nal.end());
    }
    return out;
}

Bytes stapA(const std::vector<Bytes>& nals) {
    Bytes payload{24};
    for (const Bytes& nal : nals) {
        payload.push_back(static_cast<unsigned char>(nal.size() >> 8));
        payload.push_back(static_cast<unsigned char>(nal.size()));
        payload.insert(payload.end(), nal.begin(), nal.end());
    }
    return payload;
}

std::vector<Bytes> fuA(const Bytes& nal, std::size_t size) {
    std::vector<Bytes> payloads;
    const auto indicator = static_cast<unsigned char>((nal[0] & 0xE0) | 28);
    for (std::size_t offset = 1; offset < nal.size(); offset += size) {
        const std::size_t end = std::min(offset + size, nal.size());
        const auto header = static_cast<unsigned char>(
            (offset == 1 ? 0x80 : 0) | (end == nal.size() ? 0x40 : 0) | (nal[0] & 0x1F));
        Bytes payload{indicator, header};
        payload.insert(payload.end(), nal.begin() + static_cast<std::ptrdiff_t>(offset),
                       nal.begin() + static_cast<std::ptrdiff_t>(end));
        payloads.push_back(payload);
    }
    return payloads;
}

Bytes aacHbr(const std::vector<Bytes>& units) {
    const std::size_t bits = 16 * units.size();
    Bytes payload{static_cast<unsigned char>(bits >> 8), static_cast<unsigned char>(bits)};
    for (const Bytes& unit : units) {  // size in 13 bits, index (delta) 0 in 3
        payload.push_back(static_cast<unsigned char>(unit.size() >> 5));
        payload.push_back(static_cast<unsigned char>((unit.size() & 0x1F) << 3));
    }
    for (const Bytes& unit : units) {
        payload.insert(payload.end(), unit.begin(), unit.end());
    }
    return payload;
}

std::string interleaved(int channel, const Bytes& packet) {
    std::string framed{'$', static_cast<char>(channel), static_cast<char>(packet.size() >> 8),
                       static_cast<char>(packet.size() & 0xFF)};
    framed.append(packet.begin(), packet.end());
    return framed;
}

}  // namespace cmtest
