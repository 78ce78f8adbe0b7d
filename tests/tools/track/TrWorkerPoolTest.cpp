#include "tools/track/TrWorkerPool.h"

#include "image/Copy.h"
#include "support/ExpectThrows.h"
#include "tools/track/TrMovingPlate.h"
#include "track/Sequence/TrSequence.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using Orvane::GenRect;
using Orvane::Image;

namespace {

const int kW = 160, kH = 120;

struct Spec {
    double x, y;
    int pw, ph, sw, sh;
    const char* mode;
};

// Five tracks inside the plate with every colour mode, and three near the
// edges that the motion carries out of the frame in one direction or the
// other.
const Spec kSpecs[] = {
    {40.5, 40.5, 11, 11, 31, 31, "luminance"},  {80.5, 60.5, 15, 15, 41, 41, "red"},
    {120.5, 40.5, 9, 13, 29, 33, "green"},      {50.5, 90.5, 11, 11, 31, 31, "hue"},
    {110.5, 90.5, 13, 9, 35, 29, "saturation"}, {3.5, 60.5, 11, 11, 25, 25, "luminance"},
    {80.5, 8.5, 11, 11, 25, 25, "blue"},        {155.5, 64.5, 11, 11, 25, 25, "luminance"},
};
const int kTracks = int(sizeof kSpecs / sizeof kSpecs[0]);
const int kInside = 5;

// Adds run tracks `which` to `shot`, in that order.
void setUp(TrShotImpl& shot, const std::vector<int>& which) {
    for (int i : which) {
        const Spec& s = kSpecs[i];
        const int k = shot.getTrackCount();
        shot.addTrack(s.x, s.y);
        shot.setPatternRect(k, GenRect<double>(-s.pw / 2.0, -s.ph / 2.0, s.pw, s.ph));
        shot.setSearchRect(k, GenRect<double>(-s.sw / 2.0, -s.sh / 2.0, s.sw, s.sh));
        shot.setColorMode(k, dstring(s.mode));
    }
}

std::vector<int> allTracks() {
    std::vector<int> all;
    all.reserve(kTracks);
    for (int i = 0; i < kTracks; ++i)
        all.push_back(i);
    return all;
}

// Frames rendered once and served as they are.
class PlateSequence : public TrSequence {
public:
    PlateSequence(int first, int last) : first(first), last(last) {
        for (int n = first; n <= last; ++n)
            frames.push_back(movingplate::plateFrame(kW, kH, n));
    }
    int getFirstFrame() override { return first; }
    int getLastFrame() override { return last; }
    GenRect<int> getBounds(float) override { return GenRect<int>(0, 0, kW, kH); }
    Image getFrame(float t) override { return frames[size_t(std::lround(t) - first)]; }

private:
    int first, last;
    std::vector<Image> frames;
};

// One track's step: the frame, the driver's answer and the position.
struct Step {
    int frame;
    bool ok;
    Orvane::GenPoint<float> position;
};

// Per track, its steps and a log of everything the run produced for it, in
// hexadecimal floating point so that equal text means equal bits.
struct Record {
    std::vector<std::vector<Step>> steps = std::vector<std::vector<Step>>(kTracks);
    std::vector<std::string> log = std::vector<std::string>(kTracks);
};

std::string hex(double v) {
    char buf[40];
    std::snprintf(buf, sizeof buf, " %a", v);
    return buf;
}

std::string hex(const AffineTransform& t) {
    return hex(t.tx) + hex(t.ty) + hex(t.ro) + hex(t.sc) + hex(t.st0) + hex(t.st1);
}

void logStep(Record& r, int i, int frame, bool ok, const std::string& error,
             const TrTrackInfo& info) {
    r.steps[size_t(i)].push_back({frame, ok, info.position});
    r.log[size_t(i)] += "step " + std::to_string(frame) + (ok ? " ok" : " stop") + " \"" + error +
                        "\"" + hex(info.position.x) + hex(info.position.y) + hex(info.score) +
                        hex(info.transform) + " " + std::to_string(info.patternFrame) + "\n";
}

// The keys the pass left on run track i, index k of `shot`.
void logKeys(Record& r, int i, TrShotImpl& shot, int k, int from, int to) {
    const int dir = to >= from ? 1 : -1;
    for (int f = from; f != to + dir; f += dir) {
        const float t = float(f);
        const Orvane::GenPoint<double> p = shot.getPosition(k, t);
        r.log[size_t(i)] += "key " + std::to_string(f) +
                            (shot.isPositionKeyed(k, t) ? " +" : " -") + hex(p.x) + hex(p.y) +
                            hex(shot.getQuality(k, t)) + hex(shot.getTransform(k, t)) + "\n";
    }
}

void expectSame(const Record& want, const Record& got, const std::string& what) {
    for (int i = 0; i < kTracks; ++i)
        EXPECT_EQ(want.log[size_t(i)], got.log[size_t(i)]) << what << ", track " << i;
}

// The plain loop: one shot, one driver, every track in turn.
Record plainRun(TrSequence* seq, int from, int to) {
    const int dir = to >= from ? 1 : -1;
    TrShotImpl shot;
    shot.setSequence(seq);
    setUp(shot, allTracks());
    TrFollow follow;
    follow.setShot(&shot);
    Record r;
    std::vector<bool> alive(kTracks, true);
    follow.begin(from, 1);
    for (int f = from; f != to + dir; f += dir)
        for (int i = 0; i < kTracks; ++i) {
            if (!alive[size_t(i)])
                continue;
            bool ok = false;
            std::string error;
            try {
                ok = follow.track(i, f, dir);
            } catch (const Exception& e) {
                error = e.getMessage().str();
            }
            alive[size_t(i)] = ok;
            logStep(r, i, f, ok, error, follow.getInfo(i));
        }
    follow.end(to);
    for (int i = 0; i < kTracks; ++i)
        logKeys(r, i, shot, i, from, to);
    return r;
}

// The same over a pool; `frameCopies(f, n)` gives n copies of frame f, one
// per thread.
Record pooledRun(int workers, int first, int last, int from, int to,
                 const std::function<std::vector<Image>(int, int)>& frameCopies, int threads = 0) {
    const int dir = to >= from ? 1 : -1;
    TrWorkerPool pool(workers, kTracks, first, last, 8, threads);
    for (int w = 0; w < pool.getWorkerCount(); ++w)
        setUp(pool.getWorker(w).shot, pool.getWorker(w).tracks);
    Record r;
    std::vector<bool> alive(kTracks, true);
    std::vector<TrStepResult> results;
    pool.begin(from, 1);
    for (int f = from; f != to + dir; f += dir) {
        std::vector<Image> copies = frameCopies(f, pool.getThreadCount());
        pool.step(f, dir, copies, alive, results);
        for (int i = 0; i < kTracks; ++i) {
            if (!results[size_t(i)].ran)
                continue;
            alive[size_t(i)] = results[size_t(i)].ok;
            logStep(r, i, f, results[size_t(i)].ok, results[size_t(i)].error, pool.getInfo(i));
        }
    }
    pool.end(to);
    for (int i = 0; i < kTracks; ++i)
        logKeys(r, i, pool.shotOf(i), pool.localIndex(i), from, to);
    return r;
}

// The tracks inside follow the known motion on every frame, and some edge
// track is lost: both paths of the comparison are exercised. The plate is
// band-limited 8-bit texture, on which the tracker holds a tenth of a pixel.
void expectTracked(const Record& r, int from, int to) {
    const int frames = std::abs(to - from) + 1;
    for (int i = 0; i < kInside; ++i) {
        ASSERT_EQ(size_t(frames), r.steps[size_t(i)].size()) << "track " << i;
        for (const Step& s : r.steps[size_t(i)]) {
            EXPECT_TRUE(s.ok) << "track " << i << " frame " << s.frame;
            const double x = kSpecs[i].x + movingplate::shiftX(s.frame) - movingplate::shiftX(from);
            const double y = kSpecs[i].y + movingplate::shiftY(s.frame) - movingplate::shiftY(from);
            EXPECT_NEAR(x, s.position.x, 0.1) << "track " << i << " frame " << s.frame;
            EXPECT_NEAR(y, s.position.y, 0.1) << "track " << i << " frame " << s.frame;
        }
    }
    int lost = 0;
    for (int i = kInside; i < kTracks; ++i)
        lost += r.steps[size_t(i)].back().ok ? 0 : 1;
    EXPECT_GE(lost, 1);
}

} // namespace

