// A bounded random soak of running pipelines.
//
// For CM_SOAK_SECONDS (60 by default) the test builds pipelines of random shape: one or two
// sources, chains of pass stages, fan-out of one queue to several readers, a stage with two
// outputs, a stage merging two sources; queues without limits or with small or large
// limits; frames of random sizes. While a pipeline runs, the test pauses and resumes random
// stages, resets the whole pipeline with "rstr", and may end it by aborting its stages,
// often while some of them wait at a limit or for data. Every stage logs what it read and
// put, and where it handled "rstr". Each input is read one of the two ways, own copies or
// shared frames, so that a queue read by several stages mixes them; a stage keeps the last
// shared frame of each input until the next one and checks that it is still intact then,
// across resets and aborts. Afterwards each queue is checked against what its writer put, and
// nothing may outlive the pipeline: frames, descriptions, queues, stages or threads. The seed
// (CM_SOAK_SEED to replay one) is printed at the start, the seed, index and shape of a pipeline
// with every failure it causes.
//
// What a reset may drop: the test resets a pipeline only while every stage is parked in a
// pause, so that "rstr" meets all of them at one point of the stream. Each writer then
// empties its queues and each reader starts again at the head of its now empty queue:
// a reader loses exactly the frames its writer had put before the reset and it had not yet
// read, and reads everything put after it. A frame a stage had in hand goes on after the
// reset. An abort drops everything not yet read when the stage stopped.
//
// One pipeline in four is instead reset while it runs: "rstr" reaches its stages one by
// one, so a reader may start again before its writer has cleared the queue, and while
// another reader of the queue still holds a node of it. What such a reader reads then is
// not defined frame by frame, so these pipelines are checked for intact frames and clean
// release only, and always end by abort (a reset after a source has ended would leave its
// readers running for ever).
#include <cm/CMComponent.h>
#include <cm/CMFrame.h>
#include <cm/CMNotification.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include <gtest/gtest.h>

#include "support/TestComponents.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using ZR::RPtr;
using ZR::CM::CNotification;
using ZR::CM::RFrame;
using ZR::CM::RNotificationCenter;
using ZR::CM::RQueue;

namespace {

using Clock = std::chrono::steady_clock;
// A log of frame numbers; kReset marks where the stage handled "rstr".
using Log = std::vector<long>;
constexpr long kReset = -1;
// Frame numbers of source s start at s * kSourceSpan, so a merged stream can be told apart.
constexpr unsigned int kSourceSpan = 1u << 20;

std::atomic<int> gLiveStages{0}, gLiveQueues{0}, gLiveDescriptions{0};

class SoakDescription : public ZR::CM::RVideoDescription {
public:
    SoakDescription() { gLiveDescriptions.fetch_add(1); }
    SoakDescription(const SoakDescription& other) : RVideoDescription(other) {
        gLiveDescriptions.fetch_add(1);
    }
    ~SoakDescription() override { gLiveDescriptions.fetch_sub(1); }
    SoakDescription* copy() const override { return new SoakDescription(*this); }
};

class SoakQueue : public RQueue {
public:
    SoakQueue(int low, int high) : RQueue(low, high, ZR::CString("soak")) {
        gLiveQueues.fetch_add(1);
    }
    ~SoakQueue() override { gLiveQueues.fetch_sub(1); }
};

// One stage of any shape. Without inputs it is a source that writes its frames from
// flush(); otherwise each process() takes one frame from every input that has not ended
// and puts it on every output. The stage waits for its inputs' descriptions before it
// reads a frame and passes them on. The logs are written by the stage's thread and read
// once it has been joined.
class Stage : public ZR::CM::CMMultipleQueueComponent {
public:
    Stage(unsigned int source, std::vector<unsigned int> sizes)
        : mSource(source), mSizes(std::move(sizes)) {
        gLiveStages.fetch_add(1);
    }
    ~Stage() override { gLiveStages.fetch_sub(1); }

