#include <zrbase/stream.h>

namespace zrbase {
namespace stream {

rd::~rd() = default;
ra::~ra() = default;
wr::~wr() = default;

unsigned int rda::peek(void* buffer, unsigned int count) const {
    const unsigned int got = read(buffer, count);
    seek(-static_cast<long long>(got), seek_current);
    return got;
}

long long rwa::tell() const {
    return seek(0, seek_current);
}

long long rwa::size() const {
    const long long here = tell();
    const long long end = seek(0, seek_end);
    seek(here, seek_begin);
    return end;
}

}  // namespace stream
}  // namespace zrbase
