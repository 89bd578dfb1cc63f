#include "support/ComponentDirectory.h"

#include <filesystem>
#include <fstream>

namespace cmtest {

ComponentDirectory::ComponentDirectory() : mPath(mDir.file("components")) {
    std::filesystem::create_directory(mPath);
    std::ofstream(configuration())
        << "<!DOCTYPE cm-config SYSTEM \"" CM_SOURCE_DIR "/data/cm-config.dtd\">"
        << "<cm-config><common><component-path>" << mPath
        << "</component-path><dtd-path>" CM_SOURCE_DIR "/data</dtd-path></common></cm-config>";
}

void ComponentDirectory::link(const std::string& name) {
    std::filesystem::create_directory_symlink(CM_COMPONENT_BUILD_DIR "/" + name,
                                              mPath + "/" + name);
}

void ComponentDirectory::installFilter(const std::string& name, const std::string& object,
                                       const char* module) {
    write(name, "<?xml version=\"1.0\"?>\n<info><common><name>" + name +
                    "</name><type>filter</type><media>audio</media></common><objects><object "
                    "name=\"" +
                    object + "\"><in>lpcm</in></object></objects><filter/></info>\n");
    const std::string platform = mPath + "/" + name + "/" CM_PLATFORM_DIR;
    std::filesystem::create_directories(platform);
    if (module) {
        std::filesystem::copy_file(module, platform + "/" + object);
    }
}

void ComponentDirectory::write(const std::string& name, const std::string& infoXml) {
    std::filesystem::create_directory(mPath + "/" + name);
    if (!infoXml.empty()) {
        std::ofstream(mPath + "/" + name + "/info.xml") << infoXml;
    }
}

}  // namespace cmtest
