#include <zr/CData.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace ZR {

CData::CData(const unsigned char* bytes, int size) {
    append(size, bytes);
}

void CData::setCursor(int offset) noexcept {
    mCursor = std::clamp(offset, 0, mSize);
}

void CData::writeBytes(const unsigned char* bytes, int n) {
    if (n <= 0) {
        return;
    }
    // The stream grows by n whatever the cursor; the value lands at the cursor.
    grow(n);
    std::memcpy(mData + mCursor, bytes, static_cast<size_t>(n));
    mCursor += n;
}

const unsigned char* CData::readBytes(int n) noexcept {
    if (n < 0 || n > mSize - mCursor) {
        mCursor = mSize;
        mFailed = true;
        return nullptr;
    }
    const unsigned char* at = mData + mCursor;
    mCursor += n;
    return at;
}

CData& CData::put32(std::uint32_t v) {
    const unsigned char bytes[4] = {
        static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
        static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
    writeBytes(bytes, 4);
    return *this;
}

CData& CData::put64(std::uint64_t v) {
    // One write of eight bytes, so that the stream grows once by the value's whole width.
    unsigned char bytes[8];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<unsigned char>(v >> (56 - 8 * i));
    }
    writeBytes(bytes, 8);
    return *this;
}

std::uint32_t CData::get32() noexcept {
    const unsigned char* p = readBytes(4);
    if (!p) {
        return 0;
    }
    return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 |
           std::uint32_t{p[3]};
}

std::uint64_t CData::get64() noexcept {
    if (remaining() < 8) {
        readBytes(8);
        return 0;
    }
    const std::uint64_t high = get32();
    return high << 32 | get32();
}

CData& CData::operator<<(double v) {
    std::uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return put64(bits);
}

CData& CData::operator>>(double& v) {
    const std::uint64_t bits = get64();
    std::memcpy(&v, &bits, sizeof v);
    return *this;
}

std::uint64_t CData::secondsToWire(double seconds) noexcept {
    constexpr double kTwo63 = 9223372036854775808.0;
    constexpr double kTwo64 = 18446744073709551616.0;
    if (std::isnan(seconds)) {
        return 0;
    }
    if (seconds >= kTwo64) {
        return UINT64_MAX;
    }
    if (seconds >= kTwo63) {
        return static_cast<std::uint64_t>(seconds);
    }
    if (seconds <= -kTwo63) {
        return static_cast<std::uint64_t>(INT64_MIN);
    }
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(seconds));
}

CData& operator<<(CData& data, const CBuffer& buffer) {
    data << static_cast<unsigned int>(buffer.getSize());
    data.writeBytes(buffer.getData(), buffer.getSize());
    return data;
}

CData& operator>>(CData& data, CBuffer& buffer) {
    unsigned int count = 0;
    data >> count;
    buffer.clear();
    if (count > static_cast<unsigned int>(data.remaining())) {
        data.readBytes(-1);  // marks the stream failed, cursor at the end
        return data;
    }
    buffer.append(static_cast<int>(count), data.readBytes(static_cast<int>(count)));
    return data;
}

CData& operator>>(CData& data, CString& text) {
    data >> static_cast<CBuffer&>(text);
    const int size = text.getSize();
    if (size > 0 && text.getData()[size - 1] != 0) {
        const unsigned char nul = 0;
        text.append(1, &nul);
    }
    return data;
}

}  // namespace ZR
