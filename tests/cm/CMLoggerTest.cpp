#include <cm/CMLogger.h>

#include <cm/CMFileLog.h>
#include <cm/CMNetworkLog.h>
#include <cm/CMSysConf.h>

#include <gtest/gtest.h>

#include "support/Loopback.h"
#include "support/SnmpTrapReceiver.h"
#include "support/SyslogCapture.h"
#include "support/TestSupport.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using namespace ZR::CM;

namespace {

// Each test case runs in a process of its own, so the configuration and the default
// logger start empty every time.
sys_conf& conf() {
    return sys_conf::instance();
}

std::vector<std::string> drain(int fd) {
    std::vector<std::string> got;
    char buffer[4096];
    ssize_t n;
    while ((n = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT)) >= 0) {
        got.emplace_back(buffer, static_cast<size_t>(n));
    }
    return got;
}

std::vector<std::string> lines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> found;
    for (std::string line; std::getline(in, line);) {
        found.push_back(line);
    }
    return found;
}

// 2001-09-09 01:46:40 UTC.
constexpr int kTime = 1000000000;
constexpr const char* kStamp = "Sun Sep  9 01:46:40 2001 ";

}  // namespace

TEST(LoggerTest, OneLoggerLabelledWithTheFirstName) {
    conf().set_int("common.logging.syslog-priority", 0);
    RLogger* const logger = RLogger::getDefault("A");
    ASSERT_NE(logger, nullptr);
    EXPECT_EQ(RLogger::getDefault("B"), logger);
    EXPECT_EQ(RLogger::getDefault(), logger);
    EXPECT_STREQ(RSyslogLogInterface::getDefault("C")->getIdentifier(), "A");
    // Nothing else is configured: no other destination exists.
    EXPECT_EQ(RFileLogInterface::getDefault(), nullptr);
    EXPECT_EQ(RUDPLogInterface::getDefault(), nullptr);
    EXPECT_EQ(logger->log(7, "filtered by the system log"), 0);
}

TEST(LoggerTest, EachDestinationFiltersByItsOwnThreshold) {
    cmtest::TempDir dir;
    setenv("TZ", "UTC", 1);
    tzset();
    conf().set_value("common.logging.filelog-path", dir.path().c_str());
    conf().set_int("common.logging.filelog-priority", 5);
    int udpPort = 0;
    const int udp = cmtest::loopbackServer(SOCK_DGRAM, &udpPort);
    conf().set_value("common.logging.udp-host", "127.0.0.1");
    conf().set_int("common.loggin.udp-port", udpPort);
    conf().set_int("common.logging.udp-priority", 3);
    int tcpPort = 0;
    const int tcp = cmtest::loopbackServer(SOCK_STREAM, &tcpPort);
    conf().set_value("common.logging.tcp-host", "127.0.0.1");
    conf().set_int("common.loggin.tcp-port", tcpPort);
    conf().set_int("common.logging.tcp-priority", 7);
    cmtest::SnmpTrapReceiver receiver;
    conf().set_value("%snmp-traps", "1");
    conf().set_value("common.logging.snmp-host", "127.0.0.1");
    conf().set_int("common.logging.snmp-port", receiver.port());
    conf().set_int("common.logging.snmp-priority", 4);

    RLogger* const logger = RLogger::getDefault();
    const int peer = accept(tcp, nullptr, nullptr);
    EXPECT_EQ(logger->log(3, kTime, "important"), 0);
    EXPECT_EQ(logger->logf(6, kTime, "%s %d", "detail", 6), 0);

    EXPECT_EQ(drain(udp), std::vector<std::string>{std::string("important", 10)});
    char got[32] = {};
    const std::string stream("important\0detail 6\0", 19);
    EXPECT_EQ(recv(peer, got, stream.size(), MSG_WAITALL), static_cast<ssize_t>(stream.size()));
    EXPECT_EQ(std::string(got, stream.size()), stream);
    EXPECT_EQ(lines(dir.file("plaiva.log")),
              std::vector<std::string>{std::string(kStamp) + "important"});
    const auto traps = receiver.waitForTraps(1, 20000);
    ASSERT_EQ(traps.size(), 1u);
    ASSERT_EQ(traps[0].bindings.size(), 5u);
    EXPECT_EQ(traps[0].bindings[2].second, "STRING: \"important\"");
    // The logger's second argument, the time, is what the category binding carries.
    EXPECT_EQ(traps[0].bindings[3].second, "INTEGER: " + std::to_string(kTime));
    EXPECT_EQ(traps[0].bindings[4].second, "INTEGER: 3");
    close(peer);
    close(tcp);
    close(udp);
}

TEST(LoggerTest, FormattedMessagesAreCutTo2047Characters) {
    int port = 0;
    const int udp = cmtest::loopbackServer(SOCK_DGRAM, &port);
    conf().set_value("common.logging.udp-host", "127.0.0.1");
    conf().set_int("common.loggin.udp-port", port);
    conf().set_int("common.logging.udp-priority", 7);
    RLogger* const logger = RLogger::getDefault();
    const std::string text(3000, 'm');
    logger->logf(1, "%s", text.c_str());
    logger->logf(1, "<%.2046s>", text.c_str());
    logger->log(1, ZR::RString(text.c_str()));  // no formatting, no cut
    const std::vector<std::string> got = drain(udp);
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0], text.substr(0, 2047) + '\0');
    EXPECT_EQ(got[1], "<" + text.substr(0, 2046) + '\0');
    EXPECT_EQ(got[2], text + '\0');
    close(udp);
}

