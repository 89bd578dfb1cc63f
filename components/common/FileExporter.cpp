#include "common/FileExporter.h"

#include "common/InputPumps.h"
#include "common/StreamIO.h"

#include <cm/CMComponentStatus.h>
#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RDescription;
using ZR::CM::RFrame;
using ZR::CM::RQFrameReader;

namespace cmcomponents {

int RFileExporter::init(std::vector<ZR::CM::RQueue*>& inputs, RPtr<ZR::CM::RStream> stream) {
    mRun.clear();
    mRun.setPhase(CComponentStatus::kInitialized);
    return RExporter::init(inputs, std::move(stream));
}

int RFileExporter::runloop(zrbase::object_refcount*) {
    mRun.setPhase(CComponentStatus::kWorking);
    if (!mStream || mReaderCount == 0) {
        mRun.fail(ZR::CM::kResultComponentInitFailed, "the exporter has no stream or input");
    } else if (mReaderCount > 1) {
        mRun.fail(ZR::CM::kResultNoValidTracks,
                  "the file takes one track, and " + std::to_string(mReaderCount) + " were given");
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
    // A writer publishes its description before its first frame, so once a frame or the
    // end has arrived, the description is there or never comes.
    RPtr<const RFrame> frame = reader.nextSharedFrame();
    const RPtr<const ZR::CM::RQDescription> queued = reader.getQueue()->getDescription();
    const auto* description = static_cast<const RDescription*>(queued.addr());
    if (!description) {
        return step(ZR::CM::kResultNoValidTracks, frame ? "frames came without a description"
                                                        : "the input ended without a description");
    }
    if (!step(begin(*description, why), why)) {
        return false;
    }
    for (; frame; frame = reader.nextSharedFrame()) {
        if (!step(writeFrame(*frame, why), why)) {
            break;
        }
        mRun.addFrame(frame->getSize());
    }
    if (!frame && step(finish(why), why)) {
        return true;
    }
    salvage();
    return false;
}

// All at once: an importer writing several of the inputs may be blocked on a full one
// while another is read.
void RFileExporter::drainInputs() {
    CInputPumps pumps(std::vector<RQFrameReader*>(mReaders, mReaders + mReaderCount));
    CInputPumps::Arrival arrival;
    while (pumps.next(arrival)) {
    }
}

}  // namespace cmcomponents
