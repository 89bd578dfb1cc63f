#include <cm/CMComponent.h>

#include <cm/CMQueue.h>
#include <cm/CMQueueRW.h>

#include "CMEndpoints.h"

#include <cstdint>
#include <cstdlib>
#include <mutex>

namespace ZR {
namespace CM {

namespace {

const char kFile[] = "lib/cm/CMComponent";

// The default process() and flush() report from the line their callers have always seen.
constexpr int kNotImplementedLine = 210;

}  // namespace

// RComponent

RComponent::~RComponent() {
    if (!mThread) {
        return;
    }
    if (pthread_equal(mThread, pthread_self())) {
        pthread_detach(mThread);  // the thread itself dropped the last reference
    } else {
        pthread_join(mThread, nullptr);
    }
}

void RComponent::handleException(const CException& e) {
    e.print();
    std::abort();
}

CComponentStatus RComponent::getStatus() {
    return CComponentStatus();
}

int RComponent::componentWillReset() {
    return 0;
}

int RComponent::handleNotification(CNotification&) {
    return 0;
}

int RComponent::authenticate(CString&) {
    return 1;
}

int RComponent::initialize() {
    registerWithNotificationCenter();
    mInitialized = true;
    return 0;
}

int RComponent::start(zrbase::object_refcount* arg) {
    mAborted.store(false, std::memory_order_release);
    pthread_t thread;
    if (startThread(&RComponent::runloop, arg, &thread) != 0) {
        return kResultComponentStartFailed;
    }
    mThread = thread;
    return 0;
}

int RComponent::pause() {
    CNotification n(CNotification::kPause);
    RNotificationCenter::getDefault()->postNotification(n, this);
    return 0;
}

int RComponent::resume() {
    CNotification n(CNotification::kResume);
    RNotificationCenter::getDefault()->postNotification(n, this);
    return 0;
}

int RComponent::abort() {
    CNotification n(CNotification::kAbort);
    RNotificationCenter::getDefault()->postNotification(n, this);
    joinThreads();
    return 0;
}

int RComponent::join() {
    if (!mThread) {
        return kResultComponentJoinFailed;
    }
    joinThreads();
    return 0;
}

// Joins every running thread in set order, and the thread of the last start() when it has
// already ended (it is still joinable).
void RComponent::joinThreads() {
    bool joinedLast = false;
    for (const pthread_t thread : getRunningThreads()) {
        pthread_join(thread, nullptr);
        joinedLast = joinedLast || (mThread && pthread_equal(thread, mThread));
    }
    if (mThread && !joinedLast) {
        pthread_join(mThread, nullptr);
    }
    mThread = pthread_t{};
}

int RComponent::reset() {
    if (getRunningThreadCount() != 0) {
        abort();
    } else if (mThread && !pthread_equal(mThread, pthread_self())) {
        // A run that ended by itself leaves the run set just before its thread drops its
        // reference to the component: reap it, so that once reset() returns no thread of
        // this component holds it and the application's release is the last one.
        joinThreads();
    }
    componentWillReset();
    unregisterFromNotificationCenter();
    std::lock_guard<CMutex> lock(mMutex);
    mWakeSet.clear();
    mPending.clear();
    mPendingCount.store(0, std::memory_order_release);
    mPaused.store(false, std::memory_order_release);
    mAborted.store(false, std::memory_order_release);
    mInitialized = false;
    return 0;
}

void RComponent::recordControlLocked(unsigned int code) {
    switch (code) {
        case CNotification::kPause:
            mPaused.store(true, std::memory_order_release);
            break;
        case CNotification::kResume:
            mPaused.store(false, std::memory_order_release);
            break;
        case CNotification::kAbort:
            mAborted.store(true, std::memory_order_release);
            break;
        default:
            break;
    }
}

namespace {

bool isControlCode(unsigned int code) {
    return code == 0 || code == CNotification::kPause || code == CNotification::kResume ||
           code == CNotification::kAbort;
}

}  // namespace

// The pending list is taken under the mutex and the handlers run after it is released: a
// "rstr" handler locks its output queues, and the component mutex must never be held while
// a queue mutex is taken.
void RComponent::handleNotifications() {
    std::deque<CNotification> taken;
    {
        std::lock_guard<CMutex> lock(mMutex);
        taken.swap(mPending);
        mPendingCount.store(0, std::memory_order_release);
        for (const CNotification& n : taken) {
            recordControlLocked(n.getCode());
        }
    }
    for (CNotification& n : taken) {
        if (!isControlCode(n.getCode())) {
            handleNotification(n);
        }
    }
}

void RComponent::checkpoint() {
    std::unique_lock<CMutex> lock(mMutex);
    for (;;) {
        if (!mPending.empty()) {
            lock.unlock();
            handleNotifications();
            lock.lock();
            continue;
        }
        if (isAborted()) {
            throw CThreadAbort();
        }
        if (!isPaused()) {
            return;
        }
        mStateCondition.wait(mMutex);
    }
}

void RComponent::enqueueNotification(const CNotification& n, std::vector<RPtr<RQueue>>& toWake) {
    std::lock_guard<CMutex> lock(mMutex);
    mPending.push_back(n);
    mPendingCount.store(static_cast<int>(mPending.size()), std::memory_order_release);
    mStateCondition.broadcast();
    for (const auto& entry : mWakeSet) {
        toWake.emplace_back(entry.second);
    }
}

int RComponent::getPendingNotificationCount() const {
    std::lock_guard<CMutex> lock(mMutex);
    return static_cast<int>(mPending.size());
}

int RComponent::getWakeSetSize() const {
    std::lock_guard<CMutex> lock(mMutex);
    return static_cast<int>(mWakeSet.size());
}

void RComponent::registerWithNotificationCenter() {
    RNotificationCenter::getDefault()->registerComponent(this);
}

void RComponent::unregisterFromNotificationCenter() {
    RNotificationCenter::getDefault()->unregisterComponent(this);
}

bool RComponent::insertWakeCondition(CCondition* condition, RQueue* queue) {
    std::lock_guard<CMutex> lock(mMutex);
    return mWakeSet.emplace(condition, queue).second;
}

void RComponent::removeWakeCondition(CCondition* condition) {
    std::lock_guard<CMutex> lock(mMutex);
    mWakeSet.erase(condition);
}

// CMMultipleQueueComponent

CMMultipleQueueComponent::~CMMultipleQueueComponent() {
    // A component that was never reset still holds its readers and writers, and they hold
    // it: they can only be here if the last reference went away during reset.
    std::free(mReaders);
    std::free(mWriters);
}

int CMMultipleQueueComponent::init(std::vector<RQueue*>& inputs, std::vector<RQueue*>& outputs) {
    initialize();
    mInputQueues = inputs;
    mOutputQueues = outputs;
    // The endpoints of an earlier init go, as an exporter's do.
    releaseEndpoints(mReaders, mReaderCount);
    releaseEndpoints(mWriters, mWriterCount);
    mReaders = makeEndpoints<RQFrameReader>(inputs, this, mReaderCount);
    mWriters = makeEndpoints<RQFrameWriter>(outputs, this, mWriterCount);
    return 0;
}

// The loop also honours the component's control state on every pass: it holds while the
// component is paused and leaves (through CThreadAbort) once it is aborted.
int CMMultipleQueueComponent::runloop(zrbase::object_refcount*) {
    while (anyReaderIsActive()) {
        checkpoint();
        process();
    }
    flush();
    // Only the first output is ended; a component without outputs has nothing to end.
    if (mWriterCount > 0) {
        mWriters[0]->end();
    }
    return 0;
}

bool CMMultipleQueueComponent::anyReaderIsActive() const {
    for (int i = 0; i < mReaderCount; ++i) {
        const RQFrameReader* reader = mReaders[i];
        const RQueue* queue = reader->getQueue();
        if (!queue->getEndOfQueue() ||
            static_cast<std::uint32_t>(reader->getFramesRead()) !=
                static_cast<std::uint32_t>(queue->getFramesPutUnlocked())) {
            return true;
        }
    }
    return false;
}

void CMMultipleQueueComponent::process() {
    throw CException("ZR::CException", kNotImplementedLine, kFile, __PRETTY_FUNCTION__,
                     CString("process() not implemented!"));
}

void CMMultipleQueueComponent::flush() {
    throw CException("ZR::CException", kNotImplementedLine, kFile, __PRETTY_FUNCTION__,
                     CString("flush() not implemented!"));
}

int CMMultipleQueueComponent::handleNotification(CNotification& n) {
    if (n.getCode() != CNotification::kRestart) {
        return 0;
    }
    for (int i = 0; i < mReaderCount; ++i) {
        mReaders[i]->reset();
    }
    for (int i = 0; i < mWriterCount; ++i) {
        mWriters[i]->clear();
    }
    return 0;
}

int CMMultipleQueueComponent::componentWillReset() {
    releaseEndpoints(mWriters, mWriterCount);
    releaseEndpoints(mReaders, mReaderCount);
    return 0;
}

RQFrameReader* CMMultipleQueueComponent::getReader(int index) const noexcept {
    return endpointAt(mReaders, mReaderCount, index);
}

RQFrameWriter* CMMultipleQueueComponent::getWriter(int index) const noexcept {
    return endpointAt(mWriters, mWriterCount, index);
}

}  // namespace CM
}  // namespace ZR
