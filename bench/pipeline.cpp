// Frames per second through the runtime with real threads: one writer thread feeding 1, 2
// or 4 reader threads through one queue (each reader receives its own copy of every frame,
// as the design requires), with no limits and with high 64 / low 16, and a three-stage
// pipeline of components (producer, pass-through filter, consumer). A plain memcpy of the
// same bytes per frame and reader is the yardstick for what the runtime itself costs.
// minflt/frame counts the minor page faults of the whole process per frame, a figure that
// unlike the times does not depend on what else runs on the machine.
#include <cm/CMComponent.h>
#include <cm/CMFrame.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cstring>
#include <thread>
#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

constexpr unsigned int kFramesPerRun = 20000;

unsigned int framesFor(unsigned int size) {
    return size >= (1u << 20) ? 500 : kFramesPerRun;  // keep 1 MiB runs short
}

long minorFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// Reports the faults since `before` per frame passed.
void countFaults(benchmark::State& state, long before, unsigned int frames) {
    state.counters["minflt/frame"] = static_cast<double>(minorFaults() - before) /
                                     static_cast<double>(state.iterations() * frames);
}

// One shared source frame: the writer puts the same frame again and again, so the figure
// is the queue hand-off plus the per-reader copy, not the producer's own work.
RPtr<const RFrame> sourceFrame(unsigned int size) {
    std::vector<unsigned char> bytes(size, 0x47);
    return RVideoFrame::createWithData(fourcc("raw "), size, bytes.data(), 0, ConstructionCopy);
}

void BM_QueueFanOut(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const int readers = static_cast<int>(state.range(1));
    const bool limited = state.range(2) != 0;
    const unsigned int frames = framesFor(size);
    // Distinct frames: a queue must never hold the same node twice.
    std::vector<RPtr<const RFrame>> pool;
    for (unsigned int i = 0; i < frames; ++i) {
        pool.push_back(sourceFrame(size));
    }
    const long faultsBefore = minorFaults();
    for (auto _ : state) {
        RPtr<RQueue> queue(new RQueue(limited ? 16 : 0, limited ? 64 : 0, CString("bench")));
        std::vector<RPtr<RQFrameReader>> readerObjects;
        for (int r = 0; r < readers; ++r) {
            readerObjects.emplace_back(new RQFrameReader(queue.addr(), nullptr));
        }
        std::vector<std::thread> threads;
        for (int r = 0; r < readers; ++r) {
            threads.emplace_back([&, r] {
                while (RPtr<RFrame> f = readerObjects[static_cast<size_t>(r)]->nextFrame()) {
                    benchmark::DoNotOptimize(f.addr());
                }
            });
        }
        RQFrameWriter writer(queue.addr(), nullptr);
        for (const RPtr<const RFrame>& frame : pool) {
            writer.put(frame);
        }
        writer.end();
        for (auto& t : threads) {
            t.join();
        }
        state.PauseTiming();
        readerObjects.clear();  // drops the last node before the pool is reused
        queue = nullptr;
        state.ResumeTiming();
    }
    countFaults(state, faultsBefore, frames);
    state.SetItemsProcessed(state.iterations() * frames);
    state.SetBytesProcessed(state.iterations() * frames * size * readers);
}

void fanOutArgs(benchmark::internal::Benchmark* bench) {
    for (const int size : {188, 4 << 10, 1 << 20}) {
        for (const int readers : {1, 2, 4}) {
            for (const int limited : {0, 1}) {
                bench->Args({size, readers, limited});
            }
        }
    }
    bench->ArgNames({"size", "readers", "limited"})->UseRealTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK(BM_QueueFanOut)->Apply(fanOutArgs);

// The yardstick: copying the same bytes once per frame and reader on one thread.
void BM_MemcpyYardstick(benchmark::State& state) {
    const auto size = static_cast<size_t>(state.range(0));
    const int readers = static_cast<int>(state.range(1));
    const unsigned int frames = framesFor(static_cast<unsigned int>(size));
    std::vector<unsigned char> from(size, 0x47), to(size);
    for (auto _ : state) {
        for (unsigned int i = 0; i < frames * static_cast<unsigned int>(readers); ++i) {
            std::memcpy(to.data(), from.data(), size);
            benchmark::ClobberMemory();
        }
    }
    state.SetItemsProcessed(state.iterations() * frames);
    state.SetBytesProcessed(state.iterations() * frames * size * readers);
}
BENCHMARK(BM_MemcpyYardstick)
    ->ArgsProduct({{188, 4 << 10, 1 << 20}, {1, 2, 4}})
    ->ArgNames({"size", "readers"})
    ->Unit(benchmark::kMillisecond);

class Producer : public CMMultipleQueueComponent {
public:
    Producer(std::vector<RPtr<const RFrame>>& pool) : mPool(pool) {}
    unsigned int type() const override { return fourcc("impt"); }
    void flush() override {
        for (const RPtr<const RFrame>& frame : mPool) {
            getWriter(0)->put(frame);
        }
    }

private:
    std::vector<RPtr<const RFrame>>& mPool;
};

class Pass : public CMMultipleQueueComponent {
public:
    unsigned int type() const override { return fourcc("fltr"); }
    void process() override {
        if (RPtr<RFrame> frame = getReader(0)->nextFrame()) {
            getWriter(0)->put(frame);
        }
    }
    void flush() override {}
};

class Sink : public CMMultipleQueueComponent {
public:
    unsigned int type() const override { return fourcc("expt"); }
    void process() override { benchmark::DoNotOptimize(getReader(0)->nextFrame().addr()); }
    void flush() override {}
};

// Producer -> filter -> consumer on three component threads, queues limited to 64/16.
void BM_ThreeStagePipeline(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const unsigned int frames = framesFor(size);
    std::vector<RPtr<const RFrame>> pool;
    for (unsigned int i = 0; i < frames; ++i) {
        pool.push_back(sourceFrame(size));
    }
    const long faultsBefore = minorFaults();
    for (auto _ : state) {
        RPtr<RQueue> first(new RQueue(16, 64, CString("1"))),
            second(new RQueue(16, 64, CString("2")));
        RPtr<Producer> producer(new Producer(pool));
        RPtr<Pass> filter(new Pass);
        RPtr<Sink> sink(new Sink);
        std::vector<RQueue*> none, one{first.addr()}, two{second.addr()};
        producer->init(none, one);
        filter->init(one, two);
        sink->init(two, none);
        sink->start(nullptr);
        filter->start(nullptr);
        producer->start(nullptr);
        producer->join();
        filter->join();
        sink->join();
        state.PauseTiming();
        producer->reset();
        filter->reset();
        sink->reset();
        state.ResumeTiming();
    }
    countFaults(state, faultsBefore, frames);
    state.SetItemsProcessed(state.iterations() * frames);
}
BENCHMARK(BM_ThreeStagePipeline)
    ->Arg(188)
    ->Arg(4 << 10)
    ->Arg(1 << 20)
    ->ArgName("size")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
