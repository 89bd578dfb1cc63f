#include <cm/CMExporter.h>

#include <cm/CMQueueRW.h>

#include "CMEndpoints.h"

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
    // The readers of an earlier init go: left registered, they would hold every frame of
    // their queues and stall the writers at the high limit for ever.
    releaseEndpoints(mReaders, mReaderCount);
    mReaders = makeEndpoints<RQFrameReader>(inputs, this, mReaderCount);
    return 0;
}

RPtr<RMovieInfo> RExporter::getMovieInformation() {
    return new RMovieInfo;
}

int RExporter::componentWillReset() {
    mInputQueues.clear();
    mStream = nullptr;
    releaseEndpoints(mReaders, mReaderCount);
    return 0;
}

RQFrameReader* RExporter::getReader(int index) const noexcept {
    return endpointAt(mReaders, mReaderCount, index);
}

}  // namespace CM
}  // namespace ZR
