#include "base/Signal.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Orvane;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

// Appends its name to a shared log on every call.
struct Target : public virtual SafeObject {
    Target(std::string* log, char name) : log(log), name(name) {}
    void hit() { *log += name; }
    std::string* log;
    char name;
};

} // namespace

TEST(Signal, CallsLivePatchesInOrderAndSkipsDeadTargets) {
    std::string log;
    Target a(&log, 'a'), b(&log, 'b');
    auto* doomed = new Target(&log, 'x');
    Signal signal;
    signal.connect(&a, &Target::hit);
    SignalConnection toDoomed = signal.connect(doomed, &Target::hit);
    signal.connect(&b, &Target::hit);
    delete doomed;
    CaptureStderr();
    signal();
    toDoomed.disconnect();
    EXPECT_EQ("", GetCapturedStderr());
    EXPECT_EQ("ab", log);
}

TEST(Signal, DisconnectedPatchStaysInertInTheList) {
    std::string log;
    Target a(&log, 'a'), b(&log, 'b');
    Signal signal;
    SignalConnection first = signal.connect(&a, &Target::hit);
    signal.connect(&b, &Target::hit);
    first.disconnect();
    first.disconnect();
    signal();
    EXPECT_EQ("b", log);
    EXPECT_EQ(2, signal.getPatchCount());
    EXPECT_NE(nullptr, first.getPatch());
}

TEST(Signal, ConnectionOutlivesItsSignalHarmlessly) {
    std::string log;
    Target a(&log, 'a');
    SignalConnection connection;
    {
        Signal signal;
        connection = signal.connect(&a, &Target::hit);
    }
    EXPECT_EQ(nullptr, connection.getPatch());
    EXPECT_EQ(0, a.getPeers().getCount());
    CaptureStderr();
    connection.disconnect();
    EXPECT_EQ("", GetCapturedStderr());
}

TEST(Signal, EmissionSeesChangesMadeDuringIt) {
    std::string log;
    struct Meddler : public virtual SafeObject {
        void kill() { delete victim; }
        void connectLate() { signal.connect(late, &Target::hit); }
        Target *victim, *late;
        Signal signal;
    } meddler;
    Target late(&log, 'l');
    meddler.victim = new Target(&log, 'v');
    meddler.late = &late;
    meddler.signal.connect(&meddler, &Meddler::kill);
    meddler.signal.connect(meddler.victim, &Target::hit);
    meddler.signal.connect(&meddler, &Meddler::connectLate);
    meddler.signal();
    EXPECT_EQ("l", log) << "the killed target is skipped; the new patch is called";
}
