// The version of libzrcore as built: the library answers for itself, so a program can tell
// which library the loader actually gave it, whatever headers it was compiled against.
#ifndef ZRCORE_VERSION_H
#define ZRCORE_VERSION_H

namespace zrcore {

// "MAJOR.MINOR.PATCH"; a static string.
const char* version();

}  // namespace zrcore

#endif
