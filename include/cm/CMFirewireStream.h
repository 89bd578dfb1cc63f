// RFirewireStream, the stream the factory returns for firewire:// URIs.
//
// No capture back end is built in: the stream opens, seeks and closes successfully and
// transfers no data, so that callers can recognise the kind (getType() 5) and a back end
// can later replace the operations without changing the interface. The descriptor and the
// capture fields below are kept for that back end.
//
// One thread at a time.
#ifndef CM_CMFIREWIRESTREAM_H
#define CM_CMFIREWIRESTREAM_H

#include <cm/CMStream.h>

namespace ZR {
namespace CM {

class RFirewireStream : public RStream {
public:
    RFirewireStream();
    RFirewireStream(const RURI& uri, unsigned int flags, unsigned char mode);
    ~RFirewireStream() override;

    int open() override { return 0; }
    // Releases the descriptor, if any, and returns 0.
    int close() override;
    long long read(unsigned char*, long long) override { return 0; }
    long long write(unsigned char*, long long) override { return 0; }
    long long lseek(long long, unsigned char) override { return 0; }
    long long size() override { return 0; }
    int getType() override { return 5; }
    RString getURI() override { return RString(mURI.getString()); }

    // A stream whose descriptor is a new file "/tmp/tmpStream.XXXXXXXX", wherever
    // "common.temp-path" points; the file is not unlinked and stays after use.
    static RPtr<RFirewireStream> getTempStream();

    int getDescriptor() const noexcept { return mFd; }
    unsigned char getMode() const noexcept { return mMode; }
    unsigned int getFlags() const noexcept { return mFlags; }

protected:
    RURI mURI;
    int mFd;
    unsigned char mMode;
    unsigned int mFlags;
    // Capture state of a back end: a frame buffer, two counters and a channel.
    void* mBuffer;
    long long mCount1;
    long long mCount2;
    int mChannel;
};

}  // namespace CM
}  // namespace ZR

#endif
