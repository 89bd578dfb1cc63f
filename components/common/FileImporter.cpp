#include "common/FileImporter.h"

#include <cm/CMComponentStatus.h>

using ZR::RPtr;
using ZR::CM::CComponentStatus;
using ZR::CM::RMovieInfo;

namespace cmcomponents {

int RFileImporter::init(RPtr<ZR::CM::RStream> stream, std::vector<ZR::CM::RQueue*>& outputs) {
    mRun.clear();
    mRun.setPhase(CComponentStatus::kInitialized);
    mOpen = false;
    mReader.reset();
    return RImporter::init(std::move(stream), outputs);
}

int RFileImporter::componentWillReset() {
    mReader.reset();
    mOpen = false;
    return RImporter::componentWillReset();
}

int RFileImporter::openSource() {
    mRun.clear();
    mOpen = false;
    mReader.reset();
    if (!mStream) {
        mRun.fail(ZR::CM::kResultFileOpenFailed, "the importer has no stream");
        return ZR::CM::kResultFileOpenFailed;
    }
    const int opened = openIfClosed(*mStream);
    if (opened != ZR::CM::kResultOK) {
        mRun.fail(opened, std::string("cannot open ") + mStream->getURI().c_str());
        return opened;
    }
    mReader.reset(new CByteReader(mStream));
    std::string why;
    const int result = readHeader(*mReader, why);
    if (result != ZR::CM::kResultOK) {
        mRun.fail(result, why);
        mReader.reset();
        return result;
    }
    mOpen = true;
    return result;
}

int RFileImporter::runloop(zrbase::object_refcount*) {
    mRun.setPhase(CComponentStatus::kWorking);
    int first = 0;
    if (mOpen && mWriterCount > 0) {
        importFrames(*mReader, *mWriters[0]);
        first = 1;
    } else if (!mRun.failed()) {
        mRun.fail(ZR::CM::kResultComponentInitFailed,
                  mOpen ? "the importer has no output queue" : "the source was not opened");
    }
    for (int i = first; i < mWriterCount; ++i) {
        mWriters[i]->end();
    }
    mRun.complete();
    return mRun.failed() ? -1 : 0;
}

RPtr<RMovieInfo> RFileImporter::createMovie() const {
    RPtr<RMovieInfo> movie(new RMovieInfo(1));
    if (mStream) {
        movie->mMovieName = mStream->getURI();
    }
    return movie;
}

}  // namespace cmcomponents
