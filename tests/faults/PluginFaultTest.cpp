// A reader plug-in that throws from every operation: the plug-in stream turns each throw
// into its message and error value, every time it is asked, and the stream's users (the
// copy into another stream, the importers) fail cleanly on it.
#include "support/Plugins.h"
#include "support/TestSupport.h"

#include "wav.importer/WavImporter.h"
#include "y4m.importer/Y4MImporter.h"

#include <cm/CMStream.h>
#include <cm/CMSysConf.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using ZR::RPtr;
using ZR::RURI;
using namespace ZR::CM;

namespace {

class PluginFaultTest : public testing::Test {
protected:
    void SetUp() override {
        cmtest::writeScriptedPlugin(
            mPlugins.path(), "faults",
            {"io/read/broken/broken", "io/read/brokenother/broken-other", "io/read/fail/scripted"});
        sys_conf& conf = sys_conf::instance();
        conf.set_value("common.dtd-path", cmtest::pluginDtdDirectory().c_str());
        conf.set_value("common.plugin-path", mPlugins.path().c_str());
    }

    cmtest::TempDir mPlugins;
};

}  // namespace

// Every operation fails with its own message and error value, as often as it is called;
// write() refuses as it always does. Copying from the stream stops at its first failed
// read and writes nothing.
TEST_F(PluginFaultTest, BrokenReaderFailsEveryOperationEveryTime) {
    for (const char* scheme : {"broken", "brokenother"}) {
        const std::string what = scheme == std::string("broken") ? "broken reader: " : "";
        const auto text = [&](const char* operation) {
            return what.empty() ? std::string("unknown") : what + operation;
        };
        const RPtr<RStream> stream =
            RStream::getStream(RURI((scheme + std::string("://x")).c_str()), 0, 0);
        ASSERT_TRUE(stream) << scheme;
        unsigned char buffer[16];
        std::string expected;
        CaptureStderr();
        for (int round = 0; round < 3; ++round) {
            EXPECT_EQ(stream->open(), kResultFileOpenFailed);
            EXPECT_EQ(stream->read(buffer, sizeof buffer), -1);
            EXPECT_EQ(stream->lseek(4, 0), -1);
            EXPECT_EQ(stream->size(), -1);
            EXPECT_EQ(stream->write(buffer, sizeof buffer), -1);
            EXPECT_EQ(stream->close(), -1);
            expected += "read-plugin open() exception: " + text("open") + "\n" +
                        "read-plugin read() exception: " + text("read") + "\n" +
                        "read-plugin seek() exception: " + text("seek") + "\n" +
                        "read-plugin seek() exception: " + text("size") + "\n" +
                        "read-plugin write() exception: stream is read-only\n" +
                        "read-plugin close() exception: " + text("close") + "\n";
        }
        EXPECT_EQ(GetCapturedStderr(), expected);

        const RPtr<RStream> copy = RStream::getTempStream();
        CaptureStderr();
        EXPECT_EQ(copy->append(stream.addr()), -1);
        GetCapturedStderr();
        EXPECT_EQ(copy->size(), 0);
    }
}

// The importers on such streams: one that cannot be opened, and one handed over open
// whose every read fails, end openSource() with the result and the reason in the status;
// the stream is let go on reset().
TEST_F(PluginFaultTest, ImportersReportStreamsThatFail) {
    struct Case {
        const char* uri;
        int result;
        const char* reason;
    };
    for (const Case& c :
         {Case{"broken://a.wav", kResultFileOpenFailed, "cannot open broken://a.wav"},
          Case{"fail://read/base", kResultFileReadFailed, "reading the header failed"}}) {
        for (const bool wav : {true, false}) {
            SCOPED_TRACE(std::string(c.uri) + (wav ? " wav" : " y4m"));
            RPtr<RImporter> importer;
            if (wav) {
                importer = new cmcomponents::RWavImporter;
            } else {
                importer = new cmcomponents::RY4MImporter;
            }
            RPtr<RStream> stream = RStream::getStream(RURI(c.uri), 0, 0);
            ASSERT_TRUE(stream);
            std::vector<RQueue*> none;
            importer->init(stream, none);
            CaptureStderr();
            stream->open();
            EXPECT_EQ(importer->openSource(), c.result);
            GetCapturedStderr();
            const CComponentStatus status = importer->getStatus();
            EXPECT_EQ(status.mExtra, static_cast<unsigned int>(c.result));
            EXPECT_NE(std::string(status.mInfo.c_str()).find(c.reason), std::string::npos)
                << status.mInfo.c_str();
            importer->reset();
            EXPECT_EQ(stream->retain_count(), 1);
        }
    }
}
