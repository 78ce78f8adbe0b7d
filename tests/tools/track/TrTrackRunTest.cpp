// The run against a driver stepped by hand over the same tracks: what the
// sinks receive, when, and what a failure leaves them.

#include "tools/track/TrTrackRun.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "image/Image.h"
#include "tools/track/TrMovingPlate.h"
#include "track/Sequence/TrDiskSequence.h"
#include "track/Sequence/TrSequence.h"
#include "track/TrFollow.h"
#include "track/TrShotImpl.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

// The moving plate over frames 1 to `last`, made as asked for; frames from
// `failAt` on cannot be read.
class MovingTexture : public TrSequence {
public:
    MovingTexture(int width, int height, int last) : width(width), height(height), last(last) {}

    int getFirstFrame() override { return 1; }
    int getLastFrame() override { return last; }
    Orvane::GenRect<int> getBounds(float) override { return {0, 0, width, height}; }
    Orvane::Image getFrame(float t) override {
        const int n = int(std::lround(t));
        if (failAt > 0 && n >= failAt) {
            if (bareString)
                throw "the frame source broke";
            throw IllegalArgumentException("cannot read the frame");
        }
        auto it = frames.find(n);
        if (it == frames.end())
            it = frames.emplace(n, movingplate::plateFrame(width, height, n)).first;
        return it->second;
    }

    int failAt = 0;
    bool bareString = false;

private:
    int width, height, last;
    std::map<int, Orvane::Image> frames;
};

TrTrackSpec spec(const std::string& name, double x, double y) {
    TrTrackSpec s;
    s.name = name;
    s.x = x;
    s.y = y;
    s.patternWidth = s.patternHeight = 9;
    s.searchWidth = s.searchHeight = 21;
    s.colorMode = "luminance";
    return s;
}

// What a sink saw: the calls in order and, at each frame, a copy of the
// samples it was handed for that frame.
struct Recorder : TrRunSink {
    std::vector<std::string> calls;
    std::vector<std::vector<TrSample>> delivered;
    std::string error;
    int direction = 1;

    void begin(const std::vector<TrTrackResult>& tracks, int from, int to) override {
        direction = to >= from ? 1 : -1;
        calls.push_back("begin " + std::to_string(from) + " " + std::to_string(to));
        delivered.assign(tracks.size(), {});
        for (const TrTrackResult& r : tracks)
            EXPECT_TRUE(r.samples.empty());
    }
    void frame(int frame, const std::vector<TrTrackResult>& tracks) override {
        calls.push_back(std::to_string(frame));
        for (size_t i = 0; i < tracks.size(); ++i) {
            const std::vector<TrSample>& s = tracks[i].samples;
            if (!s.empty() && s.back().frame == frame)
                delivered[i].push_back(s.back());
            // Nothing beyond the frame is visible yet.
            if (!s.empty()) {
                EXPECT_LE((s.back().frame - frame) * direction, 0) << "track " << i;
            }
        }
    }
    void finish(const std::vector<TrTrackResult>&, bool complete,
                const std::string& what) override {
        calls.push_back(complete ? "finish" : "failed");
        error = what;
    }
};

// The same pass stepped by hand: one shot and driver for all the tracks,
// each stopped where the driver stops it or its point leaves the frame.
struct Reference {
    std::vector<std::vector<TrSample>> samples;
    std::vector<int> lostAt;

