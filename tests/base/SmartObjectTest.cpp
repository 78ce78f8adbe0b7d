#include "base/SmartObject.h"

#include "base/Array.h"

#include "support/ExpectThrows.h"

#include <utility>

using Orvane::SmartPtr;

namespace {

// Counts its destructions into a counter the test owns, and may hold a child.
struct Probe : public Orvane::SmartObject {
    explicit Probe(int* destroyed, Probe* child = nullptr) : destroyed(destroyed), child(child) {}
    ~Probe() override { ++*destroyed; }
    int* destroyed;
    SmartPtr<Probe> child;
};

} // namespace

TEST(SmartPtr, CountsExactlyAndTheLastHolderDestroys) {
    int destroyed = 0;
    auto* probe = new Probe(&destroyed);
    {
        SmartPtr<Probe> a = probe;
        SmartPtr<Probe> b(a);
        b = probe; // the held pointer again: no change
        SmartPtr<Probe> moved(std::move(b));
        EXPECT_EQ(2u, probe->getRefCount());
        a = nullptr;
        EXPECT_EQ(1u, probe->getRefCount());
        EXPECT_EQ(0, destroyed);
    }
    EXPECT_EQ(1, destroyed);
    Array<SmartPtr<Probe>> list;
    for (Probe* p : {new Probe(&destroyed), new Probe(&destroyed)})
        list.append(p); // growing moves the elements without counting
    EXPECT_EQ(1u, list[0]->getRefCount());
    list.remove(0);
    EXPECT_EQ(2, destroyed);
}

TEST(SmartPtr, TakesTheNewObjectBeforeReleasingTheOld) {
    int destroyed = 0;
    auto* child = new Probe(&destroyed);
    SmartPtr<Probe> p = new Probe(&destroyed, child);
    p = child; // the old object alone keeps the child alive
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(1u, child->getRefCount());
    expectThrows<IllegalArgumentException>([&] { Probe(&destroyed).unref(); },
                                           "SmartObject_base::unref");
}

TEST(SmartObject_base, WeakHandleIsClearedByReplacementAndByDeath) {
    int destroyed = 0;
    Orvane::SmartWeakHandle first, second;
    SmartPtr<Probe> p = new Probe(&destroyed);
    p->setWeakHandle(&first);
    p->setWeakHandle(&second);
    EXPECT_EQ(nullptr, first.object);
    EXPECT_EQ(p.get(), second.object);
    p = nullptr;
    EXPECT_EQ(nullptr, second.object);
}
