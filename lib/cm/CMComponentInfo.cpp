#include <cm/CMComponentInfo.h>

#include <cm/CMComponentManager.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/valid.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace ZR {
namespace CM {

namespace {

// Where a component's shared objects live inside its directory; set by the build.
constexpr char kPlatformDirectory[] = CM_PLATFORM_DIR;

struct Word {
    const char* text;
    unsigned int code;
};

constexpr Word kKindWords[] = {
    {"importer", fourcc("impt")},     {"compressor", fourcc("cmpr")}, {"converter", fourcc("conv")},
    {"decompressor", fourcc("dcmp")}, {"filter", fourcc("fltr")},     {"exporter", fourcc("expt")},
    {"packetizer", fourcc("pckt")},
};

constexpr Word kMediaWords[] = {
    {"video", fourcc("vide")}, {"audio", fourcc("audi")}, {"text", fourcc("text")},
    {"movie", fourcc("movi")}, {"any", kAnyFourCC},
};

// The code of text in table; 0 for a word the table does not know.
template <size_t N>
unsigned int codeOfWord(const Word (&table)[N], const char* text) {
    for (const Word& word : table) {
        if (std::strcmp(word.text, text) == 0) {
            return word.code;
        }
    }
    return 0;
}

constexpr struct {
    const char* element;
    unsigned int RComponentInfoBase::*field;
} kFourCCFields[] = {
    {"subType", &RComponentInfoBase::subType},
    {"vendor", &RComponentInfoBase::vendor},
    {"version", &RComponentInfoBase::version},
    {"componentFrameworkVersion", &RComponentInfoBase::componentFrameworkVersion},
};

struct DocDeleter {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
struct ValidCtxtDeleter {
    void operator()(xmlValidCtxt* context) const { xmlFreeValidCtxt(context); }
};
struct XmlCharDeleter {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : mFd(fd) {}
    ~FileDescriptor() {
        if (mFd >= 0) {
            ::close(mFd);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return mFd; }

private:
    int mFd;
};

// The validation context's error and warning callback: prints libxml2's message to the
// stream in the context's user data.
__attribute__((format(printf, 2, 3))) void printToStream(void* stream, const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::vfprintf(static_cast<FILE*>(stream), format, args);
    va_end(args);
}

// Opens info.xml for the parser; -1, with a line on standard error, when it cannot be
// opened or is not a regular file. A FIFO or a device could block the scan or never end:
// O_NONBLOCK keeps the open itself from waiting, and only a regular file is read.
int openInfoFile(const char* path) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status;
    if (fd < 0 || ::fstat(fd, &status) != 0) {
        std::fprintf(stderr, "%s: cannot open: %s\n", path, std::strerror(errno));
    } else if (!S_ISREG(status.st_mode)) {
        std::fprintf(stderr, "%s: not a regular file\n", path);
    } else {
        return fd;
    }
    if (fd >= 0) {
        ::close(fd);
    }
    return -1;
}

bool isNamed(const xmlNode* node, const char* name) {
    return xmlStrcmp(node->name, reinterpret_cast<const xmlChar*>(name)) == 0;
}

// The text an element carries: the content of its first child; null when it has none.
const char* textOf(const xmlNode* element) {
    const xmlNode* first = element->children;
    return first && first->content ? reinterpret_cast<const char*>(first->content) : nullptr;
}

// Calls visit(child) for each child element in document order, skipping text, comments and
// other nodes.
template <typename Visit>
void forEachElement(const xmlNode* parent, Visit visit) {
    for (const xmlNode* child = parent->children; child; child = child->next) {
        if (child->type == XML_ELEMENT_NODE) {
            visit(child);
        }
    }
}

// A decimal number in the manner of atoi, clamped into the int range instead of
// overflowing.
int decimalInt(const char* text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

// Fills the identity fields from the children of "common"; unknown children are ignored.
void loadCommon(RComponentInfoBase& info, const xmlNode* common) {
    forEachElement(common, [&info](const xmlNode* field) {
        const char* text = textOf(field);
        text = text ? text : "";
        if (isNamed(field, "name")) {
            info.name = text;
        } else if (isNamed(field, "type")) {
            info.type = codeOfWord(kKindWords, text);
        } else if (isNamed(field, "media")) {
            info.media = codeOfWord(kMediaWords, text);
        } else {
            for (const auto& fourCCField : kFourCCFields) {
                if (isNamed(field, fourCCField.element)) {
                    info.*fourCCField.field = fourccFromText(text);
                }
            }
        }
    });
}

// An object without children is any-to-same. That is also what the defaults below give for
// an empty list of children, even for an exporter (whose any output then equals the any
// input), so one path serves both.
void loadObject(RComponentInfo& info, const xmlNode* object) {
    const std::unique_ptr<xmlChar, XmlCharDeleter> attribute(
        xmlGetProp(object, reinterpret_cast<const xmlChar*>("name")));
    const RString objectName(attribute ? reinterpret_cast<const char*>(attribute.get()) : "");

    std::vector<unsigned int> inputs;
    std::vector<unsigned int> outputs;
    std::vector<unsigned int> rates;
    std::vector<unsigned int> channels;
    forEachElement(object, [&](const xmlNode* child) {
        const char* text = textOf(child);
        if (!text) {
            return;
        }
        if (isNamed(child, "in")) {
            inputs.push_back(fourccFromText(text));
        } else if (isNamed(child, "out")) {
            outputs.push_back(fourccFromText(text));
        } else if (isNamed(child, "rate")) {
            rates.push_back(static_cast<unsigned int>(std::strtol(text, nullptr, 10)));
        } else if (isNamed(child, "channel")) {
            channels.push_back(static_cast<unsigned int>(std::strtol(text, nullptr, 10)));
        }
    });
    if (inputs.empty()) {
        inputs.push_back(kAnyFourCC);
    }
    if (outputs.empty()) {
        // An exporter's output is a file, not a format derived from its input.
        outputs.push_back(info.type == fourcc("expt") ? kAnyFourCC : kSameFourCC);
    }
    if (rates.empty()) {
        rates.push_back(kAnyFourCC);
    }
    if (channels.empty()) {
        channels.push_back(kAnyFourCC);
    }

    for (const unsigned int in : inputs) {
        for (const unsigned int out : outputs) {
            info.formatMap.set(in, out, objectName, rates, channels);
        }
    }
}

}  // namespace

RComponentInfoBase::~RComponentInfoBase() = default;

RComponentInfo::RComponentInfo(const RString& directoryName) : directoryName(directoryName) {}

RComponentInfo::~RComponentInfo() = default;

int RComponentInfo::acceptKindElement(const _xmlNode* node, const char* word) {
    return node && isNamed(node, word) ? 0 : -1;
}

int RComponentInfo::loadInfoXML(_xmlDtd* dtd) {
    if (directoryName.getLength() == 0 || !dtd) {
        return -1;
    }
    const CString path = CString::createWithFormat(
        "%s/%s/info.xml", RComponentManager::getDefault()->getComponentDirectory().c_str(),
        directoryName.c_str());
    const FileDescriptor file(openInfoFile(path.c_str()));
    if (file.get() < 0) {
        return -1;
    }
    xmlInitParser();
    // The URL names the file in libxml2's messages; NONET keeps entities off the network.
    const std::unique_ptr<xmlDoc, DocDeleter> doc(
        xmlReadFd(file.get(), path.c_str(), nullptr, XML_PARSE_NONET));
    if (!doc) {
        return -1;
    }
    const std::unique_ptr<xmlValidCtxt, ValidCtxtDeleter> validation(xmlNewValidCtxt());
    if (!validation) {
        return -1;
    }
    validation->userData = stderr;
    validation->error = printToStream;
    validation->warning = printToStream;
    if (xmlValidateDtd(validation.get(), doc.get(), dtd) != 1) {
        return -1;
    }
    const xmlNode* root = xmlDocGetRootElement(doc.get());
    if (!root || !isNamed(root, "info")) {
        return -1;
    }

    int result = 0;
    for (xmlNode* child = root->children; child; child = child->next) {
        if (child->type != XML_ELEMENT_NODE) {
            continue;
        }
        if (isNamed(child, "common")) {
            loadCommon(*this, child);
        } else if (isNamed(child, "objects")) {
            forEachElement(child, [this](const xmlNode* object) {
                if (isNamed(object, "object")) {
                    loadObject(*this, object);
                }
            });
        } else {
            result = typeSpecificLoadXML(child);
        }
    }
    return result;
}

RString RComponentInfo::getComponentPath(unsigned int in, unsigned int out) const {
    // A pair no item serves has the empty object name of a default item; finding the item
    // rather than getting one spares making (and deleting) that default item.
    const ComponentFormatItem* item = formatMap.findFormatItem(in, out);
    return RString::createWithFormat(
        "%s/%s/%s/%s", RComponentManager::getDefault()->getComponentDirectory().c_str(),
        directoryName.c_str(), kPlatformDirectory, item ? item->name.c_str() : "");
}

RComponent* RComponentInfo::getComponentInstance(unsigned int in, unsigned int out) {
    return RComponentManager::getDefault()->loadComponent(this, in, out);
}

int RImporterInfo::typeSpecificLoadXML(_xmlNode* node) {
    if (!node || !isNamed(node, "importer")) {
        return 0;
    }
    forEachElement(node, [this](const xmlNode* section) {
        if (isNamed(section, "fileExtensions")) {
            forEachElement(section, [this](const xmlNode* extension) {
                const char* text = textOf(extension);
                if (text && isNamed(extension, "fileExtension")) {
                    fileExtensions.insert(RString(text));
                }
            });
        } else if (isNamed(section, "mimeTypes")) {
            forEachElement(section, [this](const xmlNode* mimeType) {
                if (const char* text = textOf(mimeType)) {
                    mimeTypes.insert(RString(text));
                }
            });
        } else if (isNamed(section, "priority")) {
            if (const char* text = textOf(section)) {
                priority = decimalInt(text);
            }
        }
    });
    return 0;
}

int RDecompressorInfo::typeSpecificLoadXML(_xmlNode* node) {
    return acceptKindElement(node, "decompressor");
}

int RCompressorInfo::typeSpecificLoadXML(_xmlNode* node) {
    return acceptKindElement(node, "compressor");
}

int RConverterInfo::typeSpecificLoadXML(_xmlNode* node) {
    return acceptKindElement(node, "converter");
}

int RFilterInfo::typeSpecificLoadXML(_xmlNode* node) {
    return acceptKindElement(node, "filter");
}

int RPacketizerInfo::typeSpecificLoadXML(_xmlNode* node) {
    return acceptKindElement(node, "packetizer");
}

int RExporterInfo::typeSpecificLoadXML(_xmlNode* node) {
    return acceptKindElement(node, "exporter");
}

bool RComponentInfoMatch::operator==(const RComponentInfo& info) const {
    constexpr unsigned int RComponentInfoBase::*kCodes[] = {
        &RComponentInfoBase::type,    &RComponentInfoBase::media,
        &RComponentInfoBase::subType, &RComponentInfoBase::vendor,
        &RComponentInfoBase::version, &RComponentInfoBase::componentFrameworkVersion,
    };
    for (const auto code : kCodes) {
        if (this->*code != kAnyFourCC && this->*code != info.*code) {
            return false;
        }
    }
    return info.formatMap.supportsFormats(inFormat, outFormat);
}

_xmlNode* xmlGetChildNodeByName(_xmlNode* parent, const char* name) {
    if (!parent || !name) {
        return nullptr;
    }
    for (xmlNode* child = parent->children; child; child = child->next) {
        if (child->name && std::strcmp(reinterpret_cast<const char*>(child->name), name) == 0) {
            return child;
        }
    }
    return nullptr;
}

namespace {

void writeTexts(CData& data, const std::set<RString>& texts) {
    data << static_cast<unsigned int>(texts.size());
    for (const RString& text : texts) {
        data << text;
    }
}

// Each text costs at least four bytes of stream, so a corrupt count ends the loop at the end
// of the stream.
void readTexts(CData& data, std::set<RString>& texts) {
    unsigned int count = 0;
    data >> count;
    for (unsigned int i = 0; i < count && !data.failed(); ++i) {
        RString text;
        data >> text;
        if (!data.failed()) {
            texts.insert(text);
        }
    }
}

}  // namespace

CData& operator<<(CData& data, const RComponentInfoBase& info) {
    return data << info.name << info.type << info.media << info.subType << info.vendor
                << info.version << info.componentFrameworkVersion;
}

CData& operator>>(CData& data, RComponentInfoBase& info) {
    return data >> info.name >> info.type >> info.media >> info.subType >> info.vendor >>
           info.version >> info.componentFrameworkVersion;
}

CData& operator<<(CData& data, const RComponentInfoMatch& match) {
    return data << static_cast<const RComponentInfoBase&>(match) << match.inFormat
                << match.outFormat;
}

CData& operator>>(CData& data, RComponentInfoMatch& match) {
    return data >> static_cast<RComponentInfoBase&>(match) >> match.inFormat >> match.outFormat;
}

CData& operator<<(CData& data, const RComponentInfo& info) {
    return data << static_cast<const RComponentInfoBase&>(info) << info.directoryName
                << info.formatMap;
}

CData& operator>>(CData& data, RComponentInfo& info) {
    return data >> static_cast<RComponentInfoBase&>(info) >> info.directoryName >> info.formatMap;
}

CData& operator<<(CData& data, const RImporterInfo& info) {
    data << static_cast<const RComponentInfo&>(info);
    writeTexts(data, info.fileExtensions);
    writeTexts(data, info.mimeTypes);
    return data;
}

CData& operator>>(CData& data, RImporterInfo& info) {
    data >> static_cast<RComponentInfo&>(info);
    readTexts(data, info.fileExtensions);
    readTexts(data, info.mimeTypes);
    return data;
}

}  // namespace CM
}  // namespace ZR
