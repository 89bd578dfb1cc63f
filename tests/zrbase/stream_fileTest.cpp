#include <zrbase/stream_file.h>

#include <zrbase/exception.h>

#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <filesystem>
#include <functional>

namespace {

using zrbase::stream::file;
using zrbase::stream::ra;

bool descriptorOpen(int fd) {
    return ::fcntl(fd, F_GETFD) != -1;
}

// Runs call and checks that it raised errno `error` at `line` of the file primitive.
void expectRaise(const std::function<void()>& call, unsigned line, int error) {
    try {
        call();
        ADD_FAILURE() << "no raise for line " << line;
    } catch (const zrbase::e::call& e) {
        EXPECT_EQ(e.line(), line);
        EXPECT_EQ(e.error(), error) << e.description();
        EXPECT_STREQ(e.file(), "lib/zrbase/src/stream_file");
    }
}

TEST(StreamFileTest, ReadsWritesAndSeeks) {
    cmtest::TempDir dir;
    file f(dir.file("data"), O_RDWR | O_CREAT, 0644);
    ASSERT_TRUE(f.is_set());
    EXPECT_EQ(f.write("0123456789", 10), 10u);
    f.flush();
    EXPECT_EQ(f.tell(), 10);
    EXPECT_EQ(f.seek(2, ra::seek_begin), 2);
    EXPECT_EQ(f.size(), 10);  // size() keeps the position
    char got[8] = {};
    EXPECT_EQ(f.peek(got, 3), 3u);
    EXPECT_STREQ(got, "234");
    EXPECT_EQ(f.read(got, 4), 4u);
    EXPECT_STREQ(got, "2345");
    EXPECT_EQ(f.seek(-1, ra::seek_end), 9);
    EXPECT_EQ(f.read(got, 8), 1u);
    EXPECT_EQ(f.read(got, 8), 0u);
    f.resize(4);
    EXPECT_EQ(f.size(), 4);
    EXPECT_EQ(static_cast<const zrbase::stream::rwa&>(f).tell(), 10);  // rwa::tell seeks

    f.close();
    f.close();
    EXPECT_FALSE(f.is_set());
    EXPECT_FALSE(file("", O_RDONLY, 0).is_set());
}

TEST(StreamFileTest, AssignmentAndCopyTypesMoveOrDuplicateDescriptor) {
    cmtest::TempDir dir;
    file a(dir.file("a"), O_RDWR | O_CREAT, 0644);
    file b(dir.file("b"), O_RDWR | O_CREAT, 0644);
    const int aFd = a.descriptor();
    const int bFd = b.descriptor();

    a = b;  // the const source loses its descriptor
    EXPECT_EQ(a.descriptor(), bFd);
    EXPECT_FALSE(b.is_set());
    EXPECT_FALSE(descriptorOpen(aFd));
    file& self = a;
    a = self;
    EXPECT_EQ(a.descriptor(), bFd);

    const file moved(a, file::k_transfer);
    EXPECT_FALSE(a.is_set());
    file copy(moved, file::k_duplicate);
    EXPECT_EQ(moved.descriptor(), bFd);
    EXPECT_NE(copy.descriptor(), bFd);
    copy.write("xy", 2);
    EXPECT_EQ(moved.tell(), 2);  // a duplicate shares the file position
    EXPECT_FALSE(file(moved, static_cast<file::copy_type>(7)).is_set());
    EXPECT_FALSE(file(a, file::k_duplicate).is_set());

    copy.set(copy, file::k_transfer);
    EXPECT_TRUE(copy.is_set());
    file other;
    other.swap(copy);
    EXPECT_TRUE(other.is_set());
    EXPECT_FALSE(copy.is_set());
    other.set(dir.file("a"), O_RDONLY, 0);
    EXPECT_TRUE(other.is_set());
}

TEST(StreamFileTest, FailedCallsRaiseAtTheirLines) {
    cmtest::TempDir dir;
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
    expectRaise([&] { file::temporary(dir.file("missing")); }, 294, ENOENT);

    ::close(readOnly.descriptor());  // closed behind the object's back
    expectRaise([&] { readOnly.close(); }, 249, EBADF);
    EXPECT_FALSE(readOnly.is_set());
}

TEST(StreamFileTest, FailedDuplicateRaisesAtItsLine) {
    // A child process lowers its descriptor limit so that dup() must fail, without
    // disturbing the descriptors of the test process.
    cmtest::TempDir dir;
    file original(dir.file("data"), O_RDWR | O_CREAT, 0644);
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        const int lowest = ::dup(original.descriptor());
        ::close(lowest);
        rlimit saved{};
        ::getrlimit(RLIMIT_NOFILE, &saved);
        const rlimit limit{static_cast<rlim_t>(lowest), saved.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &limit);
        try {
            file copy(original, file::k_duplicate);
        } catch (const zrbase::e::call& e) {
            ::setrlimit(RLIMIT_NOFILE, &saved);  // the sanitizers need descriptors too
            ::_exit(e.line() == 237 && e.error() == EMFILE ? 0 : 1);
        }
        ::_exit(2);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(StreamFileTest, TemporaryFileIsOpenAndAlreadyUnlinked) {
    cmtest::TempDir dir;
    for (const std::string& where : {dir.path(), dir.path() + "/"}) {
        file temp = file::temporary(where);
        ASSERT_TRUE(temp.is_set());
        EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
        EXPECT_EQ(temp.write("abc", 3), 3u);
        temp.seek(0, ra::seek_begin);
        char got[4] = {};
        EXPECT_EQ(temp.read(got, 3), 3u);
        EXPECT_STREQ(got, "abc");
        struct stat entry {};
        ASSERT_EQ(::fstat(temp.descriptor(), &entry), 0);
        EXPECT_EQ(entry.st_nlink, 0u);
    }
}

}  // namespace
