// The hot paths of the media data model on one thread: making and releasing a frame,
// copying one (what every reader of a queue does), and passing a frame through a queue
// with one reader. Each runs at 188 bytes (a transport-stream packet), 4 KiB and 1 MiB.
#include <cm/CMFrame.h>
#include <cm/CMQueue.h>

#include <benchmark/benchmark.h>

#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

constexpr unsigned int kFormat = fourcc("raw ");

void sizes(benchmark::internal::Benchmark* bench) {
    bench->Arg(188)->Arg(4 << 10)->Arg(1 << 20);
}

// A frame copies the producer's bytes into its own block and is released again.
void BM_FrameCreateRelease(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    std::vector<unsigned char> bytes(size, 0x47);
    for (auto _ : state) {
        RPtr<RFrame> frame(
            RVideoFrame::createWithData(kFormat, size, bytes.data(), 0, ConstructionCopy));
        benchmark::DoNotOptimize(frame.addr());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FrameCreateRelease)->Apply(sizes);

void BM_FrameCopy(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    std::vector<unsigned char> bytes(size, 0x47);
    RPtr<RFrame> frame(
        RVideoFrame::createWithData(kFormat, size, bytes.data(), 0, ConstructionCopy));
    frame->addParameter("p", new RVideoDescription());
    for (auto _ : state) {
        RPtr<RFrame> copy(frame->copy());
        benchmark::DoNotOptimize(copy.addr());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FrameCopy)->Apply(sizes);

// One frame put, and the one reader steps past the head and thereby drops it: the list
// work of a queue per frame, without the locking and waiting of the reader and writer
// objects. The queue holds a frame between steps, so that every drop makes a new head whose
// time is recorded.
void BM_QueuePutNextRemove(benchmark::State& state) {
    const auto size = static_cast<unsigned int>(state.range(0));
    std::vector<unsigned char> bytes(size, 0x47);
    RPtr<RFrame> frames[2];
    for (RPtr<RFrame>& frame : frames) {
        frame = RVideoFrame::createWithData(kFormat, size, bytes.data(), 0, ConstructionCopy);
    }
    RPtr<RQueue> queue(new RQueue(0, 0, "bench"));
    queue->registerReader();
    queue->put(frames[0].addr());
    unsigned int next = 1;
    for (auto _ : state) {
        queue->put(frames[next].addr());
        benchmark::DoNotOptimize(queue->nextNode(queue->firstNode()));
        next ^= 1;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_QueuePutNextRemove)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
