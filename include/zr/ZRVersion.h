// The version of libzr as built: the library answers for itself, so a program can tell
// which library the loader actually gave it, whatever headers it was compiled against.
#ifndef ZR_ZRVERSION_H
#define ZR_ZRVERSION_H

namespace ZR {

// "MAJOR.MINOR.PATCH"; a static string.
const char* version();

}  // namespace ZR

#endif
