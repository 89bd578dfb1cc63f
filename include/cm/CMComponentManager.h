// The component manager: the process-wide registry of installed components.
//
// The component directory holds one directory per component, whose kind is told by a
// substring of its name (".importer", ".decoder", ".filter", ".converter", ".encoder",
// ".exporter", ".packetizer"; the first of these, in this order, that occurs anywhere in
// the name wins). loadComponentInformation() reads the info.xml of each such directory,
// validated against the info.dtd found under the configuration key "common.dtd-path", and
// keeps one list of infos per kind; importers are ordered by descending priority, the other
// kinds stay in the order the directory listing returned them. findComponents() answers
// queries from these lists. loadComponent() opens the shared object that an info names
// for a pair of formats, below `<component directory>/<directory>/<os>/<cpu>/`, and
// calls its C entry point
//
//     extern "C" ZR::CM::RComponent* getComponentInstance();
//
// which returns a new component. Opened shared objects stay loaded for the life of the
// process, so the code of every component ever handed out stays mapped; each path is opened
// once.
//
// There is one manager, reached through getDefault() and released at exit; infos find
// their info.xml and shared objects through it. It has no lock: it is created, scanned and
// asked for components from one thread, normally the host's main thread before components
// run. Infos are shared through RPtr; a loaded component carries one reference that
// belongs to the caller and is given back with unloadComponent().
#ifndef CM_CMCOMPONENTMANAGER_H
#define CM_CMCOMPONENTMANAGER_H

#include <cm/CMComponentInfo.h>
#include <zr/CBuffer.h>
#include <zr/RPtr.h>
#include <zrbase/object_refcount.h>

#include <list>
#include <map>

namespace ZR {
namespace CM {

class RComponent;

class RComponentManager : public zrbase::object_refcount {
public:
    ~RComponentManager() override;

    // The manager, created on first use (without a lock: call it first from the main
    // thread). It takes its component directory from "common.component-path" when a
    // configuration file has been loaded; it does not scan by itself.
    static RComponentManager* getDefault();

    void setComponentDirectory(const CString& directory);

    // Scans the component directory and appends every component whose info.xml loads to
    // the list of its kind; a second call appends a second set. -1 when info.dtd cannot be
    // loaded (nothing is read then), otherwise 0, also when the directory is missing.
    // Components whose info.xml is missing, invalid or of another kind are left out;
    // libxml2's diagnostics go to standard error.
    int loadComponentInformation();

    // Appends to result every info of the query's kind that the query accepts, in list
    // order, and returns how many it appended. A converter query that finds nothing falls
    // back to the filters, but only when result was empty to begin with. Kinds other than
    // impt, dcmp, conv, fltr, cmpr, expt and pckt (including "any") find nothing.
    int findComponents(RComponentInfoMatch& query, std::list<RPtr<RComponentInfo>>& result);

    // The component of info's object for (in, out), told which info it came from.
    RComponent* loadComponent(RComponentInfo* info, unsigned int in, unsigned int out);
    // The component of `<component directory>/<name>.so`.
    RComponent* loadComponent(const RString& name);
    // Opens the shared object at path (once per path) and returns a new component from its
    // entry point, retained once for the caller and told its library handle. Throws
    // CException when the object cannot be opened (the map is left as it was), when it has
    // no entry point (it stays open and in the map), or when the entry point returns null.
    RComponent* doLoadComponent(const RString& path);
    // Drops the caller's reference; the shared object stays loaded. Always 0.
    int unloadComponent(RComponent* component);
    // Takes every entry that is info out of the importer list.
    void removeImporterFromList(RImporterInfo* info);

    const CString& getComponentDirectory() const noexcept { return mComponentDirectory; }
    const std::list<RPtr<RImporterInfo>>& getImporters() const noexcept { return mImporters; }
    const std::list<RPtr<RDecompressorInfo>>& getDecompressors() const noexcept {
        return mDecompressors;
    }
    const std::list<RPtr<RConverterInfo>>& getConverters() const noexcept { return mConverters; }
    const std::list<RPtr<RFilterInfo>>& getFilters() const noexcept { return mFilters; }
    const std::list<RPtr<RCompressorInfo>>& getCompressors() const noexcept { return mCompressors; }
    const std::list<RPtr<RPacketizerInfo>>& getPacketizers() const noexcept { return mPacketizers; }
    const std::list<RPtr<RExporterInfo>>& getExporters() const noexcept { return mExporters; }
    int getLoadedLibraryCount() const noexcept { return static_cast<int>(mLibraries.size()); }

private:
    RComponentManager();
    RComponentManager(const RComponentManager&) = delete;
    RComponentManager& operator=(const RComponentManager&) = delete;

    // Loads the info.xml of directory as an Info and appends the info to List when it
    // loads; one instance per row of the kind table.
    template <typename Info, std::list<RPtr<Info>> RComponentManager::*List>
    void addComponent(const RString& directory, _xmlDtd* dtd);

    static RPtr<RComponentManager> mDefault;  // released by its destructor at exit

    CString mComponentDirectory;
    std::map<RString, void*> mLibraries;  // path of each opened shared object -> its handle
    std::list<RPtr<RImporterInfo>> mImporters;
    std::list<RPtr<RDecompressorInfo>> mDecompressors;
    std::list<RPtr<RConverterInfo>> mConverters;
    std::list<RPtr<RFilterInfo>> mFilters;
    std::list<RPtr<RCompressorInfo>> mCompressors;
    std::list<RPtr<RPacketizerInfo>> mPacketizers;
    std::list<RPtr<RExporterInfo>> mExporters;
};

// The importer order: a before b when a's priority is higher.
bool funk(const RPtr<RImporterInfo>& a, const RPtr<RImporterInfo>& b);

}  // namespace CM
}  // namespace ZR

#endif
