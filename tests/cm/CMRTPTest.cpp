#include <cm/CMRTP.h>

#include <zr/CException.h>
#include <zr/RSocket.h>

#include "support/Loopback.h"
#include "support/MediaTools.h"
#include "support/RTPPackets.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

using Bytes = std::vector<unsigned char>;

Bytes bytesAt(const unsigned char* data, unsigned int size) {
    return Bytes(data, data + size);
}

// A frame of `size` bytes 0, 1, 2, ... starting at `start` seconds.
RPtr<RRTPFrame> rtpFrame(unsigned int size, double start) {
    RPtr<RVideoFrame> media(RVideoFrame::create(size));
    Bytes bytes(size);
    for (unsigned int i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i);
    }
    if (size > 0) {
        media->setData(size, bytes.data(), ConstructionCopy);
    }
    media->setStartTime(start);
    return RPtr<RRTPFrame>(RRTPFrame::createWithFrame(media.addr()));
}

RPtr<RRTPDescription> exampleDescription() {
    RPtr<RRTPDescription> description(new RRTPDescription(new RVideoDescription()));
    description->mPayloadType = 96;
    description->mSSRC = 0x01020304;
    description->mClockRate = 90000;
    return description;
}

RPtr<RRTPPacket> packet(unsigned int offset, unsigned int length) {
    RPtr<RRTPPacket> p(RRTPPacket::createWithData(offset, length));
    p->mMarker = 1;
    p->mSequenceNumber = 0x1234;
    return p;
}

Bytes header(const RRTPDescription& description, const RRTPFrame& frame, const RRTPPacket& packet) {
    unsigned char buffer[RRTPPacket::kHeaderSize];
    unsigned int size = 0;
    EXPECT_EQ(packet.packHeader(&description, &frame, buffer, &size), &size);
    EXPECT_EQ(size, RRTPPacket::kHeaderSize);
    return bytesAt(buffer, size);
}

unsigned int timestampAt(double start, unsigned int clockRate) {
    RPtr<RRTPDescription> description = exampleDescription();
    description->mClockRate = clockRate;
    const Bytes h = header(*description, *rtpFrame(0, start), *packet(0, 0));
    return static_cast<unsigned int>(h[4]) << 24 | h[5] << 16 | h[6] << 8 | h[7];
}

TEST(RTPPacketTest, HeaderBytesFollowTheDescriptionFrameAndPacket) {
    RPtr<RRTPDescription> description = exampleDescription();
    RPtr<RRTPFrame> frame = rtpFrame(0, 1.0);
    RPtr<RRTPPacket> p = packet(0, 0);
    const Bytes expected = {0x80, 0xE0, 0x12, 0x34, 0x00, 0x01, 0x5F, 0x90, 0x01, 0x02, 0x03, 0x04};
    EXPECT_EQ(header(*description, *frame, *p), expected);

    description->mClockRate = 0;  // stands for 90000
    EXPECT_EQ(header(*description, *frame, *p), expected);

    // Only the lowest bit of each flag counts; an unassigned payload type keeps 7 bits.
    description->mPayloadType = -1;
    p->mMarker = 2;
    p->mPadding = 3;
    p->mExtension = 1;
    p->mCSRCCount = 4;  // never written: the CC field stays 0
    const Bytes h = header(*description, *frame, *p);
    EXPECT_EQ(h[0], 0x80 | 0x20 | 0x10);
    EXPECT_EQ(h[1], 0x7F);
}

TEST(RTPPacketTest, TimestampIsTheTickCountModulo2To32) {
    EXPECT_EQ(timestampAt(50000.0, 90000), 205032704u);  // 4 500 000 000 mod 2^32
    EXPECT_EQ(timestampAt(0.5, 8000), 4000u);
    EXPECT_EQ(timestampAt(0.99999, 1), 0u);  // truncated toward zero
    // Beyond a 64-bit count, and before zero, the same arithmetic modulo 2^32 holds.
    EXPECT_EQ(timestampAt(-1.0, 90000), 4294967296u - 90000u);
    EXPECT_EQ(timestampAt(std::ldexp(1.0, 64) + std::ldexp(3.0, 32) + 20480, 1), 20480u);
    EXPECT_EQ(timestampAt(std::ldexp(1.0, 80) + std::ldexp(1.0, 31), 1), 0x80000000u);
    EXPECT_EQ(timestampAt(std::nan(""), 90000), 0u);
    EXPECT_EQ(timestampAt(INFINITY, 90000), 0u);
}

