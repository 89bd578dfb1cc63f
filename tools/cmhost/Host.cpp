#include "Host.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <memory>
#include <vector>

namespace cmhost {

namespace {

std::string directoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

std::string fileNameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

std::string executableDirectory() {
    char buffer[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length <= 0) {
        return ".";
    }
    return directoryOf(std::string(buffer, static_cast<size_t>(length)));
}

// A path below the directory above the program's own (bin in an install, tools in a build
// tree): where the data files and components installed with it are.
std::string besideProgram(const char* relative) {
    const std::string path = executableDirectory() + "/../" + relative;
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) ? std::string(resolved) : path;
}

// Where the installed counterpart of a data file is, for a message about a missing or
// invalid one.
std::string installedOne(const std::string& directory, const std::string& name) {
    const std::string path = directory + "/" + name;
    return whyUnreadable(path).empty() ? "the installed one is " + path
                                       : "none is installed in " + directory + " either";
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Keeps what is written to standard error while it lives in a temporary file, so that it
// can go to the log instead: the library reports each component it leaves out there. Where
// no temporary file can be made, standard error stays as it is.
class CapturedStderr {
public:
    CapturedStderr() : mFile(std::tmpfile(), &std::fclose) {
        std::fflush(stderr);
        mSaved = mFile ? dup(STDERR_FILENO) : -1;
        if (mSaved >= 0 && dup2(fileno(mFile.get()), STDERR_FILENO) < 0) {
            close(mSaved);
            mSaved = -1;
        }
    }
    ~CapturedStderr() { restore(); }
    CapturedStderr(const CapturedStderr&) = delete;
    CapturedStderr& operator=(const CapturedStderr&) = delete;

    // Puts standard error back and returns the lines written meanwhile.
    std::vector<std::string> release() {
        restore();
        std::vector<std::string> lines;
        if (!mFile) {
            return lines;
        }
        std::rewind(mFile.get());
        char line[4096];
        while (std::fgets(line, sizeof line, mFile.get())) {
            lines.emplace_back(line, std::strcspn(line, "\n"));
        }
        return lines;
    }

private:
    void restore() {
        if (mSaved < 0) {
            return;
        }
        std::fflush(stderr);
        dup2(mSaved, STDERR_FILENO);
        close(mSaved);
        mSaved = -1;
    }

    std::unique_ptr<FILE, int (*)(FILE*)> mFile;
    int mSaved = -1;
};

// The directory name without its kind suffix: "gain.filter" gives "gain".
std::string baseName(const ZR::CM::RComponentInfo& info) {
    const std::string directory = info.directoryName.c_str();
    return directory.substr(0, directory.find('.'));
}

}  // namespace

std::string whyUnreadable(const std::string& path) {
    if (access(path.c_str(), R_OK) == 0) {
        return "";
    }
    return std::strerror(errno);
}

std::string extensionOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    const size_t dot = path.rfind('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) {
        return "";
    }
    return lowerCase(path.substr(dot + 1));
}

Host::Host(const std::string& configPath, bool verbose)
    : mInstalledData(besideProgram("share/cm")),
      mConfigPath(configPath.empty() ? mInstalledData + "/cm.conf" : configPath) {
    XmlMessages messages;
    std::optional<HostError> failure = loadConfiguration(messages);
    // The logger takes its destinations from the configuration, so it starts only now.
    ZR::CM::RLogger* logger = ZR::CM::RLogger::getDefault("cmhost");
    if (verbose) {
        logger->addInterface(new ZR::CM::RStderrLogInterface);
    }
    messages.logTo(*logger);
    if (failure) {
        throw *failure;
    }
    failure = scanComponents(messages, *logger);
    messages.logTo(*logger);
    if (failure) {
        throw *failure;
    }
    if (!mComponentDirectoryProblem.empty()) {
        logger->logf(ZR::CM::kLogWarning, "cmhost: %s", mComponentDirectoryProblem.c_str());
    }
    logger->logf(ZR::CM::kLogInfo, "cmhost: configuration %s, components in %s",
                 mConfigPath.c_str(), mManager->getComponentDirectory().c_str());
}

std::optional<HostError> Host::loadConfiguration(const XmlMessages& messages) const {
    const std::string installed = installedOne(mInstalledData, "cm.conf");
    const std::string why = whyUnreadable(mConfigPath);
    if (!why.empty()) {
        return HostError(
            ZR::CM::kResultFileNotFound,
            "configuration " + mConfigPath + " cannot be read: " + why + " (" + installed + ")");
    }
    const std::string root = directoryOf(mConfigPath) + "/";
    if (ZR::CM::sys_conf::instance().load_file(mConfigPath.c_str(), root.c_str())) {
        return std::nullopt;
    }
    // The usual cause: a copy of the configuration without the document type it names,
    // which libxml2 looks for beside the configuration.
    for (const XmlMessages::Message& message : messages.messages()) {
        if (message.domain == XML_FROM_IO && message.code == XML_IO_LOAD_ERROR &&
            !message.about.empty()) {
            return HostError(ZR::CM::kResultXMLValidationFailed,
                             "configuration " + mConfigPath + " needs " + message.about +
                                 ", which cannot be read (" +
                                 installedOne(mInstalledData, fileNameOf(message.about)) + ")");
        }
    }
    std::string what = "configuration " + mConfigPath + " is invalid";
    if (const XmlMessages::Message* error = messages.firstError()) {
        what += ": " + XmlMessages::describe(*error);
    }
    return HostError(ZR::CM::kResultXMLValidationFailed, what + " (" + installed + ")");
}

