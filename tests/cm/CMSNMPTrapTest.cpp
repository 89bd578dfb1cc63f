#include <cm/CMSNMPTrap.h>

#include <cm/CMLogger.h>

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

// A BER element built forwards, for short contents only, to check the backwards encoder.
Bytes tlv(unsigned char tag, const Bytes& content) {
    Bytes out{tag};
    if (content.size() >= 128) {
        out.push_back(0x82);
        out.push_back(static_cast<unsigned char>(content.size() >> 8));
    }
    out.push_back(static_cast<unsigned char>(content.size()));
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

Bytes text(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

template <typename Add>
Bytes encode(Add add) {
    RSNMPTrap trap;
    add(trap);
    EXPECT_FALSE(trap.hasOverflowed());
    return encoded(trap);
}

}  // namespace

TEST(SNMPTrapTest, IntegersKeepTheirUnsignedTagAndMissingSignByte) {
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addInteger(5); }), (Bytes{0x02, 0x01, 0x05}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addInteger(0); }), (Bytes{0x02, 0x01, 0x00}));
    // No sign byte: 200 and 0x8000 read back as negative numbers.
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addInteger(200); }), (Bytes{0x02, 0x01, 0xC8}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addInteger(0x8000); }), (Bytes{0x02, 0x02, 0x80, 0x00}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addInteger(0x123456); }),
              (Bytes{0x02, 0x03, 0x12, 0x34, 0x56}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addInteger(-1); }),
              (Bytes{0x02, 0x04, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addInteger(-200); }),
              (Bytes{0x02, 0x04, 0xFF, 0xFF, 0xFF, 0x38}));

    // Unsigned values are INTEGERs too, with a sign byte where the top bit is set.
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addUnsignedInteger(0); }), (Bytes{0x02, 0x01, 0x00}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addUnsignedInteger(200); }),
              (Bytes{0x02, 0x02, 0x00, 0xC8}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addUnsignedInteger(0x7FFF); }),
              (Bytes{0x02, 0x02, 0x7F, 0xFF}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addUnsignedInteger(0x1000000); }),
              (Bytes{0x02, 0x04, 0x01, 0x00, 0x00, 0x00}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addUnsignedInteger(0xFFFFFFFFUL); }),
              (Bytes{0x02, 0x05, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}));

    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addReqId(); }),
              (Bytes{0x02, 0x04, 0x87, 0xD6, 0x12, 0x00}));
}

TEST(SNMPTrapTest, LengthsUseShortOrMinimalLongForm) {
    RSNMPTrap trap;
    unsigned char* const end = const_cast<unsigned char*>(trap.getPosition());
    const auto lengthBytes = [&](unsigned int value) {
        unsigned char* position = end;
        trap.addLength(position, value);
        return Bytes(position, end);
    };
    EXPECT_EQ(lengthBytes(0), (Bytes{0x00}));
    EXPECT_EQ(lengthBytes(127), (Bytes{0x7F}));
    EXPECT_EQ(lengthBytes(128), (Bytes{0x81, 0x80}));
    EXPECT_EQ(lengthBytes(300), (Bytes{0x82, 0x01, 0x2C}));
    EXPECT_EQ(lengthBytes(0x10000), (Bytes{0x83, 0x01, 0x00, 0x00}));
    EXPECT_EQ(lengthBytes(0x1000000), (Bytes{0x84, 0x01, 0x00, 0x00, 0x00}));

    const std::string long_text(300, 'a');
    EXPECT_EQ(encode([&](RSNMPTrap& t) { t.addOctString(long_text.c_str()); }),
              cat({{0x04, 0x82, 0x01, 0x2C}, text(long_text)}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addOctString("abc"); }),
              (Bytes{0x04, 0x03, 'a', 'b', 'c'}));
    EXPECT_EQ(encode([](RSNMPTrap& t) { t.addOctString(nullptr); }), (Bytes{0x04, 0x00}));
}

