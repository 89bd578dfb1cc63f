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

int openCode(const std::string& path, unsigned int flags, unsigned char mode) {
    return RFileStream(RURI(path.c_str()), flags, mode).open();
}

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
    // Past 2 GiB the length no longer fits in 32 bits; it is kept whole.
    const long long large = 3LL << 30;
    ASSERT_EQ(::truncate(dir.file("ten").c_str(), large), 0);
    ASSERT_EQ(stream.open(), 0);
    EXPECT_EQ(stream.getMapLength(), large + getpagesize());
    EXPECT_EQ(stream.lseek(-1, 2), large - 1);
    EXPECT_EQ(stream.read(buffer, 32), 1);

    RFileStream created(RURI(dir.file("new").c_str()), O_RDWR | O_CREAT, 1);
    ASSERT_EQ(created.open(), 0);
    EXPECT_EQ(created.getMapAddress(), nullptr);  // creating never maps
    EXPECT_EQ(created.write(buffer, 5), 5);
    EXPECT_EQ(created.size(), 5);
}

TEST(CMFileStreamTest, OpenReportsWhyItFailed) {
    cmtest::TempDir dir;
    EXPECT_EQ(openCode(dir.file("missing"), O_RDONLY, 0), kResultFileOpenFailed);
    EXPECT_EQ(openCode(dir.file("new"), O_RDWR | O_CREAT, 0), 0);
    EXPECT_EQ(openCode("file://" + dir.path(), O_RDONLY, 1), kResultFileOpenFailed);
    // The checks are lstat(), then open(): a link to a directory opens for reading.
    std::filesystem::create_directory(dir.file("sub"));
    std::filesystem::create_symlink("sub", dir.file("sublink"));
    EXPECT_EQ(openCode(dir.file("sublink"), O_RDONLY, 0), 0);
    // A FIFO opens read-write; for reading or writing alone it would wait for its other
    // end, perhaps for ever, and is refused instead.
    ASSERT_EQ(::mkfifo(dir.file("fifo").c_str(), 0600), 0);
    EXPECT_EQ(openCode(dir.file("fifo"), O_RDWR, 0), 0);
    EXPECT_EQ(openCode(dir.file("fifo"), O_RDONLY, 0), kResultFileOpenFailed);
    std::filesystem::create_symlink("fifo", dir.file("fifolink"));
    EXPECT_EQ(openCode(dir.file("fifolink"), O_WRONLY, 0), kResultFileOpenFailed);
    std::filesystem::create_symlink("loop2", dir.file("loop1"));
    std::filesystem::create_symlink("loop1", dir.file("loop2"));
    EXPECT_EQ(openCode(dir.file("loop1"), O_RDONLY, 1), kResultSymbolicLinkFailed);

    // A device cannot be mapped: mapped reads then fail instead of using a bad address.
    RFileStream null(RURI("/dev/null"), O_RDONLY, 1);
    EXPECT_EQ(null.open(), 0);
    unsigned char byte;
    EXPECT_EQ(null.read(&byte, 1), -1);
}

TEST(CMFileStreamTest, OpenWithoutPermissionGivesFileOrLinkCode) {
    // A child drops root's privileges and opens a file in a directory it may not search,
    // a link into that directory, and an unreadable file; its exit status says which of
    // the three codes differed from the expected one.
    cmtest::TempDir dir;
    std::filesystem::create_directory(dir.file("locked"));
    writeFile(dir.file("locked/f"), pattern(4));
    writeFile(dir.file("secret"), pattern(4));
    std::filesystem::create_symlink(dir.file("locked/f"), dir.file("link"));
    ASSERT_EQ(::chmod(dir.path().c_str(), 0755) | ::chmod(dir.file("locked").c_str(), 0700) |
                  ::chmod(dir.file("secret").c_str(), 0600),
              0);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            ::_exit(8);
        }
        ::_exit((openCode(dir.file("locked/f"), O_RDONLY, 0) != kResultFileOpenFailed) |
                (openCode(dir.file("link"), O_RDONLY, 0) != kResultSymbolicLinkFailed) << 1 |
                (openCode(dir.file("secret"), O_RDONLY, 0) != kResultFileOpenFailed) << 2);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 8) {
        GTEST_SKIP() << "cannot drop privileges";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
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
