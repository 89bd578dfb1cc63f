#include <cm/CMLogger.h>

#include <cm/CMFileLog.h>
#include <cm/CMNetworkLog.h>
#include <cm/CMSysConf.h>

#include <gtest/gtest.h>

#include "support/Loopback.h"
#include "support/SyslogCapture.h"
#include "support/TestSupport.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace ZR::CM;

namespace {

// Each test case runs in a process of its own, so the configuration and the default
// logger start empty every time.
sys_conf& conf() {
    return sys_conf::instance();
}

// A loopback UDP socket that the default logger's UDP destination, taking every priority,
// sends to.
int udpDestination() {
    int port = 0;
    const int udp = cmtest::loopbackServer(SOCK_DGRAM, &port);
    conf().set_value("common.logging.udp-host", "127.0.0.1");
    conf().set_int("common.loggin.udp-port", port);
    conf().set_int("common.logging.udp-priority", 7);
    return udp;
}

std::vector<std::string> lines(const std::string& path) {
    std::ifstream in(path);
    std::vector<std::string> found;
    for (std::string line; std::getline(in, line);) {
        found.push_back(line);
    }
    return found;
}

constexpr int kTime = 1000000000;  // 2001-09-09 01:46:40 UTC

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
    conf().set_int("common.logging.filelog-priority", 3);
    const int udp = udpDestination();

    RLogger* const logger = RLogger::getDefault();
    EXPECT_EQ(logger->log(3, kTime, "important"), 0);
    EXPECT_EQ(logger->logf(6, kTime, "%s %d", "detail", 6), 0);
    EXPECT_EQ(cmtest::receiveWaiting(udp),
              (std::vector<std::string>{std::string("important", 10), std::string("detail 6", 9)}));
    EXPECT_EQ(lines(dir.file("plaiva.log")),
              std::vector<std::string>{"Sun Sep  9 01:46:40 2001 important"});
    close(udp);
}

TEST(LoggerTest, FormattedMessagesAreCutTo2047Characters) {
    const int udp = udpDestination();
    RLogger* const logger = RLogger::getDefault();
    const std::string text(3000, 'm');
    logger->logf(1, "%s", text.c_str());
    logger->log(1, ZR::RString(text.c_str()));  // no formatting, no cut
    const std::vector<std::string> got = cmtest::receiveWaiting(udp);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0], text.substr(0, 2047) + '\0');
    EXPECT_EQ(got[1], text + '\0');
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
    // Four threads log at once through a file that rotates every 4 KiB. Every line must
    // arrive whole, once, and each thread's lines in the order it wrote them, across all
    // the rotated files.
    constexpr int kThreads = 4;
    constexpr int kLines = 250;
    cmtest::TempDir dir;
    cmtest::configureFileLog(dir.path(), "mt.log", 7, 4096, 30);
    RLogger* const logger = RLogger::getDefault();
    testing::internal::CaptureStdout();  // the renames
    cmtest::runConcurrently(kThreads, [&](int thread) {
        for (int i = 0; i < kLines; ++i) {
            logger->logf(6, "thread %d line %d", thread, i);
        }
    });
    testing::internal::GetCapturedStdout();

    // Oldest file first: mt.29.log ... mt.1.log, then mt.log.
    std::vector<int> next(kThreads, 0);
    int total = 0;
    for (int i = 29; i >= 0; --i) {
        const std::string name = i ? "mt." + std::to_string(i) + ".log" : "mt.log";
        for (const std::string& line : lines(dir.file(name))) {
            int thread = -1;
            int number = -1;
            ASSERT_EQ(std::sscanf(line.c_str() + 25, "thread %d line %d", &thread, &number), 2)
                << line;
            ASSERT_TRUE(thread >= 0 && thread < kThreads) << line;
            EXPECT_EQ(number, next[thread]++) << line;
            ++total;
        }
    }
    EXPECT_EQ(total, kThreads * kLines);
}

// An application's own destination sees every message, unfiltered and in order; the
// stderr destination writes one line per message up to its threshold.
TEST(LoggerTest, AddedDestinationsSeeEveryMessage) {
    ZR::CM::RLogger* logger = ZR::CM::RLogger::getDefault();
    ZR::RPtr<cmtest::LogRecorder> recorder(new cmtest::LogRecorder);
    logger->addInterface(recorder.addr());
    logger->addInterface(nullptr);
    logger->logf(7, "debug %d", 1);
    logger->log(0, ZR::RString("urgent"));
    EXPECT_EQ(recorder->lines, (std::vector<std::string>{"7 debug 1", "0 urgent"}));

    logger->addInterface(new ZR::CM::RStderrLogInterface(ZR::CM::kLogWarning));
    testing::internal::CaptureStderr();
    logger->logf(4, "shown");
    logger->logf(5, "hidden");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[4] shown\n");
}
