#include "rtsp.importer/RtpPackets.h"

#include <gtest/gtest.h>

#include "support/RtpStreams.h"

#include <string>
#include <vector>

using cmcomponents::CRtpPacket;
using cmtest::Bytes;

// Headers whose own lengths (contributing sources, extension, padding) claim more than the
// packet holds do not parse; those that fit give the payload between them.
TEST(RtpPacketsTest, PayloadLiesBetweenTheHeaderAndThePadding) {
    // A packet whose first byte (version, padding, extension, source count) is `first`.
    auto packet = [](unsigned char first, const Bytes& rest) {
        Bytes bytes = cmtest::rtpPacket(0x1234, 0xA0B0C0D0, true, 97, rest);
        bytes[0] = first;
        return bytes;
    };
    struct Row {
        const char* name;
        Bytes packet;
        bool parses;
        Bytes payload;
    };
    const std::vector<Row> rows{
        {"plain", packet(0x80, {1, 2, 3, 4}), true, {1, 2, 3, 4}},
        {"one contributing source", packet(0x81, {1, 2, 3, 4, 5}), true, {5}},
        {"more sources than bytes", packet(0x82, {1, 2, 3, 4}), false, {}},
        {"an extension of one word", packet(0x90, {0xBE, 0xDE, 0, 1, 9, 9, 9, 9, 7}), true, {7}},
        {"an extension longer than the packet", packet(0x90, {0xBE, 0xDE, 0, 9, 7}), false, {}},
        {"two bytes of padding", packet(0xA0, {1, 2, 3, 4, 0, 2}), true, {1, 2, 3, 4}},
        {"padding of zero bytes", packet(0xA0, {1, 2, 0}), false, {}},
        {"padding longer than the payload", packet(0xA0, {1, 9}), false, {}},
        {"version 1", packet(0x40, {1, 2, 3, 4}), false, {}},
        {"shorter than a header", Bytes(11, 0x80), false, {}},
    };
    for (const Row& row : rows) {
        CRtpPacket parsed;
        ASSERT_EQ(parsed.parse(row.packet.data(), row.packet.size()), row.parses) << row.name;
        if (!row.parses) {
            continue;
        }
        EXPECT_EQ(Bytes(parsed.payload, parsed.payload + parsed.payloadSize), row.payload)
            << row.name;
        EXPECT_TRUE(parsed.marker) << row.name;
        EXPECT_EQ(parsed.payloadType, 97u) << row.name;
        EXPECT_EQ(parsed.sequence, 0x1234) << row.name;
        EXPECT_EQ(parsed.timestamp, 0xA0B0C0D0u) << row.name;
        EXPECT_EQ(parsed.ssrc, 0x12345678u) << row.name;
    }
}

// The receiver report is a compound packet a sender can walk (its length fields add up),
// and BYE is found in a compound packet however it is placed, never past its end.
TEST(RtpPacketsTest, ControlPacketsWalkByTheirLengths) {
    const Bytes report = cmcomponents::rtcpReceiverReport(0x01020304, "cm");
    std::size_t offset = 0;
    std::vector<unsigned int> types;
    while (offset + 4 <= report.size()) {
        types.push_back(report[offset + 1]);
        offset += 4 + 4u * ((report[offset + 2] << 8) | report[offset + 3]);
    }
    EXPECT_EQ(offset, report.size());
    EXPECT_EQ(types, (std::vector<unsigned int>{201, 202}));
    EXPECT_EQ(report.size() % 4, 0u);

    const Bytes bye{0x81, 203, 0, 1, 1, 2, 3, 4};
    Bytes compound = report;
    compound.insert(compound.end(), bye.begin(), bye.end());
    EXPECT_TRUE(cmcomponents::rtcpHasBye(compound.data(), compound.size()));
    EXPECT_FALSE(cmcomponents::rtcpHasBye(report.data(), report.size()));
    // A length that runs past the end hides what would follow.
    Bytes forged = report;
    forged[3] = 0xFF;
    forged.insert(forged.end(), bye.begin(), bye.end());
    EXPECT_FALSE(cmcomponents::rtcpHasBye(forged.data(), forged.size()));
}
