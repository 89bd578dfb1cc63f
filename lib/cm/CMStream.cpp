#include <cm/CMStream.h>

#include <cm/CMFileStream.h>
#include <cm/CMFirewireStream.h>
#include <cm/CMPluginStream.h>
#include <zrbase/exception.h>

#include <cstdio>
#include <memory>

namespace ZR {
namespace CM {

namespace {

constexpr long long kCopyBlock = 65536;

// A plug-in stream for uri, or nothing when none can be built; why goes to standard error.
RPtr<RStream> pluginStream(const RURI& uri) {
    try {
        return RPtr<RStream>(new RPluginStream(uri));
    } catch (const zrbase::e::base& e) {
        std::fprintf(stderr, "plugin stream exception: %s\n", e.description().c_str());
    } catch (...) {
        std::fprintf(stderr, "plugin stream uncaught exception\n");
    }
    return RPtr<RStream>();
}

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
            // get nothing.
            return flags == 0 ? pluginStream(uri) : RPtr<RStream>();
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
