// Loading the system configuration file: files of 10 to 100,000 distinct keys, each an
// element of its own below the root with a short text value, read with sys_conf::load_file
// (the streaming reader, the key built and cut back per element, the map insert), in keys
// per second. Invented keys cannot satisfy data/cm-config.dtd, so validation is off. Each
// iteration forgets the keys of the one before and loads the file again.
//
// Beside it, the part of libxml2 that grows worse than linear with distinct names: its
// dictionary, in which the parser interns every element name, given the same names alone.
#include <cm/CMSysConf.h>

#include "BenchSupport.h"

#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>

namespace {

// The file of count keys, written on first use into a directory removed at exit.
const std::string& configFile(int count) {
    static const cmbench::TempDir directory;
    static std::map<int, std::string> files;
    std::string& path = files[count];
    if (path.empty()) {
        path = directory.path() + "/keys-" + std::to_string(count) + ".conf";
        std::ofstream out(path);
        out << "<?xml version=\"1.0\"?>\n<cm-config>\n";
        for (int i = 0; i < count; ++i) {
            out << "  <key-" << i << ">value " << i << "</key-" << i << ">\n";
        }
        out << "</cm-config>\n";
    }
    return path;
}

void BM_SysConfLoad(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    const std::string& path = configFile(count);
    ZR::CM::sys_conf& conf = ZR::CM::sys_conf::instance();
    conf.set_validation(false);
    for (auto _ : state) {
        conf.clear();
        if (!conf.load_file(path.c_str(), "/")) {
            state.SkipWithError("the configuration did not load");
            return;
        }
    }
    if (conf.values().size() != static_cast<size_t>(count)) {
        state.SkipWithError("keys were lost");
        return;
    }
    state.counters["keys/s"] = benchmark::Counter(static_cast<double>(state.iterations()) * count,
                                                  benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SysConfLoad)
    ->RangeMultiplier(10)
    ->Range(10, 100000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The element names of the file of count keys, each looked up once in a fresh dictionary,
// as the parser does when it meets them.
void BM_XmlDictLookup(benchmark::State& state) {
    const int count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        const std::unique_ptr<xmlDict, void (*)(xmlDictPtr)> dictionary(xmlDictCreate(),
                                                                        xmlDictFree);
        char name[32];
        for (int i = 0; i < count; ++i) {
            const int length = std::snprintf(name, sizeof name, "key-%d", i);
            benchmark::DoNotOptimize(
                xmlDictLookup(dictionary.get(), reinterpret_cast<const xmlChar*>(name), length));
        }
    }
    state.counters["names/s"] = benchmark::Counter(static_cast<double>(state.iterations()) * count,
                                                   benchmark::Counter::kIsRate);
}
BENCHMARK(BM_XmlDictLookup)
    ->RangeMultiplier(10)
    ->Range(10, 100000)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
