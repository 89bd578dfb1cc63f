#include <cm/CMFileStream.h>

#include <cm/CMComponentStatus.h>
#include <cm/CMSysConf.h>
#include <zr/CException.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <climits>
#include <filesystem>
#include <fstream>
#include <vector>

namespace {

using ZR::RPtr;
using ZR::RURI;
using ZR::CM::RFileStream;

std::vector<unsigned char> pattern(size_t size) {
    std::vector<unsigned char> bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<unsigned char>((i * 131 + i / 4096) & 0xFF);
    }
    return bytes;
}

void writeFile(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

RPtr<RFileStream> openStream(const std::string& path, unsigned int flags, unsigned char mode) {
    RPtr<RFileStream> stream(new RFileStream(RURI(path.c_str()), flags, mode));
    EXPECT_EQ(stream->open(), 0) << path;
    return stream;
}

std::vector<unsigned char> readAll(RFileStream& stream, long long chunk) {
    std::vector<unsigned char> all;
    std::vector<unsigned char> buffer(static_cast<size_t>(chunk));
    for (long long got; (got = stream.read(buffer.data(), chunk)) > 0;) {
        all.insert(all.end(), buffer.begin(), buffer.begin() + got);
    }
    return all;
}

TEST(CMFileStreamTest, MappedAndPlainReadsAgreeByteForByte) {
    cmtest::TempDir dir;
    const size_t page = static_cast<size_t>(getpagesize());
    for (size_t size : {size_t{0}, size_t{1}, page, page + 1, size_t{10} << 20}) {
        SCOPED_TRACE(size);
        const auto expected = pattern(size);
        const std::string path = dir.file("f" + std::to_string(size));
        writeFile(path, expected);
        for (long long chunk : {65536LL, 4097LL}) {
            auto plain = openStream(path, O_RDONLY, 0);
            auto mapped = openStream(path, O_RDONLY, 1);
            ASSERT_TRUE(mapped->isMapped());
            ASSERT_NE(mapped->getMapAddress(), nullptr);
            EXPECT_TRUE(readAll(*plain, chunk) == expected);
            EXPECT_TRUE(readAll(*mapped, chunk) == expected);
            EXPECT_EQ(mapped->getPosition(), static_cast<long long>(size));
            EXPECT_EQ(mapped->size(), static_cast<long long>(size));
        }
    }
}

TEST(CMFileStreamTest, MappedSeeksStayInsideTheFile) {
    cmtest::TempDir dir;
    writeFile(dir.file("ten"), pattern(10));
    auto stream = openStream(dir.file("ten"), O_RDONLY, 1);
    unsigned char buffer[32];
    EXPECT_EQ(stream->read(buffer, 32), 10);
    EXPECT_EQ(stream->read(buffer, 32), 0);
    EXPECT_EQ(stream->lseek(10, 0), 10);
    EXPECT_EQ(stream->lseek(11, 0), -1);
    EXPECT_EQ(stream->getPosition(), 10);
    EXPECT_EQ(stream->lseek(-1, 2), 9);
    EXPECT_EQ(stream->read(buffer, 32), 1);
    EXPECT_EQ(buffer[0], pattern(10)[9]);
    EXPECT_EQ(stream->lseek(-20, 1), -1);
    EXPECT_EQ(stream->lseek(LLONG_MAX, 1), -1);
    EXPECT_EQ(stream->lseek(LLONG_MIN, 2), -1);
    EXPECT_EQ(stream->lseek(3, 9), 10);  // an unknown whence keeps the position
    EXPECT_EQ(stream->read(buffer, -5), -1);
    EXPECT_EQ(stream->getPosition(), 10);
}

TEST(CMFileStreamTest, MapLengthIsSizePlusPageInSinglePrecision) {
    cmtest::TempDir dir;
    const long long page = getpagesize();
    writeFile(dir.file("ten"), pattern(10));
    EXPECT_EQ(openStream(dir.file("ten"), O_RDONLY, 1)->getMapLength(), 10 + page);

    // 2^24 + 1 is not a float: it rounds down to 2^24, so the length falls one byte short
    // of size + page, and still covers the whole file.
    const long long size = (1LL << 24) + 1;
    ASSERT_EQ(::truncate((dir.file("ten")).c_str(), size), 0);
    auto big = openStream(dir.file("ten"), O_RDONLY, 1);
    EXPECT_EQ(big->getMapLength(), (1LL << 24) + page);
    unsigned char last = 1;
    EXPECT_EQ(big->lseek(-1, 2), size - 1);
    EXPECT_EQ(big->read(&last, 1), 1);
    EXPECT_EQ(last, 0);
}

TEST(CMFileStreamTest, WritesAndCreatingOpensUseTheDescriptor) {
    cmtest::TempDir dir;
    const std::string path = dir.file("rw");
    auto created = openStream(path, O_RDWR | O_CREAT, 1);  // O_CREAT: never mapped
    EXPECT_FALSE(created->isMapped());
    EXPECT_EQ(created->getMapAddress(), nullptr);
    EXPECT_EQ(created->write(reinterpret_cast<unsigned char*>(const_cast<char*>("abcdef")), 6), 6);
    EXPECT_EQ(created->size(), 6);
    EXPECT_EQ(created->lseek(1, 0), 1);
    unsigned char got[8] = {};
    EXPECT_EQ(created->read(got, 8), 5);
    EXPECT_EQ(created->write(got, -1), -1);

    auto mapped = openStream(path, O_RDWR, 1);  // read-write, mapped reads
    EXPECT_EQ(mapped->write(reinterpret_cast<unsigned char*>(const_cast<char*>("XY")), 2), 2);
    EXPECT_EQ(mapped->read(got, 8), 6);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(got), 6), "XYcdef");
    EXPECT_EQ(mapped->getType(), 1);
    EXPECT_STREQ(mapped->getURI().c_str(), path.c_str());

    const int fd = mapped->getDescriptor();
    EXPECT_EQ(mapped->close(), 0);
    EXPECT_EQ(mapped->close(), -1);
    EXPECT_EQ(mapped->read(got, 1), -1);
    EXPECT_EQ(mapped->size(), 0);
    created = nullptr;  // the destructor closes a stream left open
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
}

