// The byte streams through which importers and exporters read and write media.
//
// CStreamP is the interface: open, close, read, write, seek, size, kind and URI, with
// results rather than exceptions. RStream is its reference-counted form, held through
// ZR::RPtr; RStream::getStream picks the concrete stream for a URI (a local file, a
// FireWire device, or a reader plug-in for any other scheme) and returns it unopened.
// A stream is used by one thread at a time.
#ifndef CM_CMSTREAM_H
#define CM_CMSTREAM_H

#include <zr/CBuffer.h>
#include <zr/RPtr.h>
#include <zr/RURI.h>
#include <zrbase/object_refcount.h>

namespace ZR {
namespace CM {

class CStreamP {
public:
    virtual ~CStreamP();

    // 0, or a result code (CMComponentStatus.h).
    virtual int open() = 0;
    // 0, or -1 on failure.
    virtual int close() = 0;
    // The count read, 0 at the end, negative on failure.
    virtual long long read(unsigned char* buffer, long long length) = 0;
    // The count written, negative on failure.
    virtual long long write(unsigned char* buffer, long long length) = 0;
    // whence: 0 from the start, 1 from the current position, 2 from the end. The new
    // position, or -1.
    virtual long long lseek(long long offset, unsigned char whence) = 0;
    // The length in bytes, 0 when unknown.
    virtual long long size() = 0;
    // 1 file stream, 5 FireWire stream, 6 plug-in stream.
    virtual int getType() = 0;
    virtual RString getURI() = 0;
};

class RStream : public zrbase::object_refcount, public CStreamP {
public:
    // A new stream for uri, not yet open, or an empty pointer. flags are open(2) flags
    // handed to the stream; bit 0 of mode asks a file stream to map a file it reads.
    // Plug-in streams are read-only: with any flags they are refused.
    static RPtr<RStream> getStream(const RURI& uri, unsigned int flags, unsigned char mode);
    // An open, anonymous read-write file stream in the temporary directory.
    static RPtr<RStream> getTempStream();

    // Copies all of source to this stream's current position, 64 KiB at a time, seeking
    // the source before every block; stops at the source's end or first failed read.
    // Leaves the source where it was and returns the result of that final seek.
    long long append(RStream* source);
    // The same copy, reading the source sequentially. It stops only at a read result of
    // exactly 0: a failed read is handed on to write() as a negative length, so a source
    // that keeps failing keeps the copy going.
    RStream& operator+=(RStream& source);
};

}  // namespace CM
}  // namespace ZR

#endif
