#include <zrbase/stream_file.h>

#include <zrbase/exception.h>

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <utility>

namespace zrbase {
namespace stream {

namespace {

constexpr const char* k_source = "lib/zrbase/src/stream_file";

// The source lines that errors of each call report. Callers match on them, so they stay
// fixed whatever happens to the layout of this file.
enum raise_line : unsigned {
    k_line_open = 221,
    k_line_dup = 237,
    k_line_close = 249,
    k_line_temporary = 294,
    k_line_read = 367,
    k_line_write = 376,
    k_line_resize = 383,
    k_line_tell = 395,
    k_line_seek = 424,
};

[[noreturn]] void raise_errno(raise_line line) {
    e::call::raise(errno, k_source, line, nullptr);
}

}  // namespace

file::file(std::string const& path, unsigned int flags, unsigned short mode) : m_fd(k_invalid_fd) {
    set(path, flags, mode);
}

file::file(file const& other, copy_type type) : m_fd(k_invalid_fd) {
    adopt(other, type);
}

file& file::operator=(file const& other) {
    if (&other != this) {
        close();
        adopt(other, k_transfer);
    }
    return *this;
}

file::~file() {
    if (is_set()) {
        ::close(m_fd);
    }
}

void file::set(std::string const& path, unsigned int flags, unsigned short mode) {
    close();
    if (path.empty()) {
        return;
    }
    const int fd = ::open(path.c_str(), static_cast<int>(flags), static_cast<mode_t>(mode));
    if (fd == k_invalid_fd) {
        raise_errno(k_line_open);
    }
    m_fd = fd;
}

void file::set(file const& other, copy_type type) {
    if (&other == this) {
        return;
    }
    close();
    adopt(other, type);
}

void file::adopt(file const& other, copy_type type) {
    switch (type) {
        case k_transfer:
            m_fd = other.m_fd;
            other.m_fd = k_invalid_fd;
            return;
        case k_duplicate:
            // Also for an unset file: dup(-1) fails with EBADF, which is raised.
            m_fd = ::dup(other.m_fd);
            if (m_fd == k_invalid_fd) {
                raise_errno(k_line_dup);
            }
            return;
    }
}

void file::swap(file& other) noexcept {
    std::swap(m_fd, other.m_fd);
}

void file::close() {
    if (!is_set()) {
        return;
    }
    // Linux releases the descriptor even when close(2) fails, so forget it before raising:
    // a second close must not hit a number that may already belong to someone else.
    const int fd = std::exchange(m_fd, k_invalid_fd);
    if (::close(fd) != 0) {
        raise_errno(k_line_close);
    }
}

unsigned int file::read(void* buffer, unsigned int count) const {
    const ssize_t got = ::read(m_fd, buffer, count);
    if (got == -1) {
        raise_errno(k_line_read);
    }
    return static_cast<unsigned int>(got);
}

unsigned int file::write(void const* buffer, unsigned int count) {
    const ssize_t put = ::write(m_fd, buffer, count);
    // A short write raises too, with whatever errno holds: the caller asked for all of it.
    if (put == -1 || static_cast<size_t>(put) < count) {
        raise_errno(k_line_write);
    }
    return static_cast<unsigned int>(put);
}

void file::resize(unsigned long long length) {
    if (::ftruncate(m_fd, static_cast<off_t>(length)) != 0) {
        raise_errno(k_line_resize);
    }
}

long long file::tell() const {
    const off_t position = ::lseek(m_fd, 0, SEEK_CUR);
    if (position == -1) {
        raise_errno(k_line_tell);
    }
    return position;
}

long long file::seek(long long offset, seek_type type) const {
    const off_t position = ::lseek(m_fd, static_cast<off_t>(offset), static_cast<int>(type));
    if (position == -1) {
        raise_errno(k_line_seek);
    }
    return position;
}

file file::temporary(std::string const& directory) {
    std::string name = directory;
    if (!name.empty() && name.back() != '/') {
        name += '/';
    }
    name += "XXXXXXXXXXXXXXXX";
    const int fd = ::mkstemp(&name[0]);
    if (fd == k_invalid_fd) {
        raise_errno(k_line_temporary);
    }
    file result(std::string(), 0, 0644);
    result.m_fd = fd;
    if (::unlink(name.c_str()) != 0) {
        raise_errno(k_line_temporary);
    }
    return result;
}

}  // namespace stream
}  // namespace zrbase
