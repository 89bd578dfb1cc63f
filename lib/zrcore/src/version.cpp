#include <zrcore/version.h>

namespace zrcore {

const char* version() {
    return CM_VERSION;
}

}  // namespace zrcore
