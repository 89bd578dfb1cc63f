#include <zr/RPtr.h>

#include <gtest/gtest.h>

#include "support/TestSupport.h"

#include <vector>

using cmtest::Tracked;
using ZR::RPtr;

namespace {

class Derived : public Tracked {
public:
    Derived() : Tracked(7) {}
};

}  // namespace

TEST(RPtrTest, AssignmentRetainsTheNewBeforeReleasingTheOld) {
    const int before = Tracked::live();
    RPtr<Tracked> p(new Tracked(1));
    const RPtr<Tracked>& alias = p;
    p = alias;  // self-assignment must not destroy the object
    EXPECT_EQ(p->retain_count(), 1);
    p = p.addr();
    EXPECT_EQ(p->retain_count(), 1);
    p = new Tracked(2);
    EXPECT_EQ(p->value(), 2);
    EXPECT_EQ(Tracked::live(), before + 1);
    RPtr<Tracked> base = RPtr<Derived>(new Derived);
    EXPECT_EQ(base->value(), 7);
    p = nullptr;
    base = RPtr<Tracked>();
    EXPECT_EQ(Tracked::live(), before);
}

// Several threads retain and release the same object at once; the count must come back
// exactly and the object must be destroyed once, by whichever thread drops it last.
TEST(RPtrTest, ConcurrentRetainAndReleaseKeepTheCountExact) {
    const int before = Tracked::live();
    RPtr<Tracked> shared(new Tracked(5));
    cmtest::runConcurrently(4, [&](int) {
        for (int i = 0; i < 100000; ++i) {
            RPtr<Tracked> local(shared);
            RPtr<const Tracked> again(local);
        }
    });
    EXPECT_EQ(shared->retain_count(), 1);

    std::vector<RPtr<Tracked>> copies(4, shared);
    shared = nullptr;
    cmtest::runConcurrently(4, [&](int index) { copies[static_cast<size_t>(index)] = nullptr; });
    EXPECT_EQ(Tracked::live(), before);
}