    unsigned int type() const override { return ZR::fourcc("fltr"); }

    // sharedReads: per input, whether it is read as shared frames rather than own copies.
    void attach(std::vector<RQueue*> inputs, std::vector<RQueue*> outputs,
                std::vector<bool> sharedReads) {
        init(inputs, outputs);
        mReads.resize(inputs.size());
        mPuts.resize(outputs.size());
        mInputEnded.assign(inputs.size(), false);
        mSharedReads = std::move(sharedReads);
        mLastShared.resize(inputs.size());
    }

    bool isSource() const { return mReads.empty(); }

    void process() override {
        passDescriptionOn();
        for (int i = 0; i < getReaderCount(); ++i) {
            if (mInputEnded[i]) {
                continue;
            }
            const bool shared = mSharedReads[i];
            const RPtr<const RFrame> frame = shared ? getReader(i)->nextSharedFrame()
                                                    : RPtr<const RFrame>(getReader(i)->nextFrame());
            mIntact = mIntact && (!mLastShared[i] || cmtest::hasNumberedContent(*mLastShared[i]));
            mLastShared[i] = shared ? frame : nullptr;
            if (!frame) {
                mInputEnded[i] = true;
                continue;
            }
            mIntact = mIntact && cmtest::hasNumberedContent(*frame);
            mReads[i].push_back(frame->getFrameNumber());
            forward(frame, shared);
        }
    }

    void flush() override {
        // A stage whose inputs ended empty never ran process(); a queue without a
        // description would keep its readers waiting.
        passDescriptionOn();
        if (isSource()) {
            for (unsigned int i = 0; i < mSizes.size(); ++i) {
                forward(cmtest::makeNumberedFrame(mSource * kSourceSpan + i, mSizes[i]), false);
            }
        }
        // The run loop ends the first output only.
        for (int o = 1; o < getWriterCount(); ++o) {
            getWriter(o)->end();
        }
        mCompleted = true;
    }

    int handleNotification(CNotification& n) override {
        if (n.getCode() == CNotification::kRestart) {
            for (Log& log : mReads) {
                log.push_back(kReset);
            }
            for (Log& log : mPuts) {
                log.push_back(kReset);
            }
            mForwarded.push_back(kReset);
        }
        const int result = CMMultipleQueueComponent::handleNotification(n);
        mResets.fetch_add(n.getCode() == CNotification::kRestart ? 1 : 0);
        return result;
    }

    // What a source has to write, or what the stage read, in order; without reset marks.
    Log expectedOutput() const {
        Log all;
        if (!isSource()) {
            std::remove_copy(mForwarded.begin(), mForwarded.end(), std::back_inserter(all), kReset);
            return all;
        }
        for (unsigned int i = 0; i < mSizes.size(); ++i) {
            all.push_back(static_cast<long>(mSource * kSourceSpan + i));
        }
        return all;
    }

    unsigned int mSource;
    std::vector<unsigned int> mSizes;
    std::vector<Log> mReads;  // per input
    std::vector<Log> mPuts;   // per output
    Log mForwarded;           // every frame read, in the order it was read
    std::vector<bool> mInputEnded;
    std::vector<bool> mSharedReads;
    std::vector<RPtr<const RFrame>> mLastShared;
    bool mHasDescription = false;
    bool mIntact = true;
    std::atomic<bool> mCompleted{false};
    std::atomic<int> mResets{0};

private:
    // A source describes its output with a description of its own; any other stage waits
    // for the descriptions of its inputs and passes the last one on.
    void passDescriptionOn() {
        if (mHasDescription) {
            return;
        }
        RPtr<const ZR::CM::RDescription> description;
        if (isSource()) {
            description = new SoakDescription;
        }
        for (int i = 0; i < getReaderCount(); ++i) {
            description = getReader(i)->getDescription();
        }
        for (int o = 0; o < getWriterCount(); ++o) {
            getWriter(o)->setDescription(description);
        }
        mHasDescription = true;
    }

