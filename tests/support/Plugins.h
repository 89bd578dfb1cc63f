// Plug-in directories for tests: descriptors written on the spot for the scripted plug-in
// module (tests/plugin/ScriptedPlugin.cpp), which each directory links to.
#ifndef CM_TESTS_SUPPORT_PLUGINS_H
#define CM_TESTS_SUPPORT_PLUGINS_H

#include <string>
#include <vector>

namespace cmtest {

// The directory that holds plugin.dtd.
std::string pluginDtdDirectory();

// Writes directory/NAME.plugin.xml providing ids from the scripted module, linked into
// directory as "scripted.so"; creates directory (and its parents) when missing.
void writeScriptedPlugin(const std::string& directory, const std::string& name,
                         const std::vector<std::string>& ids);

// Writes directory/NAME.plugin.xml with the given content.
void writeDescriptor(const std::string& directory, const std::string& name,
                     const std::string& content);

}  // namespace cmtest

#endif
