#include "support/TestComponents.h"

#include "support/TestSupport.h"

#include <cstring>
#include <thread>

namespace cmtest {

namespace {

const char kTrackedParameter[] = "tracked";

unsigned char byteAt(unsigned int sequence, unsigned int offset) {
    return static_cast<unsigned char>(sequence * 31u + offset);
}

}  // namespace

ZR::RPtr<ZR::CM::RFrame> makeNumberedFrame(unsigned int sequence, unsigned int size) {
    ZR::RPtr<ZR::CM::RFrame> frame(ZR::CM::RVideoFrame::create(size));
    std::vector<unsigned char> bytes(size);
    for (unsigned int i = 0; i < size; ++i) {
        bytes[i] = byteAt(sequence, i);
    }
    if (size > 0) {
        frame->setData(size, bytes.data(), ZR::ConstructionCopy);
    }
    frame->setFrameNumber(sequence);
    frame->setStartTime(sequence / 25.0);
    frame->addParameter(kTrackedParameter, new Tracked(static_cast<int>(sequence)));
    return frame;
}

bool hasNumberedContent(const ZR::CM::RFrame& frame) {
    const unsigned int sequence = frame.getFrameNumber();
    for (unsigned int i = 0; i < frame.getSize(); ++i) {
        if (frame.getData()[i] != byteAt(sequence, i)) {
            return false;
        }
    }
    return true;
}

ZR::RPtr<ZR::CM::RQueue> makeQueue(int low, int high) {
    return new ZR::CM::RQueue(low, high, ZR::CString("q"));
}

Producer::Producer(unsigned int count, std::function<unsigned int(unsigned int)> sizeOf)
    : mCount(count), mSizeOf(std::move(sizeOf)) {}

void Producer::flush() {
    for (unsigned int i = 0; i < mCount; ++i) {
        getWriter(0)->put(makeNumberedFrame(i, mSizeOf(i)));
        mWritten.fetch_add(1);
    }
}

void PassFilter::process() {
    ZR::RPtr<ZR::CM::RFrame> frame = getReader(0)->nextFrame();
    if (frame) {
        getWriter(0)->put(frame);
    }
}

void Consumer::process() {
    ZR::RPtr<ZR::CM::RFrame> frame = getReader(0)->nextFrame();
    if (!frame) {
        return;
    }
    if (!hasNumberedContent(*frame)) {
        mAllIntact = false;
    }
    mSeen.push_back(frame->getFrameNumber());
    mCount.fetch_add(1);
}

void wire(ZR::CM::CMMultipleQueueComponent& component, std::vector<ZR::CM::RQueue*> inputs,
          std::vector<ZR::CM::RQueue*> outputs) {
    component.init(inputs, outputs);
}

void post(unsigned int code, ZR::CM::RComponent* target) {
    ZR::CM::CNotification n(code);
    ZR::CM::RNotificationCenter::getDefault()->postNotification(n, target);
}

void waitUntil(const std::function<bool()>& done) {
    while (!done()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace cmtest
