#include <cm/CMImporter.h>

#include <cm/CMQueueRW.h>

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
    mWriterCount = static_cast<int>(outputs.size());
    if (mWriterCount == 0) {
        return 0;
    }
    mWriters = static_cast<RQFrameWriter**>(std::malloc(sizeof(RQFrameWriter*) * outputs.size()));
    for (int i = 0; i < mWriterCount; ++i) {
        mWriters[i] = new RQFrameWriter(outputs[static_cast<size_t>(i)], this);
        mWriters[i]->retain();
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
    for (int i = 0; i < mWriterCount; ++i) {
        mWriters[i]->release();
    }
    std::free(mWriters);
    mWriters = nullptr;
    mWriterCount = 0;
    return 0;
}

RQFrameWriter* RImporter::getWriter(int index) const noexcept {
    return index >= 0 && index < mWriterCount ? mWriters[index] : nullptr;
}

}  // namespace CM
}  // namespace ZR
