// RFileStream, the stream over a local file.
//
// The file is opened by open() with the caller's open(2) flags. A stream asked to map
// (bit 0 of mode) and not asked to create (no O_CREAT) reads from a shared read-only
// mapping of the whole file and seeks inside it; its writes still go through the
// descriptor. Otherwise every operation is one system call. Construction never touches the
// file system; the destructor closes a stream that is still open.
//
// One thread at a time.
#ifndef CM_CMFILESTREAM_H
#define CM_CMFILESTREAM_H

#include <cm/CMStream.h>

namespace ZR {
namespace CM {

class RFileStream : public RStream {
public:
    // Closed, read-write, not mapped, with an empty URI.
    RFileStream();
    RFileStream(const RURI& uri, unsigned int flags, unsigned char mode);
    ~RFileStream() override;

    // 0; 169 when the path itself is a directory (lstat(), so a link to one is opened),
    // is not accessible or cannot be opened; 203 when a symbolic link on the way cannot be
    // resolved (a loop, or a link into a directory we may not search). A missing file is
    // opened only with O_CREAT. A FIFO opens only read-write, or for writing while it has
    // a reader: any other open of it would wait for its other end, perhaps for ever, and
    // gives 169 at once. Opening a stream that is already open closes it first.
    int open() override;
    // Unmaps, closes the descriptor and returns the result of close(2).
    int close() override;
    long long read(unsigned char* buffer, long long length) override;
    long long write(unsigned char* buffer, long long length) override;
    long long lseek(long long offset, unsigned char whence) override;
    // fstat(2) of the descriptor: the file's size now, 0 when closed.
    long long size() override;
    int getType() override { return 1; }
    RString getURI() override { return RString(mURI.getString()); }

    // An open, read-write stream on a file in "common.temp-path" (default /tmp) that has
    // already been unlinked. Throws CException when no file can be created there.
    static RPtr<RFileStream> getTempStream();

    int getDescriptor() const noexcept { return mFd; }
    unsigned char getMode() const noexcept { return mMode; }
    unsigned int getFlags() const noexcept { return mFlags; }
    const unsigned char* getMapAddress() const noexcept { return mMapAddress; }
    // The size recorded when the mapping was made (lstat(2) of the path, so for a
    // symbolic link the length of the link itself).
    long long getFileSize() const noexcept { return mFileSize; }
    long long getPosition() const noexcept { return mPosition; }
    long long getMapLength() const noexcept { return mMapLength; }
    // Decided on every call, never stored.
    bool isMapped() const noexcept;

private:
    RURI mURI;
    int mFd;
    unsigned char mMode;
    unsigned int mFlags;
    unsigned char* mMapAddress;
    long long mFileSize;
    long long mPosition;
    long long mMapLength;
    // How much of the recorded size the file really backs in the mapping. Reads beyond it
    // (a symbolic link longer than its target) give zeros instead of touching pages past
    // the end of the file.
    long long mMappedBytes;
};

}  // namespace CM
}  // namespace ZR

#endif