TEST(CMFileStreamTest, OpenReportsWhyItFailed) {
    cmtest::TempDir dir;
    const auto codeOf = [](const std::string& path, unsigned int flags, unsigned char mode) {
        return RFileStream(RURI(path.c_str()), flags, mode).open();
    };
    EXPECT_EQ(codeOf(dir.file("missing"), O_RDONLY, 0), ZR::CM::kResultFileOpenFailed);
    EXPECT_EQ(codeOf(dir.file("new"), O_RDWR | O_CREAT, 0), 0);
    EXPECT_TRUE(std::filesystem::exists(dir.file("new")));
    EXPECT_EQ(codeOf(dir.path(), O_RDONLY, 0), ZR::CM::kResultFileOpenFailed);
    EXPECT_EQ(codeOf("file://" + dir.path(), O_RDONLY, 1), ZR::CM::kResultFileOpenFailed);

    ASSERT_EQ(::mkfifo(dir.file("fifo").c_str(), 0600), 0);
    EXPECT_EQ(codeOf(dir.file("fifo"), O_RDONLY, 0), ZR::CM::kResultFileOpenFailed);
    EXPECT_EQ(codeOf(dir.file("fifo"), O_WRONLY, 0), ZR::CM::kResultFileOpenFailed);

    std::filesystem::create_symlink("loop2", dir.file("loop1"));
    std::filesystem::create_symlink("loop1", dir.file("loop2"));
    EXPECT_EQ(codeOf(dir.file("loop1"), O_RDONLY, 0), ZR::CM::kResultSymbolicLinkFailed);
    EXPECT_EQ(codeOf(dir.file("loop1"), O_RDONLY, 1), ZR::CM::kResultSymbolicLinkFailed);
    std::filesystem::create_directory_symlink(dir.path(), dir.file("dirlink"));
    EXPECT_EQ(codeOf(dir.file("dirlink"), O_RDONLY, 0), ZR::CM::kResultFileOpenFailed);
    std::filesystem::create_symlink("fifo", dir.file("fifolink"));
    EXPECT_EQ(codeOf(dir.file("fifolink"), O_RDONLY, 0), ZR::CM::kResultFileOpenFailed);

    // A device cannot be mapped: the stream opens, and mapped reads fail instead of
    // reading through a mapping that does not exist.
    RFileStream null(RURI("/dev/null"), O_RDONLY, 1);
    EXPECT_EQ(null.open(), 0);
    EXPECT_EQ(null.getMapAddress(), nullptr);
    unsigned char byte;
    EXPECT_EQ(null.read(&byte, 1), -1);
}

