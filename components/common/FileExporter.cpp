#include "common/FileExporter.h"

#include "common/StreamIO.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMQueueRW.h>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RDescription;
using ZR::CM::RFrame;
using ZR::CM::RQFrameReader;
using ZR::CM::RQNode;

namespace cmcomponents {

int RFileExporter::runloop(zrbase::object_refcount*) {
    mRun.setPhase(CComponentStatus::kWorking);
    if (!mStream || mReaderCount == 0) {
        mRun.fail(ZR::CM::kResultComponentInitFailed, "the exporter has no stream or input");
    } else if (const int opened = openIfClosed(*mStream); opened != ZR::CM::kResultOK) {
        mRun.fail(opened, std::string("cannot open ") + mStream->getURI().c_str());
    } else {
        const bool exported = exportFrames(*mReaders[0]);
        if (mStream->close() != 0 && exported) {
            mRun.fail(ZR::CM::kResultFileWriteFailed, "closing the file failed");
        }
    }
    drainInputs();
    mRun.complete();
    return mRun.failed() ? -1 : 0;
}

bool RFileExporter::step(int result, const std::string& why) {
    if (result != ZR::CM::kResultOK) {
        mRun.fail(result, why);
    }
    return result == ZR::CM::kResultOK;
}

bool RFileExporter::exportFrames(RQFrameReader& reader) {
    std::string why;
    // The description is published before the first frame; a queue that ended without
    // frames may still have one.
    const RQNode* node = reader.nextNode();
    RPtr<const RDescription> description =
        node ? reader.getDescription()
             : RPtr<const RDescription>(
                   static_cast<const RDescription*>(reader.getQueue()->getDescription().addr()));
    if (!description) {
        return step(ZR::CM::kResultNoValidTracks, "the input ended without a description");
    }
    if (!step(begin(*description, why), why)) {
        return false;
    }
    for (; node; node = reader.nextNode()) {
        const auto* frame = static_cast<const RFrame*>(node);
        if (!step(writeFrame(*frame, why), why)) {
            return false;
        }
        mRun.addFrame(frame->getSize());
    }
    return step(finish(why), why);
}

void RFileExporter::drainInputs() {
    for (int i = 0; i < mReaderCount; ++i) {
        while (mReaders[i]->nextNode()) {
        }
    }
}

}  // namespace cmcomponents
