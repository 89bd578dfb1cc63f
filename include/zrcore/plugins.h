// zrcore::plugins, the registry of plug-ins: it reads their descriptors from directories,
// finds identifiers by pattern and creates plug-in objects by identifier.
//
// A directory given to load_plugins holds descriptors, files named "*.plugin.xml", each
// beside the shared object it describes:
//
//     <plugin library="http-reader.so">
//       <provides id="io/read/http/curl"/>
//       <provides id="io/read/https/curl"/>
//     </plugin>
//
// Every descriptor is validated against plugin.dtd in the directory given at construction;
// a descriptor that does not validate, or whose library is not a plain file name, is
// reported on standard error and skipped. Identifiers keep the order in which they were
// registered: directories in the order they were loaded, descriptors in name order within
// a directory, identifiers in document order; an identifier already registered keeps its
// first provider. A shared object is loaded the first time one of its identifiers is
// created and stays loaded, also after the registry is destroyed, so that objects created
// from it outlive the registry safely.
//
// All operations may be called from any thread; the registry serialises them itself.
// Failures are results (nothing found, a null object), with a line on standard error.
#ifndef ZRCORE_PLUGINS_H
#define ZRCORE_PLUGINS_H

#include <zr/RPtr.h>
#include <zrcore/plugin.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace zrcore {

class plugins {
public:
    // dtd_path is the directory that holds plugin.dtd.
    explicit plugins(std::string const& dtd_path);
    ~plugins();
    plugins(plugins const&) = delete;
    plugins& operator=(plugins const&) = delete;

    // Registers the plug-ins described in directory and returns how many identifiers were
    // added. A missing directory adds nothing.
    std::size_t load_plugins(std::string const& directory);
    // The registered identifiers that match pattern (an ECMAScript regular expression
    // matched against the whole identifier), in registry order; nothing for an invalid
    // pattern.
    std::vector<std::string> find_plugins(std::string const& pattern) const;
    // A new object for id, or null when id is unknown or its shared object cannot be
    // loaded, is of another contract version, or its factory fails.
    ZR::RPtr<plugin> create_with_id(std::string const& id);

private:
    // A shared object named by a descriptor; handle and create are set once it is loaded.
    struct library {
        std::string path;
        void* handle;
        zrcore_plugin_create_function create;
    };
    struct entry {
        std::string id;
        std::size_t library;  // index into m_libraries
    };

    // Registers the identifiers ids provided by the shared object at library_path;
    // returns how many were new.
    std::size_t register_locked(std::string const& library_path,
                                std::vector<std::string> const& ids);
    // The factory of the library at index, loading it first if needed; null on failure.
    zrcore_plugin_create_function factory_locked(std::size_t index);

    std::string const m_dtd_path;
    // Guards m_libraries and m_entries.
    mutable std::mutex m_mutex;
    std::vector<library> m_libraries;  // guarded by m_mutex
    std::vector<entry> m_entries;      // guarded by m_mutex
};

}  // namespace zrcore

#endif
