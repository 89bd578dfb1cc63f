// Notifications: how components are controlled from outside their threads.
//
// A CNotification is a four-character code ("paus", "rsum", "abrt", "rstr" or the
// application's own). The process-wide RNotificationCenter keeps the set of registered
// components and delivers a notification to one of them or to all: delivery queues a copy
// in each target and wakes the target's threads that wait in its queues, so that they
// handle it at once. Handling always happens on the component's own thread, when it passes
// through a queue operation or its run loop.
//
// Any thread may post. The center's mutex guards its registry; it is held for register,
// unregister and the whole of a post (so that a component cannot leave the registry while
// a post is delivering to it), and while it is held only one component mutex is taken at a
// time. Queue conditions are broadcast after every lock of the center and the components
// has been released.
#ifndef CM_CMNOTIFICATION_H
#define CM_CMNOTIFICATION_H

#include <zr/CMutex.h>
#include <zr/RPtr.h>
#include <zr/ZRTypes.h>
#include <zrbase/object_refcount.h>

#include <set>

namespace ZR {
namespace CM {

class RComponent;

class CNotification {
public:
    static constexpr unsigned int kPause = fourcc("paus");
    static constexpr unsigned int kResume = fourcc("rsum");
    static constexpr unsigned int kAbort = fourcc("abrt");
    static constexpr unsigned int kRestart = fourcc("rstr");

    explicit CNotification(unsigned int code = 0) noexcept : mCode(code) {}
    virtual ~CNotification() = default;
    CNotification(const CNotification&) = default;
    CNotification& operator=(const CNotification&) = default;

    unsigned int getCode() const noexcept { return mCode; }

private:
    unsigned int mCode;
};

class RNotificationCenter : public zrbase::object_refcount {
public:
    RNotificationCenter() = default;
    ~RNotificationCenter() override = default;

    // The process-wide center, created on first use and released at exit.
    static RNotificationCenter* getDefault();

    // Queues a copy of n in target, or in every registered component (in address order)
    // when target is null. A target that is not registered is silently skipped.
    void postNotification(CNotification& n, RComponent* target);

    bool isRegistered(RComponent* component) const;
    void registerComponent(RComponent* component);
    void unregisterComponent(RComponent* component);

private:
    static RPtr<RNotificationCenter> mDefault;

    // Guards mRegistry.
    mutable CMutex mMutex;
    std::set<RComponent*> mRegistry;  // guarded by mMutex; not retained
};

}  // namespace CM
}  // namespace ZR

#endif
