#include <zrbase/string_with_format.h>

#include <cstdio>

namespace zrbase {

std::string string_with_vformat(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, format, args);
    std::string text;
    if (length > 0) {
        text.resize(static_cast<size_t>(length));
        std::vsnprintf(&text[0], text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

std::string string_with_format(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = string_with_vformat(format, args);
    va_end(args);
    return text;
}

}  // namespace zrbase
