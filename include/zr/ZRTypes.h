// Small helpers shared by every layer: four-character codes and the ordering of maps keyed
// by C strings.
#ifndef ZR_ZRTYPES_H
#define ZR_ZRTYPES_H

namespace ZR {

// "vide" -> 0x76696465: the first character is the most significant byte.
constexpr unsigned int fourcc(const char (&code)[5]) {
    return (static_cast<unsigned int>(static_cast<unsigned char>(code[0])) << 24) |
           (static_cast<unsigned int>(static_cast<unsigned char>(code[1])) << 16) |
           (static_cast<unsigned int>(static_cast<unsigned char>(code[2])) << 8) |
           static_cast<unsigned int>(static_cast<unsigned char>(code[3]));
}

// 0xFFFFFFFF stands for "any" in every format, kind and media field.
constexpr unsigned int kAnyFourCC = 0xFFFFFFFFu;

// The code of the first four characters of a text read from a file or a settings value.
// A shorter text counts as padded with zero bytes ("mp3" -> 0x6D703300, "" -> 0), so no byte
// past its terminating NUL is ever read; a null text gives 0.
unsigned int fourccFromText(const char* text) noexcept;

// Orders C strings by their text, byte by byte as unsigned characters.
struct lestr {
    bool operator()(const char* a, const char* b) const noexcept;
};

}  // namespace ZR

#endif
