#include <zr/ZRVersion.h>

namespace ZR {

const char* version() {
    return CM_VERSION;
}

}  // namespace ZR
