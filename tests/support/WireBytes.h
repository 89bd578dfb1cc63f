// Expected bytes of a ZR::CData stream, built the way the stream writes them: 32- and 64-bit
// big-endian numbers, and strings as their size (NUL included), their text and the NUL.
// Also a readable form of FourCC codes for comparing lists of them.
#ifndef CM_TESTS_SUPPORT_WIREBYTES_H
#define CM_TESTS_SUPPORT_WIREBYTES_H

#include <zr/CBuffer.h>

#include <zr/ZRTypes.h>

#include <cstring>
#include <string>
#include <vector>

namespace cmtest {

struct Wire {
    Wire& u32(unsigned int value) {
        for (const int shift : {24, 16, 8, 0}) {
            bytes.push_back(static_cast<unsigned char>(value >> shift));
        }
        return *this;
    }
    Wire& u64(unsigned long long value) {
        return u32(static_cast<unsigned int>(value >> 32)).u32(static_cast<unsigned int>(value));
    }
    Wire& str(const char* text) {
        const size_t size = std::strlen(text) + 1;
        u32(static_cast<unsigned int>(size));
        bytes.insert(bytes.end(), text, text + size);
        return *this;
    }
    Wire& append(const Wire& more) {
        bytes.insert(bytes.end(), more.bytes.begin(), more.bytes.end());
        return *this;
    }
    std::vector<unsigned char> bytes;
};

inline std::vector<unsigned char> bytesOf(const ZR::CBuffer& buffer) {
    return std::vector<unsigned char>(buffer.getData(), buffer.getData() + buffer.getSize());
}

// "avc1"; "*" for any; bytes that are not printable show as ".".
inline std::string fourccName(unsigned int code) {
    if (code == ZR::kAnyFourCC) {
        return "*";
    }
    std::string name;
    for (const int shift : {24, 16, 8, 0}) {
        const char c = static_cast<char>(code >> shift);
        name += c >= ' ' && c <= '~' ? c : '.';
    }
    return name;
}

}  // namespace cmtest

#endif
