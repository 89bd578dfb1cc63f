// A running chain of components: the stages in order, the queues between them, one thread
// per stage.
//
// run() starts the stages from the last to the first (so that every reader exists before
// its writer produces), waits for all of them and reports: on a terminal a live progress
// line (frames and bytes each stage has put out, the fill of each queue), at the end one
// status line per stage with its thread's times and the run's wall, user and system times.
// A stage fails the run when its status carries a result code in mExtra (where the
// components record a failure) or its run function returns one other than 0. Once a stage
// has failed, the stages still running are aborted, and the run reports the failure of
// the stage that failed first.
#ifndef CMHOST_PIPELINE_H
#define CMHOST_PIPELINE_H

#include <cm/cm.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace cmhost {

class Pipeline {
public:
    // Queues hold at most `high` frames and wake their writer again at `low`.
    explicit Pipeline(int low = 8, int high = 32) : mLow(low), mHigh(high) {}
    ~Pipeline();
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    ZR::CM::RQueue* addQueue(const std::string& name);
    // Stages are given in pipeline order; `output` is the queue the stage writes (or null).
    void addStage(const std::string& name, ZR::RPtr<ZR::CM::RComponent> component,
                  ZR::CM::RQueue* output);

    // Runs every stage to its end; returns 0 or the first failing stage's result code.
    // With beforeLastStage, the last stage starts only after that has returned (a sender
    // that must wait until its receiver knows the stream); a throw from it stops the run.
    int run(bool showProgress, const std::function<void()>& beforeLastStage = {});
    void printReport(std::FILE* out) const;

private:
    struct Stage {
        std::string name;
        ZR::RPtr<ZR::CM::RComponent> component;
        ZR::CM::RQueue* output;
        int result = 0;
        bool aborted = false;  // stopped by the pipeline after another stage failed
    };

    // The result code the component's status carries, else its run function's result.
    static int resultOf(ZR::CM::RComponent& component);
    bool anyFailed() const;
    // Waits until every stage has ended, aborting the others once one has failed.
    void waitForStages(bool showProgress);

    bool anyRunning() const;
    std::string progressLine() const;

    int mLow;
    int mHigh;
    std::vector<ZR::RPtr<ZR::CM::RQueue>> mQueues;
    std::vector<Stage> mStages;
    double mWallSeconds = 0;
    double mUserSeconds = 0;
    double mSystemSeconds = 0;
};

}  // namespace cmhost

#endif
