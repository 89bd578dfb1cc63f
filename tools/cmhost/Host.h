// The host's start-up and its way to components and media.
//
// Start-up follows the library's order: the configuration file first, then the default
// logger, then the component manager, which scans the component directory. Meanwhile
// libxml2's own messages and the library's reports on the components it leaves out go to
// the log (standard error only with -v), and a failure becomes one line that names the file
// that was missing or invalid, where it was looked for, and the one installed with the
// program. The host then finds components the way a user names them — an importer by the
// media's file extension (highest priority first), or for a live source's URL by its
// scheme, which such importers list among their extensions ("rtsp"); an exporter by the
// container the output's extension names in its format map; a filter by its name ("gain"
// finds gain.filter) — loads them, and opens media through the stream factory (a path, a
// file:// URI or any URI a reader plug-in serves). A live source has no byte stream: its
// importer takes the URL in its "url" setting before it opens the source.
//
// Everything here runs on the main thread before and after the pipeline runs.
#ifndef CMHOST_HOST_H
#define CMHOST_HOST_H

#include "XmlMessages.h"

#include <cm/cm.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace cmhost {

// A failure with the library's result code; main prints the message, the code's text and
// the detail (what a component said about it), if any, in one line.
class HostError : public std::runtime_error {
public:
    HostError(int code, const std::string& message, std::string detail = "")
        : std::runtime_error(message), mCode(code), mDetail(std::move(detail)) {}
    int code() const { return mCode; }
    const std::string& detail() const { return mDetail; }

private:
    int mCode;
    std::string mDetail;
};

class Host {
public:
    // Loads configPath, or the configuration installed with the program when it is empty.
    // verbose mirrors every log message to standard error.
    Host(const std::string& configPath, bool verbose);

    const std::string& configPath() const { return mConfigPath; }
    ZR::CM::RComponentManager& manager() const { return *mManager; }
    // Why the component directory cannot be read, naming where the installed components
    // are; "" when it can be read.
    const std::string& componentDirectoryProblem() const { return mComponentDirectoryProblem; }

    // The importers that take the media's file extension (a live source's scheme), highest
    // priority first; throws HostError when there is none.
    std::vector<ZR::CM::RImporterInfo*> importersFor(const std::string& media) const;
    // The exporters whose format map writes the container of the path's extension (the
    // extension padded to four characters, "mp4 " or "webm", as out-format), in the
    // manager's order; throws HostError when there is none.
    std::vector<ZR::CM::RExporterInfo*> exportersFor(const std::string& path) const;
    // The component of a kind ("importer", "decoder", "filter", "converter", "encoder",
    // "exporter", "packetizer") whose directory, directory stem or name is `name`.
    ZR::RPtr<ZR::CM::RComponentInfo> componentNamed(const std::string& name,
                                                    const std::string& kind) const;
    // Every component the manager lists for a kind, in its order; empty for an unknown kind.
    std::vector<ZR::CM::RComponentInfo*> components(const std::string& kind) const;

    // Loads the component's object for the format pair; the host holds the only reference.
    ZR::RPtr<ZR::CM::RComponent> load(ZR::CM::RComponentInfo& info, unsigned int in,
                                      unsigned int out) const;
    // The same for the component's first format pair.
    ZR::RPtr<ZR::CM::RComponent> load(ZR::CM::RComponentInfo& info) const;
    // A stream on the media, opened, so that no component has to find out whether it is
    // (a stream of a reader plug-in says so on standard error); flags are open(2) flags.
    ZR::RPtr<ZR::CM::RStream> openStream(const std::string& media, unsigned int flags) const;

private:
    // Each returns the failure to report once libxml2's messages are logged, if any.
    std::optional<HostError> loadConfiguration(const XmlMessages& messages) const;
    // The library's own reports on the components it leaves out go to logger.
    std::optional<HostError> scanComponents(const XmlMessages& messages, ZR::CM::RLogger& logger);
    // A HostError for a component that is not there, saying where the host looked.
    HostError notFound(int code, const std::string& what) const;

    const std::string mInstalledData;  // share/cm beside the program's directory
    std::string mConfigPath;
    ZR::CM::RComponentManager* mManager = nullptr;
    std::string mComponentDirectoryProblem;
};

// "" when path can be read, else why not ("No such file or directory").
std::string whyUnreadable(const std::string& path);

// The lower-case extension of a path or URI ("WAV" in "a/b.WAV" gives "wav"), or "".
std::string extensionOf(const std::string& path);
// Whether media is the URL of a live source that an importer reaches itself, not through a
// byte stream (rtsp://).
bool isLiveSource(const std::string& media);

// media as the host may print it: a URL without the user and password before its host.
std::string withoutCredentials(const std::string& media);
// The FourCC that names the container of a file extension in exporters' format maps: the
// extension padded with spaces ("mp4 ", "webm"); 0 for none or one longer than four.
unsigned int containerFourCC(const std::string& extension);

}  // namespace cmhost

#endif
