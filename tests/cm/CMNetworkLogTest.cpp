#include <cm/CMNetworkLog.h>

#include <cm/CMSNMPTrap.h>
#include <cm/CMSysConf.h>

#include <gtest/gtest.h>

#include "support/Loopback.h"
#include "support/SnmpTrapReceiver.h"
#include "support/SyslogCapture.h"
#include "support/TestSupport.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace ZR::CM;

namespace {

// Each test case runs in a process of its own, so the configuration, the thresholds and
// the default destinations start empty every time.
sys_conf& conf() {
    return sys_conf::instance();
}

std::string withZero(const std::string& text) {
    return text + '\0';
}

// The TCP destination, connected to the listener on port.
RTCPLogInterface* tcpDestination(int port, int threshold) {
    conf().set_value("common.logging.udp-host", "127.0.0.1");  // what switches TCP on
    conf().set_value("common.logging.tcp-host", "127.0.0.1");
    conf().set_int("common.loggin.tcp-port", port);
    conf().set_int("common.logging.tcp-priority", threshold);
    return RTCPLogInterface::getDefault("engine");
}

RSNMPLogInterface* snmpDestination(int port, int threshold) {
    conf().set_value("%snmp-traps", "true");
    conf().set_int("common.logging.snmp-priority", threshold);
    conf().set_value("common.logging.snmp-host", "127.0.0.1");
    conf().set_int("common.logging.snmp-port", port);
    return RSNMPLogInterface::getDefault();
}

}  // namespace

TEST(NetworkLogTest, DestinationsStayOffUntilConfigured) {
    EXPECT_EQ(RUDPLogInterface::getDefault(), nullptr);
    EXPECT_EQ(RSyslogLogInterface::getDefault(nullptr), nullptr);
    // A threshold alone is not enough where a host is needed, nor for SNMP its switch.
    conf().set_int("common.logging.udp-priority", 3);
    EXPECT_EQ(RUDPLogInterface::getDefault(), nullptr);
    EXPECT_EQ(tcpDestination(6677, 8), nullptr);
    EXPECT_EQ(snmpDestination(162, 8), nullptr);
    conf().set_value("%snmp-traps", "no");
    conf().set_int("common.logging.snmp-priority", 3);
    EXPECT_EQ(RSNMPLogInterface::getDefault(), nullptr);
}

TEST(NetworkLogTest, UDPSendsOneDatagramWithItsZeroPerMessageUpToTheThreshold) {
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_DGRAM, &port);
    conf().set_value("common.logging.udp-host", "127.0.0.1");
    conf().set_int("common.loggin.udp-port", port);
    conf().set_int("common.logging.udp-priority", 3);
    RUDPLogInterface* const udp = RUDPLogInterface::getDefault();
    ASSERT_NE(udp, nullptr);
    for (int priority = 0; priority <= 7; ++priority) {
        EXPECT_EQ(udp->log(priority, 0, ("p" + std::to_string(priority)).c_str()), 0);
    }
    EXPECT_EQ(
        cmtest::receiveWaiting(server),
        (std::vector<std::string>{withZero("p0"), withZero("p1"), withZero("p2"), withZero("p3")}));

    // getDefault reads the threshold again but keeps the destination as it was made.
    conf().set_int("common.logging.udp-priority", 6);
    conf().set_int("common.loggin.udp-port", port + 1);
    EXPECT_EQ(RUDPLogInterface::getDefault(), udp);
    udp->log(6, 0, "abc");
    udp->log(7, 0, "still not");
    EXPECT_EQ(cmtest::receiveWaiting(server), std::vector<std::string>{std::string("abc\0", 4)});
    close(server);
}

TEST(NetworkLogTest, TCPStreamsTextsWithTheirZerosAndOutlivesItsPeer) {
    // SIGPIPE's default action ends the process: surviving the writes after the peer has
    // gone is part of the test.
    std::signal(SIGPIPE, SIG_DFL);
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_STREAM, &port);
    RTCPLogInterface* const tcp = tcpDestination(port, 5);
    ASSERT_NE(tcp, nullptr);
    const int peer = accept(server, nullptr, nullptr);
    EXPECT_EQ(tcp->log(5, 0, "one"), 0);
    EXPECT_EQ(tcp->log(6, 0, "dropped"), 0);
    EXPECT_EQ(tcp->log(0, 0, "two"), 0);
    char got[16] = {};
    EXPECT_EQ(recv(peer, got, 8, MSG_WAITALL), 8);
    EXPECT_EQ(std::string(got, 8), std::string("one\0two\0", 8));
    EXPECT_EQ(recv(peer, got, sizeof got, MSG_DONTWAIT), -1);

    close(peer);
    for (int i = 0; i < 100 && tcp->isConnected(); ++i, usleep(1000)) {
        EXPECT_EQ(tcp->log(3, 0, "to nobody"), 0);
    }
    EXPECT_FALSE(tcp->isConnected());
    EXPECT_EQ(tcp->log(3, 0, "discarded"), 0);
    close(server);
}

