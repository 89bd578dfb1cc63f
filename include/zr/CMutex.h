// Thin wrappers over POSIX mutexes and condition variables.
//
// A CMutex is owned by value inside the structure it guards; it is not recursive. It meets
// the BasicLockable requirements, so std::lock_guard<CMutex> and std::unique_lock<CMutex>
// hold it for a scope. A CCondition has no mutex of its own: every wait names the mutex of
// the structure it belongs to, and every waiter re-tests its predicate in a loop.
#ifndef ZR_CMUTEX_H
#define ZR_CMUTEX_H

#include <pthread.h>

namespace ZR {

class CMutex {
public:
    CMutex() noexcept { pthread_mutex_init(&mMutex, nullptr); }
    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;
    virtual ~CMutex() { pthread_mutex_destroy(&mMutex); }

    void lock() noexcept { pthread_mutex_lock(&mMutex); }
    void unlock() noexcept { pthread_mutex_unlock(&mMutex); }
    bool try_lock() noexcept { return pthread_mutex_trylock(&mMutex) == 0; }

    pthread_mutex_t* native() noexcept { return &mMutex; }

private:
    pthread_mutex_t mMutex;
};

class CCondition {
public:
    CCondition() noexcept { pthread_cond_init(&mCondition, nullptr); }
    CCondition(const CCondition&) = delete;
    CCondition& operator=(const CCondition&) = delete;
    virtual ~CCondition() { pthread_cond_destroy(&mCondition); }

    // The caller holds `mutex`; it is released while waiting and held again on return.
    void wait(CMutex& mutex) noexcept { pthread_cond_wait(&mCondition, mutex.native()); }
    void signal() noexcept { pthread_cond_signal(&mCondition); }
    void broadcast() noexcept { pthread_cond_broadcast(&mCondition); }

private:
    pthread_cond_t mCondition;
};

}  // namespace ZR

#endif
