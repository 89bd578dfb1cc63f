// RFileImporter: the base of the importers that read one media file and write one track of
// frames to their first output queue.
//
// openSource() opens the stream (unless the host opened it) and reads the file's header
// through readHeader(); runloop() then hands the reader to importFrames(). Every way out of
// a run ends every output queue (the first one through the concrete importer, which may
// still hold frames back), so that no reader downstream waits for frames that will never
// come. An importer started without a successful openSource() ends its queues without a
// description; the host is expected not to start a pipeline whose source did not open.
//
// getStatus() reports the phase, the frames and bytes written and, in mExtra and mInfo,
// the result code of a failed open or run.
//
// Threads: openSource(), getMovieInfo() and configure() on the application's thread before
// start(); runloop() on the component's thread; getStatus() from any thread.
#ifndef CM_COMPONENTS_COMMON_FILEIMPORTER_H
#define CM_COMPONENTS_COMMON_FILEIMPORTER_H

#include "common/MovieTracks.h"
#include "common/RunStatus.h"
#include "common/StreamIO.h"

#include <cm/CMImporter.h>
#include <cm/CMQueueRW.h>

#include <memory>
#include <string>

namespace cmcomponents {

class RFileImporter : public ZR::CM::RImporter {
public:
    // Clears the status of an earlier run, then as RImporter::init().
    int init(ZR::RPtr<ZR::CM::RStream> stream, std::vector<ZR::CM::RQueue*>& outputs) override;
    // Lets go of the reader (and through it the stream) too; no-throw.
    int componentWillReset() override;
    // 0, the stream's result code when it cannot be opened, or readHeader()'s result. An
    // earlier failure is forgotten.
    int openSource() override;
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

    bool isOpen() const noexcept { return mOpen; }

protected:
    // Reads the header from the start of the stream: 0 or a result code, with a line on
    // what was wrong.
    virtual int readHeader(CByteReader& reader, std::string& why) = 0;
    // Reads the media after the header and writes it to writer; ends writer's queue on
    // every way out but an abort. Failures go to mRun.
    virtual void importFrames(CByteReader& reader, ZR::CM::RQFrameWriter& writer) = 0;
    // A movie named after the stream with no tracks; the concrete importers add theirs
    // through addNewTrack() (common/MovieTracks.h).
    ZR::RPtr<ZR::CM::RMovieInfo> createMovie() const;

    CRunStatus mRun;

private:
    std::unique_ptr<CByteReader> mReader;
    bool mOpen = false;
};

}  // namespace cmcomponents

#endif