// The peer stops reading for 1.5 s while 16 MiB of messages go out: the logging thread
// waits for it, and every byte arrives in order.
TEST(NetworkLogTest, TCPPeerThatPausesLosesNothing) {
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_STREAM, &port);
    RTCPLogInterface* const tcp = tcpDestination(port, 7);
    ASSERT_NE(tcp, nullptr);
    const int peer = accept(server, nullptr, nullptr);
    const std::string line(64 << 10, 'p');
    const size_t kLines = 256;
    std::string got;
    std::thread reader([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        char buffer[65536];
        for (ssize_t n; got.size() < kLines * (line.size() + 1) &&
                        (n = recv(peer, buffer, sizeof buffer, 0)) > 0;) {
            got.append(buffer, static_cast<size_t>(n));
        }
    });
    for (size_t i = 0; i < kLines; ++i) {
        tcp->log(3, 0, line.c_str());
    }
    reader.join();
    EXPECT_TRUE(tcp->isConnected());
    EXPECT_EQ(got.size(), kLines * (line.size() + 1));
    EXPECT_EQ(got.find_first_not_of('p'), line.size());
    close(peer);
    close(server);
}

// The peer accepts and never reads, and the stall limit is cut to 200 ms. Once the socket
// buffers are full a message waits that long, then the peer is dropped: logging goes on at
// once, the logger's other destinations are told, and the peer finds the end of the stream
// after what did get through.
TEST(NetworkLogTest, TCPPeerThatTakesNothingIsDroppedAndReported) {
    RTCPLogInterface::setStallLimit(200);
    int port = 0;
    const int server = cmtest::loopbackServer(SOCK_STREAM, &port);
    RTCPLogInterface* const tcp = tcpDestination(port, 7);
    ASSERT_NE(tcp, nullptr);
    RLogger* const logger = RLogger::getDefault("engine");
    ZR::RPtr<cmtest::LogRecorder> recorder(new cmtest::LogRecorder(200));  // not the blocks
    logger->addInterface(recorder.addr());
    const int peer = accept(server, nullptr, nullptr);
    const std::string block(1 << 20, 'b');
    size_t sent = 0;
    for (; sent < 64 && tcp->isConnected(); ++sent) {
        logger->log(3, ZR::RString(block.c_str()));
    }
    EXPECT_FALSE(tcp->isConnected());
    logger->log(3, ZR::RString("after the drop"));
    EXPECT_EQ(recorder->lines,
              (std::vector<std::string>{"3 TCP log peer 127.0.0.1:" + std::to_string(port) +
                                            " took no data for 200 ms and was dropped",
                                        "3 after the drop"}));
    std::string got;
    char buffer[65536];
    for (ssize_t n; (n = recv(peer, buffer, sizeof buffer, 0)) > 0;) {
        got.append(buffer, static_cast<size_t>(n));
    }
    EXPECT_LT(got.size(), sent * (block.size() + 1));
    EXPECT_EQ(got.find("after the drop"), std::string::npos);
    close(peer);
    close(server);
}

TEST(NetworkLogTest, SyslogFormatKeepsPercentPercentAndErrnoAndNothingElse) {
    EXPECT_EQ(RSyslogLogInterface::safeFormat("100%% sure: %m"), "100%% sure: %m");
    EXPECT_EQ(RSyslogLogInterface::safeFormat("%s %d %n %*d"), "%%s %%d %%n %%*d");
    EXPECT_EQ(RSyslogLogInterface::safeFormat("%%%s 50%"), "%%%%s 50%%");
}

