#include <cm/CMQueue.h>

#include <cm/CMFrame.h>

#include <gtest/gtest.h>

#include <vector>

using namespace ZR;
using namespace ZR::CM;

namespace {

RPtr<RFrame> frameAt(CTimeStamp start) {
    unsigned char bytes[10] = {};
    return RPtr<RFrame>(
        RTextFrame::createWithData(0, start, 0.0, fourcc("text"), 10, bytes, ConstructionCopy));
}

// A queue holding frames that start at 0, 1, 2, ... seconds, kept alive by the test too.
struct Filled {
    Filled(int count, int readers) : queue(new RQueue(0, 0, "q")) {
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

TEST(QueueTest, NodeLeavesWhenEveryReaderHasPassedIt) {
    for (int readers = 1; readers <= 3; ++readers) {
        SCOPED_TRACE(readers);
        Filled f(3, readers);
        RQueue& q = *f.queue;
        EXPECT_EQ(f.frames[0]->retain_count(), 2);
        // Every reader but the last walks the whole list: nothing leaves.
        for (int r = 0; r < readers - 1; ++r) {
            EXPECT_EQ(q.nextNode(q.nextNode(q.nextNode(q.firstNode()))), nullptr);
        }
        EXPECT_EQ(q.getNodeCount(), 3);
        // The last reader drops each node as it leaves it.
        RQNode* node = q.firstNode();
        for (int i = 0; i < 3; ++i) {
            node = q.nextNode(node);
            EXPECT_EQ(q.getNodeCount(), 2 - i);
            EXPECT_EQ(q.getBytesHeld(), 10u * (2 - i));
            EXPECT_EQ(f.frames[i]->retain_count(), 1);
            EXPECT_EQ(f.frames[i]->getReadCount(), 0);
        }
        EXPECT_EQ(q.getFramesPut(), 3u);
        EXPECT_EQ(q.getBytesPut(), 30u);
        // The emptied list takes new nodes at its head again.
        q.put(f.frames[0].addr());
        EXPECT_EQ(q.firstNode(), f.frames[0].addr());
    }
}

TEST(QueueTest, ReadFrameTimesComeFromTheNewHead) {
    RPtr<RQueue> queue(new RQueue(0, 0, "q"));
    queue->registerReader();
    std::vector<RPtr<RQNode>> nodes;
    for (double start : {5.0, 8.0, 2.0, 9.0}) {
        nodes.push_back(frameAt(start));
    }
    nodes.push_back(new RQNode());  // no frame, so no time to give
    for (const RPtr<RQNode>& node : nodes) {
        queue->put(node.addr());
    }
    // The first frame of the stream is never recorded, and the last time never decreases.
    RQNode* node = queue->firstNode();
    for (double last : {8.0, 8.0, 9.0, 9.0, 9.0}) {
        node = queue->nextNode(node);
        EXPECT_EQ(queue->getLastReadFrameTime(), last);
        EXPECT_EQ(queue->getFirstReadFrameTime(), 8.0);
    }
}
