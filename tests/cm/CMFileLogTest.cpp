#include <cm/CMFileLog.h>

#include <cm/CMSysConf.h>
#include <zrbase/exception.h>

#include <gtest/gtest.h>

#include "support/TestSupport.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

using ZR::CM::RFileLogInterface;
using ZR::CM::sys_conf;

namespace {

// Each test case runs in a process of its own, so the configuration and the default
// destination start empty every time.
class FileLogTest : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    cmtest::TempDir mDir;
};

// 2001-09-09 01:46:40 UTC.
constexpr int kTime = 1000000000;

}  // namespace

TEST_F(FileLogTest, RotatesThroughFiveFilesOnceTheSizeIsExceeded) {
    cmtest::configureFileLog(mDir.path(), "app.log", 7, 100, 5);
    RFileLogInterface log;
    ASSERT_TRUE(log.init());
    const std::string line = "Sun Sep  9 01:46:40 2001 ";
    // Each line is 25 + 16 + 1 = 42 bytes: the third passes 100, so the fourth rotates first.
    testing::internal::CaptureStdout();
    for (int i = 0; i < 3; ++i) {
        log.log(6, kTime, ("message number " + std::to_string(i)).c_str());
    }
    EXPECT_EQ(log.getCurrentSize(), 126u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");  // a file may exceed by one line

    testing::internal::CaptureStdout();
    log.log(6, kTime, "message number 3");
    const std::string d = mDir.path();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "rename " + d + "/app.3.log to " + d + "/app.4.log\n" +  //
                  "rename " + d + "/app.2.log to " + d + "/app.3.log\n" + "rename " + d +
                  "/app.1.log to " + d + "/app.2.log\n" + "rename " + d + "/app.log to " + d +
                  "/app.1.log\n");
    EXPECT_EQ(cmtest::readText(d + "/app.log"), line + "message number 3\n");
    EXPECT_EQ(log.getCurrentSize(), 42u);
    EXPECT_EQ(
        cmtest::readText(d + "/app.1.log"),
        line + "message number 0\n" + line + "message number 1\n" + line + "message number 2\n");

    // Three lines per file from now on: app.4.log ends up the oldest, and the last.
    testing::internal::CaptureStdout();
    for (int i = 4; i < 18; ++i) {
        log.log(6, kTime, ("message number " + std::to_string(i)).c_str());
    }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(cmtest::readText(d + "/app.1.log").substr(0, 43), line + "message number 12\n");
    EXPECT_EQ(cmtest::readText(d + "/app.4.log").substr(0, 42), line + "message number 3\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(d),
                            std::filesystem::directory_iterator()),
              5);
}

TEST_F(FileLogTest, InitRotatesAFileAlreadyAtTheMaximumAndNamesWithoutSuffix) {
    cmtest::configureFileLog(mDir.path(), "trace", 7, 10, 2);
    const std::string d = mDir.path();
    std::ofstream(d + "/trace") << "0123456789";
    RFileLogInterface log;
    testing::internal::CaptureStdout();
    ASSERT_TRUE(log.init());
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "rename " + d + "/trace to " + d + "/trace.1\n");
    EXPECT_EQ(cmtest::readText(d + "/trace.1"), "0123456789");
    EXPECT_EQ(cmtest::readText(d + "/trace"), "");
    EXPECT_EQ(log.getCurrentSize(), 0u);
}

TEST_F(FileLogTest, FailedReopenAfterRotationSilencesTheFile) {
    const std::string d = mDir.path() + "/logs";
    std::filesystem::create_directory(d);
    cmtest::configureFileLog(d, "app.log", 7, 10, 3);
    RFileLogInterface log;
    ASSERT_TRUE(log.init());
    EXPECT_EQ(log.log(6, kTime, "fills the file"), 0);
    std::filesystem::remove_all(d);
    testing::internal::CaptureStdout();
    EXPECT_EQ(log.log(6, kTime, "cannot reopen"), -1);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(log.log(6, kTime, "ignored"), 0);
}
