// Frames per second through the runtime with real threads: one writer thread feeding 1, 2
// or 4 reader threads (and 8 at 4 KiB) through one queue, with no limits and with limits,
// and a three-stage pipeline of components (producer, pass-through filter, consumer). A
// limited queue holds at most 64 frames and at most 10 MiB, as GStreamer's queue holds at
// most 200 buffers and 10 MiB by default: high 64 / low 16 up to 160 KiB frames, high 10 /
// low 2 at 1 MiB. Readers read either way: their own copy of every frame (nextFrame()) or the
// queued frame itself (nextSharedFrame()); the pass-through filter that reads shared frames
// puts a copy, as a node lives in one queue only. A plain memcpy of the same bytes per
// frame and reader is the yardstick for what the copies cost, and a single-producer
// single-consumer ring passing the frames' pointers without a lock the upper bound of a
// hand-off between two threads.
//
// `bench_pipeline --once fanout SIZE READERS FRAMES` and `--once pipeline SIZE FRAMES` run
// one shape once, with limited queues, shared reads and a fresh zero-filled frame made for
// every put, and exit: a whole process to time beside other programs (bench/compare does).
// minflt/frame counts the minor page faults of the whole process per frame, a figure that
// unlike the times does not depend on what else runs on the machine.
#include <cm/CMComponent.h>
#include <cm/CMFrame.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

constexpr unsigned int kFramesPerRun = 20000;

unsigned int framesFor(unsigned int size) {
    return size >= (1u << 20) ? 500 : kFramesPerRun;  // keep 1 MiB runs short
}

// Frame i of a run, asked for on the writing thread.
using FrameSource = std::function<RPtr<const RFrame>(unsigned int)>;

// The limits of a queue of frames of `size` bytes (see the top of the file).
struct Limits {
    explicit Limits(unsigned int size)
        : high(static_cast<int>(std::clamp(kQueueBytes / std::max(size, 1u), 4u, 64u))),
          low(high / 4) {}
    static constexpr unsigned int kQueueBytes = 10u << 20;
    int high;
    int low;
};

// The next frame of the reader, shared or its own copy.
RPtr<const RFrame> readFrame(RQFrameReader& reader, bool shared) {
    return shared ? reader.nextSharedFrame() : RPtr<const RFrame>(reader.nextFrame());
}

RPtr<const RFrame> zeroFrame(unsigned int size) {
    return RVideoFrame::createWithData(fourcc("raw "), size, nullptr, 0, ConstructionCopy);
}

// Distinct frames made before the clock starts (a queue must never hold the same node
// twice), so that the figure is the queue hand-off plus the per-reader copy, not the
// producer's own work. Made once per size and kept: Google Benchmark calls a benchmark
// several times while it settles the iteration count, and 500 fresh 1 MiB frames each time
// would cost more than the measurement.
const std::vector<RPtr<const RFrame>>& framePool(unsigned int size) {
    static std::map<unsigned int, std::vector<RPtr<const RFrame>>> pools;
    std::vector<RPtr<const RFrame>>& pool = pools[size];
    while (pool.size() < framesFor(size)) {
        pool.push_back(zeroFrame(size));
    }
    return pool;
}