    Reference(TrSequence* sequence, const std::vector<TrTrackSpec>& specs, int from, int to,
              const TrRunSettings& settings) {
        TrShotImpl shot;
        shot.setSequence(sequence);
        for (size_t i = 0; i < specs.size(); ++i) {
            const TrTrackSpec& s = specs[i];
            shot.addTrack(s.x, s.y);
            shot.setPatternRect(int(i), {-4.5, -4.5, 9, 9});
            shot.setSearchRect(int(i), {-10.5, -10.5, 21, 21});
            shot.setColorMode(int(i), dstring(s.colorMode));
        }
        shot.setFailureTolerance(0, settings.tolerance);
        shot.setFailureBehavior(0, dstring(settings.behavior));
        shot.setUseRotate(0, settings.rotate);
        shot.setUseScale(0, settings.scale);
        shot.setUseStretch(0, settings.stretch);
        TrFollow follow;
        follow.setShot(&shot);
        const int direction = to >= from ? 1 : -1;
        const Orvane::GenRect<int> b = sequence->getBounds(1);
        samples.assign(specs.size(), {});
        lostAt.assign(specs.size(), 0);
        follow.begin(from, 1);
        for (int f = from; f != to + direction; f += direction)
            for (int i = 0; i < int(specs.size()); ++i) {
                if (lostAt[size_t(i)])
                    continue;
                const bool ok = follow.track(i, f, direction);
                const TrTrackInfo& info = follow.getInfo(i);
                const Orvane::GenPoint<float> p = info.position;
                if (!ok || p.x < b.x || p.x >= b.x + b.w || p.y < b.y || p.y >= b.y + b.h) {
                    lostAt[size_t(i)] = f;
                    continue;
                }
                TrSample s;
                s.frame = f;
                s.x = p.x;
                s.y = p.y;
                s.score = info.score;
                s.transform = info.transform;
                samples[size_t(i)].push_back(s);
            }
        // Keyed frames are read once the pass is over, when every
        // refinement has been done.
        for (size_t i = 0; i < specs.size(); ++i)
            for (TrSample& s : samples[i]) {
                const int k = int(i);
                const float t = float(s.frame);
                s.keyed = shot.isPositionKeyed(k, t);
                if (!s.keyed)
                    continue;
                s.x = shot.getPosition(k, t).x;
                s.y = shot.getPosition(k, t).y;
                if (shot.isQualityKeyed(k, t))
                    s.score = shot.getQuality(k, t);
                s.transform = shot.getTransform(k, t);
            }
    }
};

void expectSame(const TrSample& want, const TrSample& got) {
    EXPECT_EQ(want.frame, got.frame);
    EXPECT_EQ(want.keyed, got.keyed) << "frame " << got.frame;
    EXPECT_EQ(want.x, got.x) << "frame " << got.frame;
    EXPECT_EQ(want.y, got.y) << "frame " << got.frame;
    EXPECT_EQ(want.score, got.score) << "frame " << got.frame;
    EXPECT_EQ(want.transform, got.transform) << "frame " << got.frame;
}

// Each track's samples are the first `frames` of the reference's, to the bit
// (all of them when `frames` is 0).
void expectSame(const std::vector<std::vector<TrSample>>& want,
                const std::vector<std::vector<TrSample>>& got, size_t frames = 0) {
    ASSERT_EQ(want.size(), got.size());
    for (size_t i = 0; i < want.size(); ++i) {
        const size_t n = frames ? frames : want[i].size();
        ASSERT_EQ(n, got[i].size()) << "track " << i;
        for (size_t k = 0; k < n; ++k)
            expectSame(want[i][k], got[i][k]);
    }
}

std::vector<std::string> frameCalls(int from, int to) {
    std::vector<std::string> calls;
    const int direction = to >= from ? 1 : -1;
    for (int f = from; f != to + direction; f += direction)
        calls.push_back(std::to_string(f));
    return calls;
}

} // namespace

// Forward and backward: each frame reaches the sink once, in pass order, and
// holds the values the curve holds once the whole pass is over, so no frame
// went out before the lagged refinement had passed it.
TEST(TrTrackRun, SinksGetEachFrameOnceInOrderWhenItIsFinal) {
    Orvane::SmartPtr<MovingTexture> seq(new MovingTexture(128, 96, 9));
    const std::vector<TrTrackSpec> specs = {spec("a", 40.5, 40.5), spec("b", 80.5, 50.5),
                                            spec("c", 60.5, 70.5)};
    for (const auto& range : {std::make_pair(1, 9), std::make_pair(9, 1)}) {
        SCOPED_TRACE("from " + std::to_string(range.first));
        TrTrackRun run(seq.get(), specs, TrRunSettings());
        Recorder sink;
        run.addSink(&sink);
        run.run(range.first, range.second);

        std::vector<std::string> calls = {"begin " + std::to_string(range.first) + " " +
                                          std::to_string(range.second)};
        for (const std::string& f : frameCalls(range.first, range.second))
            calls.push_back(f);
        calls.push_back("finish");
        EXPECT_EQ(calls, sink.calls);

        const Reference want(seq.get(), specs, range.first, range.second, TrRunSettings());
        std::vector<std::vector<TrSample>> results;
        for (size_t i = 0; i < specs.size(); ++i) {
            ASSERT_EQ(0, want.lostAt[i]) << specs[i].name;
            for (const TrSample& s : want.samples[i])
                EXPECT_TRUE(s.keyed);
            results.push_back(run.getResults()[i].samples);
        }
        expectSame(want.samples, sink.delivered);
        expectSame(want.samples, results);
    }
}

