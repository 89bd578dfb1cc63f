#include <cm/CMVersion.h>

namespace ZR {
namespace CM {

const char* version() {
    return CM_VERSION;
}

}  // namespace CM
}  // namespace ZR
