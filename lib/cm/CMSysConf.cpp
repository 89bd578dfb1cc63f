#include <cm/CMSysConf.h>

#include <libxml/parser.h>
#include <libxml/xmlreader.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <sstream>

namespace ZR {
namespace CM {

namespace {

enum ReaderNode { kElement = 1, kText = 3, kEndElement = 15 };

struct ReaderDeleter {
    void operator()(xmlTextReaderPtr reader) const { xmlFreeTextReader(reader); }
};
struct XmlCharDeleter {
    void operator()(xmlChar* text) const { xmlFree(text); }
};
using ReaderPtr = std::unique_ptr<xmlTextReader, ReaderDeleter>;
using XmlText = std::unique_ptr<xmlChar, XmlCharDeleter>;

const char* text_of(const XmlText& text) {
    return text ? reinterpret_cast<const char*>(text.get()) : "";
}

template <typename T>
std::string stream_text(T value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

}  // namespace

sys_conf& sys_conf::instance() {
    static sys_conf the_instance;
    return the_instance;
}

void sys_conf::clear() {
    m_values.clear();
    m_root.clear();
    m_loaded = false;
}

std::string sys_conf::expand_root(const char* text) const {
    if (text[0] == '@') {
        return m_root + (text + 1);
    }
    return text;
}

bool sys_conf::load_file(const char* path, const char* root) {
    if (m_loaded) {
        return true;
    }
    m_root = root ? root : "";
    const std::string file = expand_root(path ? path : "");
    ReaderPtr reader(xmlNewTextReaderFilename(file.c_str()));
    if (!reader) {
        return false;
    }
    if (m_validation) {
        xmlTextReaderSetParserProp(reader.get(), XML_PARSER_VALIDATE, 1);
    }

    std::string key;
    int status;
    while ((status = xmlTextReaderRead(reader.get())) == 1) {
        // The reader reports validity errors but reads on; an invalid document fails the
        // load at its first error, like a parse error.
        if (m_validation && xmlTextReaderIsValid(reader.get()) == 0) {
            status = -1;
            break;
        }
        const int depth = xmlTextReaderDepth(reader.get());
        switch (xmlTextReaderNodeType(reader.get())) {
            case kElement: {
                if (depth == 0) {
                    break;  // the root element names no key
                }
                const XmlText name(xmlTextReaderName(reader.get()));
                key = depth == 1 ? text_of(name) : key + "." + text_of(name);
                break;
            }
            case kEndElement: {
                if (depth >= 1) {
                    const size_t dot = key.rfind('.');
                    key.erase(dot == std::string::npos ? 0 : dot);
                }
                break;
            }
            case kText: {
                const XmlText value(xmlTextReaderValue(reader.get()));
                append_value(key.c_str(), text_of(value));
                break;
            }
            default:
                break;
        }
    }
    if (status != 0) {
        return false;
    }
    reader.reset();
    xmlCleanupParser();
    m_loaded = true;
    return true;
}

const std::string* sys_conf::find(const char* key) const {
    const auto found = m_values.find(key ? key : "");
    if (found == m_values.end() || found->second.empty()) {
        return nullptr;
    }
    return &found->second;
}

std::string sys_conf::get_value(const char* key, const char* def) const {
    const std::string* value = find(key);
    return value ? *value : std::string(def ? def : "");
}

int sys_conf::get_int(const char* key, int def) const {
    const std::string* value = find(key);
    return value ? static_cast<int>(std::strtol(value->c_str(), nullptr, 10)) : def;
}

bool sys_conf::get_bool(const char* key, bool def) const {
    const std::string* value = find(key);
    if (!value) {
        return def;
    }
    return *value == "true" || *value == "yes" || *value == "1" || *value == "on";
}

float sys_conf::get_float(const char* key, float def) const {
    const std::string* value = find(key);
    return value ? std::strtof(value->c_str(), nullptr) : def;
}

unsigned int sys_conf::get_fourcc(const char* key, const char* def) const {
    const std::string* value = find(key);
    const std::string text = value ? *value : std::string(def ? def : "");
    if (text.size() != 4) {
        return 0;
    }
    unsigned int code = 0;
    for (const char c : text) {
        code = code << 8 | static_cast<unsigned char>(c);
    }
    return code;
}

void sys_conf::get_array(std::vector<std::string>& out, const char* key, char separator) const {
    const auto found = m_values.find(key ? key : "");
    if (found == m_values.end()) {
        return;
    }
    const std::string& value = found->second;
    size_t start = 0;
    for (size_t end; (end = value.find(separator, start)) != std::string::npos; start = end + 1) {
        out.push_back(value.substr(start, end - start));
    }
    if (start < value.size()) {
        out.push_back(value.substr(start));
    }
}

void sys_conf::set_value(const char* key, const char* value) {
    m_values[key ? key : ""] = value ? value : "";
}

void sys_conf::set_bool(const char* key, bool value) { set_value(key, value ? "true" : "false"); }

void sys_conf::set_int(const char* key, int value) { set_value(key, stream_text(value).c_str()); }

void sys_conf::set_float(const char* key, float value) {
    set_value(key, stream_text(value).c_str());
}

void sys_conf::set_fourcc(const char* key, int code) {
    const unsigned int bits = static_cast<unsigned int>(code);
    const char text[5] = {static_cast<char>(bits >> 24), static_cast<char>(bits >> 16),
                          static_cast<char>(bits >> 8), static_cast<char>(bits), 0};
    m_values[key ? key : ""] = std::string(text, 4);
}

void sys_conf::append_value(const char* key, const char* value) {
    const std::string text = expand_root(value ? value : "");
    std::string& stored = m_values[key ? key : ""];
    if (stored.empty()) {
        stored = text;
    } else {
        stored += ";" + text;
    }
}

void itoa(int value, char* buffer) {
    // Work on the magnitude as unsigned so that INT_MIN has one too.
    unsigned int magnitude = value < 0 ? 0u - static_cast<unsigned int>(value)
                                       : static_cast<unsigned int>(value);
    char* p = buffer;
    do {
        *p++ = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (value < 0) {
        *p++ = '-';
    }
    *p = 0;
    std::reverse(buffer, p);
}

}  // namespace CM
}  // namespace ZR
