#include "Assembly.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace cmhost {

namespace {

void applySettings(ZR::CM::RComponentConfiguration& configuration, const Settings& settings) {
    for (const auto& setting : settings) {
        configuration.setString(setting.first.c_str(), setting.second.c_str());
    }
}

}  // namespace

void addImporter(const Host& host, Pipeline& pipeline, const std::string& input,
                 ZR::CM::RQueue* output) {
    const auto info = host.importerFor(input);
    const auto component = host.load(*info);
    auto* importer = dynamic_cast<ZR::CM::RImporter*>(component.addr());
    if (!importer) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        std::string(info->directoryName.c_str()) + " is not an importer");
    }
    std::vector<ZR::CM::RQueue*> outputs{output};
    pipeline.addStage(info->directoryName.c_str(), component, output);
    importer->init(host.stream(input, O_RDONLY), outputs);
    int result = importer->openSource();
    if (result != 0) {
        throw HostError(result, "cannot read " + input);
    }
    ZR::RPtr<ZR::CM::RImporterConfiguration> configuration(new ZR::CM::RImporterConfiguration);
    result = importer->configure(*configuration);
    if (result != 0) {
        throw HostError(ZR::CM::kResultComponentConfigureFailed, "cannot configure importer");
    }
}

ZR::RPtr<ZR::CM::RComponent> addFilter(const Host& host, Pipeline& pipeline,
                                       const std::string& kind, const std::string& name,
                                       const Settings& settings, ZR::CM::RQueue* input,
                                       ZR::CM::RQueue* output) {
    const auto info = host.componentNamed(name, kind);
    const auto component = host.load(*info);
    auto* stage = dynamic_cast<ZR::CM::CMMultipleQueueComponent*>(component.addr());
    if (!stage) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        std::string(info->directoryName.c_str()) + " has no queue ends");
    }
    std::vector<ZR::CM::RQueue*> inputs{input}, outputs{output};
    pipeline.addStage(info->directoryName.c_str(), component, output);
    stage->init(inputs, outputs);
    ZR::RPtr<ZR::CM::RFilterConfiguration> configuration(new ZR::CM::RFilterConfiguration);
    applySettings(*configuration, settings);
    auto* configurable = dynamic_cast<ZR::CM::CConfigurableP*>(component.addr());
    if (!configurable) {
        if (!settings.empty()) {
            throw HostError(ZR::CM::kResultComponentConfigureFailed,
                            std::string(info->directoryName.c_str()) + " takes no settings");
        }
        return component;
    }
    if (configurable->configure(*configuration) != 0) {
        throw HostError(ZR::CM::kResultComponentConfigureFailed,
                        "bad settings for " + std::string(info->directoryName.c_str()));
    }
    return component;
}

void addExporter(const Host& host, Pipeline& pipeline, ZR::CM::RComponentInfo& info,
                 ZR::RPtr<ZR::CM::RStream> stream, const Settings& settings,
                 ZR::CM::RQueue* input) {
    const auto component = host.load(info);
    auto* exporter = dynamic_cast<ZR::CM::RExporter*>(component.addr());
    if (!exporter) {
        throw HostError(ZR::CM::kResultComponentLoadFailed,
                        std::string(info.directoryName.c_str()) + " is not an exporter");
    }
    std::vector<ZR::CM::RQueue*> inputs{input};
    pipeline.addStage(info.directoryName.c_str(), component, nullptr);
    exporter->init(inputs, std::move(stream));
    ZR::RPtr<ZR::CM::RExporterConfiguration> configuration(new ZR::CM::RExporterConfiguration);
    applySettings(*configuration, settings);
    if (exporter->configure(*configuration) != 0) {
        throw HostError(ZR::CM::kResultComponentConfigureFailed,
                        "bad settings for " + std::string(info.directoryName.c_str()));
    }
}

void addFileExporter(const Host& host, Pipeline& pipeline, const std::string& path,
                     ZR::CM::RQueue* input) {
    const auto info = host.exporterFor(path);
    addExporter(host, pipeline, *info, host.openStream(path, O_RDWR | O_CREAT | O_TRUNC), {},
                input);
}

int runPipeline(Pipeline& pipeline, const std::string& what,
                const std::function<void()>& beforeLastStage) {
    const int result = pipeline.run(isatty(STDERR_FILENO), beforeLastStage);
    pipeline.printReport(stdout);
    if (result != 0) {
        throw HostError(result, what + " failed");
    }
    return 0;
}

}  // namespace cmhost
