#include "Assembly.h"

#include "Commands.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <list>

namespace cmhost {

namespace {

std::string directoryOf(const ZR::CM::RComponentInfo& info) {
    return info.directoryName.c_str();
}

// The four characters of a FourCC, as settings and format maps write them ("I420").
std::string fourccChars(unsigned int code) {
    const char chars[4] = {static_cast<char>(code >> 24), static_cast<char>(code >> 16),
                           static_cast<char>(code >> 8), static_cast<char>(code)};
    return std::string(chars, 4);
}

void applySettings(ZR::CM::RComponentConfiguration& configuration, const Settings& settings) {
    for (const auto& setting : settings) {
        configuration.setString(setting.first.c_str(), setting.second.c_str());
    }
}

// The configuration class of a component kind.
ZR::CM::RComponentConfiguration* newConfiguration(unsigned int kind) {
    switch (kind) {
        case kDecoderKind:
            return new ZR::CM::RDecompressorConfiguration;
        case kConverterKind:
            return new ZR::CM::RConverterConfiguration;
        case kEncoderKind:
            return new ZR::CM::RCompressorConfiguration;
        case kPacketizerKind:
            return new ZR::CM::RPacketizerConfiguration;
        default:
            return new ZR::CM::RFilterConfiguration;
    }
}

// What a stage does, for the names of the queues it writes.
std::string roleOf(const ZR::CM::RComponentInfo& info) {
    switch (info.type) {
        case kDecoderKind:
            return "decode";
        case kConverterKind:
            return "convert";
        case kEncoderKind:
            return "encode";
        case kPacketizerKind:
            return "packetize";
        default: {
            const std::string directory = directoryOf(info);
            return directory.substr(0, directory.find('.'));
        }
    }
}

ZR::CM::RImporter& importerOf(const Input& source) {
    auto* importer = dynamic_cast<ZR::CM::RImporter*>(source.importer.addr());
    if (!importer) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        directoryOf(*source.info) + " is not an importer");
    }
    return *importer;
}

// "DIRECTORY: REASON" for a component that failed with code, or "" when it gave no reason.
std::string reasonOf(ZR::CM::RComponentInfo& info, ZR::CM::RComponent& component, int code) {
    const std::string reason = statusReason(component, code);
    return reason.empty() ? "" : directoryOf(info) + ": " + reason;
}

// Gives the importer its source: a live source's URL in its "url" setting (the host has no
// stream for it), anything else as a stream opened here.
void initImporter(const Host& host, const Input& source, std::vector<ZR::CM::RQueue*>& queues) {
    ZR::CM::RImporter& importer = importerOf(source);
    if (!isLiveSource(source.media)) {
        importer.init(host.openStream(source.media, O_RDONLY), queues);
        return;
    }
    importer.init(nullptr, queues);
    ZR::RPtr<ZR::CM::RImporterConfiguration> url(new ZR::CM::RImporterConfiguration);
    url->setString("url", source.media.c_str());
    const int result = importer.preconfigure(*url);
    if (result != 0) {
        throw HostError(result > 0 ? result : ZR::CM::kResultComponentConfigureFailed,
                        directoryOf(*source.info) + " takes no URL",
                        statusReason(*source.importer, result));
    }
}

}  // namespace

Input openInput(const Host& host, const std::string& media) {
    std::vector<HostError> failures;
    for (ZR::CM::RImporterInfo* info : host.importersFor(media)) {
        Input source{media, info, host.load(*info), nullptr};
        ZR::CM::RImporter& importer = importerOf(source);
        std::vector<ZR::CM::RQueue*> none;
        initImporter(host, source, none);
        const int result = importer.openSource();
        if (result == 0) {
            source.movie = importer.getMovieInfo();
        } else {
            failures.emplace_back(result, "cannot read " + withoutCredentials(media),
                                  reasonOf(*info, *source.importer, result));
        }
        source.importer->reset();
        if (result == 0) {
            return source;
        }
    }
    throw failures.front();
}

ZR::RPtr<ZR::CM::RComponentInfo> FormatRoutes::find(unsigned int kind, unsigned int in,
                                                    unsigned int out) const {
    ZR::CM::RComponentInfoMatch query;
    query.type = kind;
    query.inFormat = in;
    query.outFormat = out;
    std::list<ZR::RPtr<ZR::CM::RComponentInfo>> found;
    mHost.manager().findComponents(query, found);
    return found.empty() ? ZR::RPtr<ZR::CM::RComponentInfo>() : found.front();
}

