#include <zr/ZRTypes.h>

#include <cstring>

namespace ZR {

unsigned int fourccFromText(const char* text) noexcept {
    unsigned int code = 0;
    bool ended = text == nullptr;
    for (int i = 0; i < 4; ++i) {
        ended = ended || text[i] == 0;
        code = code << 8 | (ended ? 0u : static_cast<unsigned char>(text[i]));
    }
    return code;
}

// strcmp compares as unsigned char, which is the order the parameter maps rely on.
bool lestr::operator()(const char* a, const char* b) const noexcept { return std::strcmp(a, b) < 0; }

}  // namespace ZR
