#include <zr/CException.h>

#include <cstdio>

namespace ZR {

CException::CException(const char* typeName, int line, const char* file, const char* function,
                       const CString& message)
    : mTypeName(typeName), mLine(line), mFile(file), mFunction(function), mMessage(message) {}

void CException::print() const {
    std::fprintf(stderr, "%s at %s:%d in %s: %s\n", mTypeName.c_str(), mFile.c_str(), mLine,
                 mFunction.c_str(), mMessage.c_str());
}

}  // namespace ZR
