// The component manager's start-up scan: a component directory of 1,000 generated
// components of every kind, each info.xml read, parsed and validated against data/info.dtd,
// in components per second. For comparison, the same files validated by xmllint in one
// process, timed the same way (wall clock, one run over all files per iteration), with
// --valid (each file names the definition in its DOCTYPE) and with --dtdvalid (the
// definition given on the command line); xmllint parses the definition again for every
// file either way, where the manager parses it once per scan. The CPU time of the xmllint
// process is reported as child_cpu_ms, to set beside the manager's CPU time on a busy
// machine.
//
// The manager never forgets what it scanned, so every iteration appends another 1,000
// infos; next to reading and validating the files that costs nothing measurable.
#include <cm/CMComponentManager.h>
#include <cm/CMSysConf.h>

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

extern char** environ;

namespace {

constexpr int kComponents = 1000;
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

// The generated component directory, made on first use and removed at exit.
class ComponentTree {
public:
    ComponentTree() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/cm-bench-XXXXXX";
        if (!::mkdtemp(&pattern[0])) {
            std::abort();
        }
        mDirectory = pattern;
        for (int i = 0; i < kComponents; ++i) {
            const Kind& kind = kKinds[i % std::size(kKinds)];
            const std::string component = mDirectory + "/c" + std::to_string(i) + kind.suffix;
            std::filesystem::create_directory(component);
            mFiles.push_back(component + "/info.xml");
            std::ofstream(mFiles.back()) << infoXml(i, kind);
        }
    }
    ~ComponentTree() { std::filesystem::remove_all(mDirectory); }
    const std::string& directory() const { return mDirectory; }
    const std::vector<std::string>& files() const { return mFiles; }

private:
    std::string mDirectory;
    std::vector<std::string> mFiles;
};

const ComponentTree& componentTree() {
    static const ComponentTree tree;
    return tree;
}

size_t infoCount(const ZR::CM::RComponentManager& manager) {
    return manager.getImporters().size() + manager.getDecompressors().size() +
           manager.getFilters().size() + manager.getConverters().size() +
           manager.getCompressors().size() + manager.getExporters().size() +
           manager.getPacketizers().size();
}

void setComponentsPerSecond(benchmark::State& state) {
    state.counters["components/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * kComponents, benchmark::Counter::kIsRate);
}

void BM_ManagerScan(benchmark::State& state) {
    const ComponentTree& tree = componentTree();
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
    if (infoCount(*manager) - before != static_cast<size_t>(state.iterations()) * kComponents) {
        state.SkipWithError("not every component was accepted");
        return;
    }
    setComponentsPerSecond(state);
}
BENCHMARK(BM_ManagerScan)->Unit(benchmark::kMillisecond)->UseRealTime();

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
    const std::vector<std::string>& files = componentTree().files();
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
    setComponentsPerSecond(state);
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
