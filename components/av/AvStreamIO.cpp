#include "av/AvStreamIO.h"

#include "common/StreamIO.h"

#include <cstdio>

namespace cmcomponents {

namespace {

// FFmpeg reads and writes through a buffer of this size; reads of a demuxer that wants
// more go to the stream directly.
constexpr int kBufferSize = 64 * 1024;

}  // namespace

CAvStreamIO::CAvStreamIO(ZR::RPtr<ZR::CM::RStream> stream, Mode mode) : mStream(std::move(stream)) {
    auto* buffer = static_cast<unsigned char*>(av_malloc(kBufferSize));
    if (!buffer) {
        return;
    }
    const bool writing = mode == Mode::kWrite;
    mContext = avio_alloc_context(buffer, kBufferSize, writing ? 1 : 0, this,
                                  writing ? nullptr : &CAvStreamIO::read,
                                  writing ? &CAvStreamIO::write : nullptr, &CAvStreamIO::seek);
    if (!mContext) {
        av_free(buffer);
        return;
    }
    if (mStream->lseek(0, SEEK_CUR) < 0) {
        mContext->seekable = 0;
    }
}

CAvStreamIO::~CAvStreamIO() {
    if (mContext) {
        // FFmpeg may have replaced the buffer it was given; free the one it holds now.
        av_freep(&mContext->buffer);
        avio_context_free(&mContext);
    }
}

int CAvStreamIO::read(void* opaque, std::uint8_t* buffer, int size) {
    auto* self = static_cast<CAvStreamIO*>(opaque);
    const long long n = self->mStream->read(buffer, size);
    if (n < 0) {
        self->mFailed = true;
        return AVERROR(EIO);
    }
    return n == 0 ? AVERROR_EOF : static_cast<int>(n);
}

int CAvStreamIO::write(void* opaque, std::uint8_t* buffer, int size) {
    auto* self = static_cast<CAvStreamIO*>(opaque);
    if (!writeAll(*self->mStream, buffer, static_cast<std::size_t>(size))) {
        self->mFailed = true;
        return AVERROR(EIO);
    }
    return size;
}

std::int64_t CAvStreamIO::seek(void* opaque, std::int64_t offset, int whence) {
    auto* self = static_cast<CAvStreamIO*>(opaque);
    if (whence & AVSEEK_SIZE) {
        const long long size = self->mStream->size();
        return size > 0 ? size : AVERROR(ENOSYS);
    }
    whence &= ~AVSEEK_FORCE;
    if (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) {
        return AVERROR(EINVAL);
    }
    const long long position = self->mStream->lseek(offset, static_cast<unsigned char>(whence));
    return position < 0 ? AVERROR(EIO) : position;
}

}  // namespace cmcomponents