// One writer on the calling thread, each reader on a thread of its own.
// Without limits when `limits` is null.
void fanOut(unsigned int frames, int readers, const Limits* limits, bool shared,
            const FrameSource& frame) {
    RPtr<RQueue> queue(
        new RQueue(limits ? limits->low : 0, limits ? limits->high : 0, CString("bench")));
    std::vector<RPtr<RQFrameReader>> readerObjects;
    for (int r = 0; r < readers; ++r) {
        readerObjects.emplace_back(new RQFrameReader(queue.addr(), nullptr));
    }
    std::vector<std::thread> threads;
    for (const RPtr<RQFrameReader>& reader : readerObjects) {
        threads.emplace_back([&reader, shared] {
            while (RPtr<const RFrame> f = readFrame(*reader, shared)) {
                benchmark::DoNotOptimize(f.addr());
            }
        });
    }
    RQFrameWriter writer(queue.addr(), nullptr);
    for (unsigned int i = 0; i < frames; ++i) {
        writer.put(frame(i));
    }
    writer.end();
    for (auto& t : threads) {
        t.join();
    }
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

void BM_QueueFanOut(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const int readers = static_cast<int>(state.range(1));
    const unsigned int frames = framesFor(size);
    const std::vector<RPtr<const RFrame>>& pool = framePool(size);
    const long faultsBefore = minorFaults();
    const Limits limits(size);
    for (auto _ : state) {
        fanOut(frames, readers, state.range(2) != 0 ? &limits : nullptr, state.range(3) != 0,
               [&pool](unsigned int i) { return pool[i]; });
    }
    countFaults(state, faultsBefore, frames);
    state.SetItemsProcessed(state.iterations() * frames);
    state.SetBytesProcessed(state.iterations() * frames * size * readers);
}

void fanOutArgs(benchmark::internal::Benchmark* bench) {
    for (const int size : {188, 4 << 10, 1 << 20}) {
        for (const int readers : {1, 2, 4}) {
            for (const int limited : {0, 1}) {
                for (const int shared : {0, 1}) {
                    bench->Args({size, readers, limited, shared});
                }
            }
        }
    }
    bench->Args({4 << 10, 8, 1, 0});  // the last step of the growth with readers
    bench->ArgNames({"size", "readers", "limited", "shared"})
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
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

// Single producer, single consumer, 64 slots (the queues' high limit). The hand-off itself
// takes no lock. A side that finds the ring full or empty spins a little, then sleeps on a
// condition until the other side signals: spinning alone (or yielding) starves the other
// thread when more threads are runnable than there are processors.
class SpscRing {
public:
    void push(const RFrame* frame) {
        const size_t tail = mTail.load(std::memory_order_relaxed);
        await([&] { return tail - mHead.load(std::memory_order_acquire) < kSlots; });
        mSlots[tail % kSlots] = frame;
        mTail.store(tail + 1, std::memory_order_release);
        signal();
    }
    const RFrame* pop() {
        const size_t head = mHead.load(std::memory_order_relaxed);
        await([&] { return mTail.load(std::memory_order_acquire) != head; });
        const RFrame* const frame = mSlots[head % kSlots];
        mHead.store(head + 1, std::memory_order_release);
        signal();
        return frame;
    }

private:
    template <typename Ready>
    void await(const Ready& ready) {
        for (int spin = 0; spin < 100; ++spin) {
            if (ready()) {
                return;
            }
        }
        std::unique_lock<std::mutex> lock(mMutex);
        mSleepers.fetch_add(1);
        // Pairs with the fence in signal(): either this side sees the other's store, or the
        // other side sees this sleeper.
        std::atomic_thread_fence(std::memory_order_seq_cst);
        mWake.wait(lock, ready);
        mSleepers.fetch_sub(1);
    }
    void signal() {
        std::atomic_thread_fence(std::memory_order_seq_cst);
        if (mSleepers.load(std::memory_order_relaxed) > 0) {
            const std::lock_guard<std::mutex> lock(mMutex);
            mWake.notify_all();
        }
    }

    static constexpr size_t kSlots = 64;
    std::array<const RFrame*, kSlots> mSlots{};
    alignas(64) std::atomic<size_t> mHead{0};  // written by the consumer only
    alignas(64) std::atomic<size_t> mTail{0};  // written by the producer only
    alignas(64) std::atomic<int> mSleepers{0};
    std::mutex mMutex;  // guards nothing but the sleep: waiters re-test the ring under it
    std::condition_variable mWake;
};

// The frame sizes of the benchmarks whose work runs on threads of their own, timed on the
// wall clock.
void threadedSizeArgs(benchmark::internal::Benchmark* bench) {
    bench->Arg(188)->Arg(4 << 10)->Arg(1 << 20)->ArgName("size")->UseRealTime()->Unit(
        benchmark::kMillisecond);
}

// Nobody looks into the frames, so one frame passed again and again does, and spares the
// page faults of a pool of 500 MiB at 1 MiB.
void BM_SpscRing(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const unsigned int frames = framesFor(size);
    const RPtr<const RFrame> frame = zeroFrame(size);
    for (auto _ : state) {
        SpscRing ring;
        std::thread reader([&ring] {
            while (const RFrame* frame = ring.pop()) {
                benchmark::DoNotOptimize(frame);
            }
        });
        for (unsigned int i = 0; i < frames; ++i) {
            ring.push(frame.addr());
        }
        ring.push(nullptr);
        reader.join();
    }
    state.SetItemsProcessed(state.iterations() * frames);
}
BENCHMARK(BM_SpscRing)->Apply(threadedSizeArgs);

class Producer : public CMMultipleQueueComponent {
public:
    Producer(unsigned int frames, FrameSource frame) : mFrames(frames), mFrame(std::move(frame)) {}
    unsigned int type() const override { return fourcc("impt"); }
    void flush() override {
        for (unsigned int i = 0; i < mFrames; ++i) {
            getWriter(0)->put(mFrame(i));
        }
    }

private:
    const unsigned int mFrames;
    const FrameSource mFrame;
};

// Puts every frame it reads: its own copy, or a copy of the shared frame.
class Pass : public CMMultipleQueueComponent {
public:
    explicit Pass(bool shared) : mShared(shared) {}
    unsigned int type() const override { return fourcc("fltr"); }
    void process() override {
        if (mShared) {
            if (RPtr<const RFrame> frame = getReader(0)->nextSharedFrame()) {
                getWriter(0)->put(frame->copy());
            }
        } else if (RPtr<RFrame> frame = getReader(0)->nextFrame()) {
            getWriter(0)->put(frame);
        }
    }
    void flush() override {}

private:
    const bool mShared;
};

class Sink : public CMMultipleQueueComponent {
public:
    explicit Sink(bool shared) : mShared(shared) {}
    unsigned int type() const override { return fourcc("expt"); }
    void process() override { benchmark::DoNotOptimize(readFrame(*getReader(0), mShared).addr()); }
    void flush() override {}

private:
    const bool mShared;
};

// Producer -> filter -> consumer on three component threads, both queues limited.
void threeStages(unsigned int frames, const Limits& limits, bool shared, const FrameSource& frame) {
    RPtr<RQueue> first(new RQueue(limits.low, limits.high, CString("1")));
    RPtr<RQueue> second(new RQueue(limits.low, limits.high, CString("2")));
    RPtr<Producer> producer(new Producer(frames, frame));
    RPtr<Pass> filter(new Pass(shared));
    RPtr<Sink> sink(new Sink(shared));
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
    producer->reset();
    filter->reset();
    sink->reset();
}

void BM_ThreeStagePipeline(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    const unsigned int frames = framesFor(size);
    const std::vector<RPtr<const RFrame>>& pool = framePool(size);
    const long faultsBefore = minorFaults();
    const Limits limits(size);
    for (auto _ : state) {
        threeStages(frames, limits, state.range(1) != 0,
                    [&pool](unsigned int i) { return pool[i]; });
    }
    countFaults(state, faultsBefore, frames);
    state.SetItemsProcessed(state.iterations() * frames);
}
BENCHMARK(BM_ThreeStagePipeline)
    ->ArgsProduct({{188, 4 << 10, 1 << 20}, {0, 1}})
    ->ArgNames({"size", "shared"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The --once mode; false for a command line it does not know.
bool runOnce(int argc, char** argv) {
    const auto number = [&](int i) { return static_cast<unsigned int>(std::atoi(argv[i])); };
    const bool fanout = argc == 6 && std::strcmp(argv[2], "fanout") == 0;
    const bool pipeline = argc == 5 && std::strcmp(argv[2], "pipeline") == 0;
    // Without a reader a limited queue would keep its writer waiting for ever.
    if (!(fanout && number(4) > 0) && !pipeline) {
        return false;
    }
    const unsigned int size = number(3);
    const FrameSource fresh = [size](unsigned int) { return zeroFrame(size); };
    const Limits limits(size);
    if (fanout) {
        fanOut(number(5), static_cast<int>(number(4)), &limits, true, fresh);
    } else {
        threeStages(number(4), limits, true, fresh);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--once") == 0) {
        return runOnce(argc, argv) ? 0 : 2;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
