#include <cm/CMQueueRW.h>

#include <cm/CMFrame.h>

#include <gtest/gtest.h>

#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

RPtr<RFrame> frameAt(CTimeStamp start, unsigned int size = 10) {
    std::vector<unsigned char> bytes(size);
    return RPtr<RFrame>(RTextFrame::createWithData(0, start, 0.0, fourcc("text"), size,
                                                   bytes.data(), ConstructionCopy));
}

// A queue filled with `count` frames of 10 bytes, kept alive by the test as well.
struct Filled {
    explicit Filled(int count, int readers) : queue(new RQueue(0, 0, "q")) {
        for (int i = 0; i < readers; ++i) {
            queue->registerReader();
        }
        for (int i = 0; i < count; ++i) {
            frames.push_back(frameAt(i));
            queue->put(frames.back().addr());
        }
    }
    RPtr<RQueue> queue;
    std::vector<RPtr<RFrame>> frames;
};

}  // namespace

TEST(QueueTest, PutRetainsNodesAndKeepsCounters) {
    RPtr<RQueue> queue(new RQueue(2, 5, "video out"));
    EXPECT_EQ(queue->firstNode(), nullptr);
    EXPECT_EQ(queue->getMediaFormat(), 0xFFFFFFFFu);
    EXPECT_EQ(queue->getLowLimit(), 2);
    EXPECT_EQ(queue->getHighLimit(), 5);
    EXPECT_TRUE(queue->getName() == "video out");

    RPtr<RFrame> a = frameAt(0, 100), b = frameAt(1, 28);
    queue->put(a.addr());
    queue->put(b.addr());
    queue->put(nullptr);
    EXPECT_EQ(queue->firstNode(), a.addr());
    EXPECT_EQ(a->getNext(), b.addr());
    EXPECT_EQ(b->getNext(), nullptr);
    EXPECT_EQ(a->retain_count(), 2);
    EXPECT_EQ(queue->getNodeCount(), 2);
    EXPECT_EQ(queue->getFramesPut(), 2u);
    EXPECT_EQ(queue->getBytesPut(), 128u);
    EXPECT_EQ(queue->getBytesHeld(), 128u);

    // Without registered readers nothing is ever dropped.
    EXPECT_EQ(queue->nextNode(nullptr), nullptr);
    EXPECT_EQ(queue->getNodeCount(), 2);

    queue->setLimits(1, 4);
    EXPECT_EQ(queue->getLowLimit(), 1);
    EXPECT_EQ(queue->getHighLimit(), 4);

    // The queue releases what it holds when it goes.
    queue = nullptr;
    EXPECT_EQ(a->retain_count(), 1);
    EXPECT_EQ(b->retain_count(), 1);
    EXPECT_EQ(a->getNext(), nullptr);
}

TEST(QueueTest, NodeLeavesWhenEveryReaderHasPassedIt) {
    for (int readers = 1; readers <= 3; ++readers) {
        SCOPED_TRACE(readers);
        Filled f(3, readers);
        RQueue& q = *f.queue;
        // Every reader but the last walks the whole list: nothing leaves.
        for (int r = 0; r < readers - 1; ++r) {
            RQNode* node = q.firstNode();
            for (int i = 0; i < 3; ++i) {
                node = q.nextNode(node);
            }
            EXPECT_EQ(node, nullptr);
            EXPECT_EQ(q.getNodeCount(), 3);
        }
        EXPECT_EQ(f.frames[0]->getReadCount(), readers - 1);

        // The last reader drops each node as it leaves it.
        RQNode* node = q.firstNode();
        for (int i = 0; i < 3; ++i) {
            node = q.nextNode(node);
            EXPECT_EQ(q.getNodeCount(), 2 - i);
            EXPECT_EQ(q.getBytesHeld(), 10u * (2 - i));
            EXPECT_EQ(f.frames[i]->retain_count(), 1);
            EXPECT_EQ(f.frames[i]->getReadCount(), 0);
            EXPECT_EQ(f.frames[i]->getNext(), nullptr);
        }
        EXPECT_EQ(node, nullptr);
        EXPECT_EQ(q.firstNode(), nullptr);
        EXPECT_EQ(q.getBytesPut(), 30u);

        // The emptied list takes new nodes at its head again.
        RPtr<RFrame> next = frameAt(9);
        q.put(next.addr());
        EXPECT_EQ(q.firstNode(), next.addr());
    }
}

