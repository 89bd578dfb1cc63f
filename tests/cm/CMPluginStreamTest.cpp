#include <cm/CMPluginStream.h>

#include <cm/CMSysConf.h>
#include <zr/CException.h>

#include "support/Plugins.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using ZR::RPtr;
using ZR::RURI;
using ZR::CM::RPluginStream;
using ZR::CM::RStream;

// Where the scripted plug-ins of each test are registered. The registry is built once per
// process by the first plug-in stream, and CTest runs every test case in a process of its
// own, so each case configures before its first stream.
class PluginStreamTest : public testing::Test {
protected:
    void configure(const char* home) {
        auto& conf = ZR::CM::sys_conf::instance();
        conf.set_value("common.dtd-path", cmtest::pluginDtdDirectory().c_str());
        conf.set_value("common.plugin-path", mConfigured.path().c_str());
        conf.set_value("common.temp-path", "/var/tmp/cm");
        if (home) {
            ::setenv("HOME", home, 1);
        } else {
            ::unsetenv("HOME");
        }
    }
    std::string homePlugins() const {
        return mHome.path() + "/Library/Application Support/Vandrel/Plugins";
    }

    cmtest::TempDir mConfigured;
    cmtest::TempDir mHome;
};

// Everything the stream reads until the end or a failure.
std::string readAll(RStream& stream) {
    std::string text;
    unsigned char buffer[7];
    for (long long got; (got = stream.read(buffer, sizeof buffer)) > 0;) {
        text.append(reinterpret_cast<char*>(buffer), static_cast<size_t>(got));
    }
    return text;
}

TEST_F(PluginStreamTest, HomeDirectoryComesBeforeConfiguredOne) {
    cmtest::writeScriptedPlugin(homePlugins(), "home", {"io/read/scripted/home"});
    cmtest::writeScriptedPlugin(mConfigured.path(), "conf",
                                {"io/read/scripted/conf", "io/read/other/x"});
    configure(mHome.path().c_str());
    RPluginStream stream(RURI("SCRIPTED://host/a"));  // schemes compare in lower case
    EXPECT_EQ(stream.getType(), 6);
    EXPECT_STREQ(stream.getURI().c_str(), "SCRIPTED://host/a");
    ASSERT_EQ(stream.open(), 0);
    // The reader got the whole URI text and the configured temporary directory.
    EXPECT_EQ(readAll(stream), "io/read/scripted/home\nSCRIPTED://host/a\n/var/tmp/cm");
}

TEST_F(PluginStreamTest, ForwardsReadSeekAndSizeAndRefusesWrites) {
    cmtest::writeScriptedPlugin(mConfigured.path(), "conf", {"io/read/s/one"});
    configure(nullptr);
    const RPtr<RStream> stream = RStream::getStream(RURI("s://x"), 0, 1);
    ASSERT_TRUE(stream);
    ASSERT_EQ(stream->open(), 0);
    const std::string text = "io/read/s/one\ns://x\n/var/tmp/cm";
    EXPECT_EQ(stream->size(), static_cast<long long>(text.size()));
    EXPECT_EQ(stream->lseek(8, 0), 8);
    EXPECT_EQ(stream->lseek(-3, 1), 5);
    unsigned char two[2];
    // The length reaches the reader cut to 32 bits: 2, not 4 GiB and 2.
    EXPECT_EQ(stream->read(two, (1LL << 32) + 2), 2);
    EXPECT_EQ(std::string(two, two + 2), "ad");
    EXPECT_EQ(stream->lseek(-2, 2), static_cast<long long>(text.size()) - 2);
    EXPECT_EQ(readAll(*stream), "cm");

    CaptureStderr();
    EXPECT_EQ(stream->read(two, -1), -1);
    EXPECT_EQ(stream->write(two, 2), -1);
    EXPECT_EQ(GetCapturedStderr(),
              "read-plugin read() exception: negative length\n"
              "read-plugin write() exception: stream is read-only\n");
    EXPECT_EQ(stream->close(), 0);
    EXPECT_EQ(stream->open(), 0);  // open and close go through as often as called
    EXPECT_EQ(stream->lseek(0, 1), 0);
}

TEST_F(PluginStreamTest, StreamsConstructedOnManyThreadsShareOneRegistry) {
    // Eight threads construct the process's first plug-in streams at once: the registry
    // must be built once, and every stream must get a reader of its own.
    cmtest::writeScriptedPlugin(mConfigured.path(), "conf", {"io/read/t/one"});
    configure(nullptr);
    std::vector<std::string> texts(8);
    cmtest::runConcurrently(8, [&texts](int index) {
        const std::string uri = "t://" + std::to_string(index);
        RPluginStream stream{RURI(uri.c_str())};
        if (stream.open() == 0) {
            texts[index] = readAll(stream);
        }
    });
    for (int index = 0; index < 8; ++index) {
        EXPECT_EQ(texts[index], "io/read/t/one\nt://" + std::to_string(index) + "\n/var/tmp/cm");
    }
}

}  // namespace
