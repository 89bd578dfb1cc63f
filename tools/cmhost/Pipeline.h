// A running graph of components: the stages, the queues between them, one thread per
// stage. A stage may write several queues (an importer, one per track) and read several
// (an exporter that muxes them); the host wires each component to its queues before it
// adds it here, and the pipeline owns the queues and the stages from then on.
//
// run() starts the stages in the reverse order of adding them, waits for all of them and
// reports: on a terminal a live progress block (one line per branch of queues, each queue
// with the frames and bytes put into it and its fill), at the end one status line per
// stage with its thread's times and the run's wall, user and system times. A stage fails
// the run when its status carries a result code in mExtra (where the components record a
// failure) or its run function returns one other than 0. Once a stage has failed, the
// stages still running are aborted, and the run reports the failure of the stage that
// failed first.
//
// While a run lasts, SIGINT and SIGTERM end it cleanly: the first asks every importer to
// stop(); one of a live source then ends its tracks after the last whole frame, and the
// stages after it finish their output as at the end of any input. The signals' usual
// action is back from then on, so a second one ends the process at once.
//
// Threads: everything here runs on the host's main thread; the stages run on their own.
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

    // A new queue, shown as `name` on the progress line of `branch` (queues of one branch
    // in the order they were added); `high` (0: the pipeline's) overrides its high limit.
    ZR::CM::RQueue* addQueue(const std::string& branch, const std::string& name, int high = 0);
    // A stage whose component is wired to its queues already.
    void addStage(const std::string& name, ZR::RPtr<ZR::CM::RComponent> component);

    // Runs every stage to its end; returns 0 or the first failing stage's result code.
    // With beforeLastStage, the last stage starts only after that has returned (a sender
    // that must wait until its receiver knows the stream); a throw from it stops the run.
    int run(bool showProgress, const std::function<void()>& beforeLastStage = {});
    void printReport(std::FILE* out) const;
    // After a failed run: "STAGE: DETAIL" of the stage whose failure caused it (the detail
    // its status gave, without the result code's text), or "" when it gave none.
    std::string failure() const;

private:
    struct Stage {
        std::string name;
        ZR::RPtr<ZR::CM::RComponent> component;
        int result = 0;
        bool aborted = false;  // stopped by the pipeline after another stage failed
    };
    struct Queue {
        std::string branch;
        std::string name;
        ZR::RPtr<ZR::CM::RQueue> queue;
    };

    // The result code the component's status carries, else its run function's result.
    static int resultOf(ZR::CM::RComponent& component);
    bool anyFailed() const;
    bool anyRunning() const;
    // Waits until every stage has ended, aborting the others once one has failed, and
    // stopping the importers once a signal asked for it.
    void waitForStages(bool showProgress);
    void stopImporters();
    // One line per branch, each cut to `width` characters (0: uncut).
    std::vector<std::string> progressLines(size_t width) const;

    int mLow;
    int mHigh;
    std::vector<Queue> mQueues;
    std::vector<Stage> mStages;
    double mWallSeconds = 0;
    double mUserSeconds = 0;
    double mSystemSeconds = 0;
};

// What a component's status says about its failure with code: the detail after the
// result code's text, which the caller prints anyway; "" when it says nothing more.
std::string statusReason(ZR::CM::RComponent& component, int code);

}  // namespace cmhost

#endif
