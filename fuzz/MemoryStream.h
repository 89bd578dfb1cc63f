// A read-only RStream over a fuzzer's input, so that the components' readers parse it as
// they would a file.
#ifndef CM_FUZZ_MEMORYSTREAM_H
#define CM_FUZZ_MEMORYSTREAM_H

#include <cm/CMStream.h>

#include <cstdint>
#include <cstring>

class MemoryStream : public ZR::CM::RStream {
public:
    MemoryStream(const std::uint8_t* data, std::size_t size)
        : mData(data), mSize(static_cast<long long>(size)) {}

    int open() override { return 0; }
    int close() override { return 0; }
    long long read(unsigned char* buffer, long long length) override {
        const long long n = length < mSize - mPosition ? length : mSize - mPosition;
        if (n <= 0) {
            return 0;
        }
        std::memcpy(buffer, mData + mPosition, static_cast<std::size_t>(n));
        mPosition += n;
        return n;
    }
    long long write(unsigned char*, long long) override { return -1; }
    long long lseek(long long offset, unsigned char whence) override {
        const long long base = whence == 0 ? 0 : whence == 1 ? mPosition : mSize;
        if (offset < -base || offset > mSize - base) {
            return -1;
        }
        return mPosition = base + offset;
    }
    long long size() override { return mSize; }
    int getType() override { return 1; }
    ZR::RString getURI() override { return ZR::RString("memory:"); }

private:
    const std::uint8_t* mData;
    long long mSize;
    long long mPosition = 0;
};

#endif
