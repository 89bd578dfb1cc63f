// Pipelines of several tracks for the tests of the coded-media components: an importer
// with one queue per track, a chain of stages (decoders, filters, encoders) per track, and
// one exporter that takes every chain, over file streams, every component on its own
// thread. Also the importer's tracks read straight from its queues, tracks fed to an
// exporter from the test, settings written as text, and ffprobe's numbers for the files.
#ifndef CM_TESTS_SUPPORT_CODEDPIPELINES_H
#define CM_TESTS_SUPPORT_CODEDPIPELINES_H

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMExporter.h>
#include <cm/CMFrame.h>
#include <cm/CMImporter.h>

#include <map>
#include <string>
#include <vector>

namespace cmtest {

// Written as {importer, chains, exporter}; the rest as needed.
struct Graph {
    ZR::CM::RImporter* importer = nullptr;
    // One chain per imported track, in track order; an empty chain copies the track.
    std::vector<std::vector<ZR::CM::CMMultipleQueueComponent*>> chains = {};
    ZR::CM::RExporter* exporter = nullptr;
    ZR::CM::RImporterConfiguration importerConfiguration = {};
    ZR::CM::RExporterConfiguration exporterConfiguration = {};
    // Small limits, so that flow control is exercised.
    int lowLimit = 2;
    int highLimit = 4;
};

// Wires the graph from the file at input to the file at output (created or emptied),
// configures the importer and exporter (the stages are configured by the caller), opens
// the source and, when that succeeds, runs every component and joins them. Returns
// openSource()'s result; every component is reset afterwards.
int runGraph(Graph& graph, const std::string& input, const std::string& output);
// The same with the importer's stream given: null for an importer that takes its source
// from its settings (a live URL).
int runGraph(Graph& graph, ZR::RPtr<ZR::CM::RStream> input, const std::string& output);

// One queue's worth of frames.
struct Track {
    ZR::RPtr<const ZR::CM::RDescription> description;
    std::vector<ZR::RPtr<ZR::CM::RFrame>> frames;
};

// Runs the importer on the stream with `queues` output queues, each read on a thread of
// its own; returns openSource()'s result and, when it succeeded, what came out of each
// queue. The importer is reset afterwards.
int importTracks(ZR::CM::RImporter& importer, ZR::RPtr<ZR::CM::RStream> stream, std::size_t queues,
                 std::vector<Track>& tracks,
                 const ZR::CM::RImporterConfiguration& configuration = {});

// Feeds the tracks to the exporter writing path, all of the first track, then all of the
// next, through queues with tiny limits: an exporter that waited on one input while
// another is full would never end. Returns the exporter's status; it is reset afterwards.
ZR::CM::CComponentStatus exportTracks(ZR::CM::RExporter& exporter, const std::string& path,
                                      const std::vector<Track>& tracks);

// Sets the settings written as text ("mtu=256,payload-type=96") in the configuration.
void setAll(ZR::CM::RComponentConfiguration& configuration, const std::string& settings);
// A configuration of any component's kind holding the settings written as text.
template <typename Configuration = ZR::CM::RComponentConfiguration>
ZR::RPtr<Configuration> settingsOf(const std::string& settings) {
    ZR::RPtr<Configuration> configuration(new Configuration);
    setAll(*configuration, settings);
    return configuration;
}

// A number of ffprobe's stream fields (see probeStreams); NaN when absent or "N/A".
double probedNumber(const std::map<std::string, std::string>& stream, const std::string& key);
// ffprobe's duration of the whole file, in seconds; NaN when ffprobe fails.
double probeDuration(const std::string& path);

}  // namespace cmtest

#endif
