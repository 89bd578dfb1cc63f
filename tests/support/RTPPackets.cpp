#include "support/RTPPackets.h"

#include "support/CodedPipelines.h"
#include "support/MediaPipeline.h"

#include <cstdint>
#include <cstdio>
#include <fstream>

using ZR::RPtr;
using namespace ZR::CM;

namespace cmtest {

std::vector<RPtr<RFrame>> timedFrames(unsigned int media, unsigned int codec,
                                      const std::vector<Bytes>& payloads, double start, double step,
                                      const std::vector<bool>& keys) {
    std::vector<RPtr<RFrame>> frames;
    for (size_t i = 0; i < payloads.size(); ++i) {
        const double time = start + static_cast<double>(i) * step;
        const unsigned int key = i < keys.size() && keys[i] ? 1 : 0;  // bit 0 marks a key frame
        auto* data = const_cast<unsigned char*>(payloads[i].data());  // copied
        const auto size = static_cast<unsigned int>(payloads[i].size());
        RFrame* frame =
            media == ZR::fourcc("vide")
                ? static_cast<RFrame*>(RVideoFrame::createWithData(static_cast<unsigned int>(i),
                                                                   time, step, codec, size, data,
                                                                   key, ZR::ConstructionCopy))
                : RAudioFrame::createWithData(static_cast<unsigned int>(i), time, step, codec, size,
                                              data, key, 0, ZR::ConstructionCopy);
        frame->setAuxTime(time);
        frames.emplace_back(frame);
    }
    return frames;
}

Packetized packetize(CMMultipleQueueComponent& packetizer, const std::string& settings,
                     const RDescription* description, const std::vector<RPtr<RFrame>>& frames) {
    dynamic_cast<CConfigurableP&>(packetizer)
        .configure(*settingsOf<RPacketizerConfiguration>(settings));
    const Filtered out = filterFrames(packetizer, nullptr, description, frames);
    Packetized result;
    result.description = dynamic_cast<const RRTPDescription*>(out.description.addr());
    result.status = packetizer.getStatus();
    for (const RPtr<RFrame>& frame : out.frames) {
        const auto* rtp = dynamic_cast<const RRTPFrame*>(frame.addr());
        for (const RPtr<RRTPPacket>& packet : rtp->getPackets()) {
            Bytes bytes(RRTPPacket::kHeaderSize + packet->mLength);
            unsigned int size = 0;
            packet->pack(result.description.addr(), rtp, bytes.data(), &size);
            bytes.resize(size);
            result.packets.push_back(bytes);
        }
    }
    return result;
}

std::string describePayload(const Bytes& packet) {
    const size_t length = packet.size() - RRTPPacket::kHeaderSize;
    std::string text = (packet[1] & 0x80) ? "M " : "";
    const size_t shown = length > 32 ? 4 : length;
    for (size_t i = 0; i < shown; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", packet[RRTPPacket::kHeaderSize + i]);
        text += digits;
    }
    return length > 32 ? text + "../" + std::to_string(length) : text;
}

unsigned int sequenceOf(const Bytes& packet) {
    return packet[2] << 8 | packet[3];
}

unsigned int timestampOf(const Bytes& packet) {
    return static_cast<unsigned int>(packet[4]) << 24 | packet[5] << 16 | packet[6] << 8 |
           packet[7];
}

namespace {

void putBigEndian16(Bytes* out, unsigned int value) {
    out->push_back(static_cast<unsigned char>(value >> 8));
    out->push_back(static_cast<unsigned char>(value));
}

}  // namespace

void writePcap(const std::string& path, const std::vector<Datagram>& datagrams, int srcPort) {
    std::ofstream out(path, std::ios::binary);
    const std::uint32_t global[] = {0xa1b2c3d4, 2 | 4u << 16, 0, 0, 65535, 101 /* raw IP */};
    out.write(reinterpret_cast<const char*>(global), sizeof global);
    for (size_t i = 0; i < datagrams.size(); ++i) {
        const Bytes& payload = datagrams[i].bytes;
        const unsigned int udpLength = 8 + static_cast<unsigned int>(payload.size());
        Bytes packet = {0x45, 0};
        putBigEndian16(&packet, 20 + udpLength);
        packet.insert(packet.end(), {0, 0, 0x40, 0, 64, 17, 0, 0, 127, 0, 0, 1, 127, 0, 0, 1});
        unsigned int sum = 0;
        for (int j = 0; j < 20; j += 2) {
            sum += packet[j] << 8 | packet[j + 1];
        }
        sum = (sum & 0xFFFF) + (sum >> 16);
        sum = ~(sum + (sum >> 16));
        packet[10] = static_cast<unsigned char>(sum >> 8);
        packet[11] = static_cast<unsigned char>(sum);
        for (const unsigned int field :
             {static_cast<unsigned int>(srcPort), static_cast<unsigned int>(datagrams[i].port),
              udpLength, 0u}) {
            putBigEndian16(&packet, field);
        }
        packet.insert(packet.end(), payload.begin(), payload.end());
        const auto size = static_cast<std::uint32_t>(packet.size());
        const std::uint32_t record[] = {static_cast<std::uint32_t>(i), 0, size, size};
        out.write(reinterpret_cast<const char*>(record), sizeof record);
        out.write(reinterpret_cast<const char*>(packet.data()), size);
    }
}

}  // namespace cmtest
