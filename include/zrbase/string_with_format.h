// printf-style formatting into a std::string.
#ifndef ZRBASE_STRING_WITH_FORMAT_H
#define ZRBASE_STRING_WITH_FORMAT_H

#include <cstdarg>
#include <string>

namespace zrbase {

std::string string_with_format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string string_with_vformat(const char* format, va_list args);

}  // namespace zrbase

#endif
