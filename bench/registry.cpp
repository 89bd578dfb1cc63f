// The component manager's start-up scan: a component directory of generated components of
// every kind, each info.xml read, parsed and validated against data/info.dtd, in components
// per second; 1,000 components, and 10 to 10,000 to show how the scan grows. For
// comparison, the 1,000 files validated by xmllint in one process, timed the same way (wall
// clock, one run over all files per iteration), with --valid (each file names the
// definition in its DOCTYPE) and with --dtdvalid (the definition given on the command
// line); xmllint parses the definition again for every file either way, where the manager
// parses it once per scan. The CPU time of the xmllint process is reported as child_cpu_ms,
// to set beside the manager's CPU time on a busy machine.
//
// The manager never forgets what it scanned, so every iteration appends another set of
// infos (and sorts the grown importer list); next to reading and validating the files that
// costs nothing measurable.
#include <cm/CMComponentManager.h>
#include <cm/CMSysConf.h>

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

extern char** environ;

namespace {

constexpr int kXmllintComponents = 1000;
constexpr char kInfoDtd[] = CM_SOURCE_DIR "/data/info.dtd";

struct Kind {
    const char* suffix;
    const char* word;
};
constexpr Kind kKinds[] = {
    {".importer", "importer"},     {".decoder", "decompressor"}, {".filter", "filter"},
    {".converter", "converter"},   {".encoder", "compressor"},   {".exporter", "exporter"},
    {".packetizer", "packetizer"},
};

// What a typical component describes: its identity, two objects with a few formats, rates
// and channel counts, and its kind element.
std::string infoXml(int index, const Kind& kind) {
    std::string text = "<?xml version=\"1.0\"?>\n<!DOCTYPE info SYSTEM \"" + std::string(kInfoDtd) +
                       "\">\n<info>\n  <common>\n    <name>Component " + std::to_string(index) +
                       "</name>\n    <type>" + kind.word +
                       "</type>\n    <media>video</media>\n    <subType>mp4v</subType>\n"
                       "    <vendor>acme</vendor>\n    <version>0100</version>\n"
                       "    <componentFrameworkVersion>cf01</componentFrameworkVersion>\n"
                       "  </common>\n  <objects>\n";
    for (const char* object : {"main.so", "fast.so"}) {
        text += std::string("    <object name=\"") + object +
                "\">\n      <in>yuv2</in>\n      <in>2vuy</in>\n      <out>avc1</out>\n"
                "      <rate>25</rate>\n      <rate>30</rate>\n      <channel>1</channel>\n"
                "    </object>\n";
    }
    text += "  </objects>\n";
    if (std::string(kind.word) == "importer") {
        text +=
            "  <importer>\n    <fileExtensions><fileExtension>mp4</fileExtension>"
            "<fileExtension>mov</fileExtension></fileExtensions>\n    <mimeTypes><mimeType>"
            "video/mp4</mimeType></mimeTypes>\n    <priority>" +
            std::to_string(index % 300) + "</priority>\n  </importer>\n";
    } else {
        text += std::string("  <") + kind.word + "></" + kind.word + ">\n";
    }
    return text + "</info>\n";
}

// A generated component directory, removed at exit.
class ComponentTree {
public:
    explicit ComponentTree(int count) {
        for (int i = 0; i < count; ++i) {
            const Kind& kind = kKinds[i % std::size(kKinds)];
            const std::string component =
                mDirectory.directory("c" + std::to_string(i) + kind.suffix);
            mFiles.push_back(component + "/info.xml");
            std::ofstream(mFiles.back()) << infoXml(i, kind);
        }
    }
    const std::string& directory() const { return mDirectory.path(); }
    const std::vector<std::string>& files() const { return mFiles; }

private:
    cmbench::TempDir mDirectory;
    std::vector<std::string> mFiles;
};

// The tree of count components, made on first use.
const ComponentTree& componentTree(int count) {
    static std::map<int, std::unique_ptr<ComponentTree>> trees;
    std::unique_ptr<ComponentTree>& tree = trees[count];
    if (!tree) {
        tree = std::make_unique<ComponentTree>(count);
    }
    return *tree;
}

size_t infoCount(const ZR::CM::RComponentManager& manager) {
    return manager.getImporters().size() + manager.getDecompressors().size() +
           manager.getFilters().size() + manager.getConverters().size() +
           manager.getCompressors().size() + manager.getExporters().size() +
           manager.getPacketizers().size();
}

void setComponentsPerSecond(benchmark::State& state, int count) {
    state.counters["components/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * count, benchmark::Counter::kIsRate);
}

void BM_ManagerScan(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const ComponentTree& tree = componentTree(count);
    ZR::CM::sys_conf::instance().set_value("common.dtd-path", CM_SOURCE_DIR "/data");
    ZR::CM::RComponentManager* manager = ZR::CM::RComponentManager::getDefault();
    manager->setComponentDirectory(ZR::CString(tree.directory().c_str()));
    const size_t before = infoCount(*manager);
    for (auto _ : state) {
        if (manager->loadComponentInformation() != 0) {
            state.SkipWithError("info.dtd not found");
            return;
        }
    }
    if (infoCount(*manager) - before != static_cast<size_t>(state.iterations() * count)) {
        state.SkipWithError("not every component was accepted");
        return;
    }
    setComponentsPerSecond(state, count);
}
BENCHMARK(BM_ManagerScan)
    ->RangeMultiplier(10)
    ->Range(10, 10000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// User and system time of the waited-for children so far.
double childCpuMilliseconds() {
    rusage usage;
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto ms = [](const timeval& t) { return t.tv_sec * 1e3 + t.tv_usec / 1e3; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

// One xmllint process over all files per iteration; its output goes to /dev/null.
void BM_Xmllint(benchmark::State& state, std::vector<std::string> options) {
    std::vector<std::string> arguments{"xmllint", "--noout"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const std::vector<std::string>& files = componentTree(kXmllintComponents).files();
    arguments.insert(arguments.end(), files.begin(), files.end());
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    const double cpuBefore = childCpuMilliseconds();
    for (auto _ : state) {
        pid_t child;
        int status = 0;
        if (posix_spawnp(&child, "xmllint", &actions, nullptr, argv.data(), environ) != 0 ||
            waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            state.SkipWithError("xmllint is missing or found an invalid file");
            break;
        }
    }
    posix_spawn_file_actions_destroy(&actions);
    setComponentsPerSecond(state, kXmllintComponents);
    state.counters["child_cpu_ms"] =
        benchmark::Counter(childCpuMilliseconds() - cpuBefore, benchmark::Counter::kAvgIterations);
}
BENCHMARK_CAPTURE(BM_Xmllint, valid, std::vector<std::string>{"--valid"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_Xmllint, dtdvalid, std::vector<std::string>{"--dtdvalid", kInfoDtd})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
