// Readers and writers of frame queues, and the sample and video-frame adapters on top.
//
// A component never touches an RQueue directly: it writes each output queue through an
// RQFrameWriter and reads each input queue through an RQFrameReader. These do all the
// locking and waiting: a writer waits while the queue is at its high limit, a reader while
// there is nothing for it, and every thread that wakes in a queue first handles its
// component's pending notifications. A paused component's thread goes back to waiting; an
// aborted one leaves the wait by throwing CThreadAbort, which ends its run.
//
// Each reader sees every frame, in one of three ways: nextFrame() hands it its own copy;
// nextSharedFrame() hands it the queue's own frame, with a reference of its own and no
// copy; nextNode() hands out the shared node without a reference, valid only until the
// reader steps on. Readers and writers retain their queue and their component for their
// whole life and register the condition they wait on in the component's wake set, so that
// a notification posted to the component wakes them.
//
// RQSampleWriter cuts runs of audio samples of any length into frames of a fixed number of
// samples; RQSampleReader hands out runs of any length from consecutive frames;
// RQVideoFrameWriter numbers video frames and gives each the duration up to its successor.
// The adapters belong to the one component thread that uses them.
#ifndef CM_CMQUEUERW_H
#define CM_CMQUEUERW_H

#include <cm/CMFrame.h>
#include <cm/CMQueue.h>
#include <zr/CTimeStamp.h>
#include <zr/RPtr.h>

#include <cstdint>

namespace ZR {
namespace CM {

class RComponent;

class RQueueRW : public zrbase::object_refcount {
public:
    // Retains both; component may be null (then notifications are never checked).
    RQueueRW(RQueue* queue, RComponent* component) noexcept;
    ~RQueueRW() override;
    RQueueRW(const RQueueRW&) = delete;
    RQueueRW& operator=(const RQueueRW&) = delete;

    RQueue* getQueue() const noexcept { return mQueue; }

    // The queue mutex is held by the caller for these three; checkNotifications() releases
    // it while the handlers run (they may clear other queues) and takes it again.
    void checkNotifications();
    void signalHighLimit() noexcept;  // wakes readers when the queue has filled or has no limits
    void signalLowLimit() noexcept;   // wakes writers when it has drained or has no limits

protected:
    // Handles pending notifications; false while the component is paused, CThreadAbort
    // once it is aborted. Queue mutex held.
    bool mayProceedLocked();
    // Whether signalHighLimit() or signalLowLimit() would broadcast now. Queue mutex held.
    bool readersToWakeLocked() const noexcept;
    bool writersToWakeLocked() const noexcept;
    void registerWakeCondition(CCondition& condition);
    void unregisterWakeCondition(CCondition& condition) noexcept;

    RQueue* mQueue;          // retained
    RComponent* mComponent;  // retained; may be null
    bool mRegistered = false;
};

class RQFrameWriter : public RQueueRW {
public:
    RQFrameWriter(RQueue* queue, RComponent* component);
    ~RQFrameWriter() override;

    // Appends the frame (shared, not copied), waiting while the queue is at its high limit.
    void putP(const RFrame* frame);
    void put(const RPtr<const RFrame>& frame) { putP(frame.addr()); }
    // End of stream: readers drain what is left and then receive null.
    void end();
    // Empties the queue (a "rstr" handler does this).
    void clear();
    void setDescriptionP(const RDescription* description);
    void setDescription(const RPtr<const RDescription>& d) { setDescriptionP(d.addr()); }
    // The queue's description as it stands, or null; never waits.
    const RDescription* getDescriptionP() const;
};

class RQFrameReader : public RQueueRW {
public:
    RQFrameReader(RQueue* queue, RComponent* component);
    ~RQFrameReader() override;

    // Steps to the next node, waiting until there is one; null once the queue has ended
    // and this reader has read its last node.
    RQNode* nextNode();
    // This reader's own copy of the next frame, or null at the end.
    RPtr<RFrame> nextFrame();
    RPtr<RFrame> firstFrame() { return nextFrame(); }
    // The next frame itself, shared with the queue and with the other readers, or null at
    // the end. It waits, keeps the limits, handles notifications, ends and follows a
    // "rstr" exactly as nextFrame() does, and skips only the copy: no allocation, no bytes
    // moved, one more reference.
    //
    // It is the read for a component that only reads its input: an exporter or encoder
    // writing frames out, a packetizer, a filter that builds a new frame from the one it
    // read. Such a component
    //  - never writes into the frame, its bytes or its parameters: the writer and every
    //    other reader see the same object (do not cast the const away);
    //  - never puts the frame itself into a queue, this one or another (a node lives in
    //    one list only): it puts a copy() or a frame of its own;
    //  - may keep the reference as long as it likes: after reading on, after a "rstr" has
    //    emptied the queue, after the queue is gone. The frame lives while anyone holds it.
    // A component that changes frames in place reads with nextFrame().
    //
    // What it costs the writer: nothing per frame, but a frame and its block now live until
    // the last holder lets go, not just until every reader has stepped past it; frames a
    // reader keeps hold memory the queue's limits no longer count. The holder that lets go
    // last frees the frame, on its own thread.
    RPtr<const RFrame> nextSharedFrame();
    // Waits until the queue has a description. A queue whose writer never sets one keeps
    // the reader waiting until its component is aborted.
    const RDescription* getDescriptionP();
    RPtr<const RDescription> getDescription() { return getDescriptionP(); }
    // Forgets the position: the next read starts again at the head of the queue. Takes
    // the queue mutex, so never call it with the mutex held.
    void reset() noexcept;

