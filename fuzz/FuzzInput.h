// Splits a fuzzer's input into the values a target needs: whole integers from the front
// and NUL-terminated texts, every read safe once the input runs out.
#ifndef CM_FUZZ_FUZZINPUT_H
#define CM_FUZZ_FUZZINPUT_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : mData(data), mSize(size) {}

    bool empty() const noexcept { return mSize == 0; }

    // The next sizeof(T) bytes as a T (missing bytes read as zero).
    template <typename T>
    T take() noexcept {
        T value{};
        const std::size_t n = mSize < sizeof value ? mSize : sizeof value;
        std::memcpy(&value, mData, n);
        advance(n);
        return value;
    }

    // The bytes up to the next NUL (or the end), the NUL consumed.
    std::string text() {
        const void* nul = std::memchr(mData, 0, mSize);
        const std::size_t n =
            nul ? static_cast<std::size_t>(static_cast<const std::uint8_t*>(nul) - mData) : mSize;
        std::string result(reinterpret_cast<const char*>(mData), n);
        advance(nul ? n + 1 : n);
        return result;
    }

private:
    void advance(std::size_t n) noexcept {
        mData += n;
        mSize -= n;
    }

    const std::uint8_t* mData;
    std::size_t mSize;
};

#endif
