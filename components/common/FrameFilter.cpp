#include "common/FrameFilter.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RComponentConfiguration;
using ZR::CM::RDescription;
using ZR::CM::RFrame;

namespace cmcomponents {

int RFrameFilter::runloop(zrbase::object_refcount* arg) {
    mRun.clear();
    if (auto* configuration = dynamic_cast<RComponentConfiguration*>(arg)) {
        configure(*configuration);
    }
    mRun.setPhase(CComponentStatus::kWorking);
    mDescribed = false;
    if (!isWired()) {
        mRun.fail(ZR::CM::kResultComponentInitFailed,
                  "a filter needs exactly one input and one output queue");
    }
    const int result = CMMultipleQueueComponent::runloop(arg);
    mRun.complete();
    return result;
}

void RFrameFilter::process() {
    if (!isWired()) {
        for (int i = 0; i < mReaderCount; ++i) {
            while (mReaders[i]->nextNode()) {
            }
        }
        return;
    }
    // A filter makes a new frame of every frame it reads, so it reads the queued one.
    const RPtr<const RFrame> frame = mReaders[0]->nextSharedFrame();
    if (!frame) {
        return;
    }
    if (!mDescribed && !passQueuedDescription()) {
        mRun.fail(ZR::CM::kResultNoValidTracks, "frames came without a description");
    }
    if (mRun.failed()) {
        return;  // dropped
    }
    int result = ZR::CM::kResultOK;
    std::string why;
    const RPtr<const RFrame> out(transform(*frame, result, why));
    if (!out) {
        mRun.fail(result, why);
        return;
    }
    mWriters[0]->put(out);
    mRun.addFrame(out->getSize());
}

// A writer publishes its description before its first frame, so once a frame or the end
// has arrived, the description is there or never comes.
bool RFrameFilter::passQueuedDescription() {
    mDescribed = true;
    const RPtr<const ZR::CM::RQDescription> queued = mReaders[0]->getQueue()->getDescription();
    const auto* description = static_cast<const RDescription*>(queued.addr());
    if (!description) {
        return false;
    }
    std::string why;
    const int result = acceptDescription(*description, why);
    if (result != ZR::CM::kResultOK) {
        mRun.fail(result, why);
    }
    mWriters[0]->setDescriptionP(description);
    return true;
}

// The input has ended. An input that brought no frames may still have a description.
void RFrameFilter::flush() {
    if (isWired() && !mDescribed) {
        passQueuedDescription();
    }
    // The run loop ends the first output; the others are ended here.
    for (int i = 1; i < mWriterCount; ++i) {
        mWriters[i]->end();
    }
}

}  // namespace cmcomponents
