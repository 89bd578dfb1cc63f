// RFileExporter: the base of the exporters that write the frames of their one input queue
// into one media file. Given several inputs, the run fails with kResultNoValidTracks.
//
// runloop() opens the stream (unless the host opened it), waits for the first frame, takes
// the queue's description and hands it to begin(), which checks it and writes the file's
// header; then every frame goes to writeFrame(), and finish() completes the file once the
// queue has ended. The stream is closed at the end of the run. An input that ends without
// a single frame still makes a file when its queue has a description (an empty track);
// without one there is nothing to describe and the run fails with kResultNoValidTracks, as
// it does for frames that come without a description.
//
// When writing a frame or completing the file fails (a full disk, say), salvage() gets the
// chance to leave what was written usable before the stream is closed.
//
// Frames are read with nextSharedFrame(): an exporter only reads them, so it needs no copy
// of its own. Once a step fails, the remaining frames of every input are read and dropped, so
// that no writer upstream waits on a full queue. getStatus() reports the phase, the frames
// and bytes written and, in mExtra and mInfo, the result code of a failed run.
//
// Threads: configure() on the application's thread before start(); runloop() and the
// three steps on the component's thread; getStatus() from any thread.
#ifndef CM_COMPONENTS_COMMON_FILEEXPORTER_H
#define CM_COMPONENTS_COMMON_FILEEXPORTER_H

#include "common/RunStatus.h"

#include <cm/CMExporter.h>
#include <cm/CMFrame.h>

#include <string>

namespace cmcomponents {

class RFileExporter : public ZR::CM::RExporter {
public:
    // Clears the status of an earlier run, then as RExporter::init().
    int init(std::vector<ZR::CM::RQueue*>& inputs, ZR::RPtr<ZR::CM::RStream> stream) override;
    int runloop(zrbase::object_refcount* arg) override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

protected:
    // Each step returns 0 or a result code, with a line on what was wrong in why.
    // Checks the description and writes the header.
    virtual int begin(const ZR::CM::RDescription& description, std::string& why) = 0;
    virtual int writeFrame(const ZR::CM::RFrame& frame, std::string& why) = 0;
    // Completes the file after the last frame.
    virtual int finish(std::string& why) = 0;
    // After writeFrame() or finish() failed: makes what is in the file readable, as far as
    // that can be done without more room. Does nothing here.
    virtual void salvage() {}

    CRunStatus mRun;

private:
    // Runs the steps; false when one failed (recorded in mRun).
    bool exportFrames(ZR::CM::RQFrameReader& reader);
    bool step(int result, const std::string& why);
    // Reads every input to its end, all at once.
    void drainInputs();
};

}  // namespace cmcomponents

#endif