// A track near the top edge loses its pattern as the content moves up; its
// rows end the frame before, the others go on, and the notice names it.
TEST(TrTrackRun, ALostTracksRowsEndBeforeTheFrameItWasLostIn) {
    Orvane::SmartPtr<MovingTexture> seq(new MovingTexture(128, 96, 12));
    const std::vector<TrTrackSpec> specs = {spec("edge", 50.5, 3.5), spec("mid", 64.5, 48.5)};
    TrRunSettings settings;
    settings.behavior = "stop";
    const Reference want(seq.get(), specs, 1, 12, settings);
    const int lostAt = want.lostAt[0];
    ASSERT_GT(lostAt, 1);
    ASSERT_EQ(0, want.lostAt[1]);

    TrTrackRun run(seq.get(), specs, settings);
    Recorder sink;
    run.addSink(&sink);
    std::FILE* notices = std::tmpfile();
    run.setNotices(notices);
    run.run(1, 12);

    const TrTrackResult& edge = run.getResults()[0];
    EXPECT_TRUE(edge.lost);
    EXPECT_FALSE(run.getResults()[1].lost);
    EXPECT_EQ(lostAt, edge.lostAt);
    EXPECT_EQ(1, run.getLostCount());
    ASSERT_EQ(size_t(lostAt - 1), edge.samples.size());
    EXPECT_EQ(lostAt - 1, edge.samples.back().frame);
    expectSame(want.samples, sink.delivered);
    EXPECT_EQ(14u, sink.calls.size());

    std::rewind(notices);
    char line[200] = {};
    ASSERT_TRUE(std::fgets(line, sizeof line, notices));
    const std::string reason = edge.reason.empty() ? "" : ": " + edge.reason;
    EXPECT_EQ("tavrix-track: track \"edge\" lost at frame " + std::to_string(lostAt) + reason +
                  "\n",
              line);
    EXPECT_FALSE(std::fgets(line, sizeof line, notices));
    std::fclose(notices);
}

// A frame that cannot be read ends the pass: the frames before it all reach
// the sink, with the values the driver left, before finish says what failed.
// The library's exceptions and its bare strings alike.
TEST(TrTrackRun, AFailedFrameStillDeliversEverythingBefore) {
    const std::vector<TrTrackSpec> specs = {spec("a", 40.5, 40.5), spec("b", 80.5, 50.5)};
    for (bool bare : {false, true}) {
        Orvane::SmartPtr<MovingTexture> seq(new MovingTexture(128, 96, 9));
        const Reference want(seq.get(), specs, 1, 5, TrRunSettings());
        seq->failAt = 6;
        seq->bareString = bare;
        TrTrackRun run(seq.get(), specs, TrRunSettings());
        Recorder sink;
        run.addSink(&sink);
        if (bare)
            EXPECT_THROW(run.run(1, 9), const char*);
        else
            EXPECT_THROW(run.run(1, 9), IllegalArgumentException);

        EXPECT_EQ(6, run.getFailedFrame());
        std::vector<std::string> calls = {"begin 1 9", "1", "2", "3", "4", "5", "failed"};
        EXPECT_EQ(calls, sink.calls);
        EXPECT_EQ(bare ? "frame 6: the frame source broke" : "frame 6: cannot read the frame",
                  sink.error);
        expectSame(want.samples, sink.delivered, 5);
    }
}

// The driver keys its cached search images by frame x 256 + track: the run
// gives each 256 tracks their own driver, so a track fares the same among
// 300 as alone, value for value.
TEST(TrTrackRun, ThreeHundredTracksFollowAsEachWouldAlone) {
    Orvane::SmartPtr<MovingTexture> seq(new MovingTexture(128, 96, 4));
    std::vector<TrTrackSpec> specs;
    specs.reserve(300);
    // Twenty to a row, five pixels apart.
    for (int k = 0; k < 300; ++k) {
        const int column = k % 20, row = k / 20;
        specs.push_back(spec(std::to_string(k), 16.5 + column * 5, 14.5 + row * 5));
    }
    TrTrackRun all(seq.get(), specs, TrRunSettings());
    all.run(1, 4);
    int kept = 0, keptLate = 0;
    for (size_t i = 0; i < specs.size(); ++i) {
        SCOPED_TRACE("track " + specs[i].name);
        TrTrackRun one(seq.get(), {specs[i]}, TrRunSettings());
        one.run(1, 4);
        const TrTrackResult &alone = one.getResults()[0], &among = all.getResults()[i];
        EXPECT_EQ(alone.lost, among.lost);
        EXPECT_EQ(alone.lostAt, among.lostAt);
        expectSame({alone.samples}, {among.samples});
        kept += alone.lost ? 0 : 1;
        keptLate += !alone.lost && i >= 256 ? 1 : 0;
    }
    // Most tracks must last for the comparison to mean anything.
    EXPECT_GT(kept, 250);
    EXPECT_GT(keptLate, 35);
}

