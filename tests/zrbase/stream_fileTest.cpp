#include <zrbase/stream_file.h>

#include <zrbase/exception.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <filesystem>
#include <functional>

namespace {

using zrbase::stream::file;
using zrbase::stream::ra;

TEST(StreamFileTest, AssignmentTransfersAndCopyTypeOneDuplicates) {
    cmtest::TempDir dir;
    file a(dir.file("a"), O_RDWR | O_CREAT, 0644);
    file b(dir.file("b"), O_RDWR | O_CREAT, 0644);
    const int aFd = a.descriptor();
    const int bFd = b.descriptor();
    a = b;  // the const source loses its descriptor, a's old one is closed
    EXPECT_EQ(a.descriptor(), bFd);
    EXPECT_FALSE(b.is_set());
    EXPECT_EQ(::fcntl(aFd, F_GETFD), -1);

    const file copy(a, file::k_duplicate);
    EXPECT_NE(copy.descriptor(), bFd);
    EXPECT_EQ(a.write("0123456789", 10), 10u);
    EXPECT_EQ(copy.seek(2, ra::seek_begin), 2);  // duplicates share the position
    EXPECT_EQ(a.size(), 10);                     // size() leaves the position alone
    char got[4] = {};
    EXPECT_EQ(a.peek(got, 3), 3u);
    EXPECT_STREQ(got, "234");
    EXPECT_EQ(a.tell(), 2);
    EXPECT_FALSE(file(copy, static_cast<file::copy_type>(7)).is_set());
    EXPECT_FALSE(file("", O_RDONLY, 0).is_set());
    a.close();
    a.close();
}

TEST(StreamFileTest, FailedCallsRaiseAtTheirLines) {
    cmtest::TempDir dir;
    const auto expectRaise = [](const std::function<void()>& call, unsigned line, int error) {
        try {
            call();
            ADD_FAILURE() << "no raise for line " << line;
        } catch (const zrbase::e::call& e) {
            EXPECT_EQ(e.line(), line);
            EXPECT_EQ(e.error(), error) << e.description();
            EXPECT_STREQ(e.file(), "lib/zrbase/src/stream_file");
        }
    };
    const std::string path = dir.file("data");
    expectRaise([&] { file(path, O_RDONLY, 0); }, 221, ENOENT);
    file writeOnly(path, O_WRONLY | O_CREAT, 0644);
    char buffer[4];
    expectRaise([&] { writeOnly.read(buffer, 4); }, 367, EBADF);
    file readOnly(path, O_RDONLY, 0);
    expectRaise([&] { readOnly.write("x", 1); }, 376, EBADF);
    expectRaise([&] { readOnly.resize(0); }, 383, EINVAL);
    file full("/dev/full", O_WRONLY, 0);
    expectRaise([&] { full.write("x", 1); }, 376, ENOSPC);
    ASSERT_EQ(::mkfifo(dir.file("fifo").c_str(), 0600), 0);
    file fifo(dir.file("fifo"), O_RDWR, 0);
    expectRaise([&] { fifo.tell(); }, 395, ESPIPE);
    expectRaise([&] { fifo.seek(0, ra::seek_begin); }, 424, ESPIPE);
    expectRaise([&] { readOnly.seek(0, static_cast<ra::seek_type>(200)); }, 424, EINVAL);
    expectRaise([&] { file::temporary(dir.file("missing")); }, 294, ENOENT);
    expectRaise([] { file(file(), file::k_duplicate); }, 237, EBADF);
    ::close(readOnly.descriptor());  // closed behind the object's back
    expectRaise([&] { readOnly.close(); }, 249, EBADF);
    EXPECT_FALSE(readOnly.is_set());
    {
        const file closedBehind(path, O_RDONLY, 0);
        ::close(closedBehind.descriptor());
    }  // the destructor's close fails too, and raises nothing
}

TEST(StreamFileTest, TemporaryFileIsOpenAndAlreadyUnlinked) {
    cmtest::TempDir dir;
    for (const std::string& where : {dir.path(), dir.path() + "/"}) {
        file temp = file::temporary(where);
        EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
        EXPECT_EQ(temp.write("abc", 3), 3u);
        temp.seek(0, ra::seek_begin);
        char got[4] = {};
        EXPECT_EQ(temp.read(got, 3), 3u);
        EXPECT_STREQ(got, "abc");
    }
}

}  // namespace
