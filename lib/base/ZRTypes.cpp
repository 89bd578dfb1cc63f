#include <zr/ZRTypes.h>

#include <cstring>

namespace ZR {

// strcmp compares as unsigned char, which is the order the parameter maps rely on.
bool lestr::operator()(const char* a, const char* b) const noexcept { return std::strcmp(a, b) < 0; }

}  // namespace ZR
