#include <cm/CMQueueRW.h>

#include <gtest/gtest.h>

#include <cm/CMComponent.h>

#include "support/TestComponents.h"
#include "support/TestSupport.h"

#include <random>
#include <thread>

using cmtest::makeNumberedFrame;
using cmtest::waitUntil;
using ZR::RPtr;
using ZR::CM::RAudioDescription;
using ZR::CM::RFrame;
using ZR::CM::RQFrameReader;
using ZR::CM::RQFrameWriter;
using ZR::CM::RQueue;

namespace {

RPtr<RQueue> makeQueue(int low, int high) {
    return new RQueue(low, high, ZR::CString("q"));
}

RPtr<const RAudioDescription> stereo16(double rate) {
    auto* d = new RAudioDescription;
    d->mChannels = 2;
    d->mBytesPerSample = 2;
    d->mSampleRate = rate;
    return d;
}

}  // namespace

// One writer and 1, 2 or 4 reader threads pass 20,000 frames of random sizes through a
// queue with and without limits: every reader sees every frame once, in order, intact;
// the queue ends empty and every frame has been released.
TEST(QueueRWTest, EveryReaderSeesEveryFrameOnceInOrder) {
    const int liveBefore = cmtest::Tracked::live();
    const unsigned int kFrames = 20000;
    for (const int readers : {1, 2, 4}) {
        for (const bool limited : {false, true}) {
            RPtr<RQueue> q = limited ? makeQueue(16, 64) : makeQueue(0, 0);
            std::vector<RPtr<RQFrameReader>> readerObjects;
            for (int r = 0; r < readers; ++r) {
                readerObjects.emplace_back(new RQFrameReader(q.addr(), nullptr));
            }
            std::vector<int> faults(static_cast<size_t>(readers), 0);
            std::vector<std::thread> threads;
            for (int r = 0; r < readers; ++r) {
                threads.emplace_back([&, r] {
                    unsigned int expected = 0;
                    while (RPtr<RFrame> f = readerObjects[static_cast<size_t>(r)]->nextFrame()) {
                        if (f->getFrameNumber() != expected++ || !cmtest::hasNumberedContent(*f)) {
                            ++faults[static_cast<size_t>(r)];
                        }
                    }
                    if (expected != kFrames) {
                        ++faults[static_cast<size_t>(r)];
                    }
                });
            }
            RQFrameWriter writer(q.addr(), nullptr);
            std::mt19937 random(readers * 2 + limited);
            for (unsigned int i = 0; i < kFrames; ++i) {
                writer.put(makeNumberedFrame(i, random() % 300));
            }
            writer.end();
            for (auto& t : threads) {
                t.join();
            }
            for (int r = 0; r < readers; ++r) {
                EXPECT_EQ(faults[static_cast<size_t>(r)], 0) << readers << " readers, " << limited;
            }
            EXPECT_EQ(q->getNodeCount(), 0);
            EXPECT_EQ(q->getBytesHeld(), 0u);
        }
    }
    EXPECT_EQ(cmtest::Tracked::live(), liveBefore);
}

