#include <cm/CMSNMPTrap.h>

#include <gtest/gtest.h>

#include "support/Loopback.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

using ZR::CM::RSNMPTrap;
using Bytes = std::vector<unsigned char>;

namespace {

Bytes encoded(const RSNMPTrap& trap) {
    return Bytes(trap.getPosition(), trap.getPosition() + trap.getLength());
}

// A BER element built forwards (contents below 128 bytes), to check the backwards encoder.
Bytes tlv(unsigned char tag, const Bytes& content) {
    Bytes out{tag, static_cast<unsigned char>(content.size())};
    out.insert(out.end(), content.begin(), content.end());
    return out;
}

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) {
        out.insert(out.end(), p.begin(), p.end());
    }
    return out;
}

template <typename Add>
Bytes encode(Add add) {
    RSNMPTrap trap;
    add(trap);
    EXPECT_FALSE(trap.hasOverflowed());
    return encoded(trap);
}

Bytes integer(long v) {
    return encode([v](RSNMPTrap& t) { t.addInteger(v); });
}
Bytes unsignedInteger(unsigned long v) {
    return encode([v](RSNMPTrap& t) { t.addUnsignedInteger(v); });
}
Bytes oid(const char* dotted) {
    return encode([dotted](RSNMPTrap& t) { t.addOid(dotted); });
}

const Bytes kTrapOid{0x06, 0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01, 0xF7, 0x1F, 0x01, 0x02, 0x7F};

}  // namespace

TEST(SNMPTrapTest, IntegersKeepTheirTagAndMissingSignByte) {
    EXPECT_EQ(integer(5), (Bytes{0x02, 0x01, 0x05}));
    EXPECT_EQ(integer(200), (Bytes{0x02, 0x01, 0xC8}));  // reads back as -56
    EXPECT_EQ(integer(0x8000), (Bytes{0x02, 0x02, 0x80, 0x00}));
    EXPECT_EQ(integer(0x123456), (Bytes{0x02, 0x03, 0x12, 0x34, 0x56}));
    EXPECT_EQ(integer(-1), (Bytes{0x02, 0x04, 0xFF, 0xFF, 0xFF, 0xFF}));
    // Unsigned values are INTEGERs too, with a sign byte where the top bit is set.
    EXPECT_EQ(unsignedInteger(0), (Bytes{0x02, 0x01, 0x00}));
    EXPECT_EQ(unsignedInteger(200), (Bytes{0x02, 0x02, 0x00, 0xC8}));
    EXPECT_EQ(unsignedInteger(0x7FFF), (Bytes{0x02, 0x02, 0x7F, 0xFF}));
    EXPECT_EQ(unsignedInteger(0xFFFFFFFFUL), (Bytes{0x02, 0x05, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addReqId(); }),
              (Bytes{0x02, 0x04, 0x87, 0xD6, 0x12, 0x00}));
}

TEST(SNMPTrapTest, ObjectIdentifiersFromDottedText) {
    EXPECT_EQ(oid("1.3.6.1.2.1.1.3.0"),
              (Bytes{0x06, 0x08, 0x2B, 0x06, 0x01, 0x02, 0x01, 0x01, 0x03, 0x00}));
    EXPECT_EQ(oid("1.3.6.1.4.1.15263.1.2.127"), kTrapOid);
    EXPECT_EQ(oid("1.3.128.4294967295"),
              (Bytes{0x06, 0x08, 0x2B, 0x81, 0x00, 0x8F, 0xFF, 0xFF, 0xFF, 0x7F}));
    // A leading dot is skipped; a component without digits counts as 0.
    EXPECT_EQ(oid(".1.3.x.6"), (Bytes{0x06, 0x03, 0x2B, 0x00, 0x06}));
    // Fewer than two components give the single byte 0.
    EXPECT_EQ(oid("1"), (Bytes{0x06, 0x01, 0x00}));
    EXPECT_EQ(oid(""), (Bytes{0x06, 0x01, 0x00}));
}

