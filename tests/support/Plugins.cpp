#include "support/Plugins.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace cmtest {

std::string pluginDtdDirectory() {
    return CM_SOURCE_DIR "/data";
}

void writeDescriptor(const std::string& directory, const std::string& name,
                     const std::string& content) {
    std::filesystem::create_directories(directory);
    std::ofstream(directory + "/" + name + ".plugin.xml") << content;
}

void writeScriptedPlugin(const std::string& directory, const std::string& name,
                         const std::vector<std::string>& ids) {
    std::string content = "<plugin library=\"scripted.so\">\n";
    for (const std::string& id : ids) {
        content += "  <provides id=\"" + id + "\"/>\n";
    }
    writeDescriptor(directory, name, content + "</plugin>\n");
    const std::string link = directory + "/scripted.so";
    if (::access(link.c_str(), F_OK) != 0 && ::symlink(CM_SCRIPTED_PLUGIN, link.c_str()) != 0) {
        throw std::runtime_error("cannot link " + link);
    }
}

}  // namespace cmtest
