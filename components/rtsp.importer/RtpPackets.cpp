#include "rtsp.importer/RtpPackets.h"

#include <algorithm>
#include <cstring>

namespace cmcomponents {

namespace {

constexpr unsigned int kVersion = 2;
constexpr std::size_t kFixedHeader = 12;
constexpr unsigned int kRtcpBye = 203;
constexpr unsigned int kRtcpReceiverReport = 201;
constexpr unsigned int kRtcpSourceDescription = 202;
constexpr unsigned int kSdesCname = 1;

std::uint16_t read16(const unsigned char* p) {
    return static_cast<std::uint16_t>((p[0] << 8) | p[1]);
}

std::uint32_t read32(const unsigned char* p) {
    return (std::uint32_t{p[0]} << 24) | (std::uint32_t{p[1]} << 16) | (std::uint32_t{p[2]} << 8) |
           p[3];
}

void put16(std::vector<unsigned char>& out, unsigned int value) {
    out.push_back(static_cast<unsigned char>(value >> 8));
    out.push_back(static_cast<unsigned char>(value));
}

void put32(std::vector<unsigned char>& out, std::uint32_t value) {
    put16(out, value >> 16);
    put16(out, value & 0xFFFFu);
}

}  // namespace

bool CRtpPacket::parse(const unsigned char* bytes, std::size_t size) {
    if (size < kFixedHeader || (bytes[0] >> 6) != kVersion) {
        return false;
    }
    const bool padding = (bytes[0] & 0x20) != 0;
    const bool extension = (bytes[0] & 0x10) != 0;
    std::size_t header = kFixedHeader + 4u * (bytes[0] & 0x0Fu);
    if (extension) {
        if (header + 4 > size) {
            return false;
        }
        header += 4 + 4u * read16(bytes + header + 2);
    }
    if (header > size) {
        return false;
    }
    std::size_t end = size;
    if (padding) {
        const std::size_t count = bytes[size - 1];
        if (count == 0 || count > size - header) {
            return false;
        }
        end -= count;
    }
    marker = (bytes[1] & 0x80) != 0;
    payloadType = bytes[1] & 0x7Fu;
    sequence = read16(bytes + 2);
    timestamp = read32(bytes + 4);
    ssrc = read32(bytes + 8);
    payload = bytes + header;
    payloadSize = end - header;
    return true;
}

bool rtcpHasBye(const unsigned char* bytes, std::size_t size) {
    std::size_t offset = 0;
    while (offset + 4 <= size) {
        const unsigned char* packet = bytes + offset;
        if ((packet[0] >> 6) != kVersion) {
            return false;
        }
        if (packet[1] == kRtcpBye) {
            return true;
        }
        offset += 4 + 4u * read16(packet + 2);
    }
    return false;
}

std::vector<unsigned char> rtcpReceiverReport(std::uint32_t ssrc, const char* cname) {
    const std::size_t nameLength = std::min<std::size_t>(std::strlen(cname), 255);
    std::vector<unsigned char> out;
    out.push_back(kVersion << 6);  // no report blocks
    out.push_back(kRtcpReceiverReport);
    put16(out, 1);
    put32(out, ssrc);
    // One chunk: the source, its CNAME item, then zeros up to the next 32-bit boundary
    // (at least one, which ends the item list).
    const std::size_t chunk = 4 + 2 + nameLength;
    const std::size_t padded = (chunk / 4 + 1) * 4;
    out.push_back((kVersion << 6) | 1);
    out.push_back(kRtcpSourceDescription);
    put16(out, static_cast<unsigned int>(padded / 4));
    put32(out, ssrc);
    out.push_back(kSdesCname);
    out.push_back(static_cast<unsigned char>(nameLength));
    out.insert(out.end(), cname, cname + nameLength);
    out.insert(out.end(), padded - chunk, 0);
    return out;
}

}  // namespace cmcomponents