TEST(LoggerTest, FileLogThatCannotBeOpenedIsReportedToTheSystemLog) {
    cmtest::TempDir dir;
    const std::string blocker = dir.file("plain-file");
    std::ofstream(blocker) << "x";
    const cmtest::SyslogCapture capture = cmtest::captureSyslog([&] {
        conf().set_value("common.logging.filelog-path", (blocker + "/logs").c_str());
        conf().set_int("common.logging.filelog-priority", 7);
        conf().set_int("common.logging.syslog-priority", 6);
        RLogger* const logger = RLogger::getDefault("engine");
        logger->log(5, "still logging");
    });
    if (!capture.available) {
        GTEST_SKIP() << "no mount namespace for a private /dev/log here";
    }
    char host[256] = {};
    gethostname(host, sizeof host - 1);
    ASSERT_EQ(capture.messages.size(), 2u);
    const cmtest::SyslogLine report = cmtest::parseSyslog(capture.messages[0]);
    EXPECT_EQ(report.pri, 128 + 2);  // critical, in the destination's facility
    EXPECT_EQ(report.ident, "engine");
    EXPECT_EQ(report.text, "ENGINE " + std::string(host) + "-" + std::to_string(capture.pid) +
                               " ERROR 'Failed to create filelog interface'");
    EXPECT_EQ(cmtest::parseSyslog(capture.messages[1]).text, "still logging");
    EXPECT_FALSE(std::filesystem::exists(blocker + "/logs"));
}

TEST(LoggerTest, ConcurrentThreadsWriteWholeLinesInTheirOwnOrder) {
    // Four threads log at once through a file that rotates every 4 KiB and a UDP peer.
    // Every line must arrive whole, once, and each thread's lines in the order it wrote
    // them, across all the rotated files.
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    cmtest::TempDir dir;
    conf().set_value("common.logging.filelog-path", dir.path().c_str());
    conf().set_value("common.logging.filelog-name", "mt.log");
    conf().set_int("common.logging.filelog-priority", 7);
    conf().set_int("common.logging.filelog-filesize", 4096);
    conf().set_int("common.logging.filelog-num-rotation", 30);
    int port = 0;
    const int udp = cmtest::loopbackServer(SOCK_DGRAM, &port);
    const int bufferSize = 4 << 20;
    setsockopt(udp, SOL_SOCKET, SO_RCVBUFFORCE, &bufferSize, sizeof bufferSize);
    conf().set_value("common.logging.udp-host", "127.0.0.1");
    conf().set_int("common.loggin.udp-port", port);
    conf().set_int("common.logging.udp-priority", 7);
    RLogger* const logger = RLogger::getDefault();

    std::vector<std::string> datagrams;
    std::thread reader([&] {
        timeval limit{0, 200000};
        setsockopt(udp, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        char buffer[256];
        while (datagrams.size() < kThreads * kLines &&
               std::chrono::steady_clock::now() < deadline) {
            const ssize_t n = recv(udp, buffer, sizeof buffer, 0);
            if (n > 0) {
                datagrams.emplace_back(buffer, static_cast<size_t>(n) - 1);
            }
        }
    });
    testing::internal::CaptureStdout();
    cmtest::runConcurrently(kThreads, [&](int thread) {
        for (int i = 0; i < kLines; ++i) {
            logger->logf(6, "thread %d line %d", thread, i);
        }
    });
    const std::string renames = testing::internal::GetCapturedStdout();
    reader.join();
    EXPECT_NE(renames.find("rename "), std::string::npos);

    // Oldest file first: mt.29.log ... mt.1.log, then mt.log.
    std::vector<std::string> fileLines;
    for (int i = 29; i >= 0; --i) {
        const std::string name = i ? "mt." + std::to_string(i) + ".log" : "mt.log";
        for (const std::string& line : lines(dir.file(name))) {
            ASSERT_GT(line.size(), 25u) << line;
            fileLines.push_back(line.substr(25));  // without the time stamp
        }
    }
    ASSERT_FALSE(std::filesystem::exists(dir.file("mt.30.log")));
    for (const std::vector<std::string>* received : {&fileLines, &datagrams}) {
        ASSERT_EQ(received->size(), static_cast<size_t>(kThreads * kLines));
        std::vector<int> next(kThreads, 0);
        for (const std::string& text : *received) {
            int thread = -1;
            int line = -1;
            ASSERT_EQ(std::sscanf(text.c_str(), "thread %d line %d", &thread, &line), 2) << text;
            ASSERT_TRUE(thread >= 0 && thread < kThreads) << text;
            EXPECT_EQ(line, next[thread]++) << text;
        }
    }
    close(udp);
}