TEST(SNMPTrapTest, ObjectIdentifiersFromDottedText) {
    const auto oid = [](const char* dotted) {
        return encode([dotted](RSNMPTrap& t) { t.addOid(dotted); });
    };
    EXPECT_EQ(oid("1.3.6.1.2.1.1.3.0"),
              (Bytes{0x06, 0x08, 0x2B, 0x06, 0x01, 0x02, 0x01, 0x01, 0x03, 0x00}));
    EXPECT_EQ(oid("1.3.6.1.4.1.15263.1.2.127"),
              (Bytes{0x06, 0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01, 0xF7, 0x1F, 0x01, 0x02, 0x7F}));
    EXPECT_EQ(oid("1.3.128.16384.4294967295"), (Bytes{0x06, 0x0B, 0x2B, 0x81, 0x00, 0x81, 0x80,
                                                      0x00, 0x8F, 0xFF, 0xFF, 0xFF, 0x7F}));
    // A leading dot is skipped; a component without digits counts as 0.
    EXPECT_EQ(oid(".1.3.6"), (Bytes{0x06, 0x02, 0x2B, 0x06}));
    EXPECT_EQ(oid("1.3.x.6"), (Bytes{0x06, 0x03, 0x2B, 0x00, 0x06}));
    // Fewer than two components give the single byte 0.
    EXPECT_EQ(oid("1"), (Bytes{0x06, 0x01, 0x00}));
    EXPECT_EQ(oid(""), (Bytes{0x06, 0x01, 0x00}));
}

TEST(SNMPTrapTest, BindingsGoOutInReverseOrderOfTheirSetCalls) {
    RSNMPTrap trap;
    trap.setInt("1.3.6.1.4.1.1", 7);           // A
    trap.setuInt("1.3.6.1.4.1.2", 200);        // B
    trap.setOctString("1.3.6.1.4.1.3", "hi");  // C
    const Bytes a =
        tlv(0x30, cat({{0x06, 0x06, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x01}, {0x02, 0x01, 7}}));
    const Bytes b = tlv(
        0x30, cat({{0x06, 0x06, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x02}, {0x02, 0x02, 0x00, 0xC8}}));
    const Bytes c =
        tlv(0x30, cat({{0x06, 0x06, 0x2B, 0x06, 0x01, 0x04, 0x01, 0x03}, {0x04, 0x02, 'h', 'i'}}));
    EXPECT_EQ(encoded(trap), cat({c, b, a}));
}

TEST(SNMPTrapTest, SendTrapWritesTheWholeMessageAndResets) {
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_DGRAM, &port);
    ZR::RSocket socket("127.0.0.1", port, ZR::RSocket::kDatagram, ZR::RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);
    RSNMPTrap trap;
    trap.setInt("1.3.6.1.4.1.15263.1.1.127", 3);
    const int sent = trap.sendTrap("1.3.6.1.4.1.15263.1.2.127", "public", socket);
    EXPECT_EQ(trap.getLength(), 0);
    Bytes got(2048);
    const ssize_t received = recv(server, got.data(), got.size(), 0);
    ASSERT_GT(received, 0);
    EXPECT_EQ(sent, received);
    got.resize(static_cast<size_t>(received));

    const Bytes binding =
        tlv(0x30, cat({{0x06, 0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01, 0xF7, 0x1F, 0x01, 0x01, 0x7F},
                       {0x02, 0x01, 0x03}}));
    const Bytes trapOid =
        tlv(0x30, cat({{0x06, 0x0A, 0x2B, 0x06, 0x01, 0x06, 0x03, 0x01, 0x01, 0x04, 0x01, 0x00},
                       {0x06, 0x0A, 0x2B, 0x06, 0x01, 0x04, 0x01, 0xF7, 0x1F, 0x01, 0x02, 0x7F}}));
    // The uptime's four bytes are taken from the message: they depend on the clock.
    const Bytes uptimeName{0x06, 0x08, 0x2B, 0x06, 0x01, 0x02, 0x01, 0x01, 0x03, 0x00};
    const auto at = std::search(got.begin(), got.end(), uptimeName.begin(), uptimeName.end());
    ASSERT_NE(at, got.end());
    const Bytes ticks(at + uptimeName.size(), at + uptimeName.size() + 6);
    EXPECT_EQ(ticks[0], 0x43);
    EXPECT_EQ(ticks[1], 0x04);
    const Bytes uptime = tlv(0x30, cat({uptimeName, ticks}));
    const Bytes pdu = tlv(0xA7, cat({{0x02, 0x04, 0x87, 0xD6, 0x12, 0x00},
                                     {0x02, 0x01, 0x00},
                                     {0x02, 0x01, 0x00},
                                     tlv(0x30, cat({uptime, trapOid, binding}))}));
    EXPECT_EQ(got, tlv(0x30, cat({{0x02, 0x01, 0x01}, tlv(0x04, text("public")), pdu})));

    // The reset trap is ready for the next message.
    trap.setInt("1.3.6.1.4.1.15263.1.1.127", 3);
    EXPECT_EQ(trap.sendTrap("1.3.6.1.4.1.15263.1.2.127", "public", socket), received);
    close(server);
}

