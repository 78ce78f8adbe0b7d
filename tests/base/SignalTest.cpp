#include "base/Signal.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Orvane::SafeObject;
using Orvane::Signal;
using Orvane::SignalConnection;
using Orvane::SignalRecipient;

namespace {

template <class Body> std::string stderrOf(Body&& body) {
    testing::internal::CaptureStderr();
    body();
    return testing::internal::GetCapturedStderr();
}

// Appends its name to a shared log on every call.
struct Target : public virtual SafeObject {
    Target(std::vector<std::string>* log, const char* name) : log(log), name(name) {}
    void hit() { log->push_back(name); }
    void other() { log->push_back(name + "/other"); }
    std::vector<std::string>* log;
    std::string name;
};

// A change chain in the shape of the model: a child's signal reaches its
// owner's virtual nodeChanged(), which emits the owner's own signal.
struct Node : public virtual SafeObject {
    virtual ~Node() = default;
    virtual void nodeChanged() {
        ++heard;
        changed();
    }
    void setOwner(Node* owner) {
        ownerConnection.disconnect();
        if (owner)
            ownerConnection = changed.connect(owner, &Node::nodeChanged);
    }
    Signal changed;
    SignalConnection ownerConnection;
    int heard = 0;
};

struct LoudNode : public Node {
    void nodeChanged() override {
        ++loud;
        Node::nodeChanged();
    }
    int loud = 0;
};

} // namespace

TEST(Signal, CallsPatchesInConnectionOrder) {
    std::vector<std::string> log;
    Target a(&log, "a"), b(&log, "b");
    Signal signal;
    signal.connect(&a, &Target::hit);
    signal.connect(&b, &Target::hit);
    signal.connect(&a, &Target::hit);
    signal.connect(&a, &Target::other);
    signal();
    EXPECT_EQ((std::vector<std::string>{"a", "b", "a", "a/other"}), log);
    EXPECT_EQ(4, signal.getPatchCount());
}

TEST(Signal, ChangePropagatesOncePerLevel) {
    LoudNode root; // the base member connected reaches the override
    Node middle, leaf;
    middle.setOwner(&root);
    leaf.setOwner(&middle);
    leaf.changed();
    EXPECT_EQ(1, middle.heard);
    EXPECT_EQ(1, root.heard);

    // Re-attaching cuts the old link: only the new owner hears the leaf.
    leaf.setOwner(&root);
    leaf.changed();
    EXPECT_EQ(1, middle.heard);
    EXPECT_EQ(2, root.heard);
    leaf.setOwner(nullptr);
    leaf.changed();
    EXPECT_EQ(2, root.heard);
    EXPECT_EQ(2, root.loud);
    EXPECT_EQ(2, leaf.changed.getPatchCount()) << "the inert patch stays in the list";
}

TEST(Signal, DisconnectedConnectionStopsDelivering) {
    std::vector<std::string> log;
    Target a(&log, "a"), b(&log, "b");
    Signal signal;
    SignalConnection first = signal.connect(&a, &Target::hit);
    signal.connect(&b, &Target::hit);
    first.disconnect();
    first.disconnect();
    signal();
    EXPECT_EQ((std::vector<std::string>{"b"}), log);
    EXPECT_EQ(2, signal.getPatchCount());
    EXPECT_NE(nullptr, first.getPatch());
    // The target is no longer linked with the inert patch.
    EXPECT_EQ(0, a.getPeers().getCount());
}

TEST(Signal, SkipsDeadTargetsSilently) {
    std::vector<std::string> log;
    auto* doomed = new Target(&log, "doomed");
    Target kept(&log, "kept");
    Signal signal;
    SignalConnection connection = signal.connect(doomed, &Target::hit);
    signal.connect(&kept, &Target::hit);
    delete doomed;
    std::string err = stderrOf([&] {
        signal();
        connection.disconnect();
    });
    EXPECT_EQ((std::vector<std::string>{"kept"}), log);
    EXPECT_EQ("", err);
}

TEST(Signal, SkipsATargetKilledEarlierInTheSameEmission) {
    std::vector<std::string> log;
    struct Killer : public virtual SafeObject {
        Target* victim = nullptr;
        void kill() {
            delete victim;
            victim = nullptr;
        }
    } killer;
    killer.victim = new Target(&log, "victim");
    Signal signal;
    signal.connect(&killer, &decltype(killer)::kill);
    signal.connect(killer.victim, &Target::hit);
    signal();
    EXPECT_TRUE(log.empty());
}

TEST(Signal, DestroyedSignalLeavesConnectionsHarmless) {
    std::vector<std::string> log;
    Target a(&log, "a");
    SignalConnection connection;
    {
        Signal signal;
        connection = signal.connect(&a, &Target::hit);
        EXPECT_NE(nullptr, connection.getPatch());
    }
    EXPECT_EQ(nullptr, connection.getPatch());
    EXPECT_EQ(0, a.getPeers().getCount());
    EXPECT_EQ("", stderrOf([&] { connection.disconnect(); }));
}

TEST(Signal, CallsPatchesConnectedDuringTheEmission) {
    std::vector<std::string> log;
    Target late(&log, "late");
    struct Connector : public virtual SafeObject {
        Signal* signal = nullptr;
        Target* late = nullptr;
        void connectLate() {
            if (late)
                signal->connect(late, &Target::hit);
            late = nullptr;
        }
    } connector;
    Signal signal;
    connector.signal = &signal;
    connector.late = &late;
    signal.connect(&connector, &decltype(connector)::connectLate);
    signal();
    EXPECT_EQ((std::vector<std::string>{"late"}), log);
    signal();
    EXPECT_EQ((std::vector<std::string>{"late", "late"}), log);
}

TEST(Signal, CopyStartsWithoutConnections) {
    std::vector<std::string> log;
    Target a(&log, "a");
    Signal original;
    original.connect(&a, &Target::hit);
    Signal copy(original);
    EXPECT_EQ(0, copy.getPatchCount());
    copy();
    EXPECT_TRUE(log.empty());
    copy = original;
    EXPECT_EQ(0, copy.getPatchCount());
    original();
    EXPECT_EQ((std::vector<std::string>{"a"}), log);
}

TEST(Signal, SelfTestPrintsOneLine) {
    EXPECT_EQ("signal received.\n", stderrOf([] { Orvane::testSignal(); }));
    SignalRecipient recipient;
    EXPECT_EQ("signal received.\n", stderrOf([&] { recipient.receive(); }));
}
