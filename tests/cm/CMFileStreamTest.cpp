#include <cm/CMFileStream.h>

#include <cm/CMComponentStatus.h>
#include <cm/CMSysConf.h>
#include <zr/CException.h>

#include "support/MediaTools.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <climits>
#include <filesystem>
#include <vector>

namespace {

using ZR::RURI;
using ZR::CM::kResultFileOpenFailed;
using ZR::CM::kResultSymbolicLinkFailed;
using ZR::CM::RFileStream;
using Bytes = std::vector<unsigned char>;

Bytes pattern(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 131 + i / 4096);
    }
    return bytes;
}

using cmtest::writeFile;

Bytes readAll(const std::string& path, unsigned char mode, long long chunk) {
    RFileStream stream(RURI(path.c_str()), O_RDONLY, mode);
    EXPECT_EQ(stream.open(), 0);
    Bytes all, buffer(chunk);
    for (long long got; (got = stream.read(buffer.data(), chunk)) > 0;) {
        all.insert(all.end(), buffer.begin(), buffer.begin() + got);
    }
    return all;
}

TEST(CMFileStreamTest, MappedAndPlainReadsAgreeByteForByte) {
    cmtest::TempDir dir;
    const size_t page = getpagesize();
    for (size_t size : {size_t{0}, size_t{1}, page, page + 1, size_t{10} << 20}) {
        const auto expected = pattern(size);
        writeFile(dir.file("f"), expected);
        for (long long chunk : {65536, 4097}) {
            EXPECT_TRUE(readAll(dir.file("f"), 0, chunk) == expected) << size;
            EXPECT_TRUE(readAll(dir.file("f"), 1, chunk) == expected) << size;
        }
    }
}

TEST(CMFileStreamTest, MappedSeeksAndMapLengthStayInsideTheFile) {
    cmtest::TempDir dir;
    writeFile(dir.file("ten"), pattern(10));
    RFileStream stream(RURI(dir.file("ten").c_str()), O_RDONLY, 1);
    ASSERT_EQ(stream.open(), 0);
    EXPECT_EQ(stream.getMapLength(), 10 + getpagesize());
    unsigned char buffer[32];
    EXPECT_EQ(stream.read(buffer, 32), 10);
    EXPECT_EQ(stream.read(buffer, 32), 0);
    EXPECT_EQ(stream.lseek(10, 0), 10);
    EXPECT_EQ(stream.lseek(11, 0), -1);
    EXPECT_EQ(stream.lseek(-1, 2), 9);
    EXPECT_EQ(stream.lseek(-20, 1), -1);
    EXPECT_EQ(stream.lseek(LLONG_MAX, 1), -1);
    EXPECT_EQ(stream.lseek(3, 9), 9);  // an unknown whence keeps the position
    EXPECT_EQ(stream.read(buffer, -5), -1);
    EXPECT_EQ(stream.read(buffer, 32), 1);
    EXPECT_EQ(buffer[0], pattern(10)[9]);
    EXPECT_EQ(stream.close(), 0);
    EXPECT_EQ(stream.close(), -1);
    EXPECT_EQ(stream.read(buffer, 1), -1);

    // 2^24 + 1 is not a float: it rounds to 2^24, one byte short of size + page.
    ASSERT_EQ(::truncate(dir.file("ten").c_str(), (1 << 24) + 1), 0);
    ASSERT_EQ(stream.open(), 0);
    EXPECT_EQ(stream.getMapLength(), (1 << 24) + getpagesize());
    EXPECT_EQ(stream.lseek(-1, 2), 1 << 24);
    EXPECT_EQ(stream.read(buffer, 32), 1);

    RFileStream created(RURI(dir.file("new").c_str()), O_RDWR | O_CREAT, 1);
    ASSERT_EQ(created.open(), 0);
    EXPECT_EQ(created.getMapAddress(), nullptr);  // creating never maps
    EXPECT_EQ(created.write(buffer, 5), 5);
    EXPECT_EQ(created.size(), 5);
}

TEST(CMFileStreamTest, MappedLinkReadsLinkLengthAndZerosPastItsTarget) {
    cmtest::TempDir dir;
    const std::string target = dir.file("target-with-a-long-name");
    const Bytes content = pattern(100);
    writeFile(target, content);
    std::filesystem::create_symlink(target, dir.file("link"));
    const Bytes linkLength(content.begin(), content.begin() + target.size());
    EXPECT_TRUE(readAll(dir.file("link"), 1, 7) == linkLength);
    writeFile(target, {});  // past the end of the file: zeros, never a fault
    EXPECT_TRUE(readAll(dir.file("link"), 1, 64) == Bytes(target.size(), 0));
}

}  // namespace
