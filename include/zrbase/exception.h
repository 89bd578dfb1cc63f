// Exceptions of the zrbase layer. e::base is the root: a text that says what failed.
// e::call is a failed system call with its errno and the source place that made it; the
// file primitive raises one on every failed call through e::call::raise.
#ifndef ZRBASE_EXCEPTION_H
#define ZRBASE_EXCEPTION_H

#include <exception>
#include <string>

namespace zrbase {
namespace e {

class base : public std::exception {
public:
    explicit base(std::string text) : m_text(std::move(text)) {}
    const char* what() const noexcept override { return m_text.c_str(); }
    const std::string& description() const noexcept { return m_text; }

private:
    std::string m_text;
};

class call : public base {
public:
    call(int error, const char* file, unsigned line, const char* detail);

    // Throws a call for `error` (an errno value) raised at file:line; detail may be null.
    [[noreturn]] static void raise(int error, const char* file, unsigned line,
                                   const char* detail);

    int error() const noexcept { return m_error; }
    const char* file() const noexcept { return m_file.c_str(); }
    unsigned line() const noexcept { return m_line; }

private:
    int m_error;
    std::string m_file;
    unsigned m_line;
};

}  // namespace e
}  // namespace zrbase

#endif
