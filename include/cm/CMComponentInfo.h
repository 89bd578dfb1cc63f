// Component information: what an installed component is, read from the info.xml in its
// directory below the component directory.
//
// RComponentInfoBase holds the identity codes shared with queries; RComponentInfo adds the
// component's directory name, its format object map and a status record, and loads itself
// from info.xml after validating it against the document type definition the caller loaded
// (the project's own is data/info.dtd). Each kind of component has a class of its own that
// reads the kind element of the document; only the importer's carries data. A
// RComponentInfoMatch is a query that compares itself with an info.
//
// Every FourCC field holds kAnyFourCC (0xFFFFFFFF, "any") until it is loaded. Infos are
// built and loaded on one thread (the component manager's scan) and read-only afterwards;
// they are shared through ZR::RPtr.
#ifndef CM_CMCOMPONENTINFO_H
#define CM_CMCOMPONENTINFO_H

#include <cm/CMComponentStatus.h>
#include <cm/CMFormatObjectMap.h>
#include <zr/CBuffer.h>
#include <zr/CData.h>
#include <zr/ZRTypes.h>
#include <zrbase/object_refcount.h>

#include <set>

// libxml2's tree types; including <cm/CMComponentInfo.h> does not pull in libxml2.
struct _xmlNode;
struct _xmlDtd;

namespace ZR {
namespace CM {

class RComponent;

class RComponentInfoBase : public zrbase::object_refcount {
public:
    RComponentInfoBase() = default;
    ~RComponentInfoBase() override;

    RString name;
    unsigned int type = kAnyFourCC;   // kind: "impt", "dcmp", ... (0 for an unknown word)
    unsigned int media = kAnyFourCC;  // "vide", "audi", "text", "movi" (0 for an unknown word)
    unsigned int subType = kAnyFourCC;
    unsigned int vendor = kAnyFourCC;
    unsigned int version = kAnyFourCC;
    unsigned int componentFrameworkVersion = kAnyFourCC;
};

class RComponentInfo : public RComponentInfoBase {
public:
    RComponentInfo() = default;
    explicit RComponentInfo(const RString& directoryName);
    ~RComponentInfo() override;

    // Reads the kind element of info.xml (the root's child that is neither "common" nor
    // "objects"): 0 when this kind accepts it, -1 otherwise.
    virtual int typeSpecificLoadXML(_xmlNode* node) = 0;

    // Where the component's shared objects are:
    // `<component directory>/directoryName/<os>/<cpu>/<object>`, with the default manager's
    // component directory and the object that the format map's getFormatItem() chooses for
    // (in, out). The object name is empty when no item serves the pair.
    virtual RString getComponentPath(unsigned int in, unsigned int out) const;

    // A new component of this info's object for (in, out), loaded by the default manager
    // (RComponentManager::loadComponent(), which may throw); the caller owns one reference.
    virtual RComponent* getComponentInstance(unsigned int in, unsigned int out);

    // Loads `<component directory>/directoryName/info.xml`, with the default manager's
    // component directory, after validating it against dtd.
    // Returns -1 when there is no directory name or no definition, when the file cannot be
    // opened or is not a regular file (a FIFO would block the scan), when it does not parse
    // or validate, or when its root is not "info"; otherwise the result of the last
    // typeSpecificLoadXML() (0 when the document has no kind element). A file of any size
    // with any number of objects and formats is read whole. libxml2's parse and validation
    // messages, and a line for each failure of our own, go to standard error.
    int loadInfoXML(_xmlDtd* dtd);

    RString directoryName;  // below the component directory
    RFormatObjectMap formatMap;
    CComponentStatus status;

protected:
    // For kinds whose element carries nothing: 0 when node is named word, else -1.
    static int acceptKindElement(const _xmlNode* node, const char* word);
};

class RImporterInfo : public RComponentInfo {
public:
    using RComponentInfo::RComponentInfo;

    // Takes file extensions, MIME types and priority from an "importer" element. Any
    // element is accepted, even one of another name: always 0.
    int typeSpecificLoadXML(_xmlNode* node) override;

    // Higher priority first: true when this priority is greater than other's.
    bool operator<(const RImporterInfo& other) const { return priority > other.priority; }

    std::set<RString> fileExtensions;
    std::set<RString> mimeTypes;
    int priority = 100;
};

class RDecompressorInfo : public RComponentInfo {
public:
    using RComponentInfo::RComponentInfo;
    int typeSpecificLoadXML(_xmlNode* node) override;  // "decompressor"
};

class RCompressorInfo : public RComponentInfo {
public:
    using RComponentInfo::RComponentInfo;
    int typeSpecificLoadXML(_xmlNode* node) override;  // "compressor"
};

class RConverterInfo : public RComponentInfo {
public:
    using RComponentInfo::RComponentInfo;
    int typeSpecificLoadXML(_xmlNode* node) override;  // "converter"
};

class RFilterInfo : public RComponentInfo {
public:
    using RComponentInfo::RComponentInfo;
    int typeSpecificLoadXML(_xmlNode* node) override;  // "filter"
};

class RPacketizerInfo : public RComponentInfo {
public:
    using RComponentInfo::RComponentInfo;
    int typeSpecificLoadXML(_xmlNode* node) override;  // "packetizer"
};

class RExporterInfo : public RComponentInfo {
public:
    using RComponentInfo::RComponentInfo;
    int typeSpecificLoadXML(_xmlNode* node) override;  // "exporter"
};

// A query for components. kAnyFourCC in a field matches every value; the name is not
// compared.
class RComponentInfoMatch : public RComponentInfoBase {
public:
    RComponentInfoMatch() = default;

    // True when every code of the query is any or equal to the info's, and the info's
    // format map supports (inFormat, outFormat).
    bool operator==(const RComponentInfo& info) const;

    unsigned int inFormat = kAnyFourCC;
    unsigned int outFormat = kAnyFourCC;
};

// The first child of parent whose name is name byte for byte, whatever its node type; null
// when either is null or no child matches.
_xmlNode* xmlGetChildNodeByName(_xmlNode* parent, const char* name);

// Stream forms, every integer 32-bit big-endian. The base: name, type, media, subType,
// vendor, version, componentFrameworkVersion. A match adds inFormat and outFormat. An info
// adds its directory name and its format map (not its status); an importer info then adds
// the count and the texts of its file extensions and of its MIME types (not its priority).
// Every other kind travels in the info's form. Reading overwrites the fields, appends to the
// format map and adds to the sets; it stops where the stream runs out (data.failed()).
CData& operator<<(CData& data, const RComponentInfoBase& info);
CData& operator>>(CData& data, RComponentInfoBase& info);
CData& operator<<(CData& data, const RComponentInfoMatch& match);
CData& operator>>(CData& data, RComponentInfoMatch& match);
CData& operator<<(CData& data, const RComponentInfo& info);
CData& operator>>(CData& data, RComponentInfo& info);
CData& operator<<(CData& data, const RImporterInfo& info);
CData& operator>>(CData& data, RImporterInfo& info);

}  // namespace CM
}  // namespace ZR

#endif