TEST(CMFileStreamTest, OpenWithoutPermissionGivesFileOrLinkCode) {
    // A child drops root privileges (root ignores permissions) and reports the codes of
    // three opens through a pipe: a path in a directory it may not search, a link into
    // that directory, and a file it may not read.
    cmtest::TempDir dir;
    ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
    const std::string locked = dir.file("locked");
    std::filesystem::create_directory(locked);
    ASSERT_EQ(::chmod(locked.c_str(), 0700), 0);
    writeFile(locked + "/f", pattern(4));
    std::filesystem::create_symlink(locked + "/f", dir.file("link"));
    writeFile(dir.file("secret"), pattern(4));
    ASSERT_EQ(::chmod(dir.file("secret").c_str(), 0600), 0);

    int channel[2];
    ASSERT_EQ(::pipe(channel), 0);
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            ::_exit(3);
        }
        const int codes[3] = {RFileStream(RURI((locked + "/f").c_str()), O_RDONLY, 0).open(),
                              RFileStream(RURI(dir.file("link").c_str()), O_RDONLY, 0).open(),
                              RFileStream(RURI(dir.file("secret").c_str()), O_RDONLY, 0).open()};
        ::_exit(::write(channel[1], codes, sizeof codes) == sizeof codes ? 0 : 4);
    }
    ::close(channel[1]);
    int codes[3] = {};
    const ssize_t got = ::read(channel[0], codes, sizeof codes);
    ::close(channel[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 3) {
        GTEST_SKIP() << "cannot drop privileges";
    }
    ASSERT_EQ(got, static_cast<ssize_t>(sizeof codes));
    EXPECT_EQ(codes[0], ZR::CM::kResultFileOpenFailed);
    EXPECT_EQ(codes[1], ZR::CM::kResultSymbolicLinkFailed);
    EXPECT_EQ(codes[2], ZR::CM::kResultFileOpenFailed);
}

TEST(CMFileStreamTest, MappedLinkReadsTheLengthOfTheLinkItself) {
    cmtest::TempDir dir;
    const std::string target = dir.file("target-with-a-rather-long-name");
    const auto content = pattern(100);
    writeFile(target, content);
    std::filesystem::create_symlink(target, dir.file("link"));
    const auto linkLength = static_cast<long long>(target.size());

    auto stream = openStream(dir.file("link"), O_RDONLY, 1);
    EXPECT_EQ(stream->getFileSize(), linkLength);
    const auto got = readAll(*stream, 7);
    EXPECT_TRUE(got == std::vector<unsigned char>(content.begin(), content.begin() + linkLength));

    // The link is longer than an empty target: the bytes past the file read as zeros.
    writeFile(target, {});
    auto empty = openStream(dir.file("link"), O_RDONLY, 1);
    EXPECT_TRUE(readAll(*empty, 64) == std::vector<unsigned char>(target.size(), 0));
}

TEST(CMFileStreamTest, TempStreamIsOpenUnlinkedAndNamedByTemplate) {
    cmtest::TempDir dir;
    auto& conf = ZR::CM::sys_conf::instance();
    for (const std::string& setting : {dir.path(), dir.path() + "/"}) {
        conf.set_value("common.temp-path", setting.c_str());
        const auto stream = RFileStream::getTempStream();
        ASSERT_NE(stream->getDescriptor(), -1);
        const std::string uri = stream->getURI().c_str();
        EXPECT_EQ(uri.rfind("file://" + dir.path() + "/", 0), 0u) << uri;
        EXPECT_EQ(uri.size(), std::string("file://").size() + dir.path().size() + 17);
        EXPECT_EQ(stream->getFlags(), static_cast<unsigned int>(O_RDWR));
        EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
        unsigned char bytes[] = "payload";
        EXPECT_EQ(stream->write(bytes, 7), 7);
        EXPECT_EQ(stream->lseek(0, 0), 0);
        unsigned char got[8] = {};
        EXPECT_EQ(stream->read(got, 8), 7);
    }

    conf.set_value("common.temp-path", dir.file("missing").c_str());
    try {
        RFileStream::getTempStream();
        ADD_FAILURE() << "no exception";
    } catch (const ZR::CException& e) {
        EXPECT_EQ(e.getLine(), 210);
        EXPECT_STREQ(e.getFile(), "lib/cm/CMFileStream");
        EXPECT_EQ(std::string(e.getMessage()), "Failed to create temporary file: '" +
                                                   dir.file("missing") + "/XXXXXXXXXXXXXXXX'");
    }
    conf.set_value("common.temp-path", "");
}

}  // namespace