TEST(NetworkLogTest, SyslogLabelsWithTheIdentifierAndFacilityOfTheSettings) {
    // What the system log receives from a destination made with these settings.
    const auto capture = [](int facility, const char* identifier, int threshold) {
        return cmtest::captureSyslog([=] {
            conf().set_int("common.logging.syslog-facility", facility);
            conf().set_int("common.logging.syslog-priority", threshold);
            RSyslogLogInterface* const sys = RSyslogLogInterface::getDefault(identifier);
            sys->log(3, 0, "plain");
            sys->log(5, 0, "above the threshold");
            sys->log(4, 0, "100%% sure");
            errno = ENOENT;
            sys->log(4, 0, "open: %m");
            sys->log(0, 0, "%s %d %n 50%");
        });
    };
    const cmtest::SyslogCapture local0 = capture(0, nullptr, 4);
    if (!local0.available) {
        GTEST_SKIP() << "no mount namespace for a private /dev/log here";
    }
    std::vector<std::string> texts;
    for (const std::string& message : local0.messages) {
        const cmtest::SyslogLine line = cmtest::parseSyslog(message);
        EXPECT_NE(message.find("PLAIVA[" + std::to_string(local0.pid) + "]: "), std::string::npos);
        texts.push_back(std::to_string(line.pri) + " " + line.text);
    }
    // local0 is facility 16: 16 * 8 = 128, plus the priority.
    EXPECT_EQ(texts, (std::vector<std::string>{"131 plain", "132 100% sure",
                                               "132 open: " + std::string(strerror(ENOENT)),
                                               "128 %s %d %n 50%"}));

    // Setting f gives (f + 1) * 128; settings outside 0..7 give 128.
    const cmtest::SyslogCapture two = capture(2, "cm-test", 3);
    ASSERT_FALSE(two.messages.empty());
    EXPECT_EQ(cmtest::parseSyslog(two.messages[0]).pri, 3 * 128 + 3);
    EXPECT_EQ(cmtest::parseSyslog(two.messages[0]).ident, "cm-test");
    const cmtest::SyslogCapture nine = capture(9, "cm-test", 3);
    ASSERT_FALSE(nine.messages.empty());
    EXPECT_EQ(cmtest::parseSyslog(nine.messages[0]).pri, 128 + 3);
}

TEST(NetworkLogTest, SNMPTrapsReachARealReceiverWithTheirThreeBindings) {
    cmtest::SnmpTrapReceiver receiver;
    RSNMPLogInterface* const snmp = snmpDestination(receiver.port(), 5);
    ASSERT_NE(snmp, nullptr);
    EXPECT_EQ(snmp->log(3, 1234, "disk almost full"), 0);
    EXPECT_EQ(snmp->log(6, 1, "above the threshold"), 0);
    // Too long for one trap: cut to the longest beginning that fits.
    std::string text;
    for (int i = 0; text.size() < 3000; ++i) {
        text += std::to_string(i) + ",";
    }
    EXPECT_EQ(snmp->log(5, 200, text.c_str()), 0);

    const std::vector<cmtest::ReceivedTrap> traps = receiver.waitForTraps(2, 20000);
    ASSERT_EQ(traps.size(), 2u);
    for (const cmtest::ReceivedTrap& trap : traps) {
        EXPECT_EQ(trap.security, "TRAP2, SNMP v2c, community public");
        ASSERT_EQ(trap.bindings.size(), 5u);
        EXPECT_EQ(trap.bindings[0].first, ".1.3.6.1.2.1.1.3.0");
        EXPECT_EQ(trap.bindings[0].second.rfind("Timeticks: (", 0), 0u);
        EXPECT_EQ(trap.bindings[1].first, ".1.3.6.1.6.3.1.1.4.1.0");
        EXPECT_EQ(trap.bindings[1].second, "OID: .1.3.6.1.4.1.15263.1.2.127");
        EXPECT_EQ(trap.bindings[2].first, ".1.3.6.1.4.1.15263.1.1.126");
        EXPECT_EQ(trap.bindings[3].first, ".1.3.6.1.4.1.15263.1.1.128");
        EXPECT_EQ(trap.bindings[4].first, ".1.3.6.1.4.1.15263.1.1.127");
    }
    EXPECT_EQ(traps[0].bindings[2].second, "STRING: \"disk almost full\"");
    EXPECT_EQ(traps[0].bindings[3].second, "INTEGER: 1234");
    EXPECT_EQ(traps[0].bindings[4].second, "INTEGER: 3");
    EXPECT_EQ(traps[1].bindings[3].second, "INTEGER: -56");  // 200 without a sign byte
    EXPECT_EQ(traps[1].bindings[4].second, "INTEGER: 5");

    const std::string& value = traps[1].bindings[2].second;
    ASSERT_EQ(value.rfind("STRING: \"", 0), 0u);
    const std::string got = value.substr(9, value.size() - 10);
    EXPECT_EQ(text.compare(0, got.size(), got), 0);
    const auto fits = [&](size_t length) {
        RSNMPTrap trap;
        trap.setInt("1.3.6.1.4.1.15263.1.1.127", 5);
        trap.setInt("1.3.6.1.4.1.15263.1.1.128", 200);
        trap.setOctString("1.3.6.1.4.1.15263.1.1.126", text.substr(0, length).c_str());
        return trap.encodeTrap("1.3.6.1.4.1.15263.1.2.127", "public");
    };
    EXPECT_TRUE(fits(got.size()));
    EXPECT_FALSE(fits(got.size() + 1));
}
