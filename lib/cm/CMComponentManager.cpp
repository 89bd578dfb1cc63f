#include <cm/CMComponentManager.h>

#include <cm/CMComponent.h>
#include <cm/CMSysConf.h>
#include <zr/CException.h>
#include <zr/ZRTypes.h>

#include <dirent.h>
#include <dlfcn.h>
#include <libxml/tree.h>
#include <libxml/uri.h>
#include <libxml/xmlmemory.h>

#include <cstring>
#include <memory>
#include <string>

namespace ZR {
namespace CM {

namespace {

constexpr char kSourceFile[] = "lib/cm/CMComponentManager";

// The two loader failures carry the line numbers that hosts and their logs have always
// seen for them, whatever the layout of this file.
constexpr int kOpenFailedLine = 369;
constexpr int kEntryPointMissingLine = 390;

constexpr char kEntryPoint[] = "getComponentInstance";

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
struct DtdDeleter {
    void operator()(xmlDtd* dtd) const { xmlFreeDtd(dtd); }
};
struct XmlCharDeleter {
    void operator()(xmlChar* text) const { xmlFree(text); }
};

// The definition that every info.xml is validated against: info.dtd in the directory of
// "common.dtd-path". Null when it cannot be read or parsed.
std::unique_ptr<xmlDtd, DtdDeleter> loadInfoDtd() {
    const std::string directory = sys_conf::instance().get_value("common.dtd-path", "");
    const CString path = CString::createWithFormat("%s/info.dtd", directory.c_str());
    const std::unique_ptr<xmlChar, XmlCharDeleter> canonical(
        xmlCanonicPath(reinterpret_cast<const xmlChar*>(path.c_str())));
    if (!canonical) {
        return nullptr;
    }
    return std::unique_ptr<xmlDtd, DtdDeleter>(xmlParseDTD(nullptr, canonical.get()));
}

const char* lastLoaderError() {
    const char* error = dlerror();
    return error ? error : "";
}

CException loaderFailure(int line, const char* function, const CString& message) {
    return CException("ZR::CException", line, kSourceFile, function, message);
}

template <typename Info>
int appendMatches(const std::list<RPtr<Info>>& infos, const RComponentInfoMatch& query,
                  std::list<RPtr<RComponentInfo>>& result) {
    int count = 0;
    for (const RPtr<Info>& info : infos) {
        if (query == *info) {
            result.emplace_back(info);
            ++count;
        }
    }
    return count;
}

}  // namespace

RPtr<RComponentManager> RComponentManager::mDefault;

RComponentManager::RComponentManager() {
    const sys_conf& conf = sys_conf::instance();
    if (conf.is_config_loaded()) {
        mComponentDirectory = conf.get_value("common.component-path", "").c_str();
    }
}

RComponentManager::~RComponentManager() = default;

RComponentManager* RComponentManager::getDefault() {
    if (!mDefault) {
        mDefault = new RComponentManager;
    }
    return mDefault.addr();
}

void RComponentManager::setComponentDirectory(const CString& directory) {
    mComponentDirectory = directory;
}

template <typename Info, std::list<RPtr<Info>> RComponentManager::*List>
void RComponentManager::addComponent(const RString& directory, _xmlDtd* dtd) {
    RPtr<Info> info(new Info(directory));
    if (info->loadInfoXML(dtd) == 0) {
        (this->*List).push_back(info);
    }
}

int RComponentManager::loadComponentInformation() {
    // Tested in this order, so that "x.decoder.filter" is a decoder.
    static constexpr struct {
        const char* suffix;
        void (RComponentManager::*add)(const RString&, _xmlDtd*);
    } kKinds[] = {
        {".importer",
         &RComponentManager::addComponent<RImporterInfo, &RComponentManager::mImporters>},
        {".decoder",
         &RComponentManager::addComponent<RDecompressorInfo, &RComponentManager::mDecompressors>},
        {".filter", &RComponentManager::addComponent<RFilterInfo, &RComponentManager::mFilters>},
        {".converter",
         &RComponentManager::addComponent<RConverterInfo, &RComponentManager::mConverters>},
        {".encoder",
         &RComponentManager::addComponent<RCompressorInfo, &RComponentManager::mCompressors>},
        {".exporter",
         &RComponentManager::addComponent<RExporterInfo, &RComponentManager::mExporters>},
        {".packetizer",
         &RComponentManager::addComponent<RPacketizerInfo, &RComponentManager::mPacketizers>},
    };

    // A missing directory is no error: there is just nothing installed.
    const std::unique_ptr<DIR, DirCloser> directory(opendir(mComponentDirectory.c_str()));
    const std::unique_ptr<xmlDtd, DtdDeleter> dtd = loadInfoDtd();
    if (!dtd) {
        return -1;
    }
    if (directory) {
        while (const dirent* entry = readdir(directory.get())) {
            for (const auto& kind : kKinds) {
                if (std::strstr(entry->d_name, kind.suffix)) {
                    (this->*kind.add)(RString(entry->d_name), dtd.get());
                    break;
                }
            }
        }
    }
    // std::list::sort is stable: importers of equal priority keep the directory's order.
    mImporters.sort(funk);
    return 0;
}

int RComponentManager::findComponents(RComponentInfoMatch& query,
                                      std::list<RPtr<RComponentInfo>>& result) {
    switch (query.type) {
        case fourcc("impt"):
            return appendMatches(mImporters, query, result);
        case fourcc("dcmp"):
            return appendMatches(mDecompressors, query, result);
        case fourcc("fltr"):
            return appendMatches(mFilters, query, result);
        case fourcc("cmpr"):
            return appendMatches(mCompressors, query, result);
        case fourcc("expt"):
            return appendMatches(mExporters, query, result);
        case fourcc("pckt"):
            return appendMatches(mPacketizers, query, result);
        case fourcc("conv"): {
            int count = appendMatches(mConverters, query, result);
            // A filter can stand in for a missing converter. Whatever the caller had put in
            // result already counts as found.
            if (result.empty()) {
                query.type = fourcc("fltr");
                count += appendMatches(mFilters, query, result);
                query.type = fourcc("conv");
            }
            return count;
        }
        default:
            return 0;
    }
}

RComponent* RComponentManager::loadComponent(RComponentInfo* info, unsigned int in,
                                             unsigned int out) {
    RComponent* component = doLoadComponent(info->getComponentPath(in, out));
    component->setComponentInfo(info);
    return component;
}

RComponent* RComponentManager::loadComponent(const RString& name) {
    return doLoadComponent(
        RString::createWithFormat("%s/%s.so", mComponentDirectory.c_str(), name.c_str()));
}

RComponent* RComponentManager::doLoadComponent(const RString& path) {
    auto found = mLibraries.find(path);
    if (found == mLibraries.end()) {
        // Symbols stay local to the module, so that components may use the same names.
        void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
        if (!handle) {
            throw loaderFailure(kOpenFailedLine, __PRETTY_FUNCTION__,
                                CString::createWithFormat("Failed to load component: %s\n%s",
                                                          path.c_str(), lastLoaderError()));
        }
        found = mLibraries.emplace(path, handle).first;
    }
    void* const handle = found->second;

    dlerror();  // so that a failure below reports its own error, not an older one
    void* const symbol = dlsym(handle, kEntryPoint);
    if (!symbol) {
        throw loaderFailure(
            kEntryPointMissingLine, __PRETTY_FUNCTION__,
            CString::createWithFormat("Failed to call getComponentInstance() for %s\n%s",
                                      path.c_str(), lastLoaderError()));
    }
    const auto entryPoint = reinterpret_cast<RComponent* (*)()>(symbol);
    RComponent* const component = entryPoint();
    if (!component) {
        ZR_THROW(kSourceFile,
                 CString::createWithFormat("getComponentInstance() of %s returned no component",
                                           path.c_str()));
    }
    component->retain();
    component->setLibrary(handle);
    return component;
}

int RComponentManager::unloadComponent(RComponent* component) {
    if (component) {
        component->release();
    }
    return 0;
}

void RComponentManager::removeImporterFromList(RImporterInfo* info) {
    mImporters.remove_if([info](const RPtr<RImporterInfo>& entry) { return entry.addr() == info; });
}

bool funk(const RPtr<RImporterInfo>& a, const RPtr<RImporterInfo>& b) {
    return *a < *b;
}

}  // namespace CM
}  // namespace ZR
