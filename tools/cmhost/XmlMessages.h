// XmlMessages: libxml2's diagnostics taken as data instead of lines on standard error.
//
// While an XmlMessages lives, libxml2 hands every message raised on the thread that made it
// (libxml2's handlers are per thread) to the object: the host builds its own one-line
// errors from them and sends the raw ones to the log. The handler it replaced is put back
// when it ends, so they nest. Made, used and destroyed on one thread.
#ifndef CMHOST_XMLMESSAGES_H
#define CMHOST_XMLMESSAGES_H

#include <cm/CMLogger.h>
#include <libxml/xmlerror.h>

#include <string>
#include <vector>

namespace cmhost {

class XmlMessages {
public:
    struct Message {
        std::string text;   // one line, without libxml2's trailing newline
        std::string file;   // the document being read, "" when libxml2 names none
        std::string about;  // what the message is about (the entity that failed to load)
        int line;
        int domain;  // libxml2's xmlErrorDomain and xmlParserErrors
        int code;
        bool warning;
    };

    XmlMessages();
    ~XmlMessages();
    XmlMessages(const XmlMessages&) = delete;
    XmlMessages& operator=(const XmlMessages&) = delete;

    const std::vector<Message>& messages() const { return mMessages; }
    // The first message that is not a warning, or null.
    const Message* firstError() const;
    // Every message as describe() gives it, joined by "; ".
    std::string summary() const;
    // Logs every message (errors at kLogError, warnings at kLogWarning) and forgets them.
    void logTo(ZR::CM::RLogger& logger);

    // "line N: text", or the text alone when libxml2 gives no line.
    static std::string describe(const Message& message);

private:
    xmlStructuredErrorFunc mPrevious;
    void* mPreviousContext;
    std::vector<Message> mMessages;
};

}  // namespace cmhost

#endif
