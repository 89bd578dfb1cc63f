#include "Host.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <list>
#include <vector>

namespace cmhost {

namespace {

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::string executableDirectory() {
    char buffer[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length <= 0) {
        return ".";
    }
    return directoryOf(std::string(buffer, static_cast<size_t>(length)));
}

// The configuration that comes with the program: share/cm/cm.conf beside the bin (or
// tools) directory that holds it, in an install and in a build tree alike.
std::string shippedConfiguration() {
    const std::string candidate = executableDirectory() + "/../share/cm/cm.conf";
    char resolved[PATH_MAX];
    if (!realpath(candidate.c_str(), resolved)) {
        throw HostError(ZR::CM::kResultFileNotFound, "no configuration at " + candidate);
    }
    return resolved;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The directory name without its kind suffix: "gain.filter" gives "gain".
std::string baseName(const ZR::CM::RComponentInfo& info) {
    const std::string directory = info.directoryName.c_str();
    return directory.substr(0, directory.find('.'));
}

}  // namespace

std::string extensionOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return "";
    }
    return lowerCase(path.substr(dot + 1));
}

Host::Host(const std::string& configPath, bool verbose)
    : mConfigPath(configPath.empty() ? shippedConfiguration() : configPath) {
    if (access(mConfigPath.c_str(), R_OK) != 0) {
        throw HostError(ZR::CM::kResultFileNotFound, "cannot read configuration " + mConfigPath);
    }
    const std::string root = directoryOf(mConfigPath) + "/";
    if (!ZR::CM::sys_conf::instance().load_file(mConfigPath.c_str(), root.c_str())) {
        throw HostError(ZR::CM::kResultXMLValidationFailed,
                        "configuration " + mConfigPath + " does not load");
    }
    ZR::CM::RLogger* logger = ZR::CM::RLogger::getDefault("cmhost");
    if (verbose) {
        logger->addInterface(new ZR::CM::RStderrLogInterface);
    }
    mManager = ZR::CM::RComponentManager::getDefault();
    if (mManager->loadComponentInformation() != 0) {
        throw HostError(ZR::CM::kResultDTDLoadFailed, "cannot load the component definition");
    }
    logger->logf(ZR::CM::kLogInfo, "cmhost: configuration %s, components in %s",
                 mConfigPath.c_str(), mManager->getComponentDirectory().c_str());
}

ZR::RPtr<ZR::CM::RImporterInfo> Host::importerFor(const std::string& media) const {
    const std::string extension = extensionOf(media);
    for (const auto& info : mManager->getImporters()) {
        for (const ZR::RString& candidate : info->fileExtensions) {
            if (lowerCase(candidate.c_str()) == extension) {
                return info;
            }
        }
    }
    throw HostError(ZR::CM::kResultNoImporter,
                    "no importer for " + (extension.empty() ? media : "." + extension) + " files");
}

ZR::RPtr<ZR::CM::RExporterInfo> Host::exporterFor(const std::string& path) const {
    const std::string extension = extensionOf(path);
    for (const auto& info : mManager->getExporters()) {
        if (!extension.empty() && baseName(*info) == extension) {
            return info;
        }
    }
    throw HostError(ZR::CM::kResultNoExporter,
                    "no exporter for " + (extension.empty() ? path : "." + extension) + " files");
}

namespace {

template <typename Info>
std::vector<ZR::CM::RComponentInfo*> infosOf(const std::list<ZR::RPtr<Info>>& list) {
    std::vector<ZR::CM::RComponentInfo*> infos;
    for (const auto& info : list) {
        infos.push_back(info.addr());
    }
    return infos;
}

}  // namespace

std::vector<ZR::CM::RComponentInfo*> Host::components(const std::string& kind) const {
    if (kind == "importer")
        return infosOf(mManager->getImporters());
    if (kind == "decoder")
        return infosOf(mManager->getDecompressors());
    if (kind == "filter")
        return infosOf(mManager->getFilters());
    if (kind == "converter")
        return infosOf(mManager->getConverters());
    if (kind == "encoder")
        return infosOf(mManager->getCompressors());
    if (kind == "exporter")
        return infosOf(mManager->getExporters());
    if (kind == "packetizer")
        return infosOf(mManager->getPacketizers());
    return {};
}

ZR::RPtr<ZR::CM::RComponentInfo> Host::componentNamed(const std::string& name,
                                                      const std::string& kind) const {
    const std::string wanted = lowerCase(name);
    for (ZR::CM::RComponentInfo* info : components(kind)) {
        if (lowerCase(info->directoryName.c_str()) == wanted || baseName(*info) == wanted ||
            lowerCase(info->name.c_str()) == wanted) {
            return info;
        }
    }
    const int code = kind == "filter"       ? ZR::CM::kResultNoFilter
                     : kind == "packetizer" ? ZR::CM::kResultNoPacketizer
                     : kind == "exporter"   ? ZR::CM::kResultNoExporter
                     : kind == "importer"   ? ZR::CM::kResultNoImporter
                                            : ZR::CM::kResultUnspecified;
    throw HostError(code, "no " + kind + " named " + name);
}

ZR::RPtr<ZR::CM::RComponent> Host::load(ZR::CM::RComponentInfo& info) const {
    const auto& items = info.formatMap.getItems();
    if (items.empty()) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        std::string(info.directoryName.c_str()) + " lists no object to load");
    }
    ZR::CM::RComponent* raw = nullptr;
    try {
        raw = mManager->loadComponent(&info, items.front().inFormat, items.front().outFormat);
    } catch (const ZR::CException& e) {
        throw HostError(ZR::CM::kResultComponentLoadFailed, e.getMessage());
    }
    if (!raw) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        std::string(info.directoryName.c_str()) + " made no component");
    }
    ZR::RPtr<ZR::CM::RComponent> component(raw);
    mManager->unloadComponent(raw);  // hands the manager's reference over to ours
    return component;
}

ZR::RPtr<ZR::CM::RStream> Host::stream(const std::string& media, unsigned int flags) const {
    ZR::RPtr<ZR::CM::RStream> stream =
        ZR::CM::RStream::getStream(ZR::RURI(media.c_str()), flags, 0);
    if (!stream) {
        throw HostError(ZR::CM::kResultFileOpenFailed, "no stream for " + media);
    }
    return stream;
}

ZR::RPtr<ZR::CM::RStream> Host::openStream(const std::string& media, unsigned int flags) const {
    ZR::RPtr<ZR::CM::RStream> stream = this->stream(media, flags);
    const int result = stream->open();
    if (result != 0) {
        throw HostError(result == -1 ? ZR::CM::kResultFileOpenFailed : result,
                        "cannot open " + media);
    }
    return stream;
}

}  // namespace cmhost
