#include <cm/CMNotification.h>

#include <gtest/gtest.h>

#include <cm/CMComponent.h>

#include "support/TestComponents.h"

#include <atomic>
#include <thread>
#include <vector>

using cmtest::post;
using ZR::CM::CNotification;
using ZR::CM::RNotificationCenter;

namespace {

// Records the codes that reach handleNotification.
class Recorder : public ZR::CM::RComponent {
public:
    unsigned int type() const override { return ZR::fourcc("fltr"); }
    int runloop(zrbase::object_refcount*) override { return 0; }
    int handleNotification(CNotification& n) override {
        mHandled.push_back(n.getCode());
        return 0;
    }
    std::vector<unsigned int> mHandled;
};

}  // namespace

TEST(NotificationCenterTest, DeliversToRegisteredComponentsOnlyInPostingOrder) {
    RNotificationCenter* center = RNotificationCenter::getDefault();
    EXPECT_EQ(center, RNotificationCenter::getDefault());
    post(ZR::fourcc("ping"), nullptr);  // empty registry: nothing happens

    ZR::RPtr<Recorder> a(new Recorder), b(new Recorder);
    post(ZR::fourcc("lost"), a.addr());  // not registered yet: dropped
    EXPECT_EQ(a->getPendingNotificationCount(), 0);

    a->initialize();
    b->initialize();
    EXPECT_TRUE(center->isRegistered(a.addr()));
    post(ZR::fourcc("one "), a.addr());
    post(ZR::fourcc("two "), a.addr());
    post(ZR::fourcc("all "), nullptr);
    EXPECT_EQ(a->getPendingNotificationCount(), 3);
    EXPECT_EQ(b->getPendingNotificationCount(), 1);
    a->handleNotifications();
    EXPECT_EQ(a->mHandled, (std::vector<unsigned int>{ZR::fourcc("one "), ZR::fourcc("two "),
                                                      ZR::fourcc("all ")}));
    EXPECT_EQ(a->getPendingNotificationCount(), 0);

    // Control codes are drained without reaching the handler; they set the state.
    a->mHandled.clear();
    a->pause();
    post(0, a.addr());
    a->handleNotifications();
    EXPECT_TRUE(a->mHandled.empty());
    EXPECT_TRUE(a->isPaused());
    a->resume();
    a->handleNotifications();
    EXPECT_FALSE(a->isPaused());

    // After destroy() the component is gone from the registry and posts are dropped.
    EXPECT_EQ(a->destroy(), 0);
    EXPECT_FALSE(center->isRegistered(a.addr()));
    EXPECT_FALSE(a->isInitialized());
    post(ZR::fourcc("late"), a.addr());
    post(ZR::fourcc("late"), nullptr);
    EXPECT_EQ(a->getPendingNotificationCount(), 0);
    EXPECT_EQ(b->getPendingNotificationCount(), 2);
    b->reset();
    EXPECT_EQ(b->getPendingNotificationCount(), 0);  // dropped unhandled
    EXPECT_TRUE(b->mHandled.empty());
}

// One thread broadcasts while another registers and unregisters components: posts read
// the registry under the center's mutex, so the sanitizers see no race on it, and the
// component that stays registered receives every post.
TEST(NotificationCenterTest, PostsWhileComponentsComeAndGoAreSafe) {
    constexpr int kPosts = 50000;
    ZR::RPtr<Recorder> steady(new Recorder);
    steady->initialize();
    std::atomic<int> posted{0};
    std::atomic<bool> churning{false};
    std::thread churn([&] {
        while (posted < kPosts) {
            ZR::RPtr<Recorder> passing(new Recorder);
            passing->initialize();
            churning = true;
            passing->reset();
        }
    });
    while (!churning) {
        std::this_thread::yield();
    }
    for (; posted < kPosts; ++posted) {
        post(ZR::fourcc("tick"), nullptr);
    }
    churn.join();
    EXPECT_EQ(steady->getPendingNotificationCount(), kPosts);
    steady->reset();
}

// A component whose run returns at once: join() fails before start(), start() waits for
// registration, join() reaps the ended thread.
TEST(ComponentTest, StartRunsTheLoopAndJoinReapsIt) {
    ZR::RPtr<Recorder> c(new Recorder);
    EXPECT_EQ(c->join(), ZR::CM::kResultComponentJoinFailed);
    c->initialize();
    ASSERT_EQ(c->start(nullptr), 0);
    EXPECT_EQ(c->join(), 0);
    EXPECT_EQ(c->getRunningThreadCount(), 0);
    EXPECT_EQ(c->reset(), 0);
}
