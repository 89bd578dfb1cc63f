// RAvCodecStage: the base of the FFmpeg decoders and encoders, the stages that turn the
// frames of one input queue into frames of another form on one output queue, any number
// out for each one in.
//
// The run loop of CMMultipleQueueComponent drives it. process() takes the next frame (the
// queued frame itself, read with nextSharedFrame(): the codecs copy what they keep);
// before the first one (or at the end, for an input without frames) the input queue's
// description goes to open(), which sets up the codec and may publish the output's
// description. Each frame then goes to code(), which puts what it makes on the output
// through put(); once the input has ended, finish() drains the codec. An output whose
// description cannot be known before the first coded frame is published with that frame.
//
// Failures: an input without a description, a description open() does not take, a frame
// code() cannot use: the run fails with a result code and a line (getStatus()), the rest
// of the input is read and dropped so that nothing upstream waits on a full queue, and
// the output ends, without a description when none was published. A stage needs exactly
// one input and one output queue.
//
// Configuration: configure() (CConfigurableP, called by a host after init()) checks the
// settings against the stage's table (CAvSettings); a stage also takes its configuration
// as the argument of start(), applied on its thread before the first frame. A rejected
// configuration shows in getStatus() at once, with the reason, and fails the run that
// follows it.
//
// Threads: configure() on the application's thread before start(), or through start();
// process(), flush() and the hooks on the component's thread; getStatus() from any thread.
#ifndef CM_COMPONENTS_AV_AVCODECSTAGE_H
#define CM_COMPONENTS_AV_AVCODECSTAGE_H

#include "av/AvSettings.h"
#include "common/RunStatus.h"

#include <cm/CMComponent.h>
#include <cm/CMComponentConfiguration.h>
#include <cm/CMFrame.h>

#include <string>
#include <vector>

namespace cmcomponents {

class RAvCodecStage : public ZR::CM::CMMultipleQueueComponent, public ZR::CM::CConfigurableP {
public:
    // 0, or kResultSettingParseFailed for a setting the stage does not take.
    int configure(ZR::CM::RComponentConfiguration& configuration) override;
    int runloop(zrbase::object_refcount* arg) override;
    void process() override;
    void flush() override;
    ZR::CM::CComponentStatus getStatus() override { return mRun.snapshot(); }

protected:
    // owner names the stage in messages ("h264 encoder").
    RAvCodecStage(std::string owner, std::vector<SettingSpec> settings);

    // Each hook returns 0 or a result code with a line in why.
    // Sets up the codec for the input's description.
    virtual int open(const ZR::CM::RDescription& description, std::string& why) = 0;
    virtual int code(const ZR::CM::RFrame& frame, std::string& why) = 0;
    // Emits what the codec still holds once the input has ended.
    virtual int finish(std::string& why) = 0;
    // Lets go of the codec and everything made for one run.
    virtual void close() = 0;

    // Publishes the output's description.
    void describe(const ZR::RPtr<const ZR::CM::RDescription>& description);
    // Puts a new frame (count 0) on the output and counts it.
    void put(ZR::CM::RFrame* frame);

    const std::string& owner() const noexcept { return mOwner; }

    CAvSettings mSettings;
    CRunStatus mRun;

private:
    bool isWired() const noexcept { return mReaderCount == 1 && mWriterCount == 1; }
    // Opens the codec for the input queue's description; false (recorded) when it fails.
    bool start();
    bool step(int result, const std::string& why);

    const std::string mOwner;
    int mConfigureResult = ZR::CM::kResultOK;
    std::string mConfigureWhy;
    bool mStarted = false;  // open() has been tried
};

}  // namespace cmcomponents

#endif
