#include <cm/CMImporter.h>

#include <cm/CMQueueRW.h>

#include "CMEndpoints.h"

#include <cstdlib>

namespace ZR {
namespace CM {

RImporter::~RImporter() {
    std::free(mWriters);
}

int RImporter::init(RPtr<RStream> stream, std::vector<RQueue*>& outputs) {
    initialize();
    mStream = std::move(stream);
    mOutputQueues = outputs;
    // The writers of an earlier init go (the count becomes 0); no outputs, no array.
    releaseEndpoints(mWriters, mWriterCount);
    if (!outputs.empty()) {
        mWriters = makeEndpoints<RQFrameWriter>(outputs, this, mWriterCount);
    }
    return 0;
}

int RImporter::preconfigure(RImporterConfiguration&) {
    return -1;
}

int RImporter::setTime(unsigned int, double) {
    return -1;
}

int RImporter::handleNotification(CNotification& n) {
    if (n.getCode() == CNotification::kRestart) {
        for (int i = 0; i < mWriterCount; ++i) {
            mWriters[i]->clear();
        }
    }
    return 0;
}

int RImporter::componentWillReset() {
    mOutputQueues.clear();
    mStream = nullptr;
    releaseEndpoints(mWriters, mWriterCount);
    return 0;
}

RQFrameWriter* RImporter::getWriter(int index) const noexcept {
    return endpointAt(mWriters, mWriterCount, index);
}

}  // namespace CM
}  // namespace ZR
