#include "aac.packetizer/AacPacketizer.h"

#include "support/RTPPackets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using ZR::RPtr;
using namespace cmcomponents;
using cmtest::Bytes;

namespace {

const Bytes kConfig = {0x11, 0x90};  // AAC LC, 48 kHz, two channels

Bytes unit(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i);
    }
    return bytes;
}

// The unit after the ADTS header that says what kConfig says.
Bytes adts(const Bytes& unit) {
    const size_t length = 7 + unit.size();
    Bytes frame(length);
    const unsigned char header[] = {0xff,
                                    0xf1,
                                    0x4c,
                                    static_cast<unsigned char>(0x80 | length >> 11),
                                    static_cast<unsigned char>(length >> 3),
                                    static_cast<unsigned char>((length & 7) << 5 | 0x1f),
                                    0xfc};
    std::copy(header, header + 7, frame.begin());
    std::copy(unit.begin(), unit.end(), frame.begin() + 7);
    return frame;
}

Bytes withoutLastByte(Bytes bytes) {
    bytes.pop_back();
    return bytes;
}

cmtest::Packetized run(const Bytes& config, const std::vector<Bytes>& frames) {
    CodedFormat format;
    format.media = ZR::fourcc("audi");
    format.codec = ZR::fourcc("mp4a");
    format.channels = 2;
    format.sampleRate = 48000;
    format.privateData = config;
    const RPtr<ZR::CM::RDescription> description(format.createDescription());
    RPtr<RAacPacketizer> packetizer(new RAacPacketizer);
    return cmtest::packetize(
        *packetizer, "mtu=256,payload-type=96", description.addr(),
        cmtest::timedFrames(format.media, format.codec, frames, 1.0, 1024 / 48000.0));
}

// Each unit goes out after one AU header with its size; a large one in fragments whose
// headers give the whole unit's size, the marker on the last. ADTS frames lose their
// header and give the config.
TEST(AacPacketizerTest, LaysOutAccessUnits) {
    const std::string small = "001000a0" + std::string("000102030405060708090a0b0c0d0e0f10111213");
    const struct Row {
        const char* name;
        Bytes config;
        std::vector<Bytes> frames;
        std::vector<std::string> packets;
    } rows[] = {
        {"raw", kConfig, {unit(20), unit(20)}, {"M " + small, "M " + small}},
        {"ADTS", {}, {adts(unit(20))}, {"M " + small}},
        {"fragmented",
         kConfig,
         {unit(500)},
         {"00100fa0../216", "00100fa0../216", "M 00100fa0../80"}},
    };
    for (const Row& row : rows) {
        const cmtest::Packetized out = run(row.config, row.frames);
        ASSERT_TRUE(out.description) << row.name << ": " << out.status.mInfo.c_str();
        EXPECT_EQ(std::string(out.description->getSDP().c_str()),
                  "m=audio 0 RTP/AVP 96\na=rtpmap:96 MPEG4-GENERIC/48000/2\na=fmtp:96 "
                  "streamtype=5;profile-level-id=1;mode=AAC-hbr;sizelength=13;indexlength=3;"
                  "indexdeltalength=3;config=1190\n")
            << row.name;
        std::vector<std::string> packets;
        for (const Bytes& packet : out.packets) {
            packets.push_back(cmtest::describePayload(packet));
        }
        EXPECT_EQ(packets, row.packets) << row.name;
        EXPECT_EQ(cmtest::timestampOf(out.packets.back()), 48000u + 1024 * (row.frames.size() - 1))
            << row.name;
    }
}

TEST(AacPacketizerTest, RefusesWhatItCannotCarry) {
    const struct Row {
        const char* name;
        Bytes config;
        Bytes frame;
        int result;
    } rows[] = {
        {"no config, no ADTS", {}, unit(20), ZR::CM::kResultInputMetaDataParseFailed},
        {"ADTS frame longer than its bytes",
         {},
         withoutLastByte(adts(unit(20))),
         ZR::CM::kResultInputMetaDataParseFailed},
        {"unit beyond 13 bits", kConfig, unit(8192), ZR::CM::kResultNoPacketizer},
    };
    for (const Row& row : rows) {
        const cmtest::Packetized out = run(row.config, {row.frame});
        EXPECT_EQ(out.status.mExtra, unsigned(row.result)) << row.name;
        EXPECT_TRUE(out.packets.empty()) << row.name;
    }
}

}  // namespace
