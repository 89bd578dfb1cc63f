#include <zrbase/exception.h>

#include <zrbase/string_with_format.h>

#include <cstring>

namespace zrbase {
namespace e {

namespace {

std::string describe(int error, const char* file, unsigned line, const char* detail) {
    std::string text = string_with_format("%s:%u: %s", file ? file : "?", line, std::strerror(error));
    if (detail) {
        text += ": ";
        text += detail;
    }
    return text;
}

}  // namespace

call::call(int error, const char* file, unsigned line, const char* detail)
    : base(describe(error, file, line, detail)),
      m_error(error),
      m_file(file ? file : ""),
      m_line(line) {}

void call::raise(int error, const char* file, unsigned line, const char* detail) {
    throw call(error, file, line, detail);
}

}  // namespace e
}  // namespace zrbase
