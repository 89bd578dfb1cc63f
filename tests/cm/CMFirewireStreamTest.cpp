#include <cm/CMFirewireStream.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

TEST(CMFirewireStreamTest, FactoryStreamTransfersNothing) {
    const auto stream = ZR::CM::RStream::getStream(ZR::RURI("firewire://guid/0"), 0, 1);
    EXPECT_EQ(stream->open(), 0);
    unsigned char buffer[4] = {9, 9, 9, 9};
    EXPECT_EQ(stream->read(buffer, 4) + stream->write(buffer, 4) + stream->lseek(9, 0), 0);
    EXPECT_EQ(buffer[0], 9);
    EXPECT_EQ(stream->size(), 0);
    EXPECT_EQ(stream->getType(), 5);
    EXPECT_STREQ(stream->getURI().c_str(), "firewire://guid/0");
    EXPECT_EQ(stream->close(), 0);
}

TEST(CMFirewireStreamTest, TempStreamLeavesItsFileInTmp) {
    const auto stream = ZR::CM::RFirewireStream::getTempStream();
    const std::string path = std::string(stream->getURI().c_str()).substr(7);
    EXPECT_EQ(path.rfind("/tmp/tmpStream.", 0), 0u);
    EXPECT_EQ(path.size(), 23u);
    EXPECT_NE(stream->getDescriptor(), -1);
    stream->close();
    EXPECT_TRUE(std::filesystem::remove(path));  // closing leaves it behind
}

}  // namespace