TEST(TrWorkerPool, SpreadsTracksInTurnOverNoMoreWorkersThanTracks) {
    TrWorkerPool pool(3, 5, 1, 10);
    ASSERT_EQ(3, pool.getWorkerCount());
    EXPECT_EQ(std::vector<int>({0, 3}), pool.getWorker(0).tracks);
    EXPECT_EQ(std::vector<int>({1, 4}), pool.getWorker(1).tracks);
    EXPECT_EQ(std::vector<int>({2}), pool.getWorker(2).tracks);
    EXPECT_EQ(1, pool.workerOf(4));
    EXPECT_EQ(1, pool.localIndex(4));
    EXPECT_EQ(&pool.getWorker(2).shot, &pool.shotOf(2));
    EXPECT_EQ(&pool.getWorker(0).follow, &pool.followOf(3));
    EXPECT_EQ(10, pool.getWorker(1).shot.getLastFrame());

    EXPECT_EQ(2, TrWorkerPool(4, 2, 1, 10).getWorkerCount());
    EXPECT_EQ(1, TrWorkerPool(4, 0, 1, 10).getWorkerCount());
    EXPECT_EQ(1, TrWorkerPool(0, 3, 1, 10).getWorkerCount());
}

TEST(TrWorkerPool, RefusesTracksOutOfOrderAndShotsWithoutTheirTracks) {
    TrWorkerPool pool(2, 4, 1, 10);
    expectThrows<IllegalArgumentException>([&] { pool.addTrack(2, 5, 5); },
                                           "track 2 added out of order to worker 0");
    pool.addTrack(0, 5, 5);
    pool.addTrack(1, 5, 5);
    pool.addTrack(3, 5, 5);
    expectThrows<IllegalArgumentException>([&] { pool.begin(1, 1); },
                                           "worker 0 has 1 tracks, not 2");
    pool.addTrack(2, 5, 5);
    pool.begin(1, 1);
    std::vector<Image> one(1);
    std::vector<TrStepResult> results;
    expectThrows<IllegalArgumentException>(
        [&] { pool.step(1, 1, one, std::vector<bool>(4, true), results); },
        "frame 1: 1 copies for 2 workers");
}