// Frames read ahead from files and tracks spread over one to three jobs: the
// samples are the hand-stepped driver's to the bit, the sinks see the same
// calls, and the times account for every step. A track near the top edge is
// lost on the way, so losses are dealt over the jobs too.
TEST(TrTrackRun, JobsAndReadAheadChangeNoValue) {
    movingplate::TempDir dir;
    movingplate::writePlate(dir, 128, 96, 1, 10);
    Orvane::SmartPtr<TrDiskSequence> disk(new TrDiskSequence(dstring(dir / "plate.####.png")));
    const std::vector<TrTrackSpec> specs = {spec("a", 40.5, 40.5), spec("edge", 50.5, 4.5),
                                            spec("b", 80.5, 50.5), spec("c", 60.5, 70.5),
                                            spec("d", 100.5, 30.5)};
    TrRunSettings settings;
    settings.behavior = "stop";
    const Reference want(disk.get(), specs, 1, 10, settings);
    ASSERT_GT(want.lostAt[1], 1);
    for (int jobs = 1; jobs <= 3; ++jobs) {
        SCOPED_TRACE(std::to_string(jobs) + " jobs");
        TrRunThreads threads;
        threads.jobs = jobs;
        threads.decoders = 2;
        TrTrackRun run(disk.get(), specs, settings, threads);
        Recorder sink;
        run.addSink(&sink);
        run.run(1, 10);
        EXPECT_EQ(12u, sink.calls.size());
        EXPECT_EQ("finish", sink.calls.back());
        expectSame(want.samples, sink.delivered);
        long steps = 0;
        for (size_t i = 0; i < specs.size(); ++i) {
            const TrTrackResult& r = run.getResults()[i];
            EXPECT_EQ(want.lostAt[i], r.lost ? r.lostAt : 0) << specs[i].name;
            steps += long(r.samples.size()) + (r.lost ? 1 : 0);
        }
        const TrRunTimes& t = run.getTimes();
        EXPECT_EQ(10, t.frames);
        EXPECT_EQ(steps, t.steps);
        EXPECT_EQ(jobs, t.jobs);
        EXPECT_EQ(2, t.decoders);
        EXPECT_GT(t.decode, 0);
        EXPECT_GT(t.trackCpu, 0);
        EXPECT_LE(t.wait, t.wall);
        EXPECT_LE(t.track + t.output, t.wall);
    }
}

// A corrupt file in the middle, read ahead: the frames before it reach the
// sinks with the values a pass that stopped there gives, and the error is
// the reader's, naming the frame and the file.
TEST(TrTrackRun, AFrameTheReaderCannotDecodeEndsThePassAfterTheFramesBefore) {
    movingplate::TempDir dir;
    movingplate::writePlate(dir, 128, 96, 1, 9);
    const std::vector<TrTrackSpec> specs = {spec("a", 40.5, 40.5), spec("b", 80.5, 50.5),
                                            spec("c", 60.5, 70.5)};
    Orvane::SmartPtr<TrDiskSequence> disk(new TrDiskSequence(dstring(dir / "plate.####.png")));
    const Reference want(disk.get(), specs, 1, 5, TrRunSettings());
    const std::string broken = dir / movingplate::frameName(6);
    std::ofstream(broken, std::ios::trunc) << "not a png";
    for (int jobs = 1; jobs <= 3; ++jobs) {
        SCOPED_TRACE(std::to_string(jobs) + " jobs");
        TrRunThreads threads;
        threads.jobs = jobs;
        threads.decoders = 3;
        TrTrackRun run(disk.get(), specs, TrRunSettings(), threads);
        Recorder sink;
        run.addSink(&sink);
        EXPECT_THROW(run.run(1, 9), IllegalArgumentException);
        EXPECT_EQ(6, run.getFailedFrame());
        EXPECT_EQ(std::vector<std::string>({"begin 1 9", "1", "2", "3", "4", "5", "failed"}),
                  sink.calls);
        EXPECT_EQ(0u, sink.error.find("frame 6: cannot read \"" + broken + "\"")) << sink.error;
        EXPECT_EQ(5, run.getTimes().frames);
        expectSame(want.samples, sink.delivered, 5);
    }
}