TEST(QueueTest, ReaderLeavingLetsGoOfWhatItHeld) {
    // Two readers: B has passed the head, A leaves while holding it.
    {
        Filled f(2, 2);
        RQueue& q = *f.queue;
        RQNode* b = q.nextNode(q.firstNode());
        EXPECT_EQ(b, f.frames[1].addr());
        EXPECT_EQ(q.getNodeCount(), 2);
        q.unregisterReader(q.firstNode());
        EXPECT_EQ(q.getReaderCount(), 1);
        EXPECT_EQ(q.firstNode(), f.frames[1].addr());
        EXPECT_EQ(f.frames[0]->retain_count(), 1);
    }
    // Three readers: A has passed two nodes and leaves holding the third; the nodes it
    // passed forget its pass and stay for the two remaining readers.
    {
        Filled f(3, 3);
        RQueue& q = *f.queue;
        RQNode* a = q.nextNode(q.nextNode(q.firstNode()));
        q.unregisterReader(a);
        EXPECT_EQ(q.getNodeCount(), 3);
        EXPECT_EQ(f.frames[0]->getReadCount(), 0);
        EXPECT_EQ(f.frames[1]->getReadCount(), 0);
        RQNode* b = q.nextNode(q.firstNode());
        EXPECT_EQ(q.getNodeCount(), 3);
        q.nextNode(q.firstNode());
        EXPECT_EQ(q.firstNode(), b);
    }
    // A reader holding nothing takes one pass off every node in the list.
    {
        Filled f(3, 2);
        RQueue& q = *f.queue;
        q.nextNode(q.firstNode());
        q.unregisterReader(nullptr);
        EXPECT_EQ(q.getReaderCount(), 1);
        EXPECT_EQ(f.frames[0]->getReadCount(), 0);
        EXPECT_EQ(f.frames[1]->getReadCount(), -1);
        EXPECT_EQ(f.frames[2]->getReadCount(), -1);
        EXPECT_EQ(q.getNodeCount(), 3);
    }
}

TEST(QueueTest, ClearEmptiesTheListAndKeepsTheRest) {
    Filled f(4, 2);
    RQueue& q = *f.queue;
    q.nextNode(q.firstNode());
    q.nextNode(q.firstNode());  // the second reader drops frame 0; frame 1 becomes head
    q.nextNode(q.firstNode());  // frame 1 read once
    q.eoq();
    RPtr<RVideoDescription> description(new RVideoDescription());
    q.setDescription(description.addr());

    q.clear();
    EXPECT_EQ(q.firstNode(), nullptr);
    EXPECT_EQ(q.getNodeCount(), 0);
    EXPECT_EQ(q.getFramesPut(), 0u);
    EXPECT_EQ(q.getBytesPut(), 0u);
    EXPECT_EQ(q.getBytesHeld(), 0u);
    for (const RPtr<RFrame>& frame : f.frames) {
        EXPECT_EQ(frame->retain_count(), 1);
        EXPECT_EQ(frame->getReadCount(), 0);
        EXPECT_EQ(frame->getNext(), nullptr);
    }
    EXPECT_EQ(q.getReaderCount(), 2);
    EXPECT_TRUE(q.getEndOfQueue());
    EXPECT_EQ(q.getDescription().addr(), description.addr());
    EXPECT_EQ(q.getFirstReadFrameTime(), 1.0);

    RPtr<RFrame> fresh = frameAt(7);
    q.put(fresh.addr());
    EXPECT_EQ(q.firstNode(), fresh.addr());
    EXPECT_EQ(q.getNodeCount(), 1);
    EXPECT_EQ(q.getBytesHeld(), 10u);
}

TEST(QueueTest, ReadFrameTimesComeFromTheNewHead) {
    RPtr<RQueue> queue(new RQueue(0, 0, "q"));
    queue->registerReader();
    std::vector<RPtr<RQNode>> nodes;
    for (double start : {5.0, 8.0, 2.0, 9.0}) {
        nodes.push_back(frameAt(start));
        queue->put(nodes.back().addr());
    }
    // A node that is no frame has no time to give.
    nodes.push_back(new RQNode());
    queue->put(nodes.back().addr());
    EXPECT_EQ(queue->getLastReadFrameTime(), 0.0);

    // The first frame of the stream is never recorded: the times are taken from the frame
    // that becomes the head when its predecessor leaves.
    const double expectedLast[] = {8.0, 8.0, 9.0, 9.0, 9.0};
    RQNode* node = queue->firstNode();
    for (double last : expectedLast) {
        node = queue->nextNode(node);
        EXPECT_EQ(queue->getLastReadFrameTime(), last);
        EXPECT_EQ(queue->getFirstReadFrameTime(), 8.0);
    }
    EXPECT_EQ(queue->getNodeCount(), 0);
}

TEST(QueueTest, DescriptionAndEndOfQueue) {
    RPtr<RAudioDescription> first(new RAudioDescription());
    RPtr<RTextDescription> second(new RTextDescription());
    RPtr<RQueue> queue(new RQueue(0, 0, "q"));
    EXPECT_FALSE(queue->getDescription());
    queue->setDescription(first.addr());
    EXPECT_EQ(first->retain_count(), 2);
    queue->setDescription(second.addr());
    EXPECT_EQ(first->retain_count(), 1);
    EXPECT_EQ(queue->getDescription()->type(), fourcc("text"));
    queue->setDescription(nullptr);
    EXPECT_EQ(second->retain_count(), 1);
    queue->setDescription(second.addr());

    EXPECT_FALSE(queue->getEndOfQueue());
    queue->eoq();
    EXPECT_TRUE(queue->getEndOfQueue());
    EXPECT_EQ(queue->getReadersWaiting(), 0);
    EXPECT_EQ(queue->getWritersWaiting(), 0);

    queue->setName("renamed");
    queue->setFlags("live");
    queue->setMediaFormat(fourcc("avc1"));
    EXPECT_TRUE(queue->getName() == "renamed");
    EXPECT_TRUE(queue->getFlags() == "live");
    EXPECT_EQ(queue->getMediaFormat(), fourcc("avc1"));

    queue = nullptr;
    EXPECT_EQ(second->retain_count(), 1);
}
