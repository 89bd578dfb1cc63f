// CInputPumps: reads every input queue of a component on a thread of its own and hands
// what arrives to the one thread that consumes it, in arrival order.
//
// A component that writes several inputs into one stream (a muxer) cannot wait on one of
// its queues: while it waits for the next frame of the audio queue, the importer upstream
// may be blocked putting the video of the next second into a full video queue, and both
// wait for ever. The pumps always read whatever comes, so every queue keeps moving; the
// consumer takes the frames as they arrive and leaves their interleaving to the muxer.
// Only a bounded number of arrivals wait for the consumer, so a slow consumer still holds
// the inputs back.
//
// Each pump reads its queue to the end and hands on every frame (the queued frame itself,
// read with nextSharedFrame(): the consumer only reads it), then
// an arrival without a frame for the end; with the first arrival of each input comes its
// queue's description (null when the writer set none), which is there once a frame or the
// end has arrived. An abort of the component wakes the pumps in their queue waits and
// ends them; next() then returns false with aborted() set, and the consumer lets its run
// end through the component's checkpoint().
//
// Threads: constructed, used and destroyed by the consumer, on the component's thread.
// The pumps are threads of their own that use the component's readers (and so obey its
// pause and abort). The consumer must read until next() returns false before destroying
// the pumps, so that no pump is left waiting on a queue.
#ifndef CM_COMPONENTS_COMMON_INPUTPUMPS_H
#define CM_COMPONENTS_COMMON_INPUTPUMPS_H

#include <cm/CMFrame.h>
#include <cm/CMQueueRW.h>
#include <zr/CMutex.h>
#include <zr/RPtr.h>

#include <cstddef>
#include <deque>
#include <thread>
#include <vector>

namespace cmcomponents {

class CInputPumps {
public:
    struct Arrival {
        std::size_t input = 0;
        ZR::RPtr<const ZR::CM::RFrame> frame;              // null: the input has ended
        bool first = false;                                // the input's first arrival
        ZR::RPtr<const ZR::CM::RDescription> description;  // with the first arrival
    };

    // Starts one pump per reader; the readers must outlive the pumps.
    explicit CInputPumps(const std::vector<ZR::CM::RQFrameReader*>& readers);
    // Stops and joins the pumps.
    ~CInputPumps();
    CInputPumps(const CInputPumps&) = delete;
    CInputPumps& operator=(const CInputPumps&) = delete;

    // Waits for the next arrival; false once every input has ended and everything has
    // been handed on, or at once when the component was aborted.
    bool next(Arrival& arrival);
    bool aborted() const;

private:
    static constexpr std::size_t kMaxWaiting = 64;

    void pump(std::size_t input, ZR::CM::RQFrameReader* reader);
    // Queues one arrival, waiting while kMaxWaiting are queued; false once stopping.
    bool deliver(Arrival arrival);

    // Guards mWaiting, mRunning, mAborted and mStopping.
    mutable ZR::CMutex mMutex;
    ZR::CCondition mArrived;       // signalled when an arrival is queued or a pump ends
    ZR::CCondition mRoom;          // signalled when the consumer takes one, and when stopping
    std::deque<Arrival> mWaiting;  // guarded by mMutex
    std::size_t mRunning = 0;      // pumps not yet ended; guarded by mMutex
    bool mAborted = false;         // guarded by mMutex
    bool mStopping = false;        // guarded by mMutex
    std::vector<std::thread> mThreads;
};

}  // namespace cmcomponents

#endif
