#include "av/AvCodecStage.h"

#include "av/AvLibrary.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RDescription;
using ZR::CM::RFrame;

namespace cmcomponents {

RAvCodecStage::RAvCodecStage(std::string owner, std::vector<SettingSpec> settings)
    : mSettings(owner, std::move(settings)), mOwner(std::move(owner)) {
    initializeLibav();
}

int RAvCodecStage::configure(ZR::CM::RComponentConfiguration& configuration) {
    mConfigureWhy.clear();
    mConfigureResult = mSettings.configure(configuration, mConfigureWhy);
    if (mConfigureResult != ZR::CM::kResultOK) {
        mRun.fail(mConfigureResult, mConfigureWhy);  // so that the host can say why at once
        return mConfigureResult;
    }
    mRun.setPhase(CComponentStatus::kConfigured);
    return mConfigureResult;
}

int RAvCodecStage::runloop(zrbase::object_refcount* arg) {
    mRun.clear();
    if (auto* configuration = dynamic_cast<ZR::CM::RComponentConfiguration*>(arg)) {
        configure(*configuration);
    }
    mRun.setPhase(CComponentStatus::kWorking);
    mStarted = false;
    close();
    if (!isWired()) {
        step(ZR::CM::kResultComponentInitFailed,
             mOwner + " needs exactly one input and one output queue");
    }
    step(mConfigureResult, mConfigureWhy);
    const int result = CMMultipleQueueComponent::runloop(arg);
    close();
    mRun.complete();
    return mRun.failed() ? -1 : result;
}

bool RAvCodecStage::step(int result, const std::string& why) {
    if (result != ZR::CM::kResultOK) {
        mRun.fail(result, why);
    }
    return result == ZR::CM::kResultOK;
}

void RAvCodecStage::process() {
    if (!isWired()) {
        for (int i = 0; i < mReaderCount; ++i) {
            while (mReaders[i]->nextNode()) {
            }
        }
        return;
    }
    const RPtr<const RFrame> frame = mReaders[0]->nextSharedFrame();
    if (!frame || mRun.failed() || (!mStarted && !start())) {
        return;  // the end, or dropped after a failure
    }
    std::string why;
    step(code(*frame, why), why);
}

void RAvCodecStage::flush() {
    if (isWired() && !mRun.failed() && (mStarted || start())) {
        std::string why;
        step(finish(why), why);
    }
    // The run loop ends the first output; the others are ended here.
    for (int i = 1; i < mWriterCount; ++i) {
        mWriters[i]->end();
    }
}

// A writer publishes its description before its first frame, so once a frame or the end
// has arrived, the description is there or never comes.
bool RAvCodecStage::start() {
    mStarted = true;
    const RPtr<const ZR::CM::RQDescription> queued = mReaders[0]->getQueue()->getDescription();
    const auto* description = static_cast<const RDescription*>(queued.addr());
    if (!description) {
        return step(ZR::CM::kResultNoValidTracks, "the input came without a description");
    }
    std::string why;
    return step(open(*description, why), why);
}

void RAvCodecStage::describe(const RPtr<const RDescription>& description) {
    mWriters[0]->setDescription(description);
}

void RAvCodecStage::put(RFrame* frame) {
    const RPtr<const RFrame> held(frame);
    mWriters[0]->put(held);
    mRun.addFrame(frame->getSize());
}

}  // namespace cmcomponents
