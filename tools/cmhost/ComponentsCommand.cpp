// cmhost components [--kind KIND] [--check]
//
// Lists every component the manager found, by kind: name, directory, priority and file
// extensions (importers), and each object's format pairs with rates and channels. With
// --check it also looks again at every component directory the manager left out (it drops
// them silently) and says why: no info.xml, a parse or DTD error (libxml2's own message),
// or a kind element that does not match the directory's suffix.
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"

#include <dirent.h>
#include <libxml/parser.h>
#include <libxml/valid.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

namespace cmhost {

namespace {

// The kinds in the order the manager recognises directory names.
struct Kind {
    const char* word;     // --kind value and the directory suffix without its dot
    const char* suffix;   // ".importer"
    const char* element;  // the kind element of info.xml
    const char* heading;
};
const Kind kKinds[] = {
    {"importer", ".importer", "importer", "Importers"},
    {"decoder", ".decoder", "decompressor", "Decoders"},
    {"filter", ".filter", "filter", "Filters"},
    {"converter", ".converter", "converter", "Converters"},
    {"encoder", ".encoder", "compressor", "Encoders"},
    {"exporter", ".exporter", "exporter", "Exporters"},
    {"packetizer", ".packetizer", "packetizer", "Packetizers"},
};

std::string numbers(const std::vector<unsigned int>& values) {
    if (values.empty()) {
        return "any";
    }
    std::string text;
    for (const unsigned int v : values) {
        text += (text.empty() ? "" : ",") +
                (v == ZR::kAnyFourCC ? std::string("any") : std::to_string(v));
    }
    return text;
}

void printInfo(const ZR::CM::RComponentInfo& info) {
    std::printf("  %-20s %s\n", info.name.c_str(), info.directoryName.c_str());
    if (const auto* importer = dynamic_cast<const ZR::CM::RImporterInfo*>(&info)) {
        std::string extensions;
        for (const ZR::RString& e : importer->fileExtensions) {
            extensions += (extensions.empty() ? "" : ", ") + std::string(e.c_str());
        }
        std::printf("    priority %d, extensions: %s\n", importer->priority,
                    extensions.empty() ? "none" : extensions.c_str());
    }
    for (const ZR::CM::ComponentFormatItem& item : info.formatMap.getItems()) {
        std::printf("    %s -> %s  rates %s  channels %s  (%s)\n",
                    fourccText(item.inFormat).c_str(), fourccText(item.outFormat).c_str(),
                    numbers(item.rates).c_str(), numbers(item.channels).c_str(), item.name.c_str());
    }
}

// Collects libxml2's messages for one check.
struct Messages {
    std::string text;
    static void structured(void* self, const xmlError* error) {
        auto* messages = static_cast<Messages*>(self);
        std::string line = error->message ? error->message : "unknown error";
        while (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        if (error->line > 0) {
            line = "line " + std::to_string(error->line) + ": " + line;
        }
        messages->text += (messages->text.empty() ? "" : "; ") + line;
    }
    static void validity(void* self, const char* format, ...) {
        char buffer[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(buffer, sizeof buffer, format, args);
        va_end(args);
        std::string line = buffer;
        while (!line.empty() && line.back() == '\n') {
            line.pop_back();
        }
        auto* messages = static_cast<Messages*>(self);
        messages->text += (messages->text.empty() ? "" : "; ") + line;
    }
};

struct DocDeleter {
    void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
struct DtdDeleter {
    void operator()(xmlDtd* dtd) const { xmlFreeDtd(dtd); }
};

const xmlNode* lastElement(const xmlNode* parent) {
    const xmlNode* last = nullptr;
    for (const xmlNode* n = parent ? parent->children : nullptr; n; n = n->next) {
        if (n->type == XML_ELEMENT_NODE) {
            last = n;
        }
    }
    return last;
}

// Why the manager left this component directory out.
std::string diagnose(const std::string& directory, const Kind& kind, xmlDtd* dtd) {
    const std::string file = directory + "/info.xml";
    struct stat st;
    if (stat(file.c_str(), &st) != 0) {
        return "info.xml missing";
    }
    Messages messages;
    xmlSetStructuredErrorFunc(&messages,
                              reinterpret_cast<xmlStructuredErrorFunc>(&Messages::structured));
    std::unique_ptr<xmlDoc, DocDeleter> doc(xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET));
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    if (!doc) {
        return "parse error: " + messages.text;
    }
    if (!dtd) {
        return "no definition (info.dtd) to validate against";
    }
    xmlValidCtxt context{};
    context.userData = &messages;
    context.error = &Messages::validity;
    context.warning = &Messages::validity;
    if (!xmlValidateDtd(&context, doc.get(), dtd)) {
        return "does not validate against info.dtd: " + messages.text;
    }
    const xmlNode* kindElement = lastElement(xmlDocGetRootElement(doc.get()));
    const char* found = kindElement ? reinterpret_cast<const char*>(kindElement->name) : "none";
    if (std::strcmp(found, kind.element) != 0) {
        return std::string("kind element is <") + found + ">, the directory says <" + kind.element +
               ">";
    }
    return "rejected by the manager (its limits on size or format items)";
}

void check(const Host& host) {
    const std::string root = host.manager().getComponentDirectory().c_str();
    const std::string dtdPath =
        ZR::CM::sys_conf::instance().get_value("common.dtd-path", "") + "/info.dtd";
    std::unique_ptr<xmlDtd, DtdDeleter> dtd(
        xmlParseDTD(nullptr, reinterpret_cast<const xmlChar*>(dtdPath.c_str())));
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(root.c_str()), &closedir);
    if (!dir) {
        std::printf("component directory %s cannot be read\n", root.c_str());
        return;
    }
    int dropped = 0;
    while (const dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        for (const Kind& kind : kKinds) {
            if (name.find(kind.suffix) == std::string::npos) {
                continue;
            }
            bool listed = false;
            for (const auto* info : host.components(kind.word)) {
                listed = listed || name == info->directoryName.c_str();
            }
            if (!listed) {
                ++dropped;
                std::printf("  %s: %s\n", name.c_str(),
                            diagnose(root + "/" + name, kind, dtd.get()).c_str());
            }
            break;  // the first suffix decides, as for the manager
        }
    }
    if (dropped == 0) {
        std::printf("  every component directory was accepted\n");
    }
}

}  // namespace

std::string fourccText(unsigned int code) {
    if (code == ZR::kAnyFourCC) {
        return "any";
    }
    char text[16];
    const char chars[4] = {static_cast<char>(code >> 24), static_cast<char>(code >> 16),
                           static_cast<char>(code >> 8), static_cast<char>(code)};
    for (const char c : chars) {
        if (c < 32 || c > 126) {
            std::snprintf(text, sizeof text, "0x%08x", code);
            return text;
        }
    }
    return "'" + std::string(chars, 4) + "'";
}

int runComponents(const GlobalOptions& global, const Words& args) {
    const CommandLine line(args, {"--kind"}, {"--check", "--help"});
    if (line.has("--help")) {
        std::puts(
            "usage: cmhost components [--kind KIND] [--check]\n"
            "  lists the components found in the component directory, by kind\n"
            "  --kind KIND  only importer, decoder, filter, converter, encoder, exporter or "
            "packetizer\n"
            "  --check      also say why each component directory that was left out was "
            "rejected");
        return 0;
    }
    line.expectPositionalCount(0, 0);
    const std::string only = line.value("--kind");
    bool known = only.empty();
    for (const Kind& kind : kKinds) {
        known = known || only == kind.word;
    }
    if (!known) {
        throw UsageError("unknown kind " + only);
    }
    const Host host(global.config, global.verbose);
    std::printf("component directory: %s\n", host.manager().getComponentDirectory().c_str());
    for (const Kind& kind : kKinds) {
        if (!only.empty() && only != kind.word) {
            continue;
        }
        const auto infos = host.components(kind.word);
        std::printf("%s (%zu)\n", kind.heading, infos.size());
        for (const auto* info : infos) {
            printInfo(*info);
        }
    }
    if (line.has("--check")) {
        std::printf("Left out\n");
        check(host);
    }
    return 0;
}

}  // namespace cmhost
