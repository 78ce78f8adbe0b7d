#include "tools/track/TrResultWriter.h"

#include "tools/track/TrJson.h"

#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

namespace {

TrSample sample(int frame, double x, double y, bool keyed) {
    return {frame, x, y, 0.9875, keyed, AffineTransform(0.25f, -0.5f, 0.125f, 1.5f, 0.75f, 1.25f)};
}

// Two tracks over frames 5..6; the second is lost after frame 5.
std::string feed(TrRunSink& sink, std::ostringstream& out, bool complete) {
    std::vector<TrTrackResult> tracks(2);
    tracks[0].spec.name = "a,\"b\"";
    tracks[1].spec.name = "2";
    sink.begin(tracks, 5, 6);
    tracks[0].samples.push_back(sample(5, 10.5, 20.25, true));
    tracks[1].samples.push_back(sample(5, 30, 40, false));
    sink.frame(5, tracks);
    tracks[1].lost = true;
    tracks[1].lostAt = 6;
    tracks[0].samples.push_back(sample(6, 11.5, 21.25, true));
    sink.frame(6, tracks);
    sink.finish(tracks, complete, complete ? "" : "frame 7: cannot read");
    return out.str();
}

} // namespace

// A name with a comma and quotes is quoted, quotes doubled; positions keep
// four decimals, rounded.
TEST(TrCsvWriter, OneRowPerTrackAndFrameInFrameOrder) {
    std::ostringstream out;
    TrCsvWriter writer(out);
    const std::string rest = ",0.2500,-0.5000,0.125000,1.500000,0.750000,1.250000";
    EXPECT_EQ("track,frame,x,y,score,keyed,tx,ty,ro,sc,st0,st1\n"
              "\"a,\"\"b\"\"\",5,10.5000,20.2500,0.98750,1" +
                  rest + "\n2,5,30.0000,40.0000,0.98750,0" + rest +
                  "\n\"a,\"\"b\"\"\",6,11.5000,21.2500,0.98750,1" + rest + "\n",
              feed(writer, out, true));
    EXPECT_EQ("t,12,1234.5679,0.0000,0.98750,1" + rest,
              TrCsvWriter::row("t", sample(12, 1234.56789, 0.000049, true)));
}

// A failed pass still closes the document and says why.
TEST(TrJsonWriter, WritesAWellFormedDocumentWithTheLostTracks) {
    for (bool complete : {true, false}) {
        std::ostringstream out;
        TrJsonWriter writer(out);
        const TrJsonValue doc = parseJson(feed(writer, out, complete));
        std::vector<std::string> keys,
            expected{"from", "to", "tracks", "samples", "lost", "complete", "error"};
        for (const auto& m : doc.members)
            keys.push_back(m.first);
        expected.resize(complete ? 6 : 7);
        ASSERT_EQ(expected, keys);
        const TrJsonValue& samples = doc.members[3].second;
        ASSERT_EQ(3u, samples.items.size());
        const TrJsonValue &first = samples.items[0], &lost = doc.members[4].second;
        EXPECT_EQ(std::make_tuple(std::string("a,\"b\""), 20.25, 0.125),
                  std::make_tuple(first.members[0].second.text, first.members[3].second.number,
                                  first.members[6].second.members[2].second.number));
        ASSERT_EQ(1u, lost.items.size());
        EXPECT_EQ(std::make_tuple(std::string("2"), 6.0),
                  std::make_tuple(lost.items[0].members[0].second.text,
                                  lost.items[0].members[1].second.number));
        EXPECT_EQ(complete, doc.members[5].second.boolean);
        if (!complete) {
            EXPECT_EQ("frame 7: cannot read", doc.members[6].second.text);
        }
    }
}

// The status layout: a column after keyed, and a last row for a lost track
// at the position it had, with nothing measured.
TEST(TrCsvWriter, StatusLayoutGivesEachRowItsStatusAndALostRow) {
    std::ostringstream out;
    TrCsvWriter writer(out, true);
    const std::string rest = ",0.2500,-0.5000,0.125000,1.500000,0.750000,1.250000";
    EXPECT_EQ("track,frame,x,y,score,keyed,status,tx,ty,ro,sc,st0,st1\n"
              "\"a,\"\"b\"\"\",5,10.5000,20.2500,0.98750,1,tracked" +
                  rest + "\n2,5,30.0000,40.0000,0.98750,0,tracked" + rest +
                  "\n\"a,\"\"b\"\"\",6,11.5000,21.2500,0.98750,1,tracked" + rest +
                  "\n2,6,30.0000,40.0000,,0,lost,,,,,,\n",
              feed(writer, out, true));
    TrSample coasted = sample(7, 1, 2, false);
    coasted.status = TrStepStatus::Coasted;
    EXPECT_EQ("t,7,1.0000,2.0000,0.98750,0,coasted" + rest, TrCsvWriter::row("t", coasted, true));
    // Lost at its first frame, a track is where it was placed.
    TrTrackResult r;
    r.spec.name = "f";
    r.spec.x = 12.25;
    r.spec.y = 7.5;
    r.lost = true;
    r.lostAt = 3;
    EXPECT_EQ("f,3,12.2500,7.5000,,0,lost,,,,,,", TrCsvWriter::lostRow(r));
}

TEST(TrJsonWriter, StatusLayoutAddsStatusAndALostSample) {
    std::ostringstream out;
    TrJsonWriter writer(out, true);
    const TrJsonValue doc = parseJson(feed(writer, out, true));
    const TrJsonValue& samples = doc.members[3].second;
    ASSERT_EQ(4u, samples.items.size());
    std::vector<std::string> keys;
    for (const auto& m : samples.items[0].members)
        keys.push_back(m.first);
    EXPECT_EQ(std::vector<std::string>(
                  {"track", "frame", "x", "y", "score", "keyed", "status", "transform"}),
              keys);
    EXPECT_EQ("tracked", samples.items[0].members[6].second.text);
    const auto& lost = samples.items[3].members;
    EXPECT_EQ(std::make_tuple(std::string("2"), 6.0, 30.0, 40.0, TrJsonValue::Null, false,
                              std::string("lost"), TrJsonValue::Null),
              std::make_tuple(lost[0].second.text, lost[1].second.number, lost[2].second.number,
                              lost[3].second.number, lost[4].second.kind, lost[5].second.boolean,
                              lost[6].second.text, lost[7].second.kind));
}