TEST(RTPPacketTest, PackWritesHeaderThenTheSliceOfTheFrame) {
    RPtr<RRTPDescription> description = exampleDescription();
    RPtr<RRTPFrame> frame = rtpFrame(100, 1.0);
    const Bytes expectedHeader = header(*description, *frame, *packet(0, 0));

    Bytes buffer(200, 0xAA);
    unsigned int size = 0;
    packet(10, 5)->pack(description.addr(), frame.addr(), buffer.data(), &size);
    ASSERT_EQ(size, 17u);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 12), expectedHeader);
    EXPECT_EQ(Bytes(buffer.begin() + 12, buffer.begin() + 17), (Bytes{10, 11, 12, 13, 14}));
    EXPECT_EQ(buffer[17], 0xAA);

    packet(0, 0)->pack(description.addr(), frame.addr(), buffer.data(), &size);
    EXPECT_EQ(size, 12u);

    // A slice reaching past the frame carries only the bytes the frame has.
    packet(95, 50)->pack(description.addr(), frame.addr(), buffer.data(), &size);
    ASSERT_EQ(size, 17u);
    EXPECT_EQ(Bytes(buffer.begin() + 12, buffer.begin() + 17), (Bytes{95, 96, 97, 98, 99}));
    packet(0xFFFFFFF0u, 0x20)->pack(description.addr(), frame.addr(), buffer.data(), &size);
    EXPECT_EQ(size, 12u);
}

TEST(RTPPacketTest, AllocatingFormsStayInsideTheirBlocks) {
    RPtr<RRTPDescription> description = exampleDescription();
    RPtr<RRTPFrame> frame = rtpFrame(4000, 1.0);
    RPtr<RRTPPacket> p = packet(0, 0);

    unsigned int size = 0;
    unsigned char* block = p->packHeader(description.addr(), frame.addr(), &size);
    EXPECT_EQ(size, 12u);
    EXPECT_EQ(bytesAt(block, 12), header(*description, *frame, *p));
    block[RRTPPacket::kHeaderBlockSize - 1] = 0;  // the block is 100 bytes long
    std::free(block);
    std::free(p->packHeader(description.addr(), frame.addr(), nullptr));

    p->setData(100, 1488);  // fills the 1500-byte block exactly
    block = p->pack(description.addr(), frame.addr(), &size);
    ASSERT_EQ(size, 1500u);
    EXPECT_EQ(block[12], 100);
    EXPECT_EQ(block[1499], static_cast<unsigned char>(100 + 1487));
    std::free(block);

    p->setData(0, 3000);  // too long for the block: cut at its end
    block = p->pack(description.addr(), frame.addr(), &size);
    EXPECT_EQ(size, RRTPPacket::kPacketBlockSize);
    EXPECT_EQ(block[1499], static_cast<unsigned char>(1487));
    std::free(block);
    std::free(p->pack(description.addr(), frame.addr(), nullptr));

    unsigned char buffer[12];
    try {
        p->packHeader(nullptr, frame.addr(), buffer, &size);
        ADD_FAILURE() << "packing without a description";
    } catch (const CException& e) {
        EXPECT_STREQ(e.getFile(), "lib/cm/CMRTP");
    }
    EXPECT_THROW(p->pack(description.addr(), nullptr, &size), CException);
    unsigned char* const noBuffer = nullptr;
    EXPECT_THROW(p->pack(description.addr(), frame.addr(), noBuffer, &size), CException);
}

TEST(RTPFrameTest, CopiesTheMediaFrameAndSharesPackets) {
    RPtr<RVideoFrame> media(RVideoFrame::create(0));
    unsigned char bytes[] = {1, 2, 3};
    media->setData(3, bytes, ConstructionCopy);
    media->setStartTime(2.5);
    media->setFrameNumber(7);
    media->addParameter("name", RPtr<zrbase::object_refcount>(new cmtest::Tracked(1)));

    RPtr<RRTPFrame> first(RRTPFrame::createWithFrame(media.addr()));
    EXPECT_EQ(RRTPFrame::createWithFrame(nullptr), nullptr);
    EXPECT_NE(first->getData(), media->getData());
    EXPECT_EQ(bytesAt(first->getData(), 3), (Bytes{1, 2, 3}));
    EXPECT_EQ(first->getFrameNumber(), 7u);
    EXPECT_EQ(first->getParameter("name"), media->getParameter("name"));

    RRTPPacket* p1 = RRTPPacket::createWithData(0, 2);
    RRTPPacket* p2 = RRTPPacket::createWithData(2, 1);
    first->addPacket(p1);
    first->addPacket(p2);
    first->addPacket(nullptr);
    RPtr<RRTPPacket> watch(p1);
    RPtr<RRTPFrame> second(new RRTPFrame(*first));  // what copy() makes
    ASSERT_EQ(second->getPackets().size(), 2u);
    EXPECT_EQ(second->getPackets()[0].addr(), p1);
    EXPECT_EQ(second->getPackets()[1].addr(), p2);
    EXPECT_EQ(p1->retain_count(), 3);  // both frames and the watcher

    // A frame made from an RTP frame is a media copy: its packets are not taken over.
    EXPECT_TRUE(RPtr<RRTPFrame>(RRTPFrame::createWithFrame(first.addr()))->getPackets().empty());

    first = nullptr;
    EXPECT_EQ(p1->retain_count(), 2);
    EXPECT_EQ(second->getPackets()[1]->mOffset, 2u);
}