ZR::RPtr<ZR::CM::RComponentInfo> FormatRoutes::findTranslator(unsigned int in,
                                                              unsigned int out) const {
    const ZR::RPtr<ZR::CM::RComponentInfo> decoder = find(kDecoderKind, in, out);
    return decoder ? decoder : find(kConverterKind, in, out);
}

StageChoice FormatRoutes::choose(ZR::RPtr<ZR::CM::RComponentInfo> info, unsigned int in,
                                 unsigned int out) const {
    std::vector<unsigned int> outs;
    info->formatMap.supportedOutFormats(outs, in);
    std::sort(outs.begin(), outs.end());
    Settings settings;
    if (std::unique(outs.begin(), outs.end()) - outs.begin() > 1) {
        settings.emplace_back("format", fourccChars(out));
    }
    return StageChoice{std::move(info), in, out, settings};
}

bool FormatRoutes::route(unsigned int from, unsigned int to, bool encode,
                         std::vector<StageChoice>& stages) const {
    if (!encode) {
        if (from == to) {
            return true;
        }
        for (const unsigned int kind : {kDecoderKind, kConverterKind, kEncoderKind}) {
            if (const auto info = find(kind, from, to)) {
                stages.push_back(choose(info, from, to));
                return true;
            }
        }
    }
    ZR::CM::RComponentInfoMatch query;
    query.type = kEncoderKind;
    query.outFormat = to;
    std::list<ZR::RPtr<ZR::CM::RComponentInfo>> encoders;
    mHost.manager().findComponents(query, encoders);
    for (const auto& encoder : encoders) {
        std::vector<unsigned int> takes;
        encoder->formatMap.supportedInFormats(takes, to);
        for (const unsigned int format : takes) {
            if (format == from || format == ZR::kAnyFourCC) {
                stages.push_back(choose(encoder, from, to));
                return true;
            }
            if (const auto translator = findTranslator(from, format)) {
                stages.push_back(choose(translator, from, format));
                stages.push_back(choose(encoder, format, to));
                return true;
            }
        }
    }
    return false;
}

unsigned int FormatRoutes::addFilter(ZR::CM::RComponentInfo& filter, const Settings& settings,
                                     unsigned int from, std::vector<StageChoice>& stages) const {
    std::vector<unsigned int> takes{from};
    if (!filter.formatMap.findFormatItem(from, ZR::kAnyFourCC)) {
        takes.clear();
        filter.formatMap.supportedInFormats(takes, ZR::kAnyFourCC);
    }
    for (const unsigned int format : takes) {
        if (format != from) {
            const auto translator = findTranslator(from, format);
            if (!translator) {
                continue;
            }
            stages.push_back(choose(translator, from, format));
        }
        const unsigned int out = filter.formatMap.findFormatItem(format, ZR::kAnyFourCC)->outFormat;
        const unsigned int made = out == ZR::kAnyFourCC ? format : out;
        stages.push_back(StageChoice{&filter, format, made, settings});
        return made;
    }
    std::string formats;
    for (const unsigned int format : takes) {
        formats += (formats.empty() ? "" : ", ") + fourccText(format);
    }
    throw HostError(ZR::CM::kResultNoDecoder, "no component turns " + fourccText(from) +
                                                  " into a format " + directoryOf(filter) +
                                                  " takes (" + formats + ")");
}

HostError FormatRoutes::noRoute(unsigned int from, unsigned int to, const std::string& what) const {
    // Where something decodes the input, what is missing is the encoder.
    const bool decodes = findTranslator(from, ZR::kAnyFourCC) != nullptr;
    return HostError(
        decodes ? ZR::CM::kResultNoEncoder : ZR::CM::kResultNoDecoder,
        "no component turns " + fourccText(from) + " into " + fourccText(to) + " (" + what + ")");
}

void addImporter(const Host& host, Pipeline& pipeline, Input& source,
                 const std::vector<ZR::CM::RQueue*>& outputs, const Settings& settings) {
    ZR::CM::RImporter& importer = importerOf(source);
    // From here on the pipeline resets the importer, which lets go of its queues.
    pipeline.addStage(directoryOf(*source.info), source.importer);
    std::vector<ZR::CM::RQueue*> queues(outputs);
    initImporter(host, source, queues);
    int result = importer.openSource();
    if (result != 0) {
        throw HostError(result, "cannot read " + withoutCredentials(source.media),
                        reasonOf(*source.info, *source.importer, result));
    }
    ZR::RPtr<ZR::CM::RImporterConfiguration> configuration(new ZR::CM::RImporterConfiguration);
    applySettings(*configuration, settings);
    if ((result = importer.configure(*configuration)) != 0) {
        throw HostError(result > 0 ? result : ZR::CM::kResultComponentConfigureFailed,
                        "cannot configure " + directoryOf(*source.info),
                        statusReason(*source.importer, result));
    }
}

