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

constexpr unsigned int kRestart = ZR::CM::CNotification::kRestart;

RPtr<RAudioDescription> stereo16(double rate, unsigned int channels = 2) {
    auto* d = new RAudioDescription;
    d->mChannels = channels;
    d->mBytesPerSample = 2;
    d->mSampleRate = rate;
    return d;
}

std::vector<unsigned char> randomBytes(size_t size, unsigned int seed) {
    std::vector<unsigned char> bytes(size);
    std::mt19937 random(seed);
    for (auto& byte : bytes) {
        byte = static_cast<unsigned char>(random());
    }
    return bytes;
}

// A queue with one writer and one reader, neither tied to a component.
struct Pipe {
    explicit Pipe(int low = 0, int high = 0)
        : q(cmtest::makeQueue(low, high)), writer(q.addr(), nullptr), reader(q.addr(), nullptr) {}
    RPtr<RQueue> q;
    RQFrameWriter writer;
    RQFrameReader reader;
};

}  // namespace

// One writer and 1, 2 or 4 reader threads pass 20,000 frames of random sizes through a
// queue with and without limits, the readers mixing the two ways to read: own copies,
// shared frames, and both in turn. Every reader sees every frame once, in order, intact;
// shared frames that a reader keeps stay intact after the queue is gone; the queue ends
// empty and every frame has been released.
TEST(QueueRWTest, EveryReaderSeesEveryFrameOnceInOrder) {
    enum Read { kCopies, kShared, kInTurn };
    const int liveBefore = cmtest::Tracked::live();
    const unsigned int kFrames = 20000;
    const unsigned int kKept = 100;  // shared frames a reader holds on to, the last ones it read
    for (const unsigned int readers : {1u, 2u, 4u}) {
        for (const bool limited : {false, true}) {
            RPtr<RQueue> q = limited ? cmtest::makeQueue(16, 64) : cmtest::makeQueue(0, 0);
            std::vector<RPtr<RQFrameReader>> readerObjects;
            std::vector<int> faults(readers, 0);
            std::vector<std::vector<RPtr<const RFrame>>> kept(readers);
            for (unsigned int r = 0; r < readers; ++r) {
                readerObjects.emplace_back(new RQFrameReader(q.addr(), nullptr));
            }
            std::vector<std::thread> threads;
            for (unsigned int r = 0; r < readers; ++r) {
                threads.emplace_back([&, r] {
                    const auto read = static_cast<Read>((r + readers) % 3);
                    unsigned int expected = 0;
                    for (;;) {
                        const bool shared = read == kShared || (read == kInTurn && expected % 2);
                        const RPtr<const RFrame> f =
                            shared ? readerObjects[r]->nextSharedFrame()
                                   : RPtr<const RFrame>(readerObjects[r]->nextFrame());
                        if (!f) {
                            break;
                        }
                        faults[r] +=
                            f->getFrameNumber() != expected++ || !cmtest::hasNumberedContent(*f);
                        if (shared && expected + kKept > kFrames) {
                            kept[r].push_back(f);
                        }
                    }
                    faults[r] += expected != kFrames;
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
            EXPECT_EQ(q->getNodeCount(), 0);
            EXPECT_EQ(q->getBytesHeld(), 0u);
            readerObjects.clear();
            q = nullptr;
            for (unsigned int r = 0; r < readers; ++r) {
                for (const RPtr<const RFrame>& f : kept[r]) {
                    faults[r] += !cmtest::hasNumberedContent(*f);
                }
                EXPECT_EQ(faults[r], 0)
                    << "reader " << r << " of " << readers << (limited ? ", limited" : "");
            }
        }
    }
    EXPECT_EQ(cmtest::Tracked::live(), liveBefore);
}

// With high 4 and low 1, a waiting reader sleeps through three puts and wakes at the
// fourth; a fifth put blocks until the reader has brought the queue down to one node.
TEST(QueueRWTest, LimitsWakeReadersAtHighAndWritersAtLow) {
    RPtr<RQueue> q = cmtest::makeQueue(1, 4);
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
    RPtr<RQueue> q = cmtest::makeQueue(0, 0);
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

// A "rstr" reaches the components of one queue at different moments. Here it reaches
// reader A first: A starts again at the head and reads frames 0 and 1 again while reader
// B still holds frame 0, then B reads on, and only then do the writer and B handle it,
// the writer clearing the queue. A's second pass must not count as B's: frame 0 stays
// until B has passed it, and every frame is released once in the end.
TEST(QueueRWTest, ReaderResetWhileAnotherHoldsANodeOfTheClearedQueue) {
    const int liveBefore = cmtest::Tracked::live();
    {
        RPtr<RQueue> q = cmtest::makeQueue(0, 0);
        RPtr<cmtest::Producer> writing(new cmtest::Producer(0, [](unsigned int) { return 0u; }));
        RPtr<cmtest::Consumer> a(new cmtest::Consumer);
        RPtr<cmtest::Consumer> b(new cmtest::Consumer);
        cmtest::wire(*writing, {}, {q.addr()});
        cmtest::wire(*a, {q.addr()}, {});
        cmtest::wire(*b, {q.addr()}, {});
        RQFrameWriter& writer = *writing->getWriter(0);
        const auto next = [](cmtest::Consumer& reader) {
            const RPtr<RFrame> frame = reader.getReader(0)->nextFrame();
            return frame ? static_cast<int>(frame->getFrameNumber()) : -1;
        };
        for (unsigned int i = 0; i < 4; ++i) {
            writer.put(makeNumberedFrame(i, 8));
        }
        EXPECT_EQ(next(*a), 0);
        EXPECT_EQ(next(*a), 1);
        EXPECT_EQ(next(*a), 2);
        EXPECT_EQ(next(*b), 0);

        cmtest::post(kRestart, a.addr());
        EXPECT_EQ(next(*a), 0);  // handled on the way in: back at the head
        EXPECT_EQ(next(*a), 1);
        EXPECT_EQ(q->getNodeCount(), 4);  // b still holds frame 0
        EXPECT_EQ(next(*b), 1);
        EXPECT_EQ(q->getNodeCount(), 3);

        cmtest::post(kRestart, writing.addr());
        cmtest::post(kRestart, b.addr());
        writer.put(makeNumberedFrame(10, 8));  // clears first
        EXPECT_EQ(q->getNodeCount(), 1);
        writer.put(makeNumberedFrame(11, 8));
        writer.end();
        for (cmtest::Consumer* reader : {b.addr(), a.addr()}) {
            EXPECT_EQ(next(*reader), 10);
            EXPECT_EQ(next(*reader), 11);
            EXPECT_EQ(next(*reader), -1);
        }
        EXPECT_EQ(q->getNodeCount(), 0);
        writing->reset();
        a->reset();
        b->reset();
    }
    EXPECT_EQ(cmtest::Tracked::live(), liveBefore);
}

// The writer clears its queue, as "rstr" does: a reader that had read to the end lost
// nothing and stays there with its count; one that held a node the clear released starts
// again at the head, counting afresh.
TEST(QueueRWTest, ClearKeepsAFinishedReaderAtTheEndAndRestartsAHoldingOne) {
    Pipe p;
    RQFrameWriter& writer = p.writer;
    RQFrameReader& finished = p.reader;
    RQFrameReader holding(p.q.addr(), nullptr);
    for (unsigned int i = 0; i < 3; ++i) {
        writer.put(makeNumberedFrame(i, 8));
    }
    writer.end();
    while (finished.nextNode()) {
    }
    holding.nextNode();
    writer.clear();
    EXPECT_EQ(finished.nextNode(), nullptr);
    EXPECT_EQ(finished.getFramesRead(), 3u);

    writer.put(makeNumberedFrame(7, 8));
    RPtr<RFrame> first = holding.nextFrame();
    ASSERT_TRUE(first);
    EXPECT_EQ(first->getFrameNumber(), 7u);
    EXPECT_EQ(holding.getFramesRead(), 1u);

    // A "rstr" reaching the finished reader only now: the passes it made went with the
    // cleared nodes, so it must not take back one over frame 7, which it never passed
    // (frame 7 would then stay in the queue for ever).
    finished.reset();
    writer.end();
    for (RQFrameReader* reader : {&finished, &holding}) {
        while (reader->nextNode()) {
        }
    }
    EXPECT_EQ(p.q->getNodeCount(), 0);
}

// A shared read hands out the queued frame itself, and the reader's reference keeps it
// alive when the queue lets it go, here through a clear() as a "rstr" does. The next read
// starts at the head of the emptied queue, and the end gives null as nextFrame() does.
TEST(QueueRWTest, SharedReadHandsOutTheQueuedFrameAndKeepsItAlive) {
    const int liveBefore = cmtest::Tracked::live();
    Pipe p;
    auto& [q, writer, reader] = p;
    writer.put(makeNumberedFrame(0, 64));
    writer.put(makeNumberedFrame(1, 64));
    RPtr<const RFrame> held = reader.nextSharedFrame();
    EXPECT_EQ(held.addr(), static_cast<const RFrame*>(q->firstNode()));
    writer.clear();
    EXPECT_EQ(cmtest::Tracked::live(), liveBefore + 1);  // frame 1 is gone, frame 0 held
    EXPECT_TRUE(cmtest::hasNumberedContent(*held));
    writer.put(makeNumberedFrame(2, 64));
    writer.end();
    EXPECT_EQ(reader.nextSharedFrame()->getFrameNumber(), 2u);
    EXPECT_FALSE(reader.nextSharedFrame());
    held = nullptr;
    EXPECT_EQ(cmtest::Tracked::live(), liveBefore);
}

// The description: writers publish it and wake readers that wait for it; a writer's
// getDescriptionP never waits.
TEST(QueueRWTest, DescriptionWakesWaitingReaders) {
    Pipe p;
    RQFrameWriter& writer = p.writer;
    EXPECT_EQ(writer.getDescriptionP(), nullptr);
    const ZR::CM::RDescription* seen = nullptr;
    std::thread t([&] { seen = p.reader.getDescriptionP(); });
    waitUntil([&] { return p.q->getReadersWaiting() == 1; });
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
    RPtr<RQueue> q = cmtest::makeQueue(1, 2);
    RPtr<Listener> component(new Listener);
    component->initialize();
    RQFrameReader reader(q.addr(), nullptr);
    {
        RQFrameWriter writer(q.addr(), component.addr());
        writer.put(makeNumberedFrame(0, 4));
        writer.put(makeNumberedFrame(1, 4));
        std::thread blocked([&] { writer.put(makeNumberedFrame(2, 4)); });
        waitUntil([&] { return q->getWritersWaiting() == 1; });
        cmtest::post(ZR::fourcc("tick"), component.addr());
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
    Pipe p(2, 8);
    const unsigned int kSamples = 200003;  // single-channel samples of 2 bytes
    const std::vector<unsigned char> in = randomBytes(kSamples * 2, 7);
    std::thread producer([&] {
        ZR::CM::RQSampleWriter writer(&p.writer, 1024);
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
    ZR::CM::RQSampleReader reader(&p.reader);
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
    Pipe p;
    auto& [q, frameWriter, frameReader] = p;
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
    // Samples written after the end are buffered anew and go out with the next end().
    const int nodes = q->getNodeCount();
    EXPECT_EQ(writer.writeSamples(samples.data(), 10), 10u);
    writer.end();
    EXPECT_EQ(q->getNodeCount(), nodes + 1);

    EXPECT_THROW(writer.reset(), ZR::CException);
    ZR::CM::RQSampleWriter unconfigured;
    Pipe other;
    unconfigured.initWithWriter(&other.writer, 16);
    EXPECT_THROW(unconfigured.writeSamples(samples.data(), 1), ZR::CException);
}

// The description changes while samples are buffered: they are carried into the new
// buffer, or go out first as a frame of their own (timed by the old description) when the
// new buffer is too small for them. No sample is lost or garbled.
TEST(SampleAdapterTest, NewDescriptionKeepsTheBufferedSamples) {
    Pipe p;
    RQFrameReader& frameReader = p.reader;
    ZR::CM::RQSampleWriter writer(&p.writer, 1024);
    const std::vector<unsigned char> in = randomBytes(7200, 3);

    writer.setDescription(stereo16(48000));
    writer.writeSamples(in.data(), 1500);      // 3000 bytes of a 4096-byte buffer
    writer.setDescription(stereo16(8000, 1));  // 2048 bytes: too small for them
    writer.writeSamples(in.data() + 3000, 100);
    writer.setDescription(stereo16(48000));  // room for the 200 bytes held
    writer.writeSamples(in.data() + 3200, 2000);
    writer.end();

    std::vector<unsigned char> out;
    std::vector<unsigned int> sizes;
    while (RPtr<RFrame> frame = frameReader.nextFrame()) {
        EXPECT_EQ(frame->getFrameNumber(), sizes.size());
        sizes.push_back(frame->getSize());
        out.insert(out.end(), frame->getData(), frame->getData() + frame->getSize());
        if (sizes.size() == 1) {
            EXPECT_DOUBLE_EQ(double(frame->getDuration()), 1500.0 / 48000 / 2);
        }
    }
    EXPECT_EQ(sizes, (std::vector<unsigned int>{3000, 4096, 104}));
    EXPECT_EQ(out, in);
}

// Asking for exactly the rest of a frame takes all of it and steps on to the next frame at
// once; a request past the end returns what was there.
TEST(SampleAdapterTest, ReaderStepsOnWhenAFrameIsUsedUp) {
    Pipe p;
    auto& [q, frameWriter, frameReader] = p;
    frameWriter.setDescription(stereo16(8000));
    for (unsigned int i = 0; i < 2; ++i) {
        std::vector<unsigned char> bytes(40, static_cast<unsigned char>(i + 1));
        frameWriter.put(ZR::CM::RAudioFrame::createWithData(i, 0.0, 0.0, 0, 40, bytes.data(), 0, 0,
                                                            ZR::ConstructionCopy));
    }
    ZR::CM::RQSampleReader reader(&frameReader);
    std::vector<unsigned char> out(200);
    EXPECT_EQ(reader.readSamples(out.data(), 20), 20u);  // the whole first frame
    EXPECT_EQ(frameReader.getFramesRead(), 2u);
    EXPECT_EQ(out[39], 1);
    frameWriter.end();
    EXPECT_EQ(reader.readSamples(out.data(), 50), 20u);
    EXPECT_EQ(out[0], 2);
    EXPECT_EQ(reader.readSamples(out.data(), 5), 0u);

    // A description without a sample size counts no samples instead of dividing by zero.
    Pipe unsized;
    unsized.writer.setDescription(RPtr<const ZR::CM::RDescription>(new RAudioDescription));
    unsized.writer.put(ZR::CM::RAudioFrame::create(0));
    unsized.writer.end();
    ZR::CM::RQSampleReader zero(&unsized.reader);
    EXPECT_EQ(zero.readSamples(out.data(), 5), 5u);
}

TEST(VideoFrameWriterTest, DurationsComeFromTheNextFrame) {
    Pipe p;
    auto& [q, frameWriter, frameReader] = p;
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
