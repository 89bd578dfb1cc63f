// ZR::CException, the exception the library throws for programming errors, exhausted
// memory and loader failures, and CExceptionHandlerP, the interface of an object that
// receives exceptions (threads and components).
//
// An exception records where it was thrown: the source path ("lib/cm/CMFrame"), the line
// and the full signature of the throwing function. ZR_THROW builds one at the throw site.
// It is a zrbase::e::base whose description is the message, so that code that reports
// any failure of the base library by its description (the stream factory does) reports
// these too.
#ifndef ZR_CEXCEPTION_H
#define ZR_CEXCEPTION_H

#include <zr/CBuffer.h>
#include <zrbase/exception.h>

namespace ZR {

class CException : public zrbase::e::base {
public:
    CException(const char* typeName, int line, const char* file, const char* function,
               const CString& message);

    const char* getTypeName() const noexcept { return mTypeName.c_str(); }
    int getLine() const noexcept { return mLine; }
    const char* getFile() const noexcept { return mFile.c_str(); }
    const char* getFunction() const noexcept { return mFunction.c_str(); }
    const char* getMessage() const noexcept { return description().c_str(); }

    // Writes the exception to standard error.
    void print() const;

private:
    CString mTypeName;
    int mLine;
    CString mFile;
    CString mFunction;
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
