// ZR::CException, the exception the library throws for programming errors, exhausted
// memory and loader failures, and CExceptionHandlerP, the interface of an object that
// receives exceptions (threads and components).
//
// An exception records where it was thrown: the source path ("lib/cm/CMFrame"), the line
// and the full signature of the throwing function. ZR_THROW builds one at the throw site.
#ifndef ZR_CEXCEPTION_H
#define ZR_CEXCEPTION_H

#include <zr/CBuffer.h>

#include <exception>

namespace ZR {

class CException : public std::exception {
public:
    CException(const char* typeName, int line, const char* file, const char* function,
               const CString& message);

    const char* what() const noexcept override { return mMessage.c_str(); }

    const char* getTypeName() const noexcept { return mTypeName.c_str(); }
    int getLine() const noexcept { return mLine; }
    const char* getFile() const noexcept { return mFile.c_str(); }
    const char* getFunction() const noexcept { return mFunction.c_str(); }
    const char* getMessage() const noexcept { return mMessage.c_str(); }

    // Writes the exception to standard error.
    void print() const;

private:
    CString mTypeName;
    int mLine;
    CString mFile;
    CString mFunction;
    CString mMessage;
};

class CExceptionHandlerP {
public:
    virtual ~CExceptionHandlerP() = default;
    virtual void handleException(const CException& e) = 0;
};

}  // namespace ZR

// Throws a ZR::CException located at this line of `file` (a source path without suffix).
#define ZR_THROW(file, message) \
    throw ::ZR::CException("ZR::CException", __LINE__, file, __PRETTY_FUNCTION__, message)

#endif