// Worker 0 runs on the caller's thread, the others each on one of their own;
// a throwing job ends the call with the lowest worker's exception once all
// have finished, and the pool goes on working.
TEST(TrWorkerPool, RunsEveryWorkerAtOnceAndCarriesTheirExceptionsBack) {
    TrWorkerPool pool(3, 3, 1, 10);
    std::vector<std::thread::id> ids(3);
    std::vector<int> calls(3, 0);
    for (int round = 0; round < 20; ++round)
        pool.runAll([&](TrWorker& w, int k) {
            ids[size_t(k)] = std::this_thread::get_id();
            calls[size_t(k)] += w.tracks[0] == k ? 1 : 0;
        });
    EXPECT_EQ(std::vector<int>({20, 20, 20}), calls);
    EXPECT_EQ(std::this_thread::get_id(), ids[0]);
    EXPECT_NE(ids[0], ids[1]);
    EXPECT_NE(ids[0], ids[2]);
    EXPECT_NE(ids[1], ids[2]);

    std::vector<int> finished(3, 0);
    expectThrows<IllegalArgumentException>(
        [&] {
            pool.runAll([&](TrWorker&, int k) {
                finished[size_t(k)] = 1;
                if (k == 2)
                    throw IllegalArgumentException("worker two");
                if (k == 1)
                    throw IllegalArgumentException("worker one");
            });
        },
        "worker one");
    EXPECT_EQ(std::vector<int>({1, 1, 1}), finished);
    try {
        pool.runAll([](TrWorker&, int k) {
            if (k == 2)
                throw std::runtime_error("not the library's");
        });
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("not the library's", e.what());
    }
    pool.runAll([&](TrWorker&, int k) { finished[size_t(k)] = 2; });
    EXPECT_EQ(std::vector<int>({2, 2, 2}), finished);
}

