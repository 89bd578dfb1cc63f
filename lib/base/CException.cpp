#include <zr/CException.h>

#include <cstdio>

namespace ZR {

CException::CException(const char* typeName, int line, const char* file, const char* function,
                       const CString& message)
    : zrbase::e::base(message.c_str()),
      mTypeName(typeName),
      mLine(line),
      mFile(file),
      mFunction(function) {}

void CException::print() const {
    std::fprintf(stderr, "%s at %s:%d in %s: %s\n", mTypeName.c_str(), mFile.c_str(), mLine,
                 mFunction.c_str(), getMessage());
}

}  // namespace ZR
