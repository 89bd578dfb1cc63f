#include "opus.packetizer/OpusPacketizer.h"

#include "support/RTPPackets.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using ZR::RPtr;
using namespace cmcomponents;
using cmtest::Bytes;

namespace {

cmtest::Packetized run(unsigned int channels, unsigned int rate, const std::vector<Bytes>& frames) {
    CodedFormat format;
    format.media = ZR::fourcc("audi");
    format.codec = ZR::fourcc("Opus");
    format.channels = channels;
    format.sampleRate = rate;
    const RPtr<ZR::CM::RDescription> description(format.createDescription());
    RPtr<ROpusPacketizer> packetizer(new ROpusPacketizer);
    return cmtest::packetize(*packetizer, "mtu=256,payload-type=96", description.addr(),
                             cmtest::timedFrames(format.media, format.codec, frames, 1.0, 0.02));
}

// Every packet whole in one RTP packet on a 48 kHz clock, whatever the input's rate says,
// the marker on the first; an empty frame is not sent.
TEST(OpusPacketizerTest, SendsEachPacketWhole) {
    for (const unsigned int channels : {1u, 2u}) {
        const cmtest::Packetized out = run(channels, 16000, {{0xfc, 1, 2}, {}, {0xfc, 3}});
        ASSERT_TRUE(out.description) << out.status.mInfo.c_str();
        EXPECT_EQ(std::string(out.description->getSDP().c_str()),
                  "m=audio 0 RTP/AVP 96\na=rtpmap:96 opus/48000/2\na=fmtp:96 sprop-stereo=" +
                      std::to_string(channels - 1) + "\n");
        ASSERT_EQ(out.packets.size(), 2u);
        EXPECT_EQ(cmtest::describePayload(out.packets[0]), "M fc0102");
        EXPECT_EQ(cmtest::describePayload(out.packets[1]), "fc03");
        EXPECT_EQ(cmtest::timestampOf(out.packets[0]), 48000u);
        EXPECT_EQ(cmtest::timestampOf(out.packets[1]), 48000u + 2 * 960);
        EXPECT_EQ(cmtest::sequenceOf(out.packets[1]), 1u);
    }
}

TEST(OpusPacketizerTest, RefusesWhatRtpDoesNotCarry) {
    for (const auto& [channels, size] : {std::pair<unsigned int, size_t>{3, 10}, {2, 217}}) {
        const cmtest::Packetized out = run(channels, 48000, {Bytes(size, 0xfc)});
        EXPECT_EQ(out.status.mExtra, unsigned(ZR::CM::kResultNoPacketizer)) << channels;
        EXPECT_TRUE(out.packets.empty());
    }
}

}  // namespace
