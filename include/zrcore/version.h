// The version of the libraries, as built.
#ifndef ZRCORE_VERSION_H
#define ZRCORE_VERSION_H

namespace zrcore {

// "MAJOR.MINOR.PATCH" of the installed libraries.
const char* version();

}  // namespace zrcore

#endif
