// Building a graph of components: choosing each component by kind and format pair from
// what the component manager lists, loading it, wiring it to its queues, configuring it
// and adding it to a Pipeline as a stage.
//
// A graph is built in three steps. openInput() finds the importer that reads the input
// and returns the tracks it found; the caller decides what each track becomes and asks
// FormatRoutes for the components of each branch (decoders, filters, converters,
// encoders: StageChoice, the component and the format pair it serves); addImporter(),
// addChain() and addExporter() then wire the importer to one queue per branch, each
// branch's stages one after the other, and the exporter to the last queue of every
// branch. No component is named here: every choice is a question to the format maps.
//
// Failures throw HostError with the result code that says what went wrong and, where a
// component said why, its reason as the detail. Everything here runs on the host's main
// thread before the pipeline runs.
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

// The kinds of component that stand within a branch, as their infos name them.
constexpr unsigned int kDecoderKind = ZR::fourcc("dcmp");
constexpr unsigned int kConverterKind = ZR::fourcc("conv");
constexpr unsigned int kEncoderKind = ZR::fourcc("cmpr");
constexpr unsigned int kPacketizerKind = ZR::fourcc("pckt");

// One component of a branch and the format pair it was chosen for.
struct StageChoice {
    ZR::RPtr<ZR::CM::RComponentInfo> info;
    unsigned int in = ZR::kAnyFourCC;
    unsigned int out = ZR::kAnyFourCC;
    Settings settings;
};

// An input that an importer reads: the importer chosen (reset again, so that it can be
// wired to queues) and the movie it found.
struct Input {
    std::string media;
    ZR::RPtr<ZR::CM::RImporterInfo> info;
    ZR::RPtr<ZR::CM::RComponent> importer;
    ZR::RPtr<ZR::CM::RMovieInfo> movie;
};

// Opens media with the importers its extension (a live source's scheme) calls for, highest
// priority first, until one reads it (a WAV file of float samples falls through to an
// importer that reads those); a live source's importer gets the URL in its "url" setting
// instead of a stream. Throws the failure of the first one when none does.
Input openInput(const Host& host, const std::string& media);

// Answers which installed components turn one format into another.
class FormatRoutes {
public:
    explicit FormatRoutes(const Host& host) : mHost(host) {}

    // The first component of the kind that serves in -> out, or null.
    ZR::RPtr<ZR::CM::RComponentInfo> find(unsigned int kind, unsigned int in,
                                          unsigned int out) const;
    // Appends the stages that turn `from` into `to`: none when they are equal, else a
    // decoder, converter or encoder of the pair, else a decoder or converter into a format
    // that an encoder of `to` takes, then that encoder. With `encode` the way always ends
    // in an encoder (a track encoded again in its own codec). False when no installed
    // component serves; stages is then unchanged.
    bool route(unsigned int from, unsigned int to, bool encode,
               std::vector<StageChoice>& stages) const;
    // Appends the filter, after a decoder or converter when it does not take `from` as it
    // is; returns the format it puts out. Throws HostError naming the pair that no
    // component serves.
    unsigned int addFilter(ZR::CM::RComponentInfo& filter, const Settings& settings,
                           unsigned int from, std::vector<StageChoice>& stages) const;
    // A HostError for the pair from -> to that route() could not serve; `what` says which
    // track it concerns.
    HostError noRoute(unsigned int from, unsigned int to, const std::string& what) const;

private:
    // A decoder or converter of the pair, or null.
    ZR::RPtr<ZR::CM::RComponentInfo> findTranslator(unsigned int in, unsigned int out) const;
    // Its choice for the pair; a component that lists several outputs for one input is
    // told which it was chosen for in its "format" setting.
    StageChoice choose(ZR::RPtr<ZR::CM::RComponentInfo> info, unsigned int in,
                       unsigned int out) const;

    const Host& mHost;
};

// Wires the input's importer to outputs (queue i gets the i-th track the settings select)
// and adds it as a stage; the source is opened again for the run.
void addImporter(const Host& host, Pipeline& pipeline, Input& input,
                 const std::vector<ZR::CM::RQueue*>& outputs, const Settings& settings = {});
// Adds the stages of a branch one after the other, the first reading `input`, each writing
// a new queue of the branch named after what it does; returns the last queue (input when
// there are no stages). Stages are named "BRANCH DIRECTORY".
ZR::CM::RQueue* addChain(const Host& host, Pipeline& pipeline, const std::string& branch,
                         const std::vector<StageChoice>& stages, ZR::CM::RQueue* input);
// Adds one stage reading input and writing output (either may be null), configured with
// the choice's settings. Returns the component.
ZR::RPtr<ZR::CM::RComponent> addStage(const Host& host, Pipeline& pipeline, const std::string& name,
                                      const StageChoice& choice, ZR::CM::RQueue* input,
                                      ZR::CM::RQueue* output);
// The first exporter of the path's container that takes every one of formats; throws
// HostError naming the first format none takes.
ZR::CM::RExporterInfo& exporterTaking(const Host& host, const std::string& path,
                                      const std::vector<unsigned int>& formats);
// An exporter reading inputs into `stream` (null for one that writes no stream),
// configured with settings.
void addExporter(const Host& host, Pipeline& pipeline, ZR::CM::RComponentInfo& info,
                 ZR::RPtr<ZR::CM::RStream> stream, const Settings& settings,
                 const std::vector<ZR::CM::RQueue*>& inputs);
// Runs the pipeline (with progress on a terminal), prints its report, and turns a failed
// run into a HostError saying `what` failed, with the failing stage's reason.
int runPipeline(Pipeline& pipeline, const std::string& what,
                const std::function<void()>& beforeLastStage = {});

}  // namespace cmhost

#endif
