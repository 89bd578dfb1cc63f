// RFrameFilter: the base of the filters that turn every frame of one input queue into one
// frame on one output queue, each frame on its own.
//
// The run loop of CMMultipleQueueComponent drives it: process() takes the next frame, and
// before the first one hands the input's description to acceptDescription() and passes
// that same description on to the output; then each frame goes through transform() and
// the new frame is put on the output. A filter never changes the format of what flows, so
// the description travels on unchanged. It is passed on even when the filter rejects it
// and also when the input ends without frames, so that the stage downstream sees the
// format (and, after a rejection, an empty stream) instead of waiting for a description
// forever. Frames that come without a description fail the run with kResultNoValidTracks.
//
// A filter has exactly one input and one output; with any other count, or after a failure,
// it reads and drops everything and ends its outputs. getStatus() reports the phase, the
// frames and bytes passed on and, in mExtra and mInfo, the result code of a failure; it
// starts afresh with every run.
//
// Configuration: configure() (the library's CConfigurableP, which a host calls after init())
// reads the filter's keys (see each filter). A filter also takes its configuration as the
// argument of start(): an RComponentConfiguration passed there is applied on the filter's
// thread before the first frame, and must stay alive until the run has ended.
//
// Threads: configure() on the application's thread before start(), or through start();
// process(), flush() and the hooks on the component's thread; getStatus() from any thread.
#ifndef CM_COMPONENTS_COMMON_FRAMEFILTER_H
#define CM_COMPONENTS_COMMON_FRAMEFILTER_H

#include "common/RunStatus.h"

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMFrame.h>

#include <string>

namespace cmcomponents {

class RFrameFilter : public ZR::CM::CMMultipleQueueComponent, public ZR::CM::CConfigurableP {
public:
    unsigned int type() const override { return ZR::fourcc("fltr"); }
    // Reads the filter's keys; a missing key keeps its default, a number out of range is
    // clamped. 0.
    int configure(ZR::CM::RComponentConfiguration& configuration) override = 0;

    int runloop(zrbase::object_refcount* arg) override;
    void process() override;
    void flush() override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

protected:
    // 0 when the filter can work on frames of this format, else a result code and a line
    // on why.
    virtual int acceptDescription(const ZR::CM::RDescription& description, std::string& why) = 0;
    // A new frame (count 0) for the output made from frame, or null with a result code in
    // result and a line in why.
    virtual ZR::CM::RFrame* transform(const ZR::CM::RFrame& frame, int& result,
                                      std::string& why) = 0;

    CRunStatus mRun;

private:
    // Checks the input queue's description and passes it on; false when it has none.
    bool passQueuedDescription();
    bool isWired() const noexcept { return mReaderCount == 1 && mWriterCount == 1; }

    bool mDescribed = false;  // the input's description has been looked for
};

}  // namespace cmcomponents

#endif
