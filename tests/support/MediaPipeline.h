// A real pipeline for the component tests: importer → queue → (filter → queue →) exporter,
// over file streams, every component on its own thread. Only the library's component
// bases are used, so any importer, filter and exporter fit.
#ifndef CM_TESTS_SUPPORT_MEDIAPIPELINE_H
#define CM_TESTS_SUPPORT_MEDIAPIPELINE_H

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMExporter.h>
#include <cm/CMImporter.h>
#include <cm/CMStream.h>

#include <cm/CMFrame.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace cmtest {

// A file stream for path, not yet open; flags are open(2) flags.
ZR::RPtr<ZR::CM::RStream> fileStream(const std::string& path, unsigned int flags);
// Initializes the importer on the file at path, without queues, and opens its source;
// openSource()'s result.
int openOn(ZR::CM::RImporter& importer, const std::string& path);

// Written as {importer, filter, filterArgument, exporter}; the rest as needed.
struct Pipeline {
    ZR::CM::RImporter* importer = nullptr;
    ZR::CM::CMMultipleQueueComponent* filter = nullptr;  // optional
    // Handed to the filter's start() (a filter's configuration travels that way).
    zrbase::object_refcount* filterArgument = nullptr;
    ZR::CM::RExporter* exporter = nullptr;
    // The importer's and the exporter's configurations.
    ZR::CM::RImporterConfiguration importerConfiguration = {};
    ZR::CM::RExporterConfiguration exporterConfiguration = {};
    // Queue limits: small, so that flow control is exercised.
    int lowLimit = 2;
    int highLimit = 4;
};

// Wires the pipeline from the file at input to the file at output (created or emptied),
// configures the importer and exporter, opens the source, and when that succeeds starts
// every component and joins them all. Returns openSource()'s result; the components are
// reset afterwards either way, so they release their queues and streams.
int runPipeline(Pipeline& pipeline, const std::string& input, const std::string& output);

// Feeds the exporter from the test's thread: publishes the description (unless null),
// puts the frames through a queue with small limits, ends it, and waits for the exporter,
// which writes to a file at path (created or emptied). Returns the exporter's status; the
// exporter is reset afterwards.
ZR::CM::CComponentStatus exportFrames(ZR::CM::RExporter& exporter, const std::string& path,
                                      const ZR::CM::RDescription* description,
                                      const std::vector<ZR::RPtr<ZR::CM::RFrame>>& frames);

// What a filter makes of the frames, fed and read on the test's thread around the filter's
// own: the description its output queue ended up with (null if none) and its frames in
// order. argument goes to the filter's start(). The filter is reset afterwards.
struct Filtered {
    ZR::RPtr<const ZR::CM::RDescription> description;
    std::vector<ZR::RPtr<ZR::CM::RFrame>> frames;
};
Filtered filterFrames(ZR::CM::CMMultipleQueueComponent& filter, zrbase::object_refcount* argument,
                      const ZR::CM::RDescription* description,
                      const std::vector<ZR::RPtr<ZR::CM::RFrame>>& frames);

// Whether a run ended with the result and a status text that contains `says`; a failure
// shows what the status held.
testing::AssertionResult endedWith(const ZR::CM::CComponentStatus& status, int result,
                                   const std::string& says);

}  // namespace cmtest

#endif
