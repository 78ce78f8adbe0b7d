#include "base/SmartObject.h"

#include "base/Array.h"
#include "base/SafeObject.h"

#include "support/ExpectThrows.h"

#include <utility>

using Orvane::SafeObject;
using Orvane::SafePtr;
using Orvane::SmartObject;
using Orvane::SmartObject_base;
using Orvane::SmartPtr;
using Orvane::SmartWeakHandle;

namespace {

// Counts its own destructions into a counter the test owns.
struct Probe : public SmartObject {
    explicit Probe(int* destroyed) : destroyed(destroyed) {}
    ~Probe() override { ++*destroyed; }
    int* destroyed;
};

// Holds the only reference on a child, like a shot holding a track.
struct Holder : public Probe {
    Holder(int* destroyed, Probe* child) : Probe(destroyed), child(child) {}
    SmartPtr<Probe> child;
};

// A model object: counted and watched, both bases virtual.
struct Node : public virtual SafeObject, public virtual SmartObject {
    explicit Node(int* destroyed) : destroyed(destroyed) {}
    ~Node() override { ++*destroyed; }
    int* destroyed;
};

} // namespace

TEST(SmartPtr, CountsReferencesExactly) {
    int destroyed = 0;
    auto* probe = new Probe(&destroyed);
    EXPECT_EQ(0u, probe->getRefCount());
    {
        SmartPtr<Probe> a = probe;
        EXPECT_EQ(1u, probe->getRefCount());
        SmartPtr<Probe> b(a);
        EXPECT_EQ(2u, probe->getRefCount());
        SmartPtr<Probe> c;
        c = b;
        EXPECT_EQ(3u, probe->getRefCount());
        SmartPtr<Probe> moved(std::move(c));
        EXPECT_EQ(3u, probe->getRefCount());
        EXPECT_FALSE(c);
        b = nullptr;
        EXPECT_EQ(2u, probe->getRefCount());
        EXPECT_EQ(0, destroyed);
    }
    EXPECT_EQ(1, destroyed);
}

TEST(SmartPtr, AssigningTheHeldPointerDoesNothing) {
    int destroyed = 0;
    auto* probe = new Probe(&destroyed);
    SmartPtr<Probe> p = probe;
    p = probe;
    SmartPtr<Probe>& same = p;
    p = same;
    p = std::move(same);
    EXPECT_EQ(1u, probe->getRefCount());
    EXPECT_EQ(probe, p.get());
    EXPECT_EQ(0, destroyed);
}

TEST(SmartPtr, TakesTheNewObjectBeforeReleasingTheOld) {
    int heldDestroyed = 0;
    int holderDestroyed = 0;
    auto* child = new Probe(&heldDestroyed);
    SmartPtr<Probe> p = new Holder(&holderDestroyed, child);
    EXPECT_EQ(1u, child->getRefCount());
    // The holder alone keeps the child: releasing it first would free the
    // child before it is taken.
    p = child;
    EXPECT_EQ(1, holderDestroyed);
    EXPECT_EQ(0, heldDestroyed);
    EXPECT_EQ(1u, child->getRefCount());
    p = nullptr;
    EXPECT_EQ(1, heldDestroyed);
}

TEST(SmartPtr, ArrayHoldsOneReferencePerSlot) {
    int destroyed = 0;
    Array<SmartPtr<Probe>> list;
    auto* shared = new Probe(&destroyed);
    list.append(shared);
    list.append(new Probe(&destroyed));
    list.append(shared);
    // Growing moves the elements: the counts must not change.
    EXPECT_EQ(2u, shared->getRefCount());
    EXPECT_EQ(1u, list[1]->getRefCount());
    list.remove(1);
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(2u, shared->getRefCount());
    list.remove(0);
    EXPECT_EQ(1u, shared->getRefCount());
    list.clear();
    EXPECT_EQ(2, destroyed);
}

TEST(SmartObject_base, ReleasingAnUnheldObjectThrows) {
    int destroyed = 0;
    Probe probe(&destroyed);
    expectThrows<IllegalArgumentException>([&] { probe.unref(); }, "SmartObject_base::unref");
    EXPECT_EQ(0u, probe.getRefCount());
    EXPECT_EQ(0, destroyed);
}

TEST(SmartObject_base, WeakHandleIsClearedByTheLastRelease) {
    int destroyed = 0;
    SmartWeakHandle handle;
    auto* probe = new Probe(&destroyed);
    probe->setWeakHandle(&handle);
    EXPECT_EQ(probe, handle.object);
    SmartPtr<Probe> p = probe;
    SmartPtr<Probe> q = probe;
    p = nullptr;
    EXPECT_EQ(probe, handle.object);
    q = nullptr;
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(nullptr, handle.object);
}

TEST(SmartObject_base, WeakHandleIsClearedByDestruction) {
    int destroyed = 0;
    SmartWeakHandle first, second;
    {
        Probe probe(&destroyed);
        probe.setWeakHandle(&first);
        probe.setWeakHandle(&second);
        // Replacing a record tells the old one it no longer tracks anything.
        EXPECT_EQ(nullptr, first.object);
        EXPECT_EQ(&second, probe.getWeakHandle());
    }
    EXPECT_EQ(nullptr, second.object);
}

TEST(SmartPtr, SafePointerSeesTheLastReleaseOfAModelObject) {
    int destroyed = 0;
    auto* node = new Node(&destroyed);
    SafePtr<Node> watcher = node;
    SmartPtr<Node> owner = node;
    EXPECT_EQ(node, watcher.get());
    owner = nullptr;
    EXPECT_EQ(1, destroyed);
    EXPECT_EQ(nullptr, watcher.get());
}
