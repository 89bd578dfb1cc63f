// The sub-commands of cmhost. Each takes the words after its name, returns the process
// exit status, and reports failures by throwing UsageError or HostError (main prints one
// line for either).
#ifndef CMHOST_COMMANDS_H
#define CMHOST_COMMANDS_H

#include <string>
#include <vector>

namespace cmhost {

struct GlobalOptions {
    std::string config;    // --config FILE; empty for the shipped configuration
    bool verbose = false;  // -v: log messages to standard error too
};

using Words = std::vector<std::string>;

int runComponents(const GlobalOptions& global, const Words& args);
int runInfo(const GlobalOptions& global, const Words& args);
int runConvert(const GlobalOptions& global, const Words& args);
int runGenerate(const GlobalOptions& global, const Words& args);
int runStream(const GlobalOptions& global, const Words& args);
int runRtsp(const GlobalOptions& global, const Words& args);

// "vide", or "any" for the wildcard, or hex for a code that is not printable text.
std::string fourccText(unsigned int code);

}  // namespace cmhost

#endif
