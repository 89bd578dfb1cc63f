#include "XmlMessages.h"

#include <libxml/globals.h>

namespace cmhost {

std::string XmlMessages::describe(const Message& message) {
    return message.line > 0 ? "line " + std::to_string(message.line) + ": " + message.text
                            : message.text;
}

XmlMessages::XmlMessages()
    : mPrevious(xmlStructuredError), mPreviousContext(xmlStructuredErrorContext) {
    // Generic, so that it converts to the handler type of any libxml2 version (its error
    // parameter became const in 2.12).
    xmlSetStructuredErrorFunc(this, [](void* self, auto error) {
        std::string text = error->message ? error->message : "unknown error";
        while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
            text.pop_back();
        }
        static_cast<XmlMessages*>(self)->mMessages.push_back(
            {text, error->file ? error->file : "", error->str1 ? error->str1 : "", error->line,
             error->domain, error->code, error->level == XML_ERR_WARNING});
    });
}

XmlMessages::~XmlMessages() {
    xmlSetStructuredErrorFunc(mPreviousContext, mPrevious);
}

const XmlMessages::Message* XmlMessages::firstError() const {
    for (const Message& message : mMessages) {
        if (!message.warning) {
            return &message;
        }
    }
    return nullptr;
}

std::string XmlMessages::summary() const {
    std::string text;
    for (const Message& message : mMessages) {
        text += (text.empty() ? "" : "; ") + describe(message);
    }
    return text;
}

void XmlMessages::logTo(ZR::CM::RLogger& logger) {
    for (const Message& message : mMessages) {
        const std::string place =
            message.file.empty() ? "" : message.file + ":" + std::to_string(message.line) + ": ";
        logger.logf(message.warning ? ZR::CM::kLogWarning : ZR::CM::kLogError, "libxml2: %s%s",
                    place.c_str(), message.text.c_str());
    }
    mMessages.clear();
}

}  // namespace cmhost
