#include <cm/CMExporter.h>

#include <cm/CMQueueRW.h>

#include <cstdlib>

namespace ZR {
namespace CM {

RExporter::~RExporter() {
    std::free(mReaders);
}

int RExporter::init(std::vector<RQueue*>& inputs, RPtr<RStream> stream) {
    initialize();
    mStream = std::move(stream);
    mInputQueues = inputs;
    mReaderCount = static_cast<int>(inputs.size());
    // Allocated even for no inputs, so that a reset always has an array to free.
    mReaders = static_cast<RQFrameReader**>(std::malloc(sizeof(RQFrameReader*) * inputs.size()));
    for (int i = 0; i < mReaderCount; ++i) {
        mReaders[i] = new RQFrameReader(inputs[static_cast<size_t>(i)], this);
        mReaders[i]->retain();
    }
    return 0;
}

RPtr<RMovieInfo> RExporter::getMovieInformation() {
    return new RMovieInfo;
}

int RExporter::componentWillReset() {
    mInputQueues.clear();
    mStream = nullptr;
    for (int i = 0; i < mReaderCount; ++i) {
        mReaders[i]->release();
    }
    std::free(mReaders);
    mReaders = nullptr;
    mReaderCount = 0;
    return 0;
}

RQFrameReader* RExporter::getReader(int index) const noexcept {
    return index >= 0 && index < mReaderCount ? mReaders[index] : nullptr;
}

}  // namespace CM
}  // namespace ZR