    std::uint64_t getFramesRead() const noexcept {
        return mFramesRead.load(std::memory_order_relaxed);
    }
    RQNode* getCurrent() const noexcept { return mCurrent; }

private:
    // The blocking step behind the three reads; with hold, the frame is also retained
    // before the queue mutex is released.
    RQNode* step(RPtr<const RFrame>* hold);
    // A clear() of the queue releases the node this reader held, if any: it then starts
    // again at the head.
    void forgetClearedPositionLocked() noexcept;

    std::atomic<std::uint64_t> mFramesRead{0};  // read by the run loop's activity test
    RQNode* mCurrent = nullptr;                 // the node last handed out; kept alive by the queue
    std::uint64_t mGeneration = 0;              // the queue's clear count when mCurrent was taken
    bool mPastEnd = false;  // has passed every node of the ended queue since its last clear
};

class RQSampleWriter : public zrbase::object_refcount {
public:
    RQSampleWriter() = default;
    // Takes the writer's current description, if any, without waiting.
    RQSampleWriter(RQFrameWriter* writer, unsigned int samplesPerFrame);
    ~RQSampleWriter() override;

    void initWithWriter(RQFrameWriter* writer, unsigned int samplesPerFrame);
    void setDescriptionP(const RAudioDescription* description);
    void setDescription(const RPtr<const RAudioDescription>& d) { setDescriptionP(d.addr()); }
    void initializeInternalData(const RAudioDescription* description);
    void setDataFormat(unsigned int format) noexcept { mDataFormat = format; }
    void setStartTime(CTimeStamp start) noexcept { mStartTime = start; }
    // Appends count single-channel samples; full frames go to the queue (which may block).
    unsigned int writeSamples(const unsigned char* data, unsigned int count);
    // Emits the partial frame, if any, and ends the queue.
    void end();
    void reset();

private:
    void emitFull();
    // Puts the samples buffered so far as a frame lasting as long as they do.
    void emitPartial();
    static unsigned char* allocateBuffer(unsigned int size);

    RQFrameWriter* mWriter = nullptr;  // not retained
    unsigned int mSamplesPerFrame = 0;
    const RAudioDescription* mDescription = nullptr;  // the frame writer's queue holds it
    unsigned int mFill = 0;
    unsigned char* mBuffer = nullptr;
    unsigned int mBufferSize = 0;
    unsigned int mDataFormat = 0;
    unsigned int mFrameCounter = 0;
    CTimeStamp mStartTime;
    CTimeStamp mFrameDuration;
};

class RQSampleReader : public zrbase::object_refcount {
public:
    RQSampleReader() = default;
    // Waits for the queue's description and takes the first frame.
    explicit RQSampleReader(RQFrameReader* reader);

    void initWithReader(RQFrameReader* reader);
    RPtr<const RAudioDescription> getDescription() const { return mDescription; }
    // Copies up to count single-channel samples into dst; returns how many it delivered,
    // fewer only when the queue has ended.
    unsigned int readSamples(unsigned char* dst, unsigned int count);
    void reset();

    unsigned int getDataFormat() const noexcept { return mDataFormat; }
    CTimeStamp getStartTime() const noexcept { return mStartTime; }

private:
    RQFrameReader* mReader = nullptr;
    RPtr<const RAudioDescription> mDescription;
    RPtr<RFrame> mCurrentFrame;
    unsigned int mOffset = 0;
    unsigned int mDataFormat = 0;
    CTimeStamp mStartTime;
};

class RQVideoFrameWriter : public zrbase::object_refcount {
public:
    static RQVideoFrameWriter* createWithFrameWriter(RQFrameWriter* writer);

    void initWithWriter(RQFrameWriter* writer);
    void setDescriptionP(const RVideoDescription* description);
    void setDescription(const RPtr<const RVideoDescription>& d) { setDescriptionP(d.addr()); }
    // Numbers the frame and passes on the one held before it, now that its duration is known.
    void putP(RFrame* frame);
    void put(const RPtr<RFrame>& frame) { putP(frame.addr()); }
    // Passes on the held frame, lasting up to endTime, and ends the queue.
    void end(CTimeStamp endTime);

private:
    RQFrameWriter* mWriter = nullptr;
    RPtr<RFrame> mHeldFrame;
    unsigned int mFrameCounter = 0;
    CTimeStamp mDefaultDuration;
};

}  // namespace CM
}  // namespace ZR

#endif
