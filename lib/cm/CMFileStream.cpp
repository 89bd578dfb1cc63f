#include <cm/CMFileStream.h>

#include <cm/CMComponentStatus.h>
#include <cm/CMSysConf.h>
#include <zr/CException.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

namespace ZR {
namespace CM {

namespace {

constexpr const char* kSource = "lib/cm/CMFileStream";
// The line reported by the failure of getTempStream(); callers match on it.
constexpr int kTempStreamFailureLine = 210;

// The type bits of a symbolic link. Open failures with EACCES test the mode against them
// by AND, not by comparing the type, so regular files (0x8000) and sockets (0xC000) go on
// to realpath() like links do, and only directories, FIFOs and devices stop at once.
constexpr mode_t kSymbolicLinkBits = 0xA000;

int resultOfFailedOpen(int error, const char* path, const struct stat& entry) {
    if (error == ELOOP) {
        return kResultSymbolicLinkFailed;
    }
    if (error != EACCES || (entry.st_mode & kSymbolicLinkBits) == 0) {
        return kResultFileOpenFailed;
    }
    char* resolved = ::realpath(path, nullptr);
    if (!resolved) {
        return kResultSymbolicLinkFailed;
    }
    std::free(resolved);
    return kResultFileOpenFailed;
}

// The single-precision map length: the size in pages plus one, times the page size, which
// is the size plus one page as far as a float resolves it. A 32-bit integer cannot hold
// the length of a file of 2 GiB or more, so the length is kept in 64 bits; below that the
// two agree.
long long mapLengthFor(long long size) {
    const float page = static_cast<float>(getpagesize());
    return static_cast<long long>((static_cast<float>(size) / page + 1.0f) * page);
}

}  // namespace

RFileStream::RFileStream() : RFileStream(RURI(), O_RDWR, 0) {}

RFileStream::RFileStream(const RURI& uri, unsigned int flags, unsigned char mode)
    : mURI(uri),
      mFd(-1),
      mMode(mode),
      mFlags(flags),
      mMapAddress(nullptr),
      mFileSize(0),
      mPosition(0),
      mMapLength(0),
      mMappedBytes(0) {}

RFileStream::~RFileStream() {
    if (mFd != -1) {
        close();
    }
}

bool RFileStream::isMapped() const noexcept {
    return (mFlags & O_CREAT) == 0 && (mMode & 1) != 0;
}

int RFileStream::open() {
    if (mFd != -1) {
        close();
    }
    const char* path = mURI.getPath().c_str();
    // Zeroed: after a failed lstat the EACCES test below must see no type bits.
    struct stat entry {};
    if (::lstat(path, &entry) != 0 ? errno != ENOENT : S_ISDIR(entry.st_mode)) {
        return kResultFileOpenFailed;
    }
    // Opening a FIFO for reading or for writing alone waits until its other end is opened,
    // which may be never. O_NONBLOCK keeps the open from waiting: a FIFO opened so for
    // writing fails at once when it has no reader, and one opened for reading, which
    // cannot tell whether a writer will come, is refused. Read-write needs no other end.
    const int fd = ::open(path, static_cast<int>(mFlags) | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd == -1) {
        return resultOfFailedOpen(errno, path, entry);
    }
    struct stat opened {};
    if (::fstat(fd, &opened) != 0 ||
        (S_ISFIFO(opened.st_mode) && (mFlags & O_ACCMODE) == O_RDONLY)) {
        ::close(fd);
        return kResultFileOpenFailed;
    }
    // Regular files ignore O_NONBLOCK; anything else gets back the blocking I/O it was
    // asked for.
    if (!S_ISREG(opened.st_mode) && (mFlags & O_NONBLOCK) == 0) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    }
    mFd = fd;
    if (!isMapped()) {
        return kResultOK;
    }

    mFileSize = entry.st_size;
    mMapLength = mapLengthFor(mFileSize);
    void* address = ::mmap(nullptr, static_cast<size_t>(mMapLength), PROT_READ, MAP_SHARED, fd, 0);
    // A mapping that failed leaves no address, and mapped reads then fail; the stream
    // stays open for writing and seeking.
    if (address == MAP_FAILED) {
        return kResultOK;
    }
    mMapAddress = static_cast<unsigned char*>(address);
    mMappedBytes = std::min<long long>(opened.st_size, mMapLength);
    return kResultOK;
}

int RFileStream::close() {
    if (mMapAddress) {
        ::munmap(mMapAddress, static_cast<size_t>(mMapLength));
        mMapAddress = nullptr;
        mMappedBytes = 0;
    }
    return ::close(std::exchange(mFd, -1));
}

long long RFileStream::read(unsigned char* buffer, long long length) {
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    if (!isMapped()) {
        return ::read(mFd, buffer, static_cast<std::uint32_t>(length));
    }
    if (!mMapAddress) {
        errno = EBADF;
        return -1;
    }
    const long long count = std::min(length, std::max(mFileSize - mPosition, 0LL));
    const long long backed = std::clamp(mMappedBytes - mPosition, 0LL, count);
    if (backed > 0) {
        std::memcpy(buffer, mMapAddress + mPosition, static_cast<size_t>(backed));
    }
    if (count > backed) {
        std::memset(buffer + backed, 0, static_cast<size_t>(count - backed));
    }
    mPosition += count;
    return count;
}

long long RFileStream::write(unsigned char* buffer, long long length) {
    if (length < 0) {
        errno = EINVAL;
        return -1;
    }
    return ::write(mFd, buffer, static_cast<std::uint32_t>(length));
}

long long RFileStream::lseek(long long offset, unsigned char whence) {
    if (!isMapped()) {
        return ::lseek(mFd, static_cast<off_t>(offset), whence);
    }
    long long position = mPosition;
    bool overflow = false;
    switch (whence) {
        case SEEK_SET:
            position = offset;
            break;
        case SEEK_CUR:
            overflow = __builtin_add_overflow(mPosition, offset, &position);
            break;
        case SEEK_END:
            overflow = __builtin_add_overflow(mFileSize, offset, &position);
            break;
        default:
            break;
    }
    if (overflow || position < 0 || position > mFileSize) {
        errno = EINVAL;
        return -1;
    }
    mPosition = position;
    return position;
}

long long RFileStream::size() {
    struct stat entry {};
    return ::fstat(mFd, &entry) == 0 ? static_cast<long long>(entry.st_size) : 0;
}

RPtr<RFileStream> RFileStream::getTempStream() {
    RPtr<RFileStream> stream(new RFileStream());
    std::string name = sys_conf::instance().get_value("common.temp-path", "/tmp");
    if (name.empty() || name.back() != '/') {
        name += '/';
    }
    name += "XXXXXXXXXXXXXXXX";
    const std::string pattern = name;  // mkostemp overwrites the X's even when it fails
    stream->mFd = ::mkostemp(&name[0], O_CLOEXEC);
    if (stream->mFd == -1) {
        throw CException(
            "ZR::CException", kTempStreamFailureLine, kSource, __PRETTY_FUNCTION__,
            CString::createWithFormat("Failed to create temporary file: '%s'", pattern.c_str()));
    }
    ::unlink(name.c_str());
    stream->mURI = RURI(("file://" + name).c_str());
    return stream;
}

}  // namespace CM
}  // namespace ZR
