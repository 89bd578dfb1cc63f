// ZR::CData, the big-endian serialization stream behind every operator<< and operator>>
// of the library.
//
// A CData is a CBuffer with a cursor. Writing a value grows the buffer through resize(),
// adds the value's width to the size and stores it at the cursor; reading takes the bytes
// at the cursor. Values are written one after the other with no tag or length of their
// own: each type's operators define its field order.
//
// Reading past the end never touches memory outside the buffer: the missing value reads
// as zero (an empty buffer for strings), the cursor stops at the end and failed() turns
// true, so a deserializer can tell a truncated stream from a complete one.
#ifndef ZR_CDATA_H
#define ZR_CDATA_H

#include <zr/CBuffer.h>
#include <zr/CTimeStamp.h>

#include <cstdint>
#include <type_traits>
#include <vector>

namespace ZR {

class CData : public CBuffer {
public:
    CData() noexcept = default;
    CData(const unsigned char* bytes, int size);  // copies; cursor at the start

    int getCursor() const noexcept { return mCursor; }
    void setCursor(int offset) noexcept;  // clamped to [0, size]
    void rewind() noexcept { setCursor(0); }
    // True once a read has asked for more bytes than the stream held.
    bool failed() const noexcept { return mFailed; }
    int remaining() const noexcept { return mSize - mCursor; }

    CData& operator<<(int v) { return put32(static_cast<std::uint32_t>(v)); }
    CData& operator<<(unsigned int v) { return put32(v); }
    CData& operator<<(unsigned long long v) { return put64(v); }
    CData& operator<<(double v);
    CData& operator<<(CTimeStamp v) { return put64(secondsToWire(v)); }
    CData& operator<<(Fixed64 v) { return put64(secondsToWire(v)); }
    template <typename E, typename = std::enable_if_t<std::is_enum<E>::value>>
    CData& operator<<(E v) {
        return put32(static_cast<std::uint32_t>(v));
    }

    CData& operator>>(int& v) { return v = static_cast<int>(get32()), *this; }
    CData& operator>>(unsigned int& v) { return v = get32(), *this; }
    CData& operator>>(unsigned long long& v) { return v = get64(), *this; }
    CData& operator>>(double& v);
    CData& operator>>(CTimeStamp& v) { return v = static_cast<double>(get64()), *this; }
    CData& operator>>(Fixed64& v) { return v = static_cast<double>(get64()), *this; }
    template <typename E, typename = std::enable_if_t<std::is_enum<E>::value>>
    CData& operator>>(E& v) {
        v = static_cast<E>(get32());
        return *this;
    }

    // Raw access for the buffer operators: write n bytes at the cursor, or take n bytes
    // from it (null, and failed() set, when fewer remain).
    void writeBytes(const unsigned char* bytes, int n);
    const unsigned char* readBytes(int n) noexcept;

private:
    CData& put32(std::uint32_t v);
    CData& put64(std::uint64_t v);
    std::uint32_t get32() noexcept;
    std::uint64_t get64() noexcept;
    // Seconds as a whole unsigned count, truncated toward zero. Values of 2^63 and above
    // convert as unsigned; negative ones wrap as two's complement; NaN becomes 0 and values
    // past the 64-bit range saturate, so the conversion is always defined.
    static std::uint64_t secondsToWire(double seconds) noexcept;

    int mCursor = 0;
    bool mFailed = false;
};

// The wire form of a buffer or string: its size as an unsigned 32-bit count (a string's
// NUL included), then the bytes. An empty buffer is four zero bytes.
CData& operator<<(CData& data, const CBuffer& buffer);
CData& operator>>(CData& data, CBuffer& buffer);
// As for a buffer; a string read back is always NUL-terminated.
CData& operator>>(CData& data, CString& text);

template <typename T>
CData& operator<<(CData& data, const std::vector<T>& items) {
    data << static_cast<unsigned int>(items.size());
    for (const T& item : items) {
        data << item;
    }
    return data;
}

// Reads at most as many elements as the stream could hold, so a corrupt count cannot make
// it allocate without bound.
template <typename T>
CData& operator>>(CData& data, std::vector<T>& items) {
    unsigned int count = 0;
    data >> count;
    items.clear();
    for (unsigned int i = 0; i < count && !data.failed(); ++i) {
        T item{};
        data >> item;
        if (data.failed()) {
            break;
        }
        items.push_back(std::move(item));
    }
    return data;
}

}  // namespace ZR

#endif
