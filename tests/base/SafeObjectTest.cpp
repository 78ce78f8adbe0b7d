#include "base/SafeObject.h"

#include "support/ExpectThrows.h"

#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

using Orvane::SafeObject;
using Orvane::SafeObject_base;
using Orvane::SafePtr;

namespace {

struct Model : public virtual SafeObject {
    int value = 7;
};

// Records every death notice it receives, and whether the dying object had
// already been unlinked from it when the notice came.
struct Listener : public virtual SafeObject {
    std::vector<SafeObject_base*>* log = nullptr;
    bool stillLinkedWhenTold = false;
    void deleting(SafeObject_base* dying) override {
        for (SafeObject_base* p : getPeers())
            if (p == dying)
                stillLinkedWhenTold = true;
        if (log)
            log->push_back(this);
    }
};

template <class Body> std::string stderrOf(Body&& body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

// The call is on a destroyed object on purpose. The vptr sanitizer clears the
// vtable pointer when an object dies and would stop the call before it runs.
__attribute__((no_sanitize("vptr"))) void checkDestroyed(const SafeObject_base* dead) {
    dead->checkobj();
}

bool lists(const SafeObject_base& owner, const SafeObject_base* item) {
    for (SafeObject_base* p : owner.getPeers())
        if (p == item)
            return true;
    return false;
}

} // namespace

TEST(SafePtr, ReadsNullAfterTheObjectDies) {
    auto* model = new Model;
    SafePtr<Model> p = model;
    EXPECT_EQ(model, p.get());
    EXPECT_EQ(7, p->value);
    EXPECT_TRUE(lists(*model, &p));
    std::string err = stderrOf([&] { delete model; });
    EXPECT_EQ(nullptr, p.get());
    EXPECT_FALSE(p);
    EXPECT_EQ(0, p.getPeers().getCount());
    EXPECT_EQ(nullptr, p.getSafeObject());
    EXPECT_EQ("", err);
}

TEST(SafePtr, TwoPointersToOneObject) {
    auto* model = new Model;
    SafePtr<Model> kept = model;
    {
        SafePtr<Model> other = model;
        EXPECT_EQ(2, model->getPeers().getCount());
    }
    // Losing one pointer leaves the other linked and working.
    ASSERT_EQ(1, model->getPeers().getCount());
    EXPECT_EQ(model, kept.get());

    SafePtr<Model> second = model;
    delete model;
    EXPECT_EQ(nullptr, kept.get());
    EXPECT_EQ(nullptr, second.get());
}

TEST(SafePtr, ReassignmentMovesTheLink) {
    auto* a = new Model;
    auto* b = new Model;
    SafePtr<Model> p = a;
    p = b;
    EXPECT_EQ(0, a->getPeers().getCount());
    EXPECT_TRUE(lists(*b, &p));
    delete a; // no longer watched: p keeps b
    EXPECT_EQ(b, p.get());
    p = b; // same object again: still exactly one link
    EXPECT_EQ(1, b->getPeers().getCount());
    p = nullptr;
    EXPECT_EQ(0, b->getPeers().getCount());
    EXPECT_EQ(0, p.getPeers().getCount());
    delete b;
}

TEST(SafePtr, CopiesWatchOnTheirOwn) {
    auto* model = new Model;
    SafePtr<Model> p = model;
    SafePtr<Model> copied(p);
    SafePtr<Model> assigned;
    assigned = p;
    p = p;
    EXPECT_EQ(3, model->getPeers().getCount());
    EXPECT_EQ(model, copied.get());
    EXPECT_EQ(model, assigned.get());
    // The copy is linked with the object, not with the pointer it came from.
    EXPECT_EQ(1, copied.getPeers().getCount());
    EXPECT_EQ(1, p.getPeers().getCount());
    delete model;
    EXPECT_EQ(nullptr, p.get());
    EXPECT_EQ(nullptr, copied.get());
    EXPECT_EQ(nullptr, assigned.get());
}

namespace {

struct Interface {
    virtual ~Interface() = default;
    virtual int answer() const = 0;
};

struct Implementation : public Interface, public virtual SafeObject {
    int answer() const override { return 42; }
};

struct Plain : public Interface {
    int answer() const override { return 0; }
};

} // namespace

TEST(SafePtr, WatchesAnInterfaceOfASafeObject) {
    auto* impl = new Implementation;
    SafePtr<Interface> p = impl;
    EXPECT_EQ(42, p->answer());
    EXPECT_EQ(static_cast<SafeObject_base*>(impl), p.getSafeObject());
    delete impl;
    EXPECT_EQ(nullptr, p.get());
}

TEST(SafePtr, RefusesAnObjectThatCannotBeWatched) {
    Plain plain;
    SafePtr<Interface> p;
    expectThrows<IllegalArgumentException>([&] { p = &plain; },
                                           "SafePtr: object is not a SafeObject");
}

TEST(SafeObject_base, ConnectingTwiceKeepsOneEntryOnEachSide) {
    SafeObject a, b;
    a.connect(&b);
    a.connect(&b);
    b.connect(&a);
    ASSERT_EQ(1, a.getPeers().getCount());
    ASSERT_EQ(1, b.getPeers().getCount());
    EXPECT_EQ(&b, a.getPeers()[0]);
    EXPECT_EQ(&a, b.getPeers()[0]);
    a.connect(nullptr);
    EXPECT_EQ(1, a.getPeers().getCount());

    b.disconnect(&a);
    EXPECT_EQ(0, a.getPeers().getCount());
    EXPECT_EQ(0, b.getPeers().getCount());
    a.disconnect(&b); // nothing left to cut
    a.disconnect(nullptr);
    EXPECT_EQ(0, a.getPeers().getCount());
}

TEST(SafeObject_base, LockedObjectClearsEntriesInPlace) {
    SafeObject a, b, c, d;
    a.connect(&b);
    a.connect(&c);
    a.connect(&d);
    a.lock();
    a.lock();
    a.disconnect(&c);
    // The locked side keeps a null slot; the other side is compacted at once.
    ASSERT_EQ(3, a.getPeers().getCount());
    EXPECT_EQ(nullptr, a.getPeers()[1]);
    EXPECT_EQ(0, c.getPeers().getCount());
    d.disconnect(&a);
    EXPECT_EQ(nullptr, a.getPeers()[2]);

    a.unlock();
    EXPECT_EQ(3, a.getPeers().getCount()) << "compaction waits for the last unlock";
    a.unlock();
    ASSERT_EQ(1, a.getPeers().getCount());
    EXPECT_EQ(&b, a.getPeers()[0]);
    EXPECT_EQ(0u, a.getLockCount());
    a.unlock(); // unbalanced: stays at zero
    EXPECT_EQ(0u, a.getLockCount());
}

TEST(SafeObject_base, DestructorTellsEachPeerInLinkOrderAfterUnlinking) {
    std::vector<SafeObject_base*> log;
    Listener first, second, third;
    first.log = second.log = third.log = &log;
    auto* dying = new SafeObject;
    dying->connect(&second);
    dying->connect(&first);
    dying->connect(&third);
    SafeObject_base* dyingBase = dying;
    std::string err = stderrOf([&] { delete dying; });
    ASSERT_EQ(3u, log.size());
    EXPECT_EQ(&second, log[0]);
    EXPECT_EQ(&first, log[1]);
    EXPECT_EQ(&third, log[2]);
    for (Listener* l : {&first, &second, &third}) {
        EXPECT_FALSE(l->stillLinkedWhenTold);
        EXPECT_FALSE(lists(*l, dyingBase));
    }
    EXPECT_EQ("", err);
}

TEST(SafeObject_base, LinksAreNeverCopied) {
    SafeObject a, b, c;
    a.connect(&b);
    SafeObject copy(a);
    EXPECT_EQ(0, copy.getPeers().getCount());
    EXPECT_EQ(1, b.getPeers().getCount());
    c.connect(&copy);
    copy = a; // assignment keeps the target's own links
    ASSERT_EQ(1, copy.getPeers().getCount());
    EXPECT_EQ(&c, copy.getPeers()[0]);
    EXPECT_EQ(1, a.getPeers().getCount());
}

TEST(SafeObject_base, CheckobjReportsADestroyedObjectOncePerCall) {
    std::aligned_storage_t<sizeof(SafeObject_base), alignof(SafeObject_base)> storage;
    auto* object = new (&storage) SafeObject_base;
    EXPECT_EQ("", stderrOf([&] { object->checkobj(); }));
    object->~SafeObject_base();

    auto* dead = reinterpret_cast<SafeObject_base*>(&storage);
    EXPECT_EQ("SafeObject_base::checkobj failed\n", stderrOf([&] { checkDestroyed(dead); }));
    EXPECT_EQ("SafeObject_base::checkobj failed\nSafeObject_base::checkobj failed\n", stderrOf([&] {
                  checkDestroyed(dead);
                  checkDestroyed(dead);
              }));
}
