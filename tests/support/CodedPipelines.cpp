#include "support/CodedPipelines.h"

#include "support/MediaPipeline.h"
#include "support/MediaTools.h"

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include <fcntl.h>

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <thread>

using ZR::RPtr;
using namespace ZR::CM;

// What the sanitizer builds must let be in FFmpeg's libraries, which are not instrumented
// (cmhost carries the same list: each program names its own). libx265 3.5, as Debian
// ships it, leaks a few allocations of every encoder it opens, however it is closed; and
// the frame threads of FFmpeg's decoders hand pictures over through atomics the thread
// checker cannot see, so it takes a picture freed by the thread that received it for a
// race with the decoding thread that allocated it. The checkers ask for these lists; the
// other builds never call them.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265.so\n";
}
extern "C" const char* __tsan_default_suppressions() {
    return "race:libavutil.so\nrace:libavcodec.so\n";
}

namespace cmtest {

namespace {

std::vector<RPtr<RQueue>> makeQueues(std::size_t count, int low, int high, const char* name) {
    std::vector<RPtr<RQueue>> queues;
    for (std::size_t i = 0; i < count; ++i) {
        queues.emplace_back(new RQueue(low, high, ZR::CString(name)));
    }
    return queues;
}

std::vector<RQueue*> pointers(const std::vector<RPtr<RQueue>>& queues) {
    std::vector<RQueue*> raw;
    for (const RPtr<RQueue>& queue : queues) {
        raw.push_back(queue.addr());
    }
    return raw;
}

}  // namespace

int runGraph(Graph& g, const std::string& input, const std::string& output) {
    return runGraph(g, fileStream(input, O_RDONLY), output);
}

int runGraph(Graph& g, RPtr<RStream> input, const std::string& output) {
    std::vector<RPtr<RQueue>> all;
    std::vector<RQueue*> imported, exported;
    for (const auto& chain : g.chains) {
        std::vector<RPtr<RQueue>> queues =
            makeQueues(chain.size() + 1, g.lowLimit, g.highLimit, "track");
        imported.push_back(queues.front().addr());
        exported.push_back(queues.back().addr());
        for (std::size_t i = 0; i < chain.size(); ++i) {
            std::vector<RQueue*> in{queues[i].addr()}, out{queues[i + 1].addr()};
            chain[i]->init(in, out);
        }
        all.insert(all.end(), queues.begin(), queues.end());
    }
    g.importer->init(std::move(input), imported);
    g.importer->configure(g.importerConfiguration);
    g.exporter->init(exported, fileStream(output, O_RDWR | O_CREAT | O_TRUNC));
    g.exporter->configure(g.exporterConfiguration);
    const int opened = g.importer->openSource();
    std::vector<RComponent*> components{g.exporter};
    for (const auto& chain : g.chains) {
        components.insert(components.end(), chain.begin(), chain.end());
    }
    components.push_back(g.importer);
    if (opened == 0) {
        for (RComponent* component : components) {
            component->start(nullptr);
        }
        for (RComponent* component : components) {
            component->join();
        }
    }
    for (RComponent* component : components) {
        component->reset();
    }
    return opened;
}

int importTracks(RImporter& importer, RPtr<RStream> stream, std::size_t queueCount,
                 std::vector<Track>& tracks, const RImporterConfiguration& configuration) {
    std::vector<RPtr<RQueue>> queues = makeQueues(queueCount, 1, 2, "imported");
    std::vector<RQueue*> outputs = pointers(queues);
    importer.init(std::move(stream), outputs);
    RImporterConfiguration settings(configuration);
    importer.configure(settings);
    const int opened = importer.openSource();
    tracks.assign(queueCount, Track());
    if (opened == 0) {
        std::vector<RPtr<RQFrameReader>> readers;
        for (RQueue* queue : outputs) {
            readers.emplace_back(new RQFrameReader(queue, nullptr));
        }
        importer.start(nullptr);
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < queueCount; ++i) {
            threads.emplace_back([&, i] {
                while (RPtr<RFrame> frame = readers[i]->nextFrame()) {
                    tracks[i].frames.push_back(frame);
                }
                tracks[i].description =
                    static_cast<const RDescription*>(outputs[i]->getDescription().addr());
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        importer.join();
    }
    importer.reset();
    return opened;
}

CComponentStatus exportTracks(RExporter& exporter, const std::string& path,
                              const std::vector<Track>& tracks) {
    std::vector<RPtr<RQueue>> queues = makeQueues(tracks.size(), 1, 2, "frames");
    std::vector<RQueue*> inputs = pointers(queues);
    exporter.init(inputs, fileStream(path, O_RDWR | O_CREAT | O_TRUNC));
    exporter.start(nullptr);
    std::vector<RPtr<RQFrameWriter>> writers;
    for (RQueue* queue : inputs) {
        writers.emplace_back(new RQFrameWriter(queue, nullptr));
    }
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        if (tracks[i].description) {
            writers[i]->setDescription(tracks[i].description);
        }
    }
    for (std::size_t i = 0; i < tracks.size(); ++i) {
        for (const RPtr<RFrame>& frame : tracks[i].frames) {
            // The queue takes frames that are in no other queue.
            writers[i]->putP(frame->copy());
        }
        writers[i]->end();
    }
    exporter.join();
    const CComponentStatus status = exporter.getStatus();
    exporter.reset();
    return status;
}

void setAll(RComponentConfiguration& configuration, const std::string& settings) {
    std::istringstream pairs(settings);
    for (std::string pair; std::getline(pairs, pair, ',');) {
        const std::size_t equals = pair.find('=');
        configuration.setString(pair.substr(0, equals).c_str(), pair.substr(equals + 1).c_str());
    }
}

double probedNumber(const std::map<std::string, std::string>& stream, const std::string& key) {
    const auto found = stream.find(key);
    if (found == stream.end() || found->second.empty() || found->second == "N/A") {
        return NAN;
    }
    return std::strtod(found->second.c_str(), nullptr);
}

double probeDuration(const std::string& path) {
    const ToolRun run = runCommand("ffprobe -v error -show_entries format=duration -of csv=p=0 " +
                                   shellQuote(path));
    return run.status == 0 && !run.output.empty() ? std::strtod(run.output.c_str(), nullptr) : NAN;
}

}  // namespace cmtest
