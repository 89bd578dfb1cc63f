// CAvStreamIO: an FFmpeg I/O context over one of the library's streams (RStream), so that
// FFmpeg's demuxers and muxers read and write whatever the stream stands for: a file, a
// mapped file, a reader plug-in's URL.
//
// Reading, writing and seeking go straight to the stream. Seeking is offered when the
// stream can tell its position, and FFmpeg's question for the size (AVSEEK_SIZE) is
// answered with the stream's size when it knows one. A failed read or write is remembered
// (failed()), so that the owner can tell a broken stream from bad content; the end of the
// stream is not a failure.
//
// The object owns the I/O context and its buffer, and holds a reference to the stream. It
// belongs to the one thread that drives the demuxer or muxer using it, and must outlive
// that demuxer or muxer.
#ifndef CM_COMPONENTS_AV_AVSTREAMIO_H
#define CM_COMPONENTS_AV_AVSTREAMIO_H

#include "av/AvObjects.h"

#include <cm/CMStream.h>
#include <zr/RPtr.h>

namespace cmcomponents {

class CAvStreamIO {
public:
    enum class Mode { kRead, kWrite };

    // The stream must be open. context() is null when FFmpeg could not make the context
    // (out of memory).
    CAvStreamIO(ZR::RPtr<ZR::CM::RStream> stream, Mode mode);
    ~CAvStreamIO();
    CAvStreamIO(const CAvStreamIO&) = delete;
    CAvStreamIO& operator=(const CAvStreamIO&) = delete;

    AVIOContext* context() const noexcept { return mContext; }
    bool failed() const noexcept { return mFailed; }

private:
    static int read(void* opaque, std::uint8_t* buffer, int size);
    static int write(void* opaque, std::uint8_t* buffer, int size);
    static std::int64_t seek(void* opaque, std::int64_t offset, int whence);

    ZR::RPtr<ZR::CM::RStream> mStream;
    AVIOContext* mContext = nullptr;
    bool mFailed = false;
};

}  // namespace cmcomponents

#endif
