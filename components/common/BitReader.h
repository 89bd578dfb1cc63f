// CBitReader: reads the bit fields of codec headers and payload headers, most significant
// bit first, from bytes it does not own.
//
// A read past the end yields zeros and marks the reader as failed, so a caller reads a
// whole structure and checks ok() once at the end.
//
// Belongs to one thread; the bytes must outlive it.
#ifndef CM_COMPONENTS_COMMON_BITREADER_H
#define CM_COMPONENTS_COMMON_BITREADER_H

#include <cstddef>
#include <cstdint>

namespace cmcomponents {

class CBitReader {
public:
    // Reads the first `bits` bits of the bytes at data.
    CBitReader(const unsigned char* data, std::size_t bits) : mData(data), mBits(bits) {}

    bool ok() const noexcept { return mOk; }
    std::size_t left() const noexcept { return mBits - mPosition; }
    std::size_t position() const noexcept { return mPosition; }

    // count from 0 to 32.
    std::uint32_t bits(unsigned int count) {
        std::uint32_t value = 0;
        for (unsigned int i = 0; i < count; ++i) {
            value = (value << 1) | bit();
        }
        return value;
    }
    // ue(v), an Exp-Golomb code; one of more than 32 bits fails the reader.
    std::uint32_t ue() {
        unsigned int zeros = 0;
        while (mOk && bit() == 0) {
            if (++zeros > 31) {
                mOk = false;
            }
        }
        if (!mOk) {
            return 0;
        }
        return static_cast<std::uint32_t>((std::uint64_t{1} << zeros) - 1 + bits(zeros));
    }
    // se(v), the signed Exp-Golomb code.
    int se() {
        const std::uint32_t code = ue();
        const int magnitude = static_cast<int>((std::uint64_t{code} + 1) / 2);
        return code % 2 ? magnitude : -magnitude;
    }

private:
    std::uint32_t bit() {
        if (mPosition >= mBits) {
            mOk = false;
            return 0;
        }
        const std::uint32_t value = (mData[mPosition / 8] >> (7 - mPosition % 8)) & 1u;
        ++mPosition;
        return value;
    }

    const unsigned char* mData;
    std::size_t mBits;
    std::size_t mPosition = 0;
    bool mOk = true;
};

}  // namespace cmcomponents

#endif
