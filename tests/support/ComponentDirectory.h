// A component directory of a test's own beside a configuration that points a host at it,
// for running cmhost over components a test installs: links to components of the build,
// filters whose info.xml names a module of the test's choice (or a missing one), and
// directories with any info.xml at all.
#ifndef CM_TESTS_SUPPORT_COMPONENTDIRECTORY_H
#define CM_TESTS_SUPPORT_COMPONENTDIRECTORY_H

#include "support/TestSupport.h"

#include <string>

namespace cmtest {

class ComponentDirectory {
public:
    ComponentDirectory();

    const std::string& path() const { return mPath; }
    // cm.conf: common.component-path is path() and common.dtd-path the source tree's data
    // directory.
    std::string configuration() const { return mDir.file("cm.conf"); }

    // Links a component directory of the build ("wav.exporter") into this one.
    void link(const std::string& name);
    // A filter directory ("noentry.filter") whose info.xml names the one object `object`,
    // with module copied into its platform directory as that object; null leaves it missing.
    void installFilter(const std::string& name, const std::string& object, const char* module);
    // A component directory holding this info.xml text, or no info.xml when it is empty.
    void write(const std::string& name, const std::string& infoXml);

private:
    TempDir mDir;
    std::string mPath;
};

}  // namespace cmtest

#endif
