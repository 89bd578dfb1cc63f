#include <cm/CMComponent.h>

#include <gtest/gtest.h>

#include <cm/CMExporter.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include "support/TestComponents.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <thread>

using cmtest::Consumer;
using cmtest::PassFilter;
using cmtest::Producer;
using cmtest::wire;
using ZR::RPtr;
using ZR::CM::CNotification;
using ZR::CM::RNotificationCenter;
using ZR::CM::RQueue;

namespace {

// A filter between two new queues without limits, with numbered frames 0..count-1 waiting
// in its input.
struct FedFilter {
    explicit FedFilter(unsigned int count, unsigned int size) {
        wire(*filter, {in.addr()}, {out.addr()});
        for (unsigned int i = 0; i < count; ++i) {
            feeder.put(cmtest::makeNumberedFrame(i, size));
        }
    }
    RPtr<RQueue> in = cmtest::makeQueue(0, 0), out = cmtest::makeQueue(0, 0);
    RPtr<PassFilter> filter{new PassFilter};
    ZR::CM::RQFrameWriter feeder{in.addr(), nullptr};
};

unsigned int smallFrames(unsigned int sequence) {
    return 1 + sequence % 200;
}

std::vector<unsigned int> sequence(unsigned int count) {
    std::vector<unsigned int> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0u);
    return numbers;
}

// Producer -> filter -> consumer through two queues, each on its own thread, started from
// the consumer backwards.
struct ThreeStages {
    ThreeStages(unsigned int frames, RPtr<RQueue> firstQueue, RPtr<RQueue> secondQueue)
        : first(std::move(firstQueue)),
          second(std::move(secondQueue)),
          producer(new Producer(frames, smallFrames)),
          filter(new PassFilter),
          consumer(new Consumer) {
        wire(*producer, {}, {first.addr()});
        wire(*filter, {first.addr()}, {second.addr()});
        wire(*consumer, {second.addr()}, {});
        consumer->start(nullptr);
        filter->start(nullptr);
        producer->start(nullptr);
    }
    void reset() {
        producer->reset();
        filter->reset();
        consumer->reset();
    }

    RPtr<RQueue> first, second;
    RPtr<Producer> producer;
    RPtr<PassFilter> filter;
    RPtr<Consumer> consumer;
};

// Blocks in the place the test chooses, on an input that never moves.
class Blocker : public ZR::CM::CMMultipleQueueComponent {
public:
    enum Where { kNextNode, kDescription };
    explicit Blocker(Where where) : mWhere(where) {}
    unsigned int type() const override { return ZR::fourcc("fltr"); }
    void process() override {
        mEntered = true;
        if (mWhere == kNextNode) {
            getReader(0)->nextNode();
        } else {
            getReader(0)->getDescriptionP();
        }
    }
    void flush() override {}
    int componentWillReset() override {
        mRunningAtReset = getRunningThreadCount();
        return CMMultipleQueueComponent::componentWillReset();
    }
    Where mWhere;
    std::atomic<bool> mEntered{false};
    int mRunningAtReset = -1;
};

}  // namespace

// Producer -> filter -> consumer, each on its own thread, with limits on both queues: the
// run ends by itself, every frame arrives once and in order, flush() ran, the first output
// was ended, and every frame has been released.
TEST(MultipleQueueComponentTest, ThreeStagePipelineRunsToCompletion) {
    const int liveBefore = cmtest::Tracked::live();
    const unsigned int kFrames = 5000;
    {
        ThreeStages stages(kFrames, cmtest::makeQueue(4, 16), cmtest::makeQueue(2, 8));
        const auto& [first, second, producer, filter, consumer] = stages;
        EXPECT_EQ(producer->join(), 0);
        EXPECT_EQ(filter->join(), 0);
        EXPECT_EQ(consumer->join(), 0);

        EXPECT_EQ(consumer->mSeen, sequence(kFrames));
        EXPECT_TRUE(consumer->mAllIntact);
        EXPECT_EQ(filter->mFlushed, 1);
        EXPECT_TRUE(first->getEndOfQueue());
        EXPECT_TRUE(second->getEndOfQueue());
        // The loop stops once a reader has been handed as many frames as were put, so the
        // last node stays until its reader leaves.
        EXPECT_LE(first->getNodeCount(), 1);
        EXPECT_LE(second->getNodeCount(), 1);
        stages.reset();
        EXPECT_EQ(first->getNodeCount(), 0);
        EXPECT_EQ(second->getNodeCount(), 0);
    }
    EXPECT_EQ(cmtest::Tracked::live(), liveBefore);
}

