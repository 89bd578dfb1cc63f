// The byte-stream interfaces of the zrbase layer: what a reader, a writer and a
// random-access stream can do, independent of what lies behind them.
//
// rd reads, wr writes, ra moves a position; rda and wra are the readable and writable
// random-access views, rwa is both (its two views share one ra). The file primitive
// (stream_file.h) implements rwa; reader plug-ins implement rda. Counts and positions are
// bytes. Implementations report failure by throwing a zrbase::e::base, never by a
// special return value. An object is used by one thread at a time.
#ifndef ZRBASE_STREAM_H
#define ZRBASE_STREAM_H

namespace zrbase {
namespace stream {

class rd {
public:
    virtual ~rd();
    // Reads up to count bytes into buffer; 0 at the end.
    virtual unsigned int read(void* buffer, unsigned int count) const = 0;
};

class ra {
public:
    // Where a seek offset counts from; the values are those of POSIX whence. The fixed
    // underlying type makes any whence a caller hands on a valid value, which an
    // implementation then refuses.
    enum seek_type : int { seek_begin = 0, seek_current = 1, seek_end = 2 };

    virtual ~ra();
    virtual long long tell() const = 0;
    // Moves the position and returns the new one.
    virtual long long seek(long long offset, seek_type type) const = 0;
    virtual long long size() const = 0;
};

class wr {
public:
    virtual ~wr();
    // Writes count bytes from buffer and returns how many were written.
    virtual unsigned int write(void const* buffer, unsigned int count) = 0;
    virtual void flush() = 0;
};

class rda : public rd, public virtual ra {
public:
    // Reads like read() and moves the position back over what was read.
    virtual unsigned int peek(void* buffer, unsigned int count) const;
};

class wra : public wr, public virtual ra {};

class rwa : public rda, public wra {
public:
    long long tell() const override;
    // The position of the end; the current position is kept.
    long long size() const override;
};

}  // namespace stream
}  // namespace zrbase

#endif
