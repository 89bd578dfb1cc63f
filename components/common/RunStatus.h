// CRunStatus: the progress and outcome of one component's run, as its getStatus() reports
// them.
//
// The component's thread records what it does (frames and bytes passed on, the result
// of the run with a line of detail, or a note on a run that goes well); any thread may
// take a snapshot at any time. The record outlives reset(), so that a host may read it
// after tearing a pipeline down; the component clears it when it is set up for another
// run. The result is 0 or a result code of <cm/CMComponentStatus.h>; the snapshot carries
// it in mExtra and its text, with the detail, in mInfo.
#ifndef CM_COMPONENTS_COMMON_RUNSTATUS_H
#define CM_COMPONENTS_COMMON_RUNSTATUS_H

#include <cm/CMComponentStatus.h>
#include <zr/CMutex.h>

#include <atomic>
#include <string>

namespace cmcomponents {

class CRunStatus {
public:
    // kConfigured, kWorking, kCompleted (CComponentStatus::Phase).
    void setPhase(unsigned int phase) noexcept { mPhase.store(phase, std::memory_order_release); }
    void addFrame(unsigned long long bytes) noexcept {
        mFrames.fetch_add(1, std::memory_order_relaxed);
        mBytes.fetch_add(bytes, std::memory_order_relaxed);
    }
    // Records the first failure of the run; later ones are consequences and are dropped.
    void fail(int result, const std::string& detail);
    // A line on how the run goes (what a live source has received and lost), shown in the
    // snapshot's mInfo while no failure takes its place.
    void setNote(const std::string& note);
    // Ends the run: kCompleted.
    void complete() noexcept { setPhase(ZR::CM::CComponentStatus::kCompleted); }
    // Forgets the counts and any failure, for a new attempt; the phase stays.
    void clear();

    int getResult() const noexcept { return mResult.load(std::memory_order_acquire); }
    bool failed() const noexcept { return getResult() != ZR::CM::kResultOK; }
    ZR::CM::CComponentStatus snapshot() const;

private:
    std::atomic<unsigned int> mPhase{ZR::CM::CComponentStatus::kInitialized};
    std::atomic<unsigned long long> mFrames{0};
    std::atomic<unsigned long long> mBytes{0};
    std::atomic<int> mResult{ZR::CM::kResultOK};
    // Guards mDetail and mNote.
    mutable ZR::CMutex mMutex;
    std::string mDetail;  // guarded by mMutex
    std::string mNote;    // guarded by mMutex
};

}  // namespace cmcomponents

#endif
