// Small real components for pipeline tests: a producer that writes numbered frames, a
// filter that passes frames on, and a consumer that checks and records what it reads. All
// are CMMultipleQueueComponents run by the library's own run loop.
#ifndef CM_TESTS_SUPPORT_TESTCOMPONENTS_H
#define CM_TESTS_SUPPORT_TESTCOMPONENTS_H

#include <cm/CMComponent.h>
#include <cm/CMFrame.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <vector>

namespace cmtest {

// A frame whose bytes and frame number encode its sequence number and whose parameter is
// a Tracked object, so that a test can check order, content and release.
ZR::RPtr<ZR::CM::RFrame> makeNumberedFrame(unsigned int sequence, unsigned int size);
// True when the frame's bytes are those makeNumberedFrame wrote for its frame number.
bool hasNumberedContent(const ZR::CM::RFrame& frame);
// A queue named "q" with the given limits.
ZR::RPtr<ZR::CM::RQueue> makeQueue(int low, int high);

// No inputs: its run loop goes straight to flush(), which writes `count` numbered frames
// of sizes chosen by `sizeOf(sequence)` to its first output.
class Producer : public ZR::CM::CMMultipleQueueComponent {
public:
    Producer(unsigned int count, std::function<unsigned int(unsigned int)> sizeOf);
    unsigned int type() const override { return ZR::fourcc("impt"); }
    void flush() override;

    std::atomic<unsigned int> mWritten{0};

private:
    unsigned int mCount;
    std::function<unsigned int(unsigned int)> mSizeOf;
};

// Passes every frame of its first input to its first output.
class PassFilter : public ZR::CM::CMMultipleQueueComponent {
public:
    unsigned int type() const override { return ZR::fourcc("fltr"); }
    void process() override;
    void flush() override { mFlushed.fetch_add(1); }

    std::atomic<int> mFlushed{0};
};

// Reads its first input and records the frame numbers it saw, and whether every frame
// carried the content its number calls for.
class Consumer : public ZR::CM::CMMultipleQueueComponent {
public:
    unsigned int type() const override { return ZR::fourcc("expt"); }
    void process() override;
    void flush() override {}

    std::vector<unsigned int> mSeen;  // written by the component's thread only
    std::atomic<bool> mAllIntact{true};
    std::atomic<unsigned int> mCount{0};
};

// init() with the queues as listed (init() takes its lists by reference).
void wire(ZR::CM::CMMultipleQueueComponent& component, std::vector<ZR::CM::RQueue*> inputs,
          std::vector<ZR::CM::RQueue*> outputs);

// Posts a notification of `code` to target, or to every registered component when null.
void post(unsigned int code, ZR::CM::RComponent* target = nullptr);

// Waits (without a time limit of its own; the test's CTest time-out bounds it) until
// `done` holds, polling every millisecond.
void waitUntil(const std::function<bool()>& done);

}  // namespace cmtest

#endif
