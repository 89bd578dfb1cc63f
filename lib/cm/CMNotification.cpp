#include <cm/CMNotification.h>

#include <cm/CMComponent.h>
#include <cm/CMQueue.h>

#include <mutex>
#include <vector>

namespace ZR {
namespace CM {

RPtr<RNotificationCenter> RNotificationCenter::mDefault;

RNotificationCenter* RNotificationCenter::getDefault() {
    // A local static makes the first use safe from any thread; mDefault holds the center
    // until exit.
    static RNotificationCenter* const center = (mDefault = new RNotificationCenter).addr();
    return center;
}

void RNotificationCenter::postNotification(CNotification& n, RComponent* target) {
    std::vector<RPtr<RQueue>> toWake;
    {
        std::lock_guard<CMutex> lock(mMutex);
        if (!target) {
            for (RComponent* component : mRegistry) {
                component->enqueueNotification(n, toWake);
            }
        } else if (mRegistry.count(target)) {
            target->enqueueNotification(n, toWake);
        }
    }
    // No lock is held here: a waiter holds its queue mutex while it tests for pending
    // notifications, so broadcasting under that mutex cannot slip in between its test and
    // its wait.
    for (const RPtr<RQueue>& queue : toWake) {
        queue->wakeWaiters();
    }
}

bool RNotificationCenter::isRegistered(RComponent* component) const {
    std::lock_guard<CMutex> lock(mMutex);
    return mRegistry.count(component) != 0;
}

void RNotificationCenter::registerComponent(RComponent* component) {
    std::lock_guard<CMutex> lock(mMutex);
    mRegistry.insert(component);
}

void RNotificationCenter::unregisterComponent(RComponent* component) {
    std::lock_guard<CMutex> lock(mMutex);
    mRegistry.erase(component);
}

}  // namespace CM
}  // namespace ZR
