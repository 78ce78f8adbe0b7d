#include "tools/track/TrResultWriter.h"

#include "tools/track/TrJson.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

namespace {

TrSample sample(int frame, double x, double y, bool keyed) {
    TrSample s;
    s.frame = frame;
    s.x = x;
    s.y = y;
    s.score = 0.9875;
    s.keyed = keyed;
    s.transform = AffineTransform(0.25f, -0.5f, 0.125f, 1.5f, 0.75f, 1.25f);
    return s;
}

// Two tracks over frames 5..6; the second is lost after frame 5.
std::vector<TrTrackResult> feed(TrRunSink& sink, bool complete) {
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
    return tracks;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);)
        out.push_back(l);
    return out;
}

} // namespace

TEST(TrCsvWriter, OneRowPerTrackAndFrameInFrameOrder) {
    std::ostringstream out;
    TrCsvWriter writer(out);
    feed(writer, true);
    const std::vector<std::string> l = lines(out.str());
    ASSERT_EQ(4u, l.size());
    EXPECT_EQ("track,frame,x,y,score,keyed,tx,ty,ro,sc,st0,st1", l[0]);
    // A name with a comma and quotes is quoted, quotes doubled.
    EXPECT_EQ("\"a,\"\"b\"\"\",5,10.5000,20.2500,0.98750,1,0.2500,-0.5000,0.125000,1.500000,"
              "0.750000,1.250000",
              l[1]);
    EXPECT_EQ("2,5,30.0000,40.0000,0.98750,0,0.2500,-0.5000,0.125000,1.500000,0.750000,1.250000",
              l[2]);
    EXPECT_EQ(0u, l[3].find("\"a,\"\"b\"\"\",6,11.5000,21.2500,"));
}

TEST(TrCsvWriter, RowsReadBackToTheSampleWithinTheirPrecision) {
    const TrSample s = sample(12, 1234.56789, 0.000049, true);
    const std::string row = TrCsvWriter::row("t", s);
    std::vector<double> v;
    std::istringstream in(row.substr(2));
    for (std::string f; std::getline(in, f, ',');)
        v.push_back(std::strtod(f.c_str(), nullptr));
    ASSERT_EQ(11u, v.size());
    EXPECT_EQ(12, v[0]);
    // Four decimals: half a unit of the last place.
    EXPECT_NEAR(s.x, v[1], 0.5e-4);
    EXPECT_NEAR(s.y, v[2], 0.5e-4);
    EXPECT_NEAR(s.transform.ro, v[7], 0.5e-6);
}

TEST(TrJsonWriter, WritesAWellFormedDocumentWithTheLostTracks) {
    std::ostringstream out;
    TrJsonWriter writer(out);
    feed(writer, true);
    const TrJsonValue doc = parseJson(out.str());
    ASSERT_EQ(TrJsonValue::Object, doc.kind);
    std::vector<std::string> keys;
    for (const auto& m : doc.members)
        keys.push_back(m.first);
    EXPECT_EQ((std::vector<std::string>{"from", "to", "tracks", "samples", "lost", "complete"}),
              keys);
    const TrJsonValue& samples = doc.members[3].second;
    ASSERT_EQ(3u, samples.items.size());
    const TrJsonValue& first = samples.items[0];
    EXPECT_EQ("a,\"b\"", first.members[0].second.text);
    EXPECT_EQ(20.25, first.members[3].second.number);
    EXPECT_EQ(0.125, first.members[6].second.members[2].second.number);
    const TrJsonValue& lost = doc.members[4].second;
    ASSERT_EQ(1u, lost.items.size());
    EXPECT_EQ("2", lost.items[0].members[0].second.text);
    EXPECT_EQ(6, lost.items[0].members[1].second.number);
    EXPECT_TRUE(doc.members[5].second.boolean);
}

TEST(TrJsonWriter, AFailedPassStillClosesTheDocument) {
    std::ostringstream out;
    TrJsonWriter writer(out);
    feed(writer, false);
    const TrJsonValue doc = parseJson(out.str());
    ASSERT_EQ(7u, doc.members.size());
    EXPECT_EQ("complete", doc.members[5].first);
    EXPECT_FALSE(doc.members[5].second.boolean);
    EXPECT_EQ("error", doc.members[6].first);
    EXPECT_EQ("frame 7: cannot read", doc.members[6].second.text);
    EXPECT_EQ(3u, doc.members[3].second.items.size());
}