// The run loop ends only the first of several outputs; a component without inputs goes
// straight to flush().
TEST(MultipleQueueComponentTest, OnlyTheFirstOutputIsEnded) {
    RPtr<RQueue> a = cmtest::makeQueue(0, 0), b = cmtest::makeQueue(0, 0);
    RPtr<Producer> producer(new Producer(3, smallFrames));
    wire(*producer, {}, {a.addr(), b.addr()});
    EXPECT_FALSE(producer->anyReaderIsActive());
    EXPECT_EQ(producer->getWriterCount(), 2);
    producer->start(nullptr);
    producer->join();
    EXPECT_TRUE(a->getEndOfQueue());
    EXPECT_FALSE(b->getEndOfQueue());
    EXPECT_EQ(a->getNodeCount(), 3);  // nobody reads it
    producer->reset();
    EXPECT_EQ(producer->getWriterCount(), 0);
}

namespace {

class IdleExporter : public ZR::CM::RExporter {
public:
    int configure(ZR::CM::RExporterConfiguration&) override { return 0; }
    int runloop(zrbase::object_refcount*) override { return 0; }
};

}  // namespace

// A component initialised again lets the readers and writers of the earlier init go: a
// reader left registered would hold every frame of its queue.
TEST(MultipleQueueComponentTest, InitAgainLetsTheEarlierEndpointsGo) {
    RPtr<RQueue> in = cmtest::makeQueue(0, 0), out = cmtest::makeQueue(0, 0);
    RPtr<PassFilter> filter(new PassFilter);
    RPtr<IdleExporter> exporter(new IdleExporter);
    std::vector<RQueue*> inputs{in.addr()};
    for (int i = 0; i < 2; ++i) {
        wire(*filter, {in.addr()}, {out.addr()});
        exporter->init(inputs, nullptr);
    }
    EXPECT_EQ(in->getReaderCount(), 2);    // one each
    EXPECT_EQ(filter->retain_count(), 3);  // the caller, a reader and a writer
    filter->reset();
    exporter->reset();
    EXPECT_EQ(in->getReaderCount(), 0);
}

// The input has ended but still holds frames the filter has not read: the loop goes on
// until it has read them all.
TEST(MultipleQueueComponentTest, EndedInputWithUnreadFramesKeepsTheLoopRunning) {
    FedFilter fed(10, 8);
    auto& [in, out, filter, feeder] = fed;
    feeder.end();
    EXPECT_TRUE(filter->anyReaderIsActive());
    filter->start(nullptr);
    filter->join();
    EXPECT_EQ(out->getFramesPut(), 10u);
    EXPECT_TRUE(out->getEndOfQueue());
    EXPECT_FALSE(filter->anyReaderIsActive());
    filter->reset();
}

// A filter waits on an empty input while its output holds frames; "rstr" reaches it in the
// wait, rewinds its reader and empties its output, and it goes on working afterwards.
TEST(MultipleQueueComponentTest, RestartMidRunRewindsReadersAndEmptiesOutputs) {
    FedFilter fed(5, 16);
    fed.filter->start(nullptr);
    cmtest::waitUntil(
        [&fed] { return fed.out->getFramesPut() == 5 && fed.in->getReadersWaiting() == 1; });
    EXPECT_EQ(fed.filter->getReader(0)->getFramesRead(), 5u);

    // The upstream stage empties its output on "rstr" as this filter does; here the test
    // stands in for it.
    fed.feeder.clear();
    cmtest::post(CNotification::kRestart);
    cmtest::waitUntil([&fed] {
        return fed.out->getNodeCount() == 0 && fed.filter->getReader(0)->getFramesRead() == 0;
    });
    EXPECT_EQ(fed.out->getFramesPut(), 0u);

    fed.feeder.put(cmtest::makeNumberedFrame(5, 16));
    fed.feeder.end();
    fed.filter->join();
    EXPECT_EQ(fed.out->getFramesPut(), 1u);
    EXPECT_TRUE(fed.out->getEndOfQueue());
    fed.filter->reset();
}

