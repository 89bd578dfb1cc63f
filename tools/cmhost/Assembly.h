// Building a pipeline from components the host finds: each helper loads a component,
// connects it to its queues, configures it and adds it to the pipeline as a stage.
// Failures throw HostError with the result code that says what went wrong.
#ifndef CMHOST_ASSEMBLY_H
#define CMHOST_ASSEMBLY_H

#include "Host.h"
#include "Pipeline.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace cmhost {

using Settings = std::vector<std::pair<std::string, std::string>>;

// The importer for input (by extension), writing into output; its source is opened and
// read here, so a file it cannot read fails before anything runs.
void addImporter(const Host& host, Pipeline& pipeline, const std::string& input,
                 ZR::CM::RQueue* output);
// A filter or packetizer (kind "filter" or "packetizer") by name, reading input and
// writing output, configured with settings. Returns the component.
ZR::RPtr<ZR::CM::RComponent> addFilter(const Host& host, Pipeline& pipeline,
                                       const std::string& kind, const std::string& name,
                                       const Settings& settings, ZR::CM::RQueue* input,
                                       ZR::CM::RQueue* output);
// An exporter reading input into `stream` (null for one that writes no stream),
// configured with settings.
void addExporter(const Host& host, Pipeline& pipeline, ZR::CM::RComponentInfo& info,
                 ZR::RPtr<ZR::CM::RStream> stream, const Settings& settings, ZR::CM::RQueue* input);
// The exporter for path (by extension), reading input into a new file at path.
void addFileExporter(const Host& host, Pipeline& pipeline, const std::string& path,
                     ZR::CM::RQueue* input);
// Runs the pipeline (with a progress line on a terminal), prints its report, and turns a
// failed run into a HostError saying `what` failed.
int runPipeline(Pipeline& pipeline, const std::string& what,
                const std::function<void()>& beforeLastStage = {});

}  // namespace cmhost

#endif