    // Every output gets the frame. A node lives in one queue only, so the first output
    // gets the stage's own frame and the others copies; a shared frame still lives in the
    // queue it came from, and every output gets a copy.
    void forward(const RPtr<const RFrame>& frame, bool shared) {
        if (!isSource()) {
            mForwarded.push_back(frame->getFrameNumber());
        }
        for (int o = 0; o < getWriterCount(); ++o) {
            getWriter(o)->put(o == 0 && !shared ? frame : RPtr<const RFrame>(frame->copy()));
            mPuts[o].push_back(frame->getFrameNumber());
        }
    }
};

struct Edge {
    RPtr<RQueue> queue;
    Stage* writer;
    int output;
    std::vector<std::pair<Stage*, int>> readers;  // stage and its input index
};

int threadCount() {
    int count = 0;
    for ([[maybe_unused]] const auto& task :
         std::filesystem::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

template <typename T>
T envOr(const char* name, T value) {
    std::istringstream(std::getenv(name) ? std::getenv(name) : "") >> value;
    return value;
}

std::vector<Log> segments(const Log& log) {
    std::vector<Log> parts(1);
    for (const long n : log) {
        if (n == kReset) {
            parts.emplace_back();
        } else {
            parts.back().push_back(n);
        }
    }
    return parts;
}

bool isPrefix(const Log& part, const Log& whole) {
    return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
}

class Pipeline {
public:
    explicit Pipeline(std::mt19937& rng) : mRng(rng) {}

    // Builds a random shape: one source, or two merged by one stage, then a tree of pass
    // stages, fan-outs and two-output stages down to sinks; at most about ten stages.
    void build() {
        Stage* top;
        if (chance(4)) {
            Stage* a = addSource(0);
            Stage* b = addSource(1);
            top = addStage();
            mShape << "(S0";
            mEdges.push_back(Edge{newQueue(), a, 0, {{top, 0}}});
            mShape << " S1";
            mEdges.push_back(Edge{newQueue(), b, 0, {{top, 1}}});
            mShape << " merge)";
            grow(top, 0, 2);
        } else {
            top = addSource(0);
            mShape << "S0";
            grow(top, 0, 3);
        }
        mShape << " reads";
        for (Stage* stage : mStages) {
            std::vector<RQueue*> inputs, outputs;
            for (const Edge& e : mEdges) {
                if (e.writer == stage) {
                    place(outputs, e.output, e.queue.addr());
                }
                for (const auto& [reader, input] : e.readers) {
                    if (reader == stage) {
                        place(inputs, input, e.queue.addr());
                    }
                }
            }
            std::vector<bool> shared(inputs.size());
            for (size_t i = 0; i < shared.size(); ++i) {
                shared[i] = chance(2);
                mShape << (shared[i] ? " s" : " c");
            }
            stage->attach(inputs, outputs, std::move(shared));
        }
    }

    std::string shape() const { return mShape.str(); }
    int resets() const { return mResets; }
    int staggeredResets() const { return mStaggeredResets; }
    bool aborted() const { return mAborted; }

    void start() {
        for (Stage* stage : shuffled()) {
            ASSERT_EQ(stage->start(nullptr), 0);
        }
    }

    // Random pauses, resumes and resets, then either the run to its end or an abort.
    void drive() {
        const bool staggered = chance(4);
        const int events = pick(0, 6);
        for (int i = 0; i < events; ++i) {
            std::this_thread::sleep_for(std::chrono::microseconds(pick(0, 3000)));
            const int event = pick(0, 3);  // pause, resume, or (one time in two) a reset
            if (event < 2) {
                event == 0 ? any()->pause() : any()->resume();
                continue;
            }
            if (chance(2)) {
                waitForABlockedStage();
            }
            staggered ? resetStaggered() : resetAll();
        }
        if (staggered || chance(3)) {
            mAborted = true;
            if (chance(2)) {
                waitForABlockedStage();
            }
            for (Stage* stage : shuffled()) {
                if (chance(2)) {
                    stage->abort();
                } else {
                    stage->reset();
                    mReleasedEarly = true;
                }
            }
            return;
        }
        for (Stage* stage : mStages) {
            stage->resume();
        }
        waitOrDie([&] { return allEnded(); }, "did not run to its end");
    }

    void finish() {
        for (Stage* stage : shuffled()) {
            stage->reset();
        }
    }

    void check() const {
        for (const Stage* stage : mStages) {
            const bool completed = stage->mCompleted;
            EXPECT_TRUE(mAborted || completed);
            EXPECT_EQ(stage->getRunResult(), completed ? 0 : -1);
            EXPECT_TRUE(stage->mIntact);
            EXPECT_TRUE(mStaggeredResets > 0 || stage->mResets == mResets);
            // A stage puts every frame it reads on each output, in the order it read them.
            const Log expected = stage->expectedOutput();
            for (const Log& puts : stage->mPuts) {
                Log put = puts;
                put.erase(std::remove(put.begin(), put.end(), kReset), put.end());
                EXPECT_TRUE(completed ? put == expected : isPrefix(put, expected));
            }
        }
        if (mStaggeredResets > 0) {
            return;
        }
        for (const Edge& e : mEdges) {
            const std::vector<Log> written = segments(e.writer->mPuts[e.output]);
            const int high = e.queue->getHighLimit();
            for (const auto& [reader, input] : e.readers) {
                const std::vector<Log> read = segments(reader->mReads[input]);
                ASSERT_EQ(read.size(), written.size());
                for (size_t k = 0; k < read.size(); ++k) {
                    // Between resets a reader sees what was put, in order, each frame once;
                    // it misses only frames still in the queue when the run was reset or
                    // aborted, never more than the high limit lets the queue hold (unless
                    // the reader left the queue while its writer still ran).
                    EXPECT_TRUE(isPrefix(read[k], written[k])) << "segment " << k;
                    if (high > 0 && (k + 1 < read.size() || !mReleasedEarly)) {
                        EXPECT_LE(written[k].size() - read[k].size(), static_cast<size_t>(high));
                    }
                }
                if (reader->mCompleted) {
                    EXPECT_EQ(read.back(), written.back());
                }
            }
        }
    }

private:
    bool chance(int oneIn) { return pick(1, oneIn) == 1; }
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(mRng); }
    Stage* any() { return mStages[pick(0, static_cast<int>(mStages.size()) - 1)]; }

    std::vector<Stage*> shuffled() {
        std::vector<Stage*> order = mStages;
        std::shuffle(order.begin(), order.end(), mRng);
        return order;
    }

    Stage* addStage(unsigned int source = 0, std::vector<unsigned int> sizes = {}) {
        mOwned.emplace_back(new Stage(source, std::move(sizes)));
        mStages.push_back(mOwned.back().addr());
        return mStages.back();
    }

    Stage* addSource(unsigned int source) {
        const int count = chance(10) ? 0 : pick(1, 1500);
        const int largest = std::vector<int>{0, 64, 32768}[pick(0, 2)];
        std::vector<unsigned int> sizes(count);
        for (unsigned int& size : sizes) {
            size = static_cast<unsigned int>(pick(0, largest));
        }
        return addStage(source, std::move(sizes));
    }

    static void place(std::vector<RQueue*>& queues, int index, RQueue* queue) {
        queues.resize(std::max<size_t>(queues.size(), index + 1));
        queues[index] = queue;
    }

    // Makes the queue of `writer`'s output and the stages that read it; depth bounds how
    // many more stages may follow on any path.
    void grow(Stage* writer, int output, int depth) {
        const int readers = depth > 0 && chance(4) ? pick(2, 3) : 1;
        RPtr<RQueue> queue = newQueue();
        std::vector<std::pair<Stage*, int>> taken;
        for (int r = 0; r < readers; ++r) {
            Stage* reader = addStage();
            taken.emplace_back(reader, 0);
            const int kind = depth > 0 && mStages.size() < 9 ? pick(0, 4) : 0;
            mShape << (r ? " |" : "") << " ";
            if (kind == 0) {
                mShape << "sink";
            } else if (kind == 4) {
                mShape << "tee{";
                grow(reader, 0, depth - 1);
                mShape << " ;";
                grow(reader, 1, depth - 1);
                mShape << " }";
            } else {
                mShape << "pass";
                grow(reader, 0, depth - 1);
            }
        }
        mEdges.push_back(Edge{queue, writer, output, std::move(taken)});
    }

    // A queue with random limits, noted in the shape.
    RPtr<RQueue> newQueue() {
        // A reader holds the node it was handed until it steps past it, so a limited queue
        // needs a low limit of at least 1 and room for two nodes to make progress.
        const int kind = pick(0, 2);  // without limits, with small ones or with large ones
        const int low = kind == 0 ? 0 : pick(1, kind == 1 ? 3 : 64);
        const int high = kind == 0 ? 0 : low + pick(1, kind == 1 ? 4 : 128);
        mShape << " [" << low << "/" << high << "]>";
        return new SoakQueue(low, high);
    }

    bool allEnded() const {
        return std::all_of(mStages.begin(), mStages.end(),
                           [](const Stage* s) { return s->getRunningThreadCount() == 0; });
    }

    // Resets the whole pipeline at one point: every stage is paused and parked first; a
    // pipeline of which some stage has already finished is left alone, as "rstr" cannot
    // reach that stage.
    void resetAll() {
        for (Stage* stage : mStages) {
            stage->pause();
        }
        waitOrDie(
            [&] {
                return std::all_of(mStages.begin(), mStages.end(), [](const Stage* s) {
                    return s->getRunningThreadCount() == 0 ||
                           (s->isPaused() && s->getPendingNotificationCount() == 0);
                });
            },
            "did not park for a reset");
        if (std::none_of(mStages.begin(), mStages.end(),
                         [](const Stage* s) { return s->getRunningThreadCount() == 0; })) {
            CNotification restart(CNotification::kRestart);
            RNotificationCenter::getDefault()->postNotification(restart, nullptr);
            ++mResets;
            waitOrDie(
                [&] {
                    return std::all_of(mStages.begin(), mStages.end(),
                                       [&](const Stage* s) { return s->mResets == mResets; });
                },
                "did not handle a reset");
        }
        for (Stage* stage : mStages) {
            stage->resume();
        }
    }

    // Posts "rstr" to the running stages one at a time, in random order and at random
    // moments.
    void resetStaggered() {
        for (Stage* stage : shuffled()) {
            CNotification restart(CNotification::kRestart);
            RNotificationCenter::getDefault()->postNotification(restart, stage);
            std::this_thread::sleep_for(std::chrono::microseconds(pick(0, 2000)));
        }
        ++mStaggeredResets;
    }

    // Gives the stages up to 100 ms to block on a full or an empty queue.
    void waitForABlockedStage() {
        const auto until = Clock::now() + std::chrono::milliseconds(100);
        while (Clock::now() < until) {
            for (const Edge& e : mEdges) {
                if (e.queue->getReadersWaiting() > 0 || e.queue->getWritersWaiting() > 0) {
                    return;
                }
            }
            std::this_thread::yield();
        }
    }

    // A pipeline that hangs cannot be cleaned up: describe it and end the process.
    void waitOrDie(const std::function<bool()>& done, const char* what) {
        const auto until = Clock::now() + std::chrono::seconds(60);
        for (; !done(); std::this_thread::sleep_for(std::chrono::microseconds(200))) {
            if (Clock::now() < until) {
                continue;
            }
            std::fprintf(stderr, "pipeline %s: %s\n", what, shape().c_str());
            for (const Edge& e : mEdges) {  // nodes, ended, readers and writers waiting
                std::fprintf(stderr, "  queue [%d/%d]: %d %d %d %d\n", e.queue->getLowLimit(),
                             e.queue->getHighLimit(), e.queue->getNodeCount(),
                             e.queue->getEndOfQueue(), e.queue->getReadersWaiting(),
                             e.queue->getWritersWaiting());
            }
            for (const Stage* s : mStages) {  // running, paused, notifications pending, read
                std::fprintf(stderr, "  stage %zu in, %zu out: %d %d %d %zu\n", s->mReads.size(),
                             s->mPuts.size(), s->getRunningThreadCount(), s->isPaused(),
                             s->getPendingNotificationCount(), s->mForwarded.size());
            }
            std::abort();
        }
    }

    std::mt19937& mRng;
    std::ostringstream mShape;
    std::vector<RPtr<Stage>> mOwned;
    std::vector<Stage*> mStages;
    std::vector<Edge> mEdges;
    int mResets = 0;
    int mStaggeredResets = 0;
    bool mAborted = false;
    bool mReleasedEarly = false;  // a stage was reset while others still ran
};

}  // namespace

TEST(SoakTest, RandomPipelinesUnderPauseResetAndAbort) {
    const unsigned long seed = envOr<unsigned long>("CM_SOAK_SEED", std::random_device()());
    const double seconds = envOr<double>("CM_SOAK_SECONDS", 60.0);
    // On standard error, unbuffered: a sanitizer that ends the process must not take it along.
    std::fprintf(stderr, "soak seed %lu (CM_SOAK_SEED), %.0f s (CM_SOAK_SECONDS)\n", seed, seconds);
    std::mt19937 rng(static_cast<std::mt19937::result_type>(seed));
    RNotificationCenter::getDefault();
    // The ThreadSanitizer runtime starts a helper thread along with the process's first
    // thread; start one here so that the count taken next already includes it.
    std::thread([] {}).join();
    const int threadsAtStart = threadCount();
    const int trackedAtStart = cmtest::Tracked::live();
    const auto until = Clock::now() + std::chrono::duration<double>(seconds);

    int index = 0, resets = 0, staggeredResets = 0, aborts = 0;
    for (; Clock::now() < until && !HasFailure(); ++index) {
        std::string shape;
        {
            Pipeline pipeline(rng);
            pipeline.build();
            shape = pipeline.shape();
            SCOPED_TRACE("seed " + std::to_string(seed) + ", pipeline " + std::to_string(index) +
                         ": " + shape);
            pipeline.start();
            pipeline.drive();
            pipeline.finish();
            pipeline.check();
            resets += pipeline.resets();
            staggeredResets += pipeline.staggeredResets();
            aborts += pipeline.aborted() ? 1 : 0;
        }
        SCOPED_TRACE("seed " + std::to_string(seed) + ", pipeline " + std::to_string(index) +
                     " released: " + shape);
        EXPECT_EQ(cmtest::Tracked::live(), trackedAtStart);
        EXPECT_EQ(gLiveStages.load(), 0);
        EXPECT_EQ(gLiveQueues.load(), 0);
        EXPECT_EQ(gLiveDescriptions.load(), 0);
        // A joined thread may still be listed for a moment while the kernel tears it down.
        const auto settle = Clock::now() + std::chrono::seconds(1);
        while (threadCount() != threadsAtStart && Clock::now() < settle) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(threadCount(), threadsAtStart);
    }
    std::printf("soak ran %d pipelines: %d resets, %d while running, %d ended by abort\n", index,
                resets, staggeredResets, aborts);
}
