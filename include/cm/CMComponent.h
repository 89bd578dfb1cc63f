// Components: the processing stages of a pipeline, each running on a thread of its own.
//
// RComponent is the base of every component (importers, exporters, filters). It is
// reference counted, owns its worker thread through CThread<RComponent>, and receives
// notifications: a post (RNotificationCenter) queues a copy in the component and wakes the
// threads the component has blocked in its queues; the component's own thread handles them
// in handleNotifications() when it passes through a queue operation or its run loop.
// "paus", "rsum" and "abrt" never reach handleNotification(): they set the component's
// paused and aborted states, which the queue waits and the run loops obey.
//
// CMMultipleQueueComponent is the base of filter stages: any number of input queues, each
// read through an RQFrameReader, and output queues, each written through an RQFrameWriter;
// its run loop calls process() while any input is still active, then flush(), then ends
// the first output queue.
//
// Threads: the life-cycle operations (initialize, start, pause, resume, abort, reset,
// destroy) are called from the application's thread; runloop(), process(), flush() and
// the notification handlers run on the component's thread. The component mutex guards the
// wake set and the pending notifications; it may be taken while a queue mutex is held,
// never the other way round. Handlers run after the pending list has been taken out from
// under the mutex, often from inside a queue wait, which releases its queue's mutex while
// they run: they may lock the component's output queues (a "rstr" handler clears them)
// but must not wait.
#ifndef CM_CMCOMPONENT_H
#define CM_CMCOMPONENT_H

#include <cm/CMComponentStatus.h>
#include <cm/CMNotification.h>
#include <zr/CMutex.h>
#include <zr/CThread.h>
#include <zr/RPtr.h>
#include <zrbase/object_refcount.h>

#include <pthread.h>

#include <atomic>
#include <deque>
#include <map>
#include <vector>

namespace ZR {
namespace CM {

class RComponentInfo;
class RQueue;
class RQFrameReader;
class RQFrameWriter;

class RComponent : public zrbase::object_refcount, public CThread<RComponent> {
public:
    RComponent() = default;
    // Joins a thread that ended on its own and was never joined (or detaches it when the
    // last reference is dropped by that thread itself).
    ~RComponent() override;

    void handleException(const CException& e) override;
    virtual unsigned int type() const = 0;
    virtual CComponentStatus getStatus();
    // Called by reset() once the thread has been joined; subclasses release their queues.
    virtual int componentWillReset();
    // The component's own notifications; paus, rsum and abrt never arrive here.
    virtual int handleNotification(CNotification& n);
    virtual int authenticate(CString& credentials);

    // Registers with the default notification center.
    int initialize();
    // Runs runloop(arg) on a new thread; returns once the thread has registered itself.
    // A thread that cannot be created gives kResultComponentStartFailed.
    int start(zrbase::object_refcount* arg);
    int pause();
    int resume();
    // Posts "abrt" (which wakes the thread wherever it waits and makes it leave its run)
    // and joins the component's threads.
    int abort();
    // Waits for the thread of the last start() to end by itself. 0, or
    // kResultComponentJoinFailed when there is no thread to wait for.
    int join();
    // Aborts a running thread (or reaps one that ended by itself), calls
    // componentWillReset(), leaves the notification center and drops the wake set and any
    // pending notifications.
    int reset();
    int destroy() { return reset(); }

    // Handles every pending notification, oldest first.
    void handleNotifications();
    // Cheap test for the queue waits: is anything pending? No lock.
    bool hasPendingNotifications() const noexcept {
        return mPendingCount.load(std::memory_order_acquire) != 0;
    }
    bool isPaused() const noexcept { return mPaused.load(std::memory_order_acquire); }
    bool isAborted() const noexcept { return mAborted.load(std::memory_order_acquire); }
    // For the run loops: handles pending notifications, holds while the component is
    // paused, and throws CThreadAbort once it is aborted.
    void checkpoint();

    void setLibrary(void* library) noexcept { mLibrary = library; }
    void* getLibrary() const noexcept { return mLibrary; }
    void setComponentInfo(RComponentInfo* info) noexcept { mComponentInfo = info; }
    RComponentInfo* getComponentInfo() const noexcept { return mComponentInfo; }
    bool isInitialized() const noexcept { return mInitialized; }
    int getPendingNotificationCount() const;
    int getWakeSetSize() const;

    void registerWithNotificationCenter();
    void unregisterFromNotificationCenter();

    // The wake set: the conditions of the queues this component's readers and writers
    // wait on, each with its queue. Insert returns whether the condition was new.
    bool insertWakeCondition(CCondition* condition, RQueue* queue);
    void removeWakeCondition(CCondition* condition);

    // Delivery, called by the notification center: queues a copy of n and returns the
    // queues whose waiters must be woken (retained, so they outlive a concurrent reset).
    void enqueueNotification(const CNotification& n, std::vector<RPtr<RQueue>>& toWake);

private:
    // Paus, rsum and abrt set the state instead of reaching handleNotification().
    void recordControlLocked(unsigned int code);
    void joinThreads();

    // Guards mWakeSet and mPending (and the state changes made while draining them).
    mutable CMutex mMutex;
    bool mInitialized = false;
    std::map<CCondition*, RQueue*> mWakeSet;  // guarded by mMutex; queues not retained
    std::deque<CNotification> mPending;       // guarded by mMutex
    void* mLibrary = nullptr;
    RComponentInfo* mComponentInfo = nullptr;

    std::atomic<int> mPendingCount{0};  // size of mPending, for lock-free tests
    std::atomic<bool> mPaused{false};
    std::atomic<bool> mAborted{false};
    CCondition mStateCondition;  // waited on with mMutex by a run loop held in pause
    pthread_t mThread{};         // the thread of the last start(); 0 once joined
};

class CMMultipleQueueComponent : public RComponent {
public:
    CMMultipleQueueComponent() = default;
    ~CMMultipleQueueComponent() override;

    int componentWillReset() override;
    // "rstr": every reader goes back to the head of its queue, every output queue is emptied.
    int handleNotification(CNotification& n) override;
    // One unit of work: read from the readers, write to the writers.
    virtual void process();
    // Emit what is still buffered at the end of the stream.
    virtual void flush();
    int runloop(zrbase::object_refcount* arg) override;

    // Registers with the notification center and makes one reader per input queue and one
    // writer per output queue, in order.
    int init(std::vector<RQueue*>& inputs, std::vector<RQueue*>& outputs);
    // True while some input has not ended or has frames this component has not read.
    bool anyReaderIsActive() const;

    int getReaderCount() const noexcept { return mReaderCount; }
    RQFrameReader* getReader(int index) const noexcept;
    int getWriterCount() const noexcept { return mWriterCount; }
    RQFrameWriter* getWriter(int index) const noexcept;

protected:
    std::vector<RQueue*> mInputQueues;
    std::vector<RQueue*> mOutputQueues;
    int mReaderCount = 0;
    RQFrameReader** mReaders = nullptr;  // malloc'd; each retained once
    int mWriterCount = 0;
    RQFrameWriter** mWriters = nullptr;  // malloc'd; each retained once
};

}  // namespace CM
}  // namespace ZR

#endif