std::optional<HostError> Host::scanComponents(const XmlMessages& messages,
                                              ZR::CM::RLogger& logger) {
    mManager = ZR::CM::RComponentManager::getDefault();
    const std::string directory = mManager->getComponentDirectory().c_str();
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(directory.c_str()), &closedir);
    if (!listing) {
        const std::string why = std::strerror(errno);
        mComponentDirectoryProblem = "component directory " + directory +
                                     " cannot be read: " + why + " (common.component-path in " +
                                     mConfigPath + "; the installed components are in " +
                                     besideProgram("lib/cm/components") + ")";
    }
    CapturedStderr reports;
    const int scanned = mManager->loadComponentInformation();
    for (const std::string& line : reports.release()) {
        logger.logf(ZR::CM::kLogWarning, "%s", line.c_str());
    }
    if (scanned == 0) {
        return std::nullopt;
    }
    const std::string dtd =
        ZR::CM::sys_conf::instance().get_value("common.dtd-path", "") + "/info.dtd";
    const std::string why = whyUnreadable(dtd);
    const XmlMessages::Message* error = messages.firstError();
    const std::string problem = !why.empty() ? "cannot be read: " + why
                                : error      ? "is invalid: " + XmlMessages::describe(*error)
                                             : "is invalid";
    return HostError(ZR::CM::kResultDTDLoadFailed,
                     "the component definition " + dtd + " " + problem + " (common.dtd-path in " +
                         mConfigPath + "; " + installedOne(mInstalledData, "info.dtd") + ")");
}

HostError Host::notFound(int code, const std::string& what) const {
    if (!mComponentDirectoryProblem.empty()) {
        return HostError(code, what + ": " + mComponentDirectoryProblem);
    }
    return HostError(code, what + " among the components in " +
                               std::string(mManager->getComponentDirectory().c_str()));
}

unsigned int containerFourCC(const std::string& extension) {
    if (extension.empty() || extension.size() > 4) {
        return 0;
    }
    const std::string padded = (extension + "    ").substr(0, 4);
    return ZR::fourccFromText(padded.c_str());
}

bool isLiveSource(const std::string& media) {
    return ZR::RURI(media.c_str()).getKind() == ZR::RURI::kRTSP;
}

std::string withoutCredentials(const std::string& media) {
    const size_t scheme = media.find("://");
    if (scheme == std::string::npos) {
        return media;
    }
    const size_t host = scheme + 3;
    const size_t at = media.rfind('@', media.find('/', host));
    if (at == std::string::npos || at < host) {
        return media;
    }
    return media.substr(0, host) + media.substr(at + 1);
}

std::vector<ZR::CM::RImporterInfo*> Host::importersFor(const std::string& media) const {
    const std::string extension = isLiveSource(media)
                                      ? lowerCase(ZR::RURI(media.c_str()).getScheme().c_str())
                                      : extensionOf(media);
    std::vector<ZR::CM::RImporterInfo*> found;
    for (const auto& info : mManager->getImporters()) {
        for (const ZR::RString& candidate : info->fileExtensions) {
            if (lowerCase(candidate.c_str()) == extension) {
                found.push_back(info.addr());
                break;
            }
        }
    }
    if (found.empty()) {
        const std::string what = isLiveSource(media) ? extension + ":// URLs"
                                 : extension.empty() ? media
                                                     : "." + extension + " files";
        throw notFound(ZR::CM::kResultNoImporter, "no importer for " + what);
    }
    return found;
}

std::vector<ZR::CM::RExporterInfo*> Host::exportersFor(const std::string& path) const {
    const std::string extension = extensionOf(path);
    const unsigned int container = containerFourCC(extension);
    std::vector<ZR::CM::RExporterInfo*> found;
    for (const auto& info : mManager->getExporters()) {
        for (const ZR::CM::ComponentFormatItem& item : info->formatMap.getItems()) {
            if (container != 0 && item.outFormat == container) {
                found.push_back(info.addr());
                break;
            }
        }
    }
    if (found.empty()) {
        throw notFound(
            ZR::CM::kResultNoExporter,
            "no exporter for " + (extension.empty() ? path : "." + extension) + " files");
    }
    return found;
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
    throw notFound(code, "no " + kind + " named " + name);
}

ZR::RPtr<ZR::CM::RComponent> Host::load(ZR::CM::RComponentInfo& info) const {
    const auto& items = info.formatMap.getItems();
    if (items.empty()) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        std::string(info.directoryName.c_str()) + " lists no object to load");
    }
    return load(info, items.front().inFormat, items.front().outFormat);
}

ZR::RPtr<ZR::CM::RComponent> Host::load(ZR::CM::RComponentInfo& info, unsigned int in,
                                        unsigned int out) const {
    ZR::CM::RComponent* raw = nullptr;
    try {
        raw = mManager->loadComponent(&info, in, out);
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

ZR::RPtr<ZR::CM::RStream> Host::openStream(const std::string& media, unsigned int flags) const {
    ZR::RPtr<ZR::CM::RStream> stream =
        ZR::CM::RStream::getStream(ZR::RURI(media.c_str()), flags, 0);
    if (!stream) {
        throw HostError(ZR::CM::kResultFileOpenFailed,
                        "no stream for " + withoutCredentials(media));
    }
    const int result = stream->open();
    if (result != 0) {
        throw HostError(result == -1 ? ZR::CM::kResultFileOpenFailed : result,
                        "cannot open " + withoutCredentials(media));
    }
    return stream;
}

}  // namespace cmhost