TEST(SNMPTrapTest, SendTrapWritesTheWholeMessageWithBindingsReversedAndResets) {
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_DGRAM, &port);
    ZR::RSocket socket("127.0.0.1", port, ZR::RSocket::kDatagram, ZR::RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);
    RSNMPTrap trap;
    trap.setInt("1.3.6.1.4.1.1", 3);
    trap.setOctString("1.3.6.1.4.1.2", "hi");
    const int sent = trap.sendTrap("1.3.6.1.4.1.15263.1.2.127", "public", socket);
    EXPECT_EQ(trap.getLength(), 0);
    Bytes got(2048);
    got.resize(static_cast<size_t>(std::max<ssize_t>(0, recv(server, got.data(), got.size(), 0))));
    EXPECT_EQ(sent, static_cast<int>(got.size()));

    // The uptime's four bytes depend on the clock: hundredths of whole seconds since the
    // start, so 0 or 100 this early.
    const Bytes uptimeName{0x06, 0x08, 0x2B, 0x06, 0x01, 0x02, 0x01, 0x01, 0x03, 0x00};
    const auto at = std::search(got.begin(), got.end(), uptimeName.begin(), uptimeName.end());
    ASSERT_LT(at + uptimeName.size() + 6, got.end());
    const Bytes ticks(at + uptimeName.size(), at + uptimeName.size() + 6);
    EXPECT_TRUE(ticks == Bytes({0x43, 0x04, 0, 0, 0, 0}) ||
                ticks == Bytes({0x43, 0x04, 0, 0, 0, 100}));

    const Bytes a = tlv(0x30, {0x06, 0x06, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x01, 0x02, 0x01, 0x03});
    const Bytes b =
        tlv(0x30, {0x06, 0x06, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x02, 0x04, 0x02, 'h', 'i'});
    const Bytes trapOid = tlv(
        0x30,
        cat({{0x06, 0x0A, 0x2B, 0x06, 0x01, 0x06, 0x03, 0x01, 0x01, 0x04, 0x01, 0x00}, kTrapOid}));
    const Bytes pdu =
        tlv(0xA7, cat({{0x02, 0x04, 0x87, 0xD6, 0x12, 0x00, 0x02, 0x01, 0x00, 0x02, 0x01, 0x00},
                       tlv(0x30, cat({tlv(0x30, cat({uptimeName, ticks})), trapOid, b, a}))}));
    EXPECT_EQ(got,
              tlv(0x30, cat({{0x02, 0x01, 0x01, 0x04, 0x06, 'p', 'u', 'b', 'l', 'i', 'c'}, pdu})));

    trap.setInt("1.3.6.1.4.1.1", 3);
    trap.setOctString("1.3.6.1.4.1.2", "hi");
    EXPECT_EQ(trap.sendTrap("1.3.6.1.4.1.15263.1.2.127", "public", socket), sent);
    close(server);
}

// A message longer than the buffer is never written in front of it: the element that does
// not fit is refused, the trap reports the overflow, and nothing is sent.
TEST(SNMPTrapTest, MessageLongerThanTheBufferIsRefusedWhole) {
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_DGRAM, &port);
    ZR::RSocket socket("127.0.0.1", port, ZR::RSocket::kDatagram, ZR::RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);
    const auto fill = [](RSNMPTrap& trap, size_t length) {
        trap.setOctString("1.3.6.1.4.1.15263.1.1.126", std::string(length, 'x').c_str());
    };
    // The longest text that fits makes a message that ends exactly at the buffer's start.
    RSNMPTrap trap;
    size_t longest = 800;
    for (;; ++longest) {
        fill(trap, longest + 1);
        const bool fits = trap.encodeTrap("1.3.6.1", "public");
        trap.reset();
        if (!fits) {
            break;
        }
    }
    fill(trap, longest);
    EXPECT_EQ(trap.sendTrap("1.3.6.1", "public", socket), RSNMPTrap::kBufferSize);
    fill(trap, longest + 1);
    EXPECT_EQ(trap.sendTrap("1.3.6.1", "public", socket), 0);
    char buffer[2048];
    EXPECT_EQ(recv(server, buffer, sizeof buffer, 0), RSNMPTrap::kBufferSize);
    EXPECT_EQ(recv(server, buffer, sizeof buffer, MSG_DONTWAIT), -1);  // nothing more came

    // Far beyond the buffer: refused at once, and so is everything after it.
    trap.addOctString(std::string(5000, 'y').c_str());
    trap.addInteger(1);
    EXPECT_TRUE(trap.hasOverflowed());
    EXPECT_EQ(trap.getLength(), 0);
    close(server);
}

TEST(SNMPTrapTest, WrapAndBuildVBStayInsideTheBuffer) {
    // 1,023 bytes in use: wrap() has one byte free and writes nothing.
    RSNMPTrap trap;
    trap.addOctString(std::string(1019, 'z').c_str());
    ASSERT_EQ(trap.getLength(), 1023);
    trap.wrap(0x30);
    EXPECT_EQ(trap.getLength(), 1023);
    EXPECT_TRUE(trap.hasOverflowed());

    // buildVB() needs two whole elements.
    trap.reset();
    trap.addInteger(1);
    trap.buildVB();
    EXPECT_TRUE(trap.hasOverflowed());
    EXPECT_EQ(encoded(trap), (Bytes{0x02, 0x01, 0x01}));
}
