// Byte-level helpers the file importers and exporters share: a buffered sequential reader
// over an RStream, and the opening and writing steps around it.
//
// A CByteReader belongs to the one thread that reads with it (the importer's thread once
// the run has started, the application's thread before, in openSource()). It holds a
// reference to its stream and reads ahead into a buffer of its own, so the stream's
// position runs ahead of the reader's; whoever reads through a CByteReader reads only
// through it.
#ifndef CM_COMPONENTS_COMMON_STREAMIO_H
#define CM_COMPONENTS_COMMON_STREAMIO_H

#include <cm/CMStream.h>
#include <zr/RPtr.h>

#include <cstddef>
#include <string>
#include <vector>

namespace cmcomponents {

class CByteReader {
public:
    enum class Line {
        kComplete,    // a whole line, its '\n' dropped
        kEnd,         // the stream had ended: not a single byte was read
        kIncomplete,  // bytes, then the end of the stream before any '\n'
        kTooLong,     // more than the allowed length without a '\n'
        kFailed,      // the stream reported a read error
    };

    explicit CByteReader(ZR::RPtr<ZR::CM::RStream> stream);
    CByteReader(const CByteReader&) = delete;
    CByteReader& operator=(const CByteReader&) = delete;

    // Copies up to n bytes into dst; fewer only at the end of the stream or after a failed
    // read (failed() tells which). Large reads go straight from the stream into dst.
    std::size_t read(unsigned char* dst, std::size_t n);
    // Reads up to and including the next '\n' into line (without the '\n'); at most
    // maxLength bytes before it.
    Line readLine(std::string& line, std::size_t maxLength);
    // Moves n bytes on: through the buffer first, then by seeking the stream. False when
    // the stream cannot seek. Skipping past the end succeeds; the next read finds the end.
    bool skip(unsigned long long n);

    // Bytes consumed so far.
    unsigned long long position() const noexcept { return mPosition; }
    // Bytes left in the stream, or -1 when the stream does not know its size.
    long long remaining();
    bool failed() const noexcept { return mFailed; }

private:
    // Refills the empty buffer: false at the end of the stream or on a failed read.
    bool fill();
    std::size_t buffered() const noexcept { return mEnd - mBegin; }

    ZR::RPtr<ZR::CM::RStream> mStream;
    std::vector<unsigned char> mBuffer;
    std::size_t mBegin = 0;  // first unread byte of mBuffer
    std::size_t mEnd = 0;    // one past the last valid byte of mBuffer
    unsigned long long mPosition = 0;
    bool mFailed = false;
};

// Opens the stream unless it is open already (it can tell its position): a host may hand
// over a stream it opened itself, or a temporary stream, which is always open. 0 or the
// stream's result code.
int openIfClosed(ZR::CM::RStream& stream);

// Writes all n bytes, carrying on after short writes; false when a write fails. With
// written, stores how many bytes went out, also when it fails part-way.
bool writeAll(ZR::CM::RStream& stream, const unsigned char* data, std::size_t n,
              std::size_t* written = nullptr);

}  // namespace cmcomponents

#endif
