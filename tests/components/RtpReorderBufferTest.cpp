#include "rtsp.importer/RtpReorderBuffer.h"

#include <gtest/gtest.h>

#include "support/RtpStreams.h"

#include <string>
#include <utility>
#include <vector>

using cmcomponents::CRtpPacket;
using cmcomponents::CRtpReorderBuffer;

namespace {

class Recorder : public CRtpReorderBuffer::Target {
public:
    void deliver(const CRtpPacket& packet, bool afterLoss) override {
        // The timestamp carries the sequence number, so a packet's bytes are checked too.
        EXPECT_EQ(packet.timestamp, packet.sequence);
        delivered += (delivered.empty() ? "" : " ") + std::to_string(packet.sequence) +
                     (afterLoss ? "*" : "");
        ++count;
    }
    std::string delivered;
    unsigned long long count = 0;
};

}  // namespace

// Arrival orders a network produces, through a window of four packets: what comes out is
// in sequence order across the wrap at 65536, each gap given up is marked on the packet
// after it and counted, and copies and stragglers are counted and dropped.
TEST(RtpReorderBufferTest, RestoresOrderAndCountsWhatWentWrong) {
    struct Row {
        const char* name;
        std::vector<std::uint16_t> arrivals;
        const char* delivered;  // in order; "*" marks a packet that follows a loss
        unsigned long long lost, duplicated, reordered, restarts;
    };
    const std::vector<Row> rows{
        {"in order", {1, 2, 3}, "1 2 3", 0, 0, 0, 0},
        {"swapped", {1, 3, 2, 4}, "1 2 3 4", 0, 0, 1, 0},
        {"copies", {1, 2, 2, 3, 1}, "1 2 3", 0, 2, 0, 0},
        {"a gap given up", {1, 3, 4, 5, 6}, "1 3* 4 5 6", 1, 0, 3, 0},
        {"a straggler after its gap was given up", {1, 3, 4, 5, 6, 2}, "1 3* 4 5 6", 1, 1, 3, 0},
        {"across the wrap", {65534, 0, 65535, 1}, "65534 65535 0 1", 0, 0, 1, 0},
        {"held at the end", {1, 3}, "1 3*", 1, 0, 1, 0},
        {"a jump past the window", {1, 10}, "1 10*", 8, 0, 0, 0},
        {"a new start", {1, 2, 20000, 20001}, "1 2 20000* 20001", 0, 0, 0, 1},
    };
    for (const Row& row : rows) {
        CRtpReorderBuffer buffer(4);
        Recorder recorder;
        for (const std::uint16_t sequence : row.arrivals) {
            const cmtest::Bytes bytes = cmtest::rtpPacket(sequence, sequence, false, 96, {1, 2});
            CRtpPacket packet;
            ASSERT_TRUE(packet.parse(bytes.data(), bytes.size()));
            buffer.push(packet, bytes.data(), bytes.size(), recorder);
        }
        buffer.flush(recorder);
        EXPECT_EQ(recorder.delivered, row.delivered) << row.name;
        const CRtpReorderBuffer::Counts& counts = buffer.counts();
        EXPECT_EQ(counts.delivered, recorder.count) << row.name;
        EXPECT_EQ(counts.lost, row.lost) << row.name;
        EXPECT_EQ(counts.duplicated, row.duplicated) << row.name;
        EXPECT_EQ(counts.reordered, row.reordered) << row.name;
        EXPECT_EQ(counts.restarts, row.restarts) << row.name;
    }
}
