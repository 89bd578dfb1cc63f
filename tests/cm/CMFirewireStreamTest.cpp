#include <cm/CMFirewireStream.h>

#include <cm/CMSysConf.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>
#include <string>

namespace {

using ZR::CM::RFirewireStream;

TEST(CMFirewireStreamTest, FactoryStreamTransfersNothing) {
    const auto stream = ZR::CM::RStream::getStream(ZR::RURI("firewire://guid/0"), 0, 1);
    ASSERT_TRUE(stream);
    EXPECT_EQ(stream->open(), 0);
    unsigned char buffer[4] = {9, 9, 9, 9};
    EXPECT_EQ(stream->read(buffer, 4), 0);
    EXPECT_EQ(buffer[0], 9);
    EXPECT_EQ(stream->write(buffer, 4), 0);
    EXPECT_EQ(stream->lseek(100, 0), 0);
    EXPECT_EQ(stream->size(), 0);
    EXPECT_EQ(stream->getType(), 5);
    EXPECT_STREQ(stream->getURI().c_str(), "firewire://guid/0");
    EXPECT_EQ(stream->close(), 0);
    EXPECT_EQ(stream->close(), 0);
}

TEST(CMFirewireStreamTest, TempStreamLeavesItsFileInTmp) {
    cmtest::TempDir dir;
    ZR::CM::sys_conf::instance().set_value("common.temp-path", dir.path().c_str());
    const auto stream = RFirewireStream::getTempStream();
    const std::string uri = stream->getURI().c_str();
    const std::string prefix = "file:///tmp/tmpStream.";
    ASSERT_EQ(uri.rfind(prefix, 0), 0u) << uri;
    EXPECT_EQ(uri.size(), prefix.size() + 8);
    EXPECT_NE(stream->getDescriptor(), -1);
    const std::string path = uri.substr(7);
    EXPECT_TRUE(std::filesystem::exists(path));
    stream->close();
    EXPECT_TRUE(std::filesystem::exists(path));  // closing does not remove it
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    ::unlink(path.c_str());
    ZR::CM::sys_conf::instance().set_value("common.temp-path", "");
}

}  // namespace
