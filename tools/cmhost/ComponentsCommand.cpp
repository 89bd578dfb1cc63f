// cmhost components [--kind KIND] [--check]
//
// Lists every component the manager found, by kind: name, directory, priority and file
// extensions (importers), and each object's format pairs with rates and channels. With
// --check it is the install check: it looks again at every component directory the manager
// left out (it drops them silently) and says why (no info.xml, a parse or DTD error in
// libxml2's words, or a kind element that does not match the directory's suffix), and it
// loads every shared object a listed component names and says why one cannot serve (a
// missing file, the loader's message for a missing library or symbol, a missing entry
// point or one that makes no component). Anything found makes the exit status 1.
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"

#include <dirent.h>
#include <dlfcn.h>
#include <libxml/parser.h>
#include <libxml/valid.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <set>

namespace cmhost {

namespace {

const char kHelp[] =
    "usage: cmhost components [--kind KIND] [--check]\n"
    "\n"
    "  lists the components found in the component directory, by kind\n"
    "  --kind KIND  only importer, decoder, filter, converter, encoder, exporter or packetizer\n"
    "  --check      also say why each component directory that was left out was rejected,\n"
    "               load every component's shared objects and say why one cannot load;\n"
    "               the exit status is 1 when anything was left out or cannot load";

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
    const XmlMessages messages;
    std::unique_ptr<xmlDoc, DocDeleter> doc(xmlReadFile(file.c_str(), nullptr, XML_PARSE_NONET));
    if (!doc) {
        return "parse error: " + messages.summary();
    }
    if (!dtd) {
        return "no definition (info.dtd) to validate against";
    }
    xmlValidCtxt context{};
    if (!xmlValidateDtd(&context, doc.get(), dtd)) {
        return "does not validate against info.dtd: " + messages.summary();
    }
    const xmlNode* kindElement = lastElement(xmlDocGetRootElement(doc.get()));
    const char* found = kindElement ? reinterpret_cast<const char*>(kindElement->name) : "none";
    if (std::strcmp(found, kind.element) != 0) {
        return std::string("kind element is <") + found + ">, the directory says <" + kind.element +
               ">";
    }
    return "rejected by the manager (its limits on size or format items)";
}

// Why one shared object of a component cannot serve, or "" when it loads and its entry
// point makes a component. It is opened only for this check and closed again, where the
// manager would keep it for the life of the process. Every symbol is bound at once, so
// that a symbol the loader cannot resolve is reported here rather than ending a later run.
std::string moduleProblem(const std::string& path) {
    const std::string missing = whyUnreadable(path);
    if (!missing.empty()) {
        return path + ": " + missing;
    }
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* const why = dlerror();
        return why ? why : path + " cannot be loaded";
    }
    const std::unique_ptr<void, int (*)(void*)> closer(handle, &dlclose);
    using EntryPoint = ZR::CM::RComponent* (*)();
    const auto entry = reinterpret_cast<EntryPoint>(dlsym(handle, "getComponentInstance"));
    if (!entry) {
        return path + " has no entry point getComponentInstance";
    }
    try {
        // Released before the module is closed: its code is the component's.
        const ZR::RPtr<ZR::CM::RComponent> component(entry());
        if (!component) {
            return "getComponentInstance of " + path + " made no component";
        }
    } catch (const std::exception& e) {
        return "getComponentInstance of " + path + " failed: " + e.what();
    }
    return "";
}

// Why a component the manager listed cannot be loaded, or "" when every shared object it
// would load for one of its format pairs serves.
std::string loadProblem(const ZR::CM::RComponentInfo& info) {
    std::set<std::string> paths;
    for (const ZR::CM::ComponentFormatItem& item : info.formatMap.getItems()) {
        paths.insert(info.getComponentPath(item.inFormat, item.outFormat).c_str());
    }
    if (paths.empty()) {
        return "info.xml names no object to load";
    }
    for (const std::string& path : paths) {
        const std::string problem = moduleProblem(path);
        if (!problem.empty()) {
            return problem;
        }
    }
    return "";
}

bool selected(const Kind& kind, const std::string& only) {
    return only.empty() || only == kind.word;
}

// Says why each component directory of the selected kinds was left out; the number of them,
// or 1 when the component directory cannot be read.
int leftOut(const Host& host, const std::string& only) {
    const std::string root = host.manager().getComponentDirectory().c_str();
    const std::string dtdPath =
        ZR::CM::sys_conf::instance().get_value("common.dtd-path", "") + "/info.dtd";
    std::unique_ptr<xmlDtd, DtdDeleter> dtd(
        xmlParseDTD(nullptr, reinterpret_cast<const xmlChar*>(dtdPath.c_str())));
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(root.c_str()), &closedir);
    if (!dir) {
        std::printf("  %s\n", host.componentDirectoryProblem().c_str());
        return 1;
    }
    int problems = 0;
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
            if (!listed && selected(kind, only)) {
                ++problems;
                std::printf("  %s: %s\n", name.c_str(),
                            diagnose(root + "/" + name, kind, dtd.get()).c_str());
            }
            break;  // the first suffix decides, as for the manager
        }
    }
    return problems;
}

int cannotLoad(const Host& host, const std::string& only) {
    int problems = 0;
    for (const Kind& kind : kKinds) {
        if (!selected(kind, only)) {
            continue;
        }
        for (const auto* info : host.components(kind.word)) {
            const std::string problem = loadProblem(*info);
            if (!problem.empty()) {
                ++problems;
                std::printf("  %s: %s\n", info->directoryName.c_str(), problem.c_str());
            }
        }
    }
    return problems;
}

// The install check: 0 when every component directory was accepted and every component
// loads, 1 otherwise, with one line on standard error that says how many did not.
int check(const Host& host, const std::string& only) {
    std::printf("Left out\n");
    const int dropped = leftOut(host, only);
    std::printf("Cannot load\n");
    const int broken = cannotLoad(host, only);
    if (dropped == 0 && broken == 0) {
        std::printf("check: every component directory was accepted and every component loads\n");
        return 0;
    }
    std::fflush(stdout);
    std::fprintf(stderr, "cmhost: check failed: %d left out, %d cannot load\n", dropped, broken);
    return 1;
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
    const CommandLine line(args, kHelp, {"--kind"}, {"--check"});
    if (line.has("--help")) {
        std::puts(kHelp);
        return 0;
    }
    line.expectPositionals({});
    const std::string only = line.value("--kind");
    bool known = only.empty();
    for (const Kind& kind : kKinds) {
        known = known || only == kind.word;
    }
    if (!known) {
        throw line.error("unknown kind " + only);
    }
    const Host host(global.config, global.verbose);
    std::printf("component directory: %s\n", host.manager().getComponentDirectory().c_str());
    for (const Kind& kind : kKinds) {
        if (!selected(kind, only)) {
            continue;
        }
        const auto infos = host.components(kind.word);
        std::printf("%s (%zu)\n", kind.heading, infos.size());
        for (const auto* info : infos) {
            printInfo(*info);
        }
    }
    return line.has("--check") ? check(host, only) : 0;
}

}  // namespace cmhost
