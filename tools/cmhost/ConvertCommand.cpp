// cmhost convert INPUT OUTPUT [--filter NAME[:key=value,...]]...
//
// Imports INPUT with the importer its extension calls for, runs the named filters in
// order, and exports OUTPUT with the exporter its extension calls for: one thread per
// component, queues with limits between them, each filter configured from its settings.
#include "Assembly.h"
#include "CommandLine.h"
#include "Commands.h"
#include "Host.h"
#include "Pipeline.h"

#include <cstdio>

namespace cmhost {

namespace {

const char kHelp[] =
    "usage: cmhost convert INPUT OUTPUT [--filter NAME[:key=value,...]]...\n"
    "\n"
    "  imports INPUT (importer chosen by extension), runs each filter in order with\n"
    "  its settings, and exports OUTPUT (exporter chosen by extension)\n"
    "  example: cmhost convert in.wav out.wav --filter gain:gain-db=-6";

struct FilterSpec {
    std::string name;
    std::vector<std::pair<std::string, std::string>> settings;
};

FilterSpec parseFilter(const std::string& text) {
    const size_t colon = text.find(':');
    FilterSpec spec{text.substr(0, colon), {}};
    if (spec.name.empty()) {
        throw UsageError("--filter needs a name");
    }
    if (colon != std::string::npos) {
        spec.settings = parseSettings(text.substr(colon + 1));
    }
    return spec;
}

}  // namespace

int runConvert(const GlobalOptions& global, const Words& args) {
    const CommandLine line(args, kHelp, {"--filter"});
    if (line.has("--help")) {
        std::puts(kHelp);
        return 0;
    }
    line.expectPositionals({"INPUT", "OUTPUT"});
    std::vector<FilterSpec> filters;
    for (const std::string& text : line.values("--filter")) {
        filters.push_back(parseFilter(text));
    }
    const Host host(global.config, global.verbose);
    Pipeline pipeline;
    ZR::CM::RQueue* queue = pipeline.addQueue("imported");
    addImporter(host, pipeline, line.positional(0, "INPUT"), queue);
    for (const FilterSpec& filter : filters) {
        ZR::CM::RQueue* next = pipeline.addQueue(filter.name);
        addFilter(host, pipeline, "filter", filter.name, filter.settings, queue, next);
        queue = next;
    }
    addFileExporter(host, pipeline, line.positional(1, "OUTPUT"), queue);
    return runPipeline(pipeline, "convert");
}

}  // namespace cmhost