TEST(TrWorkerPool, OneTwoOrThreeWorkersTrackExactlyAsTheOneShotLoop) {
    const int first = 1, last = 14;
    Orvane::SmartPtr<TrSequence> seq(new PlateSequence(first, last));
    auto copiesOf = [&](int f, int n) {
        std::vector<Image> copies;
        copies.reserve(size_t(n));
        for (int k = 0; k < n; ++k)
            copies.push_back(Orvane::copy(seq->getFrame(float(f))));
        return copies;
    };
    for (const auto& range : {std::make_pair(first, last), std::make_pair(last, first)}) {
        const Record want = plainRun(seq.get(), range.first, range.second);
        expectTracked(want, range.first, range.second);
        for (int workers = 1; workers <= 3; ++workers)
            expectSame(want, pooledRun(workers, first, last, range.first, range.second, copiesOf),
                       std::to_string(workers) + " workers from " + std::to_string(range.first));
        // Workers that take turns on a thread share its copy of the frame.
        for (int threads = 1; threads <= 2; ++threads)
            expectSame(want,
                       pooledRun(3, first, last, range.first, range.second, copiesOf, threads),
                       "3 workers on " + std::to_string(threads) + " threads from " +
                           std::to_string(range.first));
    }
}

// Five workers on two threads: each worker always on the thread of w % 2,
// the even ones on the caller's; one copy of a frame per thread is enough,
// and the CPU time is the threads' own work, summed.
TEST(TrWorkerPool, WorkersTakeTurnsOnFewerThreadsAndCountTheirCpuTime) {
    TrWorkerPool pool(5, 5, 1, 10, 8, 2);
    ASSERT_EQ(5, pool.getWorkerCount());
    ASSERT_EQ(2, pool.getThreadCount());
    EXPECT_EQ(3, TrWorkerPool(3, 3, 1, 10, 8, 7).getThreadCount());
    EXPECT_EQ(3, TrWorkerPool(3, 3, 1, 10).getThreadCount());

    std::vector<std::thread::id> ids(5);
    std::vector<int> order;
    // Busy for a known stretch of the thread's own CPU time.
    auto spin = [](double seconds) {
        timespec a{}, b{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
        do
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
        while (double(b.tv_sec - a.tv_sec) + 1e-9 * double(b.tv_nsec - a.tv_nsec) < seconds);
    };
    pool.runAll([&](TrWorker&, int w) {
        ids[size_t(w)] = std::this_thread::get_id();
        if (w % 2 == 0)
            order.push_back(w);
        spin(0.02);
    });
    EXPECT_EQ(std::this_thread::get_id(), ids[0]);
    EXPECT_EQ(ids[0], ids[2]);
    EXPECT_EQ(ids[0], ids[4]);
    EXPECT_EQ(ids[1], ids[3]);
    EXPECT_NE(ids[0], ids[1]);
    EXPECT_EQ(std::vector<int>({0, 2, 4}), order);
    // Five spins of 20 ms, plus the little the calls themselves cost.
    EXPECT_GE(pool.getCpuSeconds(), 0.1);
    EXPECT_LT(pool.getCpuSeconds(), 0.15);

    for (int i = 0; i < 5; ++i)
        pool.addTrack(i, 5, 5);
    std::vector<TrStepResult> results;
    expectThrows<IllegalArgumentException>(
        [&] {
            std::vector<Image> none;
            pool.step(1, 1, none, std::vector<bool>(5, false), results);
        },
        "frame 1: 0 copies for 2 threads");
}
