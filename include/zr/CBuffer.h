// Byte buffers and strings of the base library.
//
// CBuffer is a growable block of bytes that it owns and frees with free(); every subclass
// grows only through the virtual resize(), so strings and the serialization stream (CData)
// grow the same way. CString is a CBuffer whose size counts the terminating NUL, and
// RString is its reference-counted form. ConstructionFlags say who owns a block of bytes
// handed to a buffer or a frame.
//
// None of these classes has a lock: a buffer belongs to one thread at a time. An RString
// may be shared read-only between threads once published.
#ifndef ZR_CBUFFER_H
#define ZR_CBUFFER_H

#include <zrbase/object_refcount.h>

#include <cstdarg>
#include <cstdint>

namespace ZR {

enum ConstructionFlags : unsigned int {
    ConstructionAdopt = 0,       // take the caller's malloc() block; free() it later
    ConstructionCopy = 1,        // copy the bytes into storage of our own
    ConstructionFreeSource = 2,  // with ConstructionCopy: free() the caller's block after copying
};

constexpr ConstructionFlags operator|(ConstructionFlags a, ConstructionFlags b) {
    return static_cast<ConstructionFlags>(static_cast<unsigned int>(a) |
                                          static_cast<unsigned int>(b));
}

class CBuffer {
public:
    CBuffer() noexcept = default;
    CBuffer(const CBuffer& other);
    CBuffer& operator=(const CBuffer& other);

    // The logical length of the content is size + correction(): strings do not count
    // their NUL.
    virtual int correction() const { return 0; }

    // Codecs replace the content with the encoding or decoding of src's logical content.
    // encodeHex: options != 0 gives upper-case digits. encodeBase64 (RFC 4648): options > 0
    // breaks the text with '\n' after every `options` characters. The decoders accept both
    // digit cases and skip white space; they return false and leave the buffer empty on
    // malformed input.
    virtual bool encodeHex(const CBuffer& src, int options);
    virtual bool decodeHex(const CBuffer& src, int options);
    virtual bool encodeBase64(const CBuffer& src, int options);
    virtual bool decodeBase64(const CBuffer& src, int options);

    virtual ~CBuffer();

    CBuffer& clear() noexcept;  // size 0; storage and capacity kept
    CBuffer& zero() noexcept;   // every byte of the storage set to 0; size kept
    // Makes the capacity at least newCapacity, keeping the content; grows geometrically so
    // that appending in small steps stays linear. Throws CException when out of memory.
    virtual void resize(int newCapacity);

    // Load content under the ownership rule of `flags`, replacing what the buffer held.
    // init() is the name used right after construction; the two behave alike.
    void init(int size, unsigned char* data, ConstructionFlags flags);
    void set(int size, unsigned char* data, ConstructionFlags flags);
    void append(int size, const unsigned char* data);

    // Orders by content, byte by byte as unsigned values; a prefix sorts first.
    bool operator<(const CBuffer& other) const noexcept;

    unsigned char* getData() const noexcept { return mData; }
    int getSize() const noexcept { return mSize; }
    int getCapacity() const noexcept { return mCapacity; }
    std::uint8_t getFlags() const noexcept { return mFlags; }
    void setSize(int size) noexcept;  // clamped to [0, capacity]

protected:
    // Makes room for n more bytes and returns where they go; size grows by n.
    unsigned char* grow(int n);
    void release() noexcept;

    unsigned char* mData = nullptr;
    int mCapacity = 0;
    int mSize = 0;
    std::uint8_t mFlags = 1;  // 1: the storage is ours to free
};

class CString : public CBuffer {
public:
    CString() noexcept = default;
    CString(const char* text);
    CString(const CString& other) = default;
    CString& operator=(const CString& other) = default;
    CString& operator=(const char* text);

    int correction() const override { return -1; }
    bool encodeHex(const CBuffer& src, int options) override;
    bool decodeHex(const CBuffer& src, int options) override;
    bool encodeBase64(const CBuffer& src, int options) override;
    bool decodeBase64(const CBuffer& src, int options) override;

    static CString createWithFormat(const char* format, ...)
        __attribute__((format(printf, 1, 2)));

    // Index of the first occurrence of needle at or after start, or -1.
    int find(const char* needle, int start) const noexcept;
    bool operator==(const char* text) const noexcept;
    bool operator!=(const char* text) const noexcept { return !(*this == text); }

    const char* c_str() const noexcept;  // never null: "" without storage
    int getLength() const noexcept { return mSize > 0 ? mSize - 1 : 0; }

protected:
    // Re-establishes the terminating NUL after a codec: appended when the content is not
    // empty and does not already end in 0.
    bool terminate(bool ok);
    void formatInto(const char* format, va_list args);
};

class RString : public CString, public zrbase::object_refcount {
public:
    // The reference count's release(), not CBuffer's protected one of the same name, so
    // that RPtr<RString> compiles.
    using zrbase::object_refcount::release;

    RString() noexcept = default;
    RString(const char* text) : CString(text) {}
    RString(const CString& text) : CString(text) {}
    RString& operator=(const char* text);

    static RString createWithFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
};

}  // namespace ZR

#endif
