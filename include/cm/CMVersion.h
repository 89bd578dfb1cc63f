// The version of libcm as built: the library answers for itself, so a host can tell which
// library the loader actually gave it, whatever headers it was compiled against.
#ifndef CM_CMVERSION_H
#define CM_CMVERSION_H

namespace ZR {
namespace CM {

// "MAJOR.MINOR.PATCH"; a static string.
const char* version();

}  // namespace CM
}  // namespace ZR

#endif
