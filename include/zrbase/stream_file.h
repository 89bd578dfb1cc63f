// zrbase::stream::file, the owning wrapper of one POSIX file descriptor.
//
// A file is either set (it owns an open descriptor) or unset (k_invalid_fd). At most one
// object owns a descriptor: assignment and copy type k_transfer move it and leave the
// source unset, even though the source is passed as const; only k_duplicate gives the new
// object a descriptor of its own (dup). Reads, writes and seeks are single unbuffered
// system calls. Every failed call throws zrbase::e::call through e::call::raise with
// errno and the place of the call in "lib/zrbase/src/stream_file"; nothing reports
// failure by a return value. One thread at a time.
#ifndef ZRBASE_STREAM_FILE_H
#define ZRBASE_STREAM_FILE_H

#include <zrbase/stream.h>

#include <string>

namespace zrbase {
namespace stream {

class file : public rwa {
public:
    // A fixed underlying type: any other value is valid and yields an unset file.
    enum copy_type : int { k_transfer = 0, k_duplicate = 1 };
    static constexpr int k_invalid_fd = -1;

    file() noexcept : m_fd(k_invalid_fd) {}
    // Opens path with open(2); an empty path gives an unset file without any call.
    file(std::string const& path, unsigned int flags, unsigned short mode);
    // Takes other's descriptor by type; a type other than the two above gives an unset
    // file.
    file(file const& other, copy_type type);
    file(file&& other) noexcept : m_fd(other.m_fd) { other.m_fd = k_invalid_fd; }
    // Closes this file and takes other's descriptor by transfer.
    file& operator=(file const& other);
    // Closes a set file. A failure to close cannot be raised from here; call close()
    // first to see it. The descriptor is released either way.
    ~file() override;

    unsigned int read(void* buffer, unsigned int count) const override;
    long long tell() const override;
    long long seek(long long offset, seek_type type) const override;
    unsigned int write(void const* buffer, unsigned int count) override;
    // Writes are unbuffered: nothing to do.
    void flush() override {}

    // As the constructors, after closing the current descriptor. Setting a file from
    // itself does nothing.
    void set(std::string const& path, unsigned int flags, unsigned short mode);
    void set(file const& other, copy_type type);
    void swap(file& other) noexcept;
    bool is_set() const noexcept { return m_fd != k_invalid_fd; }
    int descriptor() const noexcept { return m_fd; }
    // Closes a set file and leaves it unset, also when close(2) fails and raises.
    void close();
    // Truncates or extends the file to length bytes.
    void resize(unsigned long long length);

    // An open read-write file in directory that has already been unlinked, so that it
    // disappears with its last descriptor.
    static file temporary(std::string const& directory);

private:
    // Takes other's descriptor by type; this file must be unset.
    void adopt(file const& other, copy_type type);

    // mutable: transfer on assignment empties a source passed as const.
    mutable int m_fd;
};

}  // namespace stream
}  // namespace zrbase

#endif