// ---------------------------------------------------------------------------------------------
// Descriptions and their media SDP

TEST(RTPDescriptionTest, DynamicPayloadTypesCycleThrough96To127ForTheWholeProcess) {
    RRTPDescription a(nullptr);
    RRTPDescription b(nullptr);
    // Other tests in this process may have drawn types: step to the end of a cycle first.
    for (int i = 0; i < 32 && a.mPayloadType != 127; ++i) {
        a.setDynamicPayload();
    }
    ASSERT_EQ(a.mPayloadType, 127);
    for (int call = 0; call < 32; ++call) {
        RRTPDescription& d = call % 2 ? b : a;  // one counter for every description
        d.setDynamicPayload();
        EXPECT_EQ(d.mPayloadType, 96 + call);
    }
    a.setDynamicPayload();  // the 33rd call
    EXPECT_EQ(a.mPayloadType, 96);
}

// The packetizer tests pin the blocks of each media kind with their attributes; here the
// port and the port count, which no packetizer sets.
TEST(RTPDescriptionTest, SDPBlockCarriesThePortAndPortCount) {
    RRTPDescription audio(new RAudioDescription());
    audio.mPort = 5004;
    audio.mPortCount = 2;
    audio.mPayloadType = 97;
    audio.mEncodingName = "L16";
    audio.mClockRate = 44100;
    audio.mEncodingParameters = 2;
    EXPECT_STREQ(audio.getSDP().c_str(), "m=audio 5004/2 RTP/AVP 97\na=rtpmap:97 L16/44100/2\n");
}

// ---------------------------------------------------------------------------------------------
// Interoperability: an independent decoder reads what pack() produced

// Packets packed by the library travel over UDP on loopback; what arrives is decoded by
// tshark, which must read back every header field.
TEST(RTPInteropTest, TsharkDecodesPackedPacketsSentOverUDP) {
    ASSERT_TRUE(cmtest::haveTool("tshark")) << "tshark is not installed";
    int port = 0;
    const int receiver = cmtest::loopbackServer(SOCK_DGRAM, &port);
    RSocket sender("127.0.0.1", port, RSocket::kDatagram, RSocket::kIPv4);
    ASSERT_EQ(sender.connect(), 0);

    RPtr<RRTPDescription> description = exampleDescription();
    description->mSSRC = 0xDEADBEEF;
    RPtr<RRTPFrame> frame = rtpFrame(3000, 50000.0);
    const unsigned int lengths[] = {1400, 1400, 200};
    unsigned int offset = 0;
    for (unsigned int i = 0; i < 3; ++i) {
        RRTPPacket* p = RRTPPacket::createWithData(offset, lengths[i]);
        p->mSequenceNumber = static_cast<std::uint16_t>(65534 + i);  // wraps to 0
        p->mMarker = i == 2;
        frame->addPacket(p);
        offset += lengths[i];
    }

    std::vector<cmtest::Datagram> received;
    for (const RPtr<RRTPPacket>& p : frame->getPackets()) {
        unsigned char buffer[1500];
        unsigned int size = 0;
        p->pack(description.addr(), frame.addr(), buffer, &size);
        ASSERT_EQ(sender.write(buffer, static_cast<int>(size)), static_cast<int>(size));
        Bytes datagram(2000);
        const ssize_t got = ::recv(receiver, datagram.data(), datagram.size(), 0);
        ASSERT_EQ(got, static_cast<ssize_t>(size));
        datagram.resize(static_cast<size_t>(got));
        received.push_back({port, datagram});
    }
    ::close(receiver);

    cmtest::TempDir dir;
    const std::string capture = dir.file("rtp.pcap");
    cmtest::writePcap(capture, received, 40000);
    const std::string output =
        cmtest::runCommand(
            "tshark -r " + capture + " -d udp.port==" + std::to_string(port) +
            ",rtp -T fields -E separator=, -e rtp.version -e rtp.padding -e rtp.ext -e rtp.cc"
            " -e rtp.marker -e rtp.p_type -e rtp.seq -e rtp.timestamp -e rtp.ssrc -e udp.length"
            " 2>/dev/null")
            .output;
    EXPECT_EQ(output,
              "2,0,0,0,0,96,65534,205032704,0xdeadbeef,1420\n"
              "2,0,0,0,0,96,65535,205032704,0xdeadbeef,1420\n"
              "2,0,0,0,1,96,0,205032704,0xdeadbeef,220\n");
}

}  // namespace
