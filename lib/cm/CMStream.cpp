#include <cm/CMStream.h>

#include <cm/CMFileStream.h>
#include <cm/CMFirewireStream.h>

#include <memory>

namespace ZR {
namespace CM {

namespace {

constexpr long long kCopyBlock = 65536;

}  // namespace

CStreamP::~CStreamP() = default;

RPtr<RStream> RStream::getStream(const RURI& uri, unsigned int flags, unsigned char mode) {
    switch (uri.getKind()) {
        case RURI::kPath:
        case RURI::kFile:
            return RPtr<RStream>(new RFileStream(uri, flags, mode));
        case RURI::kFirewire:
            return RPtr<RStream>(new RFirewireStream(uri, flags, mode));
        default:
            // Every other scheme belongs to a reader plug-in, which only reads, so any flags
            // get nothing. The plug-in stream is not built yet: for now no request gets one.
            return RPtr<RStream>();
    }
}

RPtr<RStream> RStream::getTempStream() {
    return RFileStream::getTempStream();
}

long long RStream::append(RStream* source) {
    const std::unique_ptr<unsigned char[]> buffer(new unsigned char[kCopyBlock]);
    const long long saved = source->lseek(0, 1);
    source->lseek(0, 0);
    source->lseek(0, 1);
    for (long long position = 0;;) {
        source->lseek(position, 0);
        const long long got = source->read(buffer.get(), kCopyBlock);
        if (got <= 0) {
            break;
        }
        write(buffer.get(), got);
        position += got;
    }
    return source->lseek(saved, 0);
}

RStream& RStream::operator+=(RStream& source) {
    unsigned char buffer[kCopyBlock];
    const long long saved = source.lseek(0, 1);
    source.lseek(0, 0);
    for (long long got = source.read(buffer, kCopyBlock); got != 0;
         got = source.read(buffer, kCopyBlock)) {
        write(buffer, got);
    }
    source.lseek(saved, 0);
    return *this;
}

}  // namespace CM
}  // namespace ZR
