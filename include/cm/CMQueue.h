// The frame queue: the pipe between two components.
//
// One writer thread appends frames, any number of reader threads each see every frame in
// order, and a frame leaves the queue only when every registered reader has moved past it.
// RQueue itself is a passive list: it never waits, and its list operations (put, firstNode,
// nextNode, remove, registerReader, unregisterReader) expect the caller to hold the
// queue's mutex. The reader and writer objects do the locking and the waiting on the two
// conditions, keeping the two waiter counters so that they broadcast only when somebody
// waits; they are friends of the queue and use its fields directly.
//
// Ownership: the queue holds one reference to every node in its list and one to its
// description. Every node put into a queue must be a fresh frame (next null, read count 0).
//
// Threads: eoq() and setLimits() take the mutex themselves, as do the counter getters, so
// a monitor may call those from any thread (never while holding the mutex). The end flag
// and the two read-frame times may be read at any time. Name, flags, media format and
// clear() take no lock: they belong to whoever assembles or resets the pipeline.
#ifndef CM_CMQUEUE_H
#define CM_CMQUEUE_H

#include <cm/CMQueueNode.h>
#include <zr/CBuffer.h>
#include <zr/CMutex.h>
#include <zr/CTimeStamp.h>
#include <zr/RPtr.h>

#include <atomic>
#include <cstdint>
#include <typeinfo>

namespace ZR {
namespace CM {

class RFrame;
class RQueueRW;
class RQFrameWriter;
class RQFrameReader;

class RQueue : public zrbase::object_refcount {
public:
    // A high limit of 0 disables both limits. With limits, a writer waits while the queue
    // holds highLimit nodes; readers are woken when it has filled to highLimit (or ended),
    // writers when it has drained to lowLimit.
    RQueue(int lowLimit, int highLimit, const CString& name);
    RQueue(const RQueue&) = delete;
    RQueue& operator=(const RQueue&) = delete;
    // Releases the description and every node still held.
    ~RQueue() override;

    // Takes the mutex; waiters are not woken.
    void setLimits(int low, int high);
    void setName(const CString& name) { mName = name; }
    // Stored for the application; never interpreted by the queue.
    void setFlags(const CString& flags) { mFlags = flags; }
    void setMediaFormat(unsigned int format) noexcept { mMediaFormat = format; }
    // Replaces the description (null allowed). Neither locks nor wakes readers: the writer
    // does both around it.
    void setDescription(const RQDescription* description) noexcept;

    // Appends a fresh node and retains it. Caller holds the mutex.
    void put(RQNode* node);
    // The first node, or null. Caller holds the mutex.
    RQNode* firstNode() const noexcept { return mHead.mNext; }
    // Called by a reader leaving `node` behind: counts the node read once more and returns
    // its successor. When every registered reader has left it, the head of the list is
    // dropped; readers advance in order, so the head is the node they have all passed.
    // Caller holds the mutex.
    RQNode* nextNode(RQNode* node) noexcept;
    // Drops the head node and records the time of the frame that becomes the new head.
    // Caller holds the mutex.
    void remove() noexcept;
    void registerReader() noexcept { ++mReaderCount; }
    // A reader at `position` (or past the end when null) forgets its passes over the nodes
    // before it, as if it had not read them. Caller holds the mutex.
    void forgetPasses(RQNode* position) noexcept;
    // A reader leaves the queue while holding `position` (the node it was last handed and
    // has not yet left, or null): the nodes before it forget that reader's pass, and if
    // the remaining readers have all passed `position`, the head is dropped. Caller holds
    // the mutex.
    void unregisterReader(RQNode* position) noexcept;

