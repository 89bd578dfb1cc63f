#include <zr/CThread.h>

#include <gtest/gtest.h>

#include <zr/CException.h>
#include <zr/RPtr.h>

#include <atomic>
#include <mutex>
#include <string>

namespace {

// A small worker: its run waits for permission to finish so that tests can look at it
// while it runs.
class Worker : public zrbase::object_refcount, public ZR::CThread<Worker> {
public:
    ~Worker() override { destroyed() = true; }

    int start(pthread_t* handle) { return startThread(&Worker::runloop, nullptr, handle); }

    int runloop(zrbase::object_refcount*) override {
        sawItselfRegistered = isRunningOn(pthread_self());
        std::lock_guard<ZR::CMutex> lock(mutex);
        while (!mayFinish) {
            finish.wait(mutex);
        }
        volatile unsigned long spin = 0;
        for (unsigned long i = 0; i < 2000000; ++i) {
            spin = spin + i;
        }
        return 17;
    }

    void letFinish() {
        std::lock_guard<ZR::CMutex> lock(mutex);
        mayFinish = true;
        finish.broadcast();
    }

    static std::atomic<bool>& destroyed() {
        static std::atomic<bool> flag{false};
        return flag;
    }

    std::atomic<bool> sawItselfRegistered{false};
    ZR::CMutex mutex;
    ZR::CCondition finish;
    bool mayFinish = false;  // guarded by mutex
};

class Thrower : public zrbase::object_refcount, public ZR::CThread<Thrower> {
public:
    int start(pthread_t* handle) { return startThread(&Thrower::runloop, nullptr, handle); }
    int runloop(zrbase::object_refcount*) override {
        ZR_THROW("tests/base/CThreadTest", ZR::CString("worker failed"));
    }
};

}  // namespace

// The starter returns only after the thread has registered itself; the run's result and
// costs are recorded when it ends, and the thread leaves the running set.
TEST(CThreadTest, StartReturnsOnceTheThreadIsRegisteredAndRecordsItsCost) {
    ZR::RPtr<Worker> worker(new Worker);
    pthread_t handle;
    ASSERT_EQ(worker->start(&handle), 0);
    EXPECT_EQ(worker->getRunningThreadCount(), 1);
    EXPECT_TRUE(worker->isRunningOn(handle));
    worker->letFinish();
    void* result = nullptr;
    pthread_join(handle, &result);
    EXPECT_EQ(reinterpret_cast<long>(result), 17);
    EXPECT_TRUE(worker->sawItselfRegistered);
    EXPECT_EQ(worker->getRunningThreadCount(), 0);
    EXPECT_GE(double(worker->getWallTime()), 0.0);
    EXPECT_GE(worker->getUserTime(), 0.0);
    EXPECT_GE(worker->getSystemTime(), 0.0);
    EXPECT_GT(worker->getUserTime() + worker->getSystemTime(), 0.0);  // it did spin
}

// The only outside reference is dropped while the thread runs: the thread's own reference
// keeps the object alive until its run returns.
TEST(CThreadTest, RunningThreadKeepsItsObjectAlive) {
    Worker::destroyed() = false;
    Worker* raw = new Worker;
    pthread_t handle;
    {
        ZR::RPtr<Worker> owner(raw);
        ASSERT_EQ(owner->start(&handle), 0);
    }
    EXPECT_FALSE(Worker::destroyed());
    raw->letFinish();
    pthread_join(handle, nullptr);
    EXPECT_TRUE(Worker::destroyed());
}

TEST(CThreadDeathTest, UnhandledExceptionIsPrintedAndEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            ZR::RPtr<Thrower> thrower(new Thrower);
            pthread_t handle{};
            thrower->start(&handle);
            pthread_join(handle, nullptr);
        },
        "worker failed");
}
