#include "h264.packetizer/H264Packetizer.h"

#include "support/RTPPackets.h"
#include "support/RtpStreams.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using ZR::RPtr;
using namespace cmcomponents;
using cmtest::annexB;
using cmtest::Bytes;

namespace {

const Bytes kSps = {0x67, 0x42, 0xc0, 0x1e, 0xab, 0xcd};
const Bytes kPps = {0x68, 0xce, 0x3c, 0x80};
const Bytes kIdr = {0x65, 0x88, 0x84, 0x00, 0x11, 0x22};
const Bytes kSlice = {0x41, 0x9a, 0x02, 0x03};
const char kSets[] =
    "packetization-mode=1;profile-level-id=42C01E;sprop-parameter-sets=Z0LAHqvN,aM48gA==";

// A unit of `size` bytes after the header byte, none of them zero.
Bytes unit(unsigned char header, size_t size) {
    Bytes bytes{header};
    for (size_t i = 1; i < size; ++i) {
        bytes.push_back(static_cast<unsigned char>(i | 1));
    }
    return bytes;
}

Bytes lengthPrefixed(const std::vector<Bytes>& units) {
    Bytes out;
    for (const Bytes& u : units) {
        out.insert(out.end(), {0, 0, static_cast<unsigned char>(u.size() >> 8),
                               static_cast<unsigned char>(u.size())});
        out.insert(out.end(), u.begin(), u.end());
    }
    return out;
}

Bytes avcC() {
    Bytes record = {1, 0x42, 0xc0, 0x1e, 0xff, 0xe1, 0, static_cast<unsigned char>(kSps.size())};
    record.insert(record.end(), kSps.begin(), kSps.end());
    record.insert(record.end(), {1, 0, static_cast<unsigned char>(kPps.size())});
    record.insert(record.end(), kPps.begin(), kPps.end());
    return record;
}

cmtest::Packetized run(const Bytes& privateData, const std::vector<Bytes>& frames,
                       const std::vector<bool>& keys) {
    CodedFormat format;
    format.media = ZR::fourcc("vide");
    format.codec = ZR::fourcc("avc1");
    format.privateData = privateData;
    const RPtr<ZR::CM::RDescription> description(format.createDescription());
    RPtr<RH264Packetizer> packetizer(new RH264Packetizer);
    return cmtest::packetize(
        *packetizer, "mtu=256,payload-type=96", description.addr(),
        cmtest::timedFrames(format.media, format.codec, frames, 1.0, 0.04, keys));
}

// Units go out one per packet, small ones gathered into an STAP-A, large ones in FU-A
// fragments, with the parameter sets in front of key frames; the marker ends each frame.
TEST(H264PacketizerTest, LaysOutAccessUnits) {
    const std::string stap = "7800066742c01eabcd000468ce3c80";  // SPS and PPS
    const Bytes sei = unit(0x06, 150);
    const struct Row {
        const char* name;
        Bytes privateData;
        std::vector<Bytes> frames;
        std::vector<bool> keys;
        std::string fmtp;  // after "a=fmtp:96 "
        std::vector<std::string> packets;
    } rows[] = {
        {"Annex B sets in the private data",
         annexB({kSps, kPps}),
         {annexB({kIdr}), annexB({kSlice})},
         {true, false},
         kSets,
         {"M " + stap + "0006658884001122", "M 419a0203"}},
        {"avcC, sets put before a large key frame",
         avcC(),
         {lengthPrefixed({unit(0x65, 500)})},
         {true},
         kSets,
         {stap, "7c850103../216", "7c05d7d9../216", "M 7c45adaf../73"}},
        {"sets in the frame, unspecified units dropped",
         {},
         {annexB({kSps, kPps, kIdr, {0x1e, 1}})},
         {true},
         kSets,
         {"M " + stap + "0006658884001122"}},
        {"a gathering ends where the payload does",
         {},
         {annexB({{0x09, 0xf0}, sei, unit(0x41, 100)})},
         {false},
         "packetization-mode=1",
         {"18000209../157", "M 41010303../100"}},
    };
    for (const Row& row : rows) {
        const cmtest::Packetized out = run(row.privateData, row.frames, row.keys);
        ASSERT_TRUE(out.description) << row.name << ": " << out.status.mInfo.c_str();
        EXPECT_EQ(out.status.mExtra, 0u) << row.name << ": " << out.status.mInfo.c_str();
        EXPECT_EQ(std::string(out.description->getSDP().c_str()),
                  "m=video 0 RTP/AVP 96\na=rtpmap:96 H264/90000\na=fmtp:96 " + row.fmtp + "\n")
            << row.name;
        std::vector<std::string> packets;
        for (size_t i = 0; i < out.packets.size(); ++i) {
            packets.push_back(cmtest::describePayload(out.packets[i]));
            EXPECT_EQ(cmtest::sequenceOf(out.packets[i]), i) << row.name;
        }
        EXPECT_EQ(packets, row.packets) << row.name;
        EXPECT_EQ(cmtest::timestampOf(out.packets.front()), 90000u) << row.name;
    }
}

TEST(H264PacketizerTest, RefusesLengthsThatRunPastTheirEnd) {
    Bytes cutRecord = avcC();
    cutRecord.resize(cutRecord.size() - 1);
    Bytes overlong = lengthPrefixed({kIdr});
    overlong[3] += 1;
    for (const auto& [privateData, frame] :
         {std::pair<Bytes, Bytes>{cutRecord, lengthPrefixed({kIdr})}, {avcC(), overlong}}) {
        const cmtest::Packetized out = run(privateData, {frame}, {true});
        EXPECT_EQ(out.status.mExtra, unsigned(ZR::CM::kResultInputMetaDataParseFailed))
            << out.status.mInfo.c_str();
        EXPECT_TRUE(out.packets.empty());
    }
}

}  // namespace
