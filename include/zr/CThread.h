// ZR::CThread<T>: the base of an object that owns worker threads (components are the one
// use). It runs one member function of T on a new POSIX thread and records what the last
// run cost: wall time, and the thread's user and system CPU time.
//
// T derives from zrbase::object_refcount and from CThread<T>. While a run is going the
// thread holds a reference to the object, so dropping the last outside reference does not
// destroy it under the running thread. startThread() returns only once the new thread has
// registered itself in the running-thread set. The set and the times may be read from any
// thread; the times describe the last completed run. Whatever the run function throws
// reaches handleException(): a CException as it is, anything else as a CException that
// carries its text.
#ifndef ZR_CTHREAD_H
#define ZR_CTHREAD_H

#include <zr/CException.h>
#include <zr/CMutex.h>
#include <zr/CTimeStamp.h>
#include <zrbase/object_refcount.h>

#include <cxxabi.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <set>

namespace ZR {

namespace detail {

inline double secondsOf(const timeval& tv) {
    return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1000000.0;
}

// Where the exceptions that stand for other throws of a run function say they come from.
constexpr char kThreadSource[] = "include/zr/CThread";

inline double wallClockNow() {
    timeval now;
    gettimeofday(&now, nullptr);
    return secondsOf(now);
}

}  // namespace detail

// Thrown on a worker thread to end its run at once (an aborted component leaving a queue
// wait). _startThread catches it: the run ends with result -1 and the exception handler is
// not called.
struct CThreadAbort {};

template <typename T>
class CThread : public CExceptionHandlerP {
public:
    using Method = int (T::*)(zrbase::object_refcount*);

    // The start record: lives on the starter's stack until the new thread has registered.
    struct _arg {
        T* object;
        Method method;
        zrbase::object_refcount* parameter;
        int started;
        CMutex mutex;
        CCondition condition;
    };

    CThread() = default;
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;
    ~CThread() override = default;

    // Default: print and end the process.
    void handleException(const CException& e) override {
        e.print();
        std::abort();
    }

    virtual int runloop(zrbase::object_refcount* arg) = 0;

    static void* _startThread(void* arg);

    CTimeStamp getWallTime() const {
        std::lock_guard<CMutex> lock(mThreadMutex);
        return mWallTime;
    }
    double getUserTime() const {
        std::lock_guard<CMutex> lock(mThreadMutex);
        return mUserTime;
    }
    double getSystemTime() const {
        std::lock_guard<CMutex> lock(mThreadMutex);
        return mSystemTime;
    }
    // What the run function of the last completed run returned (-1 for an aborted run).
    int getRunResult() const {
        std::lock_guard<CMutex> lock(mThreadMutex);
        return mRunResult;
    }
    int getRunningThreadCount() const {
        std::lock_guard<CMutex> lock(mThreadMutex);
        return static_cast<int>(mRunningThreads.size());
    }
    bool isRunningOn(pthread_t thread) const {
        std::lock_guard<CMutex> lock(mThreadMutex);
        return mRunningThreads.count(thread) != 0;
    }
    // A snapshot of the threads now running this object's run function, in set order.
    std::set<pthread_t> getRunningThreads() const {
        std::lock_guard<CMutex> lock(mThreadMutex);
        return mRunningThreads;
    }

protected:
    // Runs (object->*method)(parameter) on a new thread and returns once that thread has
    // registered itself. Returns 0 and stores the handle, or pthread_create's error (the
    // starter is not left waiting for a thread that was never made).
    int startThread(Method method, zrbase::object_refcount* parameter, pthread_t* handle);

private:
    void recordRun(double started, int result);

    // Guards mRunningThreads and the three times.
    mutable CMutex mThreadMutex;
    std::set<pthread_t> mRunningThreads;  // guarded by mThreadMutex
    CTimeStamp mWallTime;                 // guarded by mThreadMutex
    double mUserTime = 0.0;               // guarded by mThreadMutex
    double mSystemTime = 0.0;             // guarded by mThreadMutex
    int mRunResult = 0;                   // guarded by mThreadMutex
};

template <typename T>
int CThread<T>::startThread(Method method, zrbase::object_refcount* parameter, pthread_t* handle) {
    _arg start{static_cast<T*>(this), method, parameter, 0, {}, {}};
    pthread_t thread;
    const int error = pthread_create(&thread, nullptr, &CThread::_startThread, &start);
    if (error != 0) {
        return error;
    }
    {
        std::lock_guard<CMutex> lock(start.mutex);
        while (start.started <= 0) {
            start.condition.wait(start.mutex);
        }
        start.started -= 1;
    }
    *handle = thread;
    return 0;
}

template <typename T>
void* CThread<T>::_startThread(void* arg) {
    _arg* start = static_cast<_arg*>(arg);
    T* const object = start->object;
    const Method method = start->method;
    zrbase::object_refcount* const parameter = start->parameter;
    const double began = detail::wallClockNow();

    object->retain();
    CThread& self = *object;
    {
        std::lock_guard<CMutex> lock(self.mThreadMutex);
        self.mRunningThreads.insert(pthread_self());
    }
    {
        // After this block the start record may be gone.
        std::lock_guard<CMutex> lock(start->mutex);
        start->started += 1;
        start->condition.signal();
    }

    long result = -1;
    try {
        result = (object->*method)(parameter);
    } catch (const CException& e) {
        object->handleException(e);
    } catch (const CThreadAbort&) {
        result = -1;
    } catch (const abi::__forced_unwind&) {
        throw;  // the thread is being cancelled: the unwinding must go on
    } catch (const std::exception& e) {
        // The run function may be a loaded module's, which may throw anything. The handler
        // sees every failure, so that an object that recovers from its failures recovers
        // from these too, and by default they are reported and end the process, rather
        // than escaping the thread and ending it with std::terminate().
        object->handleException(CException("std::exception", __LINE__, detail::kThreadSource,
                                           __PRETTY_FUNCTION__, CString(e.what())));
    } catch (...) {
        object->handleException(CException("unknown", __LINE__, detail::kThreadSource,
                                           __PRETTY_FUNCTION__, CString("unknown exception")));
    }

    self.recordRun(began, static_cast<int>(result));
    object->release();
    return reinterpret_cast<void*>(result);
}

template <typename T>
void CThread<T>::recordRun(double began, int result) {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    const double now = detail::wallClockNow();
    std::lock_guard<CMutex> lock(mThreadMutex);
    mUserTime = detail::secondsOf(usage.ru_utime);
    mSystemTime = detail::secondsOf(usage.ru_stime);
    mRunResult = result;
    mWallTime = std::max(0.0, now - began);  // the wall clock may step back
    mRunningThreads.erase(pthread_self());
}

}  // namespace ZR

#endif