// "rstr" broadcast again and again into a live three-stage pipeline while downstream
// readers walk the queues being emptied: no reader touches a released node, and once the
// stages are aborted every frame has been released. (Restarting a pipeline that keeps
// running leaves its frame counters meaningless, so the run is ended by abort.)
TEST(MultipleQueueComponentTest, RestartsDuringALivePipelineAreSafe) {
    const int liveBefore = cmtest::Tracked::live();
    {
        ThreeStages stages(3000, cmtest::makeQueue(2, 8), cmtest::makeQueue(2, 8));
        const auto& [first, second, producer, filter, consumer] = stages;
        for (int i = 0; i < 50 && producer->getRunningThreadCount() != 0; ++i) {
            cmtest::post(CNotification::kRestart);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        producer->abort();
        filter->abort();
        consumer->abort();
        EXPECT_TRUE(consumer->mAllIntact);
        stages.reset();
    }
    EXPECT_EQ(cmtest::Tracked::live(), liveBefore);
}

// The consumer is paused while the producer fills the queue: the consumer holds (the
// producer ends up blocked at the high limit), and after resume() everything arrives.
TEST(ComponentControlTest, PauseHoldsAndResumeContinues) {
    RPtr<RQueue> q = cmtest::makeQueue(1, 4);
    RPtr<Producer> producer(new Producer(200, smallFrames));
    RPtr<Consumer> consumer(new Consumer);
    wire(*producer, {}, {q.addr()});
    wire(*consumer, {q.addr()}, {});
    consumer->pause();
    consumer->start(nullptr);
    producer->start(nullptr);
    cmtest::waitUntil([&] { return q->getWritersWaiting() == 1; });
    const unsigned int heldAt = consumer->mCount;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(consumer->mCount, heldAt);
    EXPECT_EQ(q->getNodeCount(), 4);
    consumer->resume();
    producer->join();
    consumer->join();
    EXPECT_EQ(consumer->mSeen, sequence(200));
    producer->reset();
    consumer->reset();
}

// abort() returns promptly from each of the three places a thread can block forever: a
// writer on a full queue nobody drains, a reader on an empty queue, a reader waiting for a
// description that never comes.
TEST(ComponentControlTest, AbortLeavesEveryBlockingWait) {
    {
        RPtr<RQueue> full = cmtest::makeQueue(0, 2);
        RPtr<Producer> producer(new Producer(100, smallFrames));
        wire(*producer, {}, {full.addr()});
        producer->start(nullptr);
        cmtest::waitUntil([&] { return full->getWritersWaiting() == 1; });
        EXPECT_EQ(producer->abort(), 0);
        EXPECT_EQ(producer->getRunningThreadCount(), 0);
        EXPECT_EQ(producer->mWritten, 2u);
        EXPECT_EQ(full->getWritersWaiting(), 0);
        producer->reset();
    }
    for (const Blocker::Where where : {Blocker::kNextNode, Blocker::kDescription}) {
        RPtr<RQueue> empty = cmtest::makeQueue(0, 0);
        RPtr<Blocker> blocker(new Blocker(where));
        wire(*blocker, {empty.addr()}, {});
        blocker->start(nullptr);
        cmtest::waitUntil([&] { return empty->getReadersWaiting() == 1; });
        EXPECT_EQ(blocker->abort(), 0);
        EXPECT_EQ(blocker->getRunningThreadCount(), 0);
        EXPECT_EQ(empty->getReadersWaiting(), 0);
        blocker->reset();
        EXPECT_EQ(empty->getReaderCount(), 0);
    }
}

// reset() of a component blocked in its queue aborts and joins the thread before
// componentWillReset() releases the readers and writers.
TEST(ComponentControlTest, ResetJoinsBeforeComponentWillReset) {
    RPtr<RQueue> empty = cmtest::makeQueue(0, 0);
    RPtr<Blocker> blocker(new Blocker(Blocker::kNextNode));
    wire(*blocker, {empty.addr()}, {});
    EXPECT_EQ(blocker->getWakeSetSize(), 1);
    blocker->start(nullptr);
    cmtest::waitUntil([&] { return blocker->mEntered.load(); });
    EXPECT_EQ(blocker->reset(), 0);
    EXPECT_EQ(blocker->mRunningAtReset, 0);
    EXPECT_EQ(blocker->getReaderCount(), 0);
    EXPECT_EQ(blocker->getWakeSetSize(), 0);
    EXPECT_FALSE(RNotificationCenter::getDefault()->isRegistered(blocker.addr()));
}

namespace {

// A component that supplies neither process() nor flush(), run on a queue with a frame.
void runBareComponent() {
    class Bare : public ZR::CM::CMMultipleQueueComponent {
        unsigned int type() const override { return 0; }
    };
    RPtr<RQueue> q = cmtest::makeQueue(0, 0);
    RPtr<Bare> bare(new Bare);
    wire(*bare, {q.addr()}, {});
    bare->start(nullptr);
    bare->join();
}

}  // namespace

TEST(MultipleQueueComponentDeathTest, DefaultProcessReportsAndEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(runBareComponent(), "lib/cm/CMComponent:210.*process\\(\\) not implemented!");
}
