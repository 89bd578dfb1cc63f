#include <zrcore/version.h>

namespace zrcore {

const char* version() { return ZRCORE_VERSION; }

}  // namespace zrcore
