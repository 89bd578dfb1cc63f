#include <zrcore/reader.h>

namespace zrcore {

reader::~reader() = default;

}  // namespace zrcore