TEST(SNMPTrapTest, UptimeCountsHundredthsSinceTheLoggerStartInFourBytes) {
    const long start = ZR::CM::RLogger::getStartTime();
    EXPECT_GT(start, 0);
    EXPECT_EQ(ZR::CM::RLogger::getStartTime(), start);  // fixed once defined
    RSNMPTrap trap;
    trap.addUptime();
    const Bytes got = encoded(trap);
    ASSERT_EQ(got.size(), 6u);
    EXPECT_EQ(got[0], 0x43);
    EXPECT_EQ(got[1], 0x04);
    const unsigned long ticks =
        (static_cast<unsigned long>(got[2]) << 24) | (got[3] << 16) | (got[4] << 8) | got[5];
    EXPECT_EQ(ticks % 100, 0u);
    EXPECT_LE(ticks, 100u);  // at most one second boundary since the start was taken
}

// A message longer than the buffer is never written past its start: the element that
// does not fit is refused, the trap reports the overflow, and nothing is sent.
TEST(SNMPTrapTest, MessageLongerThanTheBufferIsRefusedWhole) {
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_DGRAM, &port);
    ZR::RSocket socket("127.0.0.1", port, ZR::RSocket::kDatagram, ZR::RSocket::kIPv4);
    ASSERT_EQ(socket.connect(), 0);

    // The longest text that still fits gives a message that ends exactly where the
    // buffer does or one byte short of it (a length field growing by a byte).
    RSNMPTrap trap;
    size_t longest = 0;
    for (size_t n = 800; n < 1024; ++n) {
        trap.setOctString("1.3.6.1.4.1.15263.1.1.126", std::string(n, 'x').c_str());
        if (!trap.encodeTrap("1.3.6.1.4.1.15263.1.2.127", "public")) {
            break;
        }
        longest = n;
        trap.reset();
    }
    EXPECT_TRUE(trap.hasOverflowed());
    trap.reset();
    ASSERT_GT(longest, 800u);
    trap.setOctString("1.3.6.1.4.1.15263.1.1.126", std::string(longest, 'x').c_str());
    EXPECT_EQ(trap.sendTrap("1.3.6.1.4.1.15263.1.2.127", "public", socket), RSNMPTrap::kBufferSize);

    trap.setOctString("1.3.6.1.4.1.15263.1.1.126", std::string(longest + 1, 'x').c_str());
    EXPECT_EQ(trap.sendTrap("1.3.6.1.4.1.15263.1.2.127", "public", socket), 0);
    EXPECT_FALSE(trap.hasOverflowed());  // reset by sendTrap
    char buffer[2048];
    EXPECT_EQ(recv(server, buffer, sizeof buffer, 0), RSNMPTrap::kBufferSize);
    EXPECT_EQ(recv(server, buffer, sizeof buffer, MSG_DONTWAIT), -1);  // nothing more came

    // A text far beyond the buffer is refused at once, and so is all that follows.
    trap.addOctString(std::string(5000, 'y').c_str());
    EXPECT_TRUE(trap.hasOverflowed());
    EXPECT_EQ(trap.getLength(), 0);
    trap.addInteger(1);
    EXPECT_EQ(trap.getLength(), 0);
    close(server);
}

TEST(SNMPTrapTest, WrapAndBuildVBStayInsideTheBuffer) {
    // 1,023 bytes in use: wrap() has one byte free and writes nothing.
    RSNMPTrap trap;
    trap.addOctString(std::string(1019, 'z').c_str());
    ASSERT_EQ(trap.getLength(), 1023);
    const Bytes before = encoded(trap);
    trap.wrap(0x30);
    EXPECT_EQ(encoded(trap), before);
    EXPECT_TRUE(trap.hasOverflowed());

    // buildVB() needs two whole elements.
    trap.reset();
    trap.addInteger(1);
    trap.buildVB();
    EXPECT_TRUE(trap.hasOverflowed());
    EXPECT_EQ(encoded(trap), (Bytes{0x02, 0x01, 0x01}));

    // An identifier of more than 127 bytes keeps its one length byte; here that byte
    // (0x82) reads as a long-form length pointing beyond the buffer, so no binding is made.
    std::string dotted = "1.3";
    for (int i = 0; i < 129; ++i) {
        dotted += ".5";
    }
    trap.reset();
    trap.addInteger(1);
    trap.addOid(dotted.c_str());
    const Bytes oid = encoded(trap);
    EXPECT_EQ(oid[0], 0x06);
    EXPECT_EQ(oid[1], 0x82);
    EXPECT_EQ(oid[2], 0x2B);
    trap.buildVB();
    EXPECT_TRUE(trap.hasOverflowed());
    EXPECT_EQ(encoded(trap), oid);
}
