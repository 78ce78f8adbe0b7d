#include "base/SafeObject.h"

#include "support/ExpectThrows.h"

#include <new>
#include <type_traits>
#include <vector>

using namespace Orvane;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

struct Model : public virtual SafeObject {};
struct Interface {
    virtual ~Interface() = default;
};
struct Implementation : public Interface, public virtual SafeObject {};

// Logs each death notice, and whether the dying object was still linked.
struct Listener : public virtual SafeObject {
    void deleting(SafeObject_base* dying) override {
        for (SafeObject_base* peer : getPeers())
            stillLinked |= peer == dying;
        log->push_back(this);
    }
    std::vector<SafeObject_base*>* log;
    bool stillLinked = false;
};

// The call is on a destroyed object on purpose. The vptr sanitizer clears the
// vtable pointer when an object dies and would stop the call before it runs.
__attribute__((no_sanitize("vptr"))) void checkDestroyed(const SafeObject_base* dead) {
    dead->checkobj();
}

} // namespace

TEST(SafePtr, SurvivesEitherDestructionOrder) {
    auto* model = new Model;
    SafePtr<Model> first = model;
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): the copy is under test.
    SafePtr<Model> second(first); // linked with the object, not with `first`
    { SafePtr<Model> dying = model; }
    EXPECT_EQ(2, model->getPeers().getCount());
    EXPECT_EQ(model, second.get());
    CaptureStderr();
    delete model;
    EXPECT_EQ("", GetCapturedStderr());
    EXPECT_EQ(nullptr, first.get());
    EXPECT_EQ(nullptr, second.get());
    EXPECT_EQ(0, first.getPeers().getCount());
}

TEST(SafePtr, WatchesAnInterfaceOnlyOfASafeObject) {
    auto* impl = new Implementation;
    SafePtr<Interface> p = impl;
    delete impl;
    EXPECT_EQ(nullptr, p.get());
    Interface plain;
    expectThrows<IllegalArgumentException>([&] { p = &plain; },
                                           "SafePtr: object is not a SafeObject");
}

TEST(SafeObject_base, ConnectingTwiceMakesOneLinkThatOneDisconnectCuts) {
    SafeObject a, b;
    a.connect(&b);
    a.connect(&b);
    b.connect(&a);
    ASSERT_EQ(1, a.getPeers().getCount());
    ASSERT_EQ(1, b.getPeers().getCount());
    b.disconnect(&a);
    EXPECT_EQ(0, a.getPeers().getCount());
    EXPECT_EQ(0, b.getPeers().getCount());
}

TEST(SafeObject_base, DestructorTellsEachPeerInLinkOrderAfterUnlinking) {
    std::vector<SafeObject_base*> log;
    Listener first, second;
    first.log = second.log = &log;
    auto* dying = new SafeObject;
    dying->connect(&second);
    dying->connect(&first);
    delete dying;
    EXPECT_EQ((std::vector<SafeObject_base*>{&second, &first}), log);
    EXPECT_FALSE(first.stillLinked || second.stillLinked);
}

TEST(SafeObject_base, CheckobjReportsADestroyedObjectOncePerCall) {
    std::aligned_storage_t<sizeof(SafeObject_base), alignof(SafeObject_base)> storage;
    auto* object = new (&storage) SafeObject_base;
    object->~SafeObject_base();
    CaptureStderr();
    EXPECT_NO_THROW(checkDestroyed(object));
    checkDestroyed(object);
    EXPECT_EQ("SafeObject_base::checkobj failed\nSafeObject_base::checkobj failed\n",
              GetCapturedStderr());
}