ZR::CM::RQueue* addChain(const Host& host, Pipeline& pipeline, const std::string& branch,
                         const std::vector<StageChoice>& stages, ZR::CM::RQueue* input) {
    ZR::CM::RQueue* queue = input;
    for (const StageChoice& choice : stages) {
        ZR::CM::RQueue* next = pipeline.addQueue(branch, roleOf(*choice.info));
        addStage(host, pipeline, branch + " " + directoryOf(*choice.info), choice, queue, next);
        queue = next;
    }
    return queue;
}

ZR::RPtr<ZR::CM::RComponent> addStage(const Host& host, Pipeline& pipeline, const std::string& name,
                                      const StageChoice& choice, ZR::CM::RQueue* input,
                                      ZR::CM::RQueue* output) {
    ZR::CM::RComponentInfo& info = *choice.info;
    const auto component = host.load(info, choice.in, choice.out);
    auto* stage = dynamic_cast<ZR::CM::CMMultipleQueueComponent*>(component.addr());
    if (!stage) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        directoryOf(info) + " has no queue ends");
    }
    pipeline.addStage(name, component);
    std::vector<ZR::CM::RQueue*> inputs, outputs;
    if (input) {
        inputs.push_back(input);
    }
    if (output) {
        outputs.push_back(output);
    }
    stage->init(inputs, outputs);
    auto* configurable = dynamic_cast<ZR::CM::CConfigurableP*>(component.addr());
    if (!configurable) {
        if (!choice.settings.empty()) {
            throw HostError(ZR::CM::kResultComponentConfigureFailed,
                            directoryOf(info) + " takes no settings");
        }
        return component;
    }
    const ZR::RPtr<ZR::CM::RComponentConfiguration> configuration(newConfiguration(info.type));
    applySettings(*configuration, choice.settings);
    const int result = configurable->configure(*configuration);
    if (result != 0) {
        throw HostError(result > 0 ? result : ZR::CM::kResultComponentConfigureFailed,
                        "bad settings for " + directoryOf(info), statusReason(*component, result));
    }
    return component;
}

ZR::CM::RExporterInfo& exporterTaking(const Host& host, const std::string& path,
                                      const std::vector<unsigned int>& formats) {
    const unsigned int container = containerFourCC(extensionOf(path));
    const std::vector<ZR::CM::RExporterInfo*> exporters = host.exportersFor(path);
    for (ZR::CM::RExporterInfo* exporter : exporters) {
        if (std::all_of(formats.begin(), formats.end(), [&](unsigned int format) {
                return exporter->formatMap.supportsFormats(format, container);
            })) {
            return *exporter;
        }
    }
    for (const unsigned int format : formats) {
        if (std::none_of(exporters.begin(), exporters.end(), [&](ZR::CM::RExporterInfo* e) {
                return e->formatMap.supportsFormats(format, container);
            })) {
            throw HostError(ZR::CM::kResultNoExporter, "no exporter writes " + fourccText(format) +
                                                           " into ." + extensionOf(path) +
                                                           " files");
        }
    }
    throw HostError(ZR::CM::kResultNoExporter,
                    "no exporter writes all these tracks into ." + extensionOf(path) + " files");
}

void addExporter(const Host& host, Pipeline& pipeline, ZR::CM::RComponentInfo& info,
                 ZR::RPtr<ZR::CM::RStream> stream, const Settings& settings,
                 const std::vector<ZR::CM::RQueue*>& inputs) {
    const auto component = host.load(info);
    auto* exporter = dynamic_cast<ZR::CM::RExporter*>(component.addr());
    if (!exporter) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        directoryOf(info) + " is not an exporter");
    }
    pipeline.addStage(directoryOf(info), component);
    std::vector<ZR::CM::RQueue*> queues(inputs);
    exporter->init(queues, std::move(stream));
    ZR::RPtr<ZR::CM::RExporterConfiguration> configuration(new ZR::CM::RExporterConfiguration);
    applySettings(*configuration, settings);
    const int result = exporter->configure(*configuration);
    if (result != 0) {
        throw HostError(result > 0 ? result : ZR::CM::kResultComponentConfigureFailed,
                        "bad settings for " + directoryOf(info), statusReason(*component, result));
    }
}

int runPipeline(Pipeline& pipeline, const std::string& what,
                const std::function<void()>& beforeLastStage) {
    const int result = pipeline.run(isatty(STDERR_FILENO), beforeLastStage);
    pipeline.printReport(stdout);
    if (result != 0) {
        throw HostError(result, what + " failed", pipeline.failure());
    }
    return 0;
}

}  // namespace cmhost