// With high 4 and low 1, a waiting reader sleeps through three puts and wakes at the
// fourth; a fifth put blocks until the reader has brought the queue down to one node.
TEST(QueueRWTest, LimitsWakeReadersAtHighAndWritersAtLow) {
    RPtr<RQueue> q = makeQueue(1, 4);
    RQFrameReader reader(q.addr(), nullptr);
    RQFrameWriter writer(q.addr(), nullptr);
    std::atomic<int> taken{0};
    std::atomic<bool> proceed{false};
    std::thread readerThread([&] {
        reader.nextNode();
        taken = 1;
        waitUntil([&] { return proceed.load(); });
        for (int i = 0; i < 4; ++i) {
            reader.nextNode();
            taken.fetch_add(1);
        }
    });
    waitUntil([&] { return q->getReadersWaiting() == 1; });
    for (unsigned int i = 0; i < 3; ++i) {
        writer.put(makeNumberedFrame(i, 4));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(taken, 0);  // batches: not woken below the high limit
    writer.put(makeNumberedFrame(3, 4));
    waitUntil([&] { return taken == 1; });

    std::atomic<bool> fifthPut{false};
    std::thread writerThread([&] {
        writer.put(makeNumberedFrame(4, 4));
        fifthPut = true;
    });
    waitUntil([&] { return q->getWritersWaiting() == 1; });
    EXPECT_FALSE(fifthPut);
    proceed = true;
    writerThread.join();
    EXPECT_TRUE(fifthPut);
    EXPECT_LE(q->getNodeCount(), 4);
    writer.end();
    readerThread.join();
}

// Two readers receive distinct copies of each frame; the shared node leaves the queue only
// once both have asked for the one after it. A reader made on a filled queue starts at the
// head; one destroyed while holding the head lets it go.
TEST(QueueRWTest, ReadersShareNodesButGetTheirOwnCopies) {
    RPtr<RQueue> q = makeQueue(0, 0);
    RQFrameWriter writer(q.addr(), nullptr);
    writer.put(makeNumberedFrame(0, 8));
    writer.put(makeNumberedFrame(1, 8));
    RQFrameReader a(q.addr(), nullptr);
    RPtr<RQFrameReader> b(new RQFrameReader(q.addr(), nullptr));

    RPtr<RFrame> fromA = a.nextFrame();
    RPtr<RFrame> fromB = b->nextFrame();
    EXPECT_EQ(fromA->getFrameNumber(), 0u);
    EXPECT_NE(fromA.addr(), fromB.addr());
    EXPECT_NE(fromA.addr(), static_cast<RFrame*>(q->firstNode()));
    a.nextNode();
    EXPECT_EQ(q->getNodeCount(), 2);  // b still holds frame 0
    b->nextNode();
    EXPECT_EQ(q->getNodeCount(), 1);

    b = nullptr;  // leaves while holding frame 1, which a holds too
    EXPECT_EQ(q->getNodeCount(), 1);
    writer.end();
    EXPECT_EQ(a.nextNode(), nullptr);  // a moves past the last node: it goes
    EXPECT_EQ(q->getNodeCount(), 0);
    EXPECT_EQ(a.getFramesRead(), 2u);
}

// The description: writers publish it and wake readers that wait for it; a writer's
// getDescriptionP never waits.
TEST(QueueRWTest, DescriptionWakesWaitingReaders) {
    RPtr<RQueue> q = makeQueue(0, 0);
    RQFrameWriter writer(q.addr(), nullptr);
    RQFrameReader reader(q.addr(), nullptr);
    EXPECT_EQ(writer.getDescriptionP(), nullptr);
    const ZR::CM::RDescription* seen = nullptr;
    std::thread t([&] { seen = reader.getDescriptionP(); });
    waitUntil([&] { return q->getReadersWaiting() == 1; });
    RPtr<const RAudioDescription> d = stereo16(48000);
    writer.setDescription(d);
    t.join();
    EXPECT_EQ(seen, d.addr());
    EXPECT_EQ(writer.getDescriptionP(), d.addr());
}

// A notification posted to a component whose writer is blocked at the high limit is
// handled by that thread when a reader drains the queue, before it re-tests the limit.
TEST(QueueRWTest, BlockedWriterHandlesNotificationsWhenWoken) {
    class Listener : public ZR::CM::RComponent {
    public:
        unsigned int type() const override { return 0; }
        int runloop(zrbase::object_refcount*) override { return 0; }
        // Runs with the queue mutex held: it must not touch the queue.
        int handleNotification(ZR::CM::CNotification& n) override {
            codes.push_back(n.getCode());
            handled.fetch_add(1);
            return 0;
        }
        std::vector<unsigned int> codes;  // read once the writer thread is joined
        std::atomic<int> handled{0};
    };
    RPtr<RQueue> q = makeQueue(1, 2);
    RPtr<Listener> component(new Listener);
    component->initialize();
    RQFrameReader reader(q.addr(), nullptr);
    {
        RQFrameWriter writer(q.addr(), component.addr());
        writer.put(makeNumberedFrame(0, 4));
        writer.put(makeNumberedFrame(1, 4));
        std::thread blocked([&] { writer.put(makeNumberedFrame(2, 4)); });
        waitUntil([&] { return q->getWritersWaiting() == 1; });
        ZR::CM::CNotification n(ZR::fourcc("tick"));
        ZR::CM::RNotificationCenter::getDefault()->postNotification(n, component.addr());
        waitUntil([&] { return component->handled == 1; });
        EXPECT_EQ(q->getNodeCount(), 2);  // handled while still blocked
        reader.nextNode();
        reader.nextNode();  // frame 0 leaves: down to the low limit, the writer goes on
        blocked.join();
        EXPECT_EQ(component->codes, std::vector<unsigned int>{ZR::fourcc("tick")});
    }
    EXPECT_EQ(component->getWakeSetSize(), 0);
    component->reset();
}

// Samples written in runs of awkward lengths come out in runs of other awkward lengths
// byte for byte; frames are cut at 1024 samples with times following the frame counter.
TEST(SampleAdapterTest, RoundTripsRunsOfAnyLength) {
    RPtr<RQueue> q = makeQueue(2, 8);
    RQFrameWriter frameWriter(q.addr(), nullptr);
    RQFrameReader frameReader(q.addr(), nullptr);
    const unsigned int kSamples = 200003;  // single-channel samples of 2 bytes
    std::vector<unsigned char> in(kSamples * 2);
    std::mt19937 random(7);
    for (auto& byte : in) {
        byte = static_cast<unsigned char>(random());
    }
    std::thread producer([&] {
        ZR::CM::RQSampleWriter writer(&frameWriter, 1024);
        writer.setDescription(stereo16(48000));
        writer.setDataFormat(ZR::fourcc("sowt"));
        writer.setStartTime(10.0);
        std::mt19937 lengths(1);
        unsigned int done = 0;
        while (done < kSamples) {
            const unsigned int run = std::min<unsigned int>(lengths() % 5000, kSamples - done);
            EXPECT_EQ(writer.writeSamples(in.data() + done * 2, run), run);
            done += run;
        }
        writer.end();
    });
    ZR::CM::RQSampleReader reader(&frameReader);
    EXPECT_EQ(reader.getDataFormat(), ZR::fourcc("sowt"));
    EXPECT_EQ(double(reader.getStartTime()), 10.0);
    EXPECT_EQ(reader.getDescription()->mChannels, 2u);
    std::vector<unsigned char> out;
    std::mt19937 lengths(2);
    for (;;) {
        const unsigned int want = 1 + lengths() % 3000;
        std::vector<unsigned char> chunk(want * 2);
        const unsigned int got = reader.readSamples(chunk.data(), want);
        out.insert(out.end(), chunk.begin(), chunk.begin() + got * 2);
        if (got < want) {
            break;
        }
    }
    producer.join();
    EXPECT_EQ(out, in);
    EXPECT_EQ(reader.readSamples(out.data(), 10), 0u);  // ended, nothing held
}

TEST(SampleAdapterTest, CutsFramesAndEndsWithThePartialOne) {
    RPtr<RQueue> q = makeQueue(0, 0);
    RQFrameWriter frameWriter(q.addr(), nullptr);
    RQFrameReader frameReader(q.addr(), nullptr);
    ZR::CM::RQSampleWriter writer(&frameWriter, 1024);
    writer.setDescription(stereo16(48000));
    std::vector<unsigned char> samples(8192, 0x5A);

    EXPECT_EQ(writer.writeSamples(samples.data(), 2048), 2048u);  // exactly one buffer
    EXPECT_EQ(q->getNodeCount(), 0);  // kept until the next write or end()
    writer.writeSamples(samples.data(), 100);
    EXPECT_EQ(q->getNodeCount(), 1);
    RPtr<RFrame> full = frameReader.nextFrame();
    EXPECT_EQ(full->getSize(), 4096u);
    EXPECT_DOUBLE_EQ(double(full->getDuration()), 1024.0 / 48000);
    EXPECT_EQ(full->getFrameNumber(), 0u);

    writer.end();
    RPtr<RFrame> partial = frameReader.nextFrame();
    EXPECT_EQ(partial->getSize(), 200u);
    EXPECT_DOUBLE_EQ(double(partial->getDuration()), 100.0 / 48000 / 2);
    EXPECT_EQ(partial->getFrameNumber(), 1u);
    EXPECT_DOUBLE_EQ(double(partial->getStartTime()), 1024.0 / 48000);
    EXPECT_TRUE(q->getEndOfQueue());
    EXPECT_EQ(frameReader.nextFrame(), nullptr);

    EXPECT_THROW(writer.reset(), ZR::CException);
    ZR::CM::RQSampleWriter unconfigured;
    RPtr<RQueue> other = makeQueue(0, 0);
    RQFrameWriter otherWriter(other.addr(), nullptr);
    unconfigured.initWithWriter(&otherWriter, 16);
    EXPECT_THROW(unconfigured.writeSamples(samples.data(), 1), ZR::CException);
}

TEST(VideoFrameWriterTest, DurationsComeFromTheNextFrame) {
    RPtr<RQueue> q = makeQueue(0, 0);
    RQFrameWriter frameWriter(q.addr(), nullptr);
    RQFrameReader frameReader(q.addr(), nullptr);
    RPtr<ZR::CM::RQVideoFrameWriter> writer(
        ZR::CM::RQVideoFrameWriter::createWithFrameWriter(&frameWriter));
    RPtr<ZR::CM::RVideoDescription> d(new ZR::CM::RVideoDescription);
    d->mFrameRate = 25;
    writer->setDescriptionP(d.addr());
    const double starts[] = {1.0, 1.5, 1.2, 2.0};
    for (const double start : starts) {
        RPtr<RFrame> frame(ZR::CM::RVideoFrame::create(0));
        frame->setStartTime(start);
        frame->setFrameNumber(99);
        writer->put(frame);
    }
    EXPECT_EQ(q->getNodeCount(), 3);  // the last one is held back
    writer->end(1.0);                 // before the last frame's start
    const double durations[] = {0.5, 1.0 / 25, 0.8, 0.0};
    for (unsigned int i = 0; i < 4; ++i) {
        RPtr<RFrame> f = frameReader.nextFrame();
        EXPECT_EQ(f->getFrameNumber(), i);
        EXPECT_DOUBLE_EQ(double(f->getDuration()), durations[i]) << i;
    }
    EXPECT_TRUE(q->getEndOfQueue());
}
