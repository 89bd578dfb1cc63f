#include <cm/CMFirewireStream.h>

#include <unistd.h>
#include <cstdlib>
#include <string>

namespace ZR {
namespace CM {

RFirewireStream::RFirewireStream() : RFirewireStream(RURI(), 0, 0) {}

RFirewireStream::RFirewireStream(const RURI& uri, unsigned int flags, unsigned char mode)
    : mURI(uri),
      mFd(-1),
      mMode(mode),
      mFlags(flags),
      mBuffer(nullptr),
      mCount1(0),
      mCount2(0),
      mChannel(0) {}

RFirewireStream::~RFirewireStream() {
    close();
}

int RFirewireStream::close() {
    if (mFd != -1) {
        ::close(mFd);
        mFd = -1;
    }
    return 0;
}

RPtr<RFirewireStream> RFirewireStream::getTempStream() {
    RPtr<RFirewireStream> stream(new RFirewireStream());
    char name[] = "/tmp/tmpStream.XXXXXXXX";
    stream->mFd = ::mkstemp(name);
    stream->mURI = RURI((std::string("file://") + name).c_str());
    return stream;
}

}  // namespace CM
}  // namespace ZR
