#include <zrcore/plugin.h>

namespace zrcore {

plugin::~plugin() = default;

}  // namespace zrcore
