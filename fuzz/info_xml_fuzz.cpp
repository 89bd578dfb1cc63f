// Loading a component's info.xml. The first byte picks the kind of info (importer, which
// reads its kind element, or a filter) and the document type: the project's own, or a
// lenient one that admits any content in every element, so that documents the strict
// definition would turn away still reach the loader's own checks. The rest is the file.
#include <cm/CMComponentInfo.h>
#include <cm/CMComponentManager.h>
#include <zr/RPtr.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/valid.h>

#include <sys/stat.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char kLenientDtd[] =
    "<!ELEMENT info ANY><!ELEMENT common ANY><!ELEMENT name ANY><!ELEMENT type ANY>"
    "<!ELEMENT media ANY><!ELEMENT subType ANY><!ELEMENT vendor ANY><!ELEMENT version ANY>"
    "<!ELEMENT componentFrameworkVersion ANY><!ELEMENT objects ANY><!ELEMENT object ANY>"
    "<!ATTLIST object name CDATA #IMPLIED><!ELEMENT in ANY><!ELEMENT out ANY>"
    "<!ELEMENT rate ANY><!ELEMENT channel ANY><!ELEMENT importer ANY>"
    "<!ELEMENT fileExtensions ANY><!ELEMENT fileExtension ANY><!ELEMENT mimeTypes ANY>"
    "<!ELEMENT mimeType ANY><!ELEMENT priority ANY><!ELEMENT filter ANY>";

void ignoreXmlMessage(void*, const char*, ...) {}

xmlDtd* dtdFromFile(const std::string& path) {
    xmlDtd* dtd = xmlParseDTD(nullptr, reinterpret_cast<const xmlChar*>(path.c_str()));
    if (!dtd) {
        std::fprintf(stderr, "info_xml_fuzz: cannot read %s\n", path.c_str());
        std::abort();
    }
    return dtd;
}

// A component directory in the temporary directory with one component, "fuzz", whose
// info.xml each input overwrites; both document types, parsed once.
struct Fixture {
    std::string infoPath;
    xmlDtd* strict = nullptr;
    xmlDtd* lenient = nullptr;

    Fixture() {
        char pattern[] = "/tmp/info_xml_fuzz.XXXXXX";
        const char* root = mkdtemp(pattern);
        if (!root) {
            std::abort();
        }
        const std::string directory = std::string(root) + "/fuzz";
        mkdir(directory.c_str(), 0700);
        infoPath = directory + "/info.xml";
        ZR::CM::RComponentManager::getDefault()->setComponentDirectory(ZR::CString(root));
        xmlSetGenericErrorFunc(nullptr, ignoreXmlMessage);
        strict = dtdFromFile(CM_SOURCE_DIR "/data/info.dtd");
        const std::string lenientPath = std::string(root) + "/lenient.dtd";
        writeFile(lenientPath, reinterpret_cast<const unsigned char*>(kLenientDtd),
                  sizeof kLenientDtd - 1);
        lenient = dtdFromFile(lenientPath);
    }

    static void writeFile(const std::string& path, const unsigned char* bytes, std::size_t size) {
        std::FILE* file = std::fopen(path.c_str(), "wb");
        if (!file || std::fwrite(bytes, 1, size, file) != size || std::fclose(file) != 0) {
            std::abort();
        }
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Fixture fixture;
    if (size == 0) {
        return 0;
    }
    Fixture::writeFile(fixture.infoPath, data + 1, size - 1);
    xmlDtd* dtd = data[0] & 1 ? fixture.lenient : fixture.strict;
    ZR::RPtr<ZR::CM::RComponentInfo> info;
    if (data[0] & 2) {
        info = new ZR::CM::RFilterInfo(ZR::RString("fuzz"));
    } else {
        info = new ZR::CM::RImporterInfo(ZR::RString("fuzz"));
    }
    if (info->loadInfoXML(dtd) != 0) {
        return 0;
    }
    info->getComponentPath(ZR::kAnyFourCC, ZR::kAnyFourCC);
    info->formatMap.supportsFormats(ZR::fourcc("lpcm"), ZR::kAnyFourCC);
    // A loaded info travels: its stream form must read back into one that writes the same.
    ZR::CData first;
    first << *info;
    first.rewind();
    ZR::RPtr<ZR::CM::RComponentInfo> copy(new ZR::CM::RFilterInfo());
    first >> *copy;
    ZR::CData second;
    second << *copy;
    if (first.failed() || first.getSize() != second.getSize() ||
        std::memcmp(first.getData(), second.getData(), static_cast<std::size_t>(first.getSize())) !=
            0) {
        std::abort();
    }
    return 0;
}