    // Takes the mutex: marks the end of the queue and wakes waiting readers.
    void eoq();
    // Takes the mutex and wakes every waiting reader and writer, so that they look at their
    // component's notifications again (a post to the component does this).
    void wakeWaiters();
    bool getEndOfQueue() const noexcept { return mEndOfQueue.load(std::memory_order_acquire); }
    // Start time of the newest frame that became the head; never decreases.
    CTimeStamp getLastReadFrameTime() const noexcept {
        return mLastReadFrameTime.load(std::memory_order_relaxed);
    }
    // Start time of the first frame that became the head after a removal; set once.
    CTimeStamp getFirstReadFrameTime() const noexcept {
        return mFirstReadFrameTime.load(std::memory_order_relaxed);
    }

    // Empties the list and resets the put counters. Readers, end flag, limits, description
    // and the read-frame times survive. Takes no lock.
    void clear() noexcept;

    // Counters and settings; each takes the mutex.
    int getNodeCount() const;
    int getReaderCount() const;
    std::uint64_t getFramesPut() const;
    // The same count read without the lock, as the run loops' activity test does.
    std::uint64_t getFramesPutUnlocked() const noexcept {
        return mFramesPut.load(std::memory_order_relaxed);
    }
    std::uint64_t getBytesPut() const;
    std::uint64_t getBytesHeld() const;
    int getLowLimit() const;
    int getHighLimit() const;
    RPtr<const RQDescription> getDescription() const;
    int getReadersWaiting() const;
    int getWritersWaiting() const;

    const CString& getName() const noexcept { return mName; }
    const CString& getFlags() const noexcept { return mFlags; }
    unsigned int getMediaFormat() const noexcept { return mMediaFormat; }

private:
    friend class RQueueRW;
    friend class RQFrameWriter;
    friend class RQFrameReader;

    static constexpr unsigned int kNoMediaFormat = 0xFFFFFFFFu;

    // The node as a frame, or null for a node of another class (whose time is not taken).
    const RFrame* frameOf(const RQNode* node) noexcept;

    // Guards every field below except name, flags and media format, which are set while
    // the pipeline is assembled. The end flag and the read-frame times are atomics so that
    // they may also be read without it.
    mutable CMutex mMutex;
    int mWritersWaiting = 0;  // guarded by mMutex
    // Signalled when the queue has drained to the low limit.
    CCondition mRoomCondition;
    int mReadersWaiting = 0;  // guarded by mMutex
    // Signalled when the queue has filled to the high limit, at its end, and when a
    // description arrives.
    CCondition mDataCondition;
    RPtr<const RQDescription> mDescription;  // guarded by mMutex
    // The sentinel: never handed out; its next is the first real node.
    RQNode mHead;    // guarded by mMutex
    RQNode* mTail;   // the last node, or &mHead when empty; guarded by mMutex
    int mLowLimit;   // guarded by mMutex
    int mHighLimit;  // guarded by mMutex
    CString mName;
    CString mFlags;
    int mNodeCount = 0;                                         // guarded by mMutex
    int mReaderCount = 0;                                       // guarded by mMutex
    std::atomic<bool> mEndOfQueue{false};                       // guarded by mMutex
    // Written under mMutex; atomic so that a run loop may compare it without the lock.
    std::atomic<std::uint64_t> mFramesPut{0};
    std::uint64_t mBytesPut = 0;                                // guarded by mMutex
    std::uint64_t mBytesHeld = 0;                               // guarded by mMutex
    std::atomic<CTimeStamp> mLastReadFrameTime{CTimeStamp()};   // guarded by mMutex
    std::atomic<CTimeStamp> mFirstReadFrameTime{CTimeStamp()};  // guarded by mMutex
    bool mFirstReadFrameTimeSet = false;                        // guarded by mMutex
    unsigned int mMediaFormat = kNoMediaFormat;
    // The frame class frameOf() saw last.
    const std::type_info* mFrameType = nullptr;  // guarded by mMutex
    // How often clear() has emptied the list: a reader whose position predates the last
    // clear() starts again at the head instead of touching a released node.
    std::uint64_t mGeneration = 0;  // guarded by mMutex
};

}  // namespace CM
}  // namespace ZR

#endif
