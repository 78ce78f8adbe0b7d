#include "tools/track/TrNukeFormat.h"

#include "TrFormatSamples.h"
#include "support/ExpectThrows.h"

#include <cmath>
#include <cstdlib>

using namespace formatsamples;
using testsupport::expectThrows;

namespace {

std::string rowOf(const std::string& script, const std::string& start) {
    const size_t at = script.find(start);
    return at == std::string::npos ? "" : script.substr(at, script.find('\n', at) - at);
}

// The keys of the curve after `knob` + " {{curve" (x when `second` is
// false, y otherwise), read as the test's own small parser.
std::vector<std::pair<int, double>> cornerKeys(const std::string& script, const std::string& knob,
                                               bool second) {
    size_t at = script.find(" " + knob + " {{curve");
    if (at == std::string::npos)
        return {};
    at = script.find("curve", at);
    if (second)
        at = script.find("curve", at + 1);
    const std::string body = script.substr(at + 5, script.find('}', at) - at - 5);
    std::istringstream words(body);
    std::vector<std::pair<int, double>> keys;
    for (std::string f, v; words >> f >> v;)
        keys.emplace_back(std::atoi(f.c_str() + 1), std::atof(v.c_str()));
    return keys;
}

} // namespace

// track_y from the bottom edge; the error column is 1 - score; the boxes are
// half the sizes about the centre. Only keyed frames become keys.
TEST(TrNukeFormat, WritesATrackerRowPerTrack) {
    const std::string script = renderOne("nuke");
    EXPECT_EQ(" { 1 \"a b\" {curve x3 0.500000 x4 639.500000 x6 320.000000} "
              "{curve x3 479.500000 x4 0.500000 x6 240.000000} 0 0 1 0 0 "
              "{curve x3 0.012500 x4 0.500000 x6 0.000000} 0 1 -10.5 -10.5 10.5 10.5 "
              "-30.5 -30.5 30.5 30.5 {} {} {} {} {} {} {} {} {} {} {} }",
              rowOf(script, " { 1 \"a b\""));
    EXPECT_EQ(" { 1 \"b\" {curve x3 10.000000} {curve x3 460.000000} 0 0 1 0 0 "
              "{curve x3 0.250000} 0 1 -10.0 -5.0 10.0 5.0 -20.0 -15.0 20.0 15.0 "
              "{} {} {} {} {} {} {} {} {} {} {} }",
              rowOf(script, " { 1 \"b\""));
    EXPECT_NE(std::string::npos, script.find(" tracks { { 1 31 2 }"));
    EXPECT_NE(std::string::npos, script.find(" reference_frame 3\n"));
    EXPECT_EQ(std::string::npos, script.find("CornerPin2D"));
}

// Four tracks at the corners of a square drift by (+2, -1) px a frame in our
// pixels: the plane moves by (+2, +1) per frame in the script's, so each
// corner of the frame does too.
TEST(TrNukeFormat, CornerPinCarriesTheFrameCornersWithThePlane) {
    std::vector<TrTrackResult> tracks(4);
    const double at[4][2] = {{100, 100}, {500, 100}, {500, 400}, {100, 400}};
    for (int i = 0; i < 4; ++i) {
        tracks[size_t(i)].spec.name = std::to_string(i);
        for (int f = 3; f <= 6; ++f)
            tracks[size_t(i)].samples.push_back(
                sample(f, at[i][0] + 2 * (f - 3), at[i][1] - (f - 3), 1, true));
    }
    std::ostringstream out;
    TrExportSetup setup;
    setup.out = &out;
    setup.size = frame();
    setup.cornerPin = true;
    TrNukeWriter writer(setup);
    writer.begin(tracks, 3, 6);
    const std::string script = writer.render(tracks)[0].text;
    const double corner[4][2] = {{0, 0}, {640, 0}, {640, 480}, {0, 480}};
    for (int c = 0; c < 4; ++c) {
        const std::string knob = "to" + std::to_string(c + 1);
        const auto xs = cornerKeys(script, knob, false), ys = cornerKeys(script, knob, true);
        ASSERT_EQ(4u, xs.size()) << knob;
        ASSERT_EQ(4u, ys.size()) << knob;
        for (size_t k = 0; k < 4; ++k) {
            // The fit runs in floats on positions scaled to about ±1.
            EXPECT_EQ(int(k) + 3, xs[k].first);
            EXPECT_NEAR(corner[c][0] + 2.0 * double(k), xs[k].second, 1e-2) << knob << " " << k;
            EXPECT_NEAR(corner[c][1] + 1.0 * double(k), ys[k].second, 1e-2) << knob << " " << k;
        }
        EXPECT_NE(std::string::npos, script.find(" from" + std::to_string(c + 1) + " {" +
                                                 std::to_string(int(corner[c][0])) + " " +
                                                 std::to_string(int(corner[c][1])) + "}\n"));
    }
}

// Columns are found by name, curves may skip "x" between consecutive frames
// and carry flags, names may be bare or escaped, comments and other nodes
// pass by.
TEST(TrNukeFormat, ReadsTrackerRowsByColumnName) {
    const std::string script = "#! nuke -nx\nRoot {\n format \"640 480 0 0 640 480 1 x\"\n}\n"
                               "Tracker4 {\n tracks { { 1 3 2 }\n"
                               "{ { 2 1 58 track_y track_y 1 } { 3 1 75 name name 1 }\n"
                               "  { 2 1 58 track_x track_x 1 } }\n"
                               "{ { {curve K x10 80 81} \"q\\\"r\" {curve x10 1 2} }\n"
                               "  { {curve x2 0} bare {curve x2 5.5} } }\n"
                               "}\n}\n";
    const std::vector<TrImportedTrack> t = parseNukeTracks(script, "s.nk", frame());
    ASSERT_EQ(2u, t.size());
    EXPECT_EQ("q\"r", t[0].name);
    ASSERT_EQ(2u, t[0].points.size());
    EXPECT_EQ(std::make_tuple(10, 1.0, 400.0, 11, 2.0, 399.0),
              std::make_tuple(t[0].points[0].frame, t[0].points[0].x, t[0].points[0].y,
                              t[0].points[1].frame, t[0].points[1].x, t[0].points[1].y));
    EXPECT_EQ("bare", t[1].name);
    ASSERT_EQ(1u, t[1].points.size());
    EXPECT_EQ(480.0, t[1].points[0].y);
}

TEST(TrNukeFormat, MalformedScriptsNameTheLine) {
    const std::string head = "Tracker4 {\n tracks { { 1 31 1 }\n"
                             "{ { 3 1 75 name name 1 } { 2 1 58 track_x track_x 1 }\n"
                             "  { 2 1 58 track_y track_y 1 } }\n{\n";
    const struct {
        std::string text;
        const char* message;
    } cases[] = {
        {"Blur {\n size 3\n}\n", "s.nk: no Tracker4 node with a tracks table"},
        {head + " { a {curve x1 1} {curve x1 2} }\n}\n}\n",
         "s.nk: line 1: a \"{\" is never closed"},
        {head + " { a {curve x1 1} {curve x1 2} }\n}\n}\n}\n}\n",
         "s.nk: line 10: a \"}\" closes no \"{\""},
        {head + " { \"a {curve x1 1} {curve x1 2} }\n}\n}\n}\n",
         "s.nk: line 6: a quoted string is never closed"},
        {head + " { a {curve x1 1 2} {curve x1 2} }\n}\n}\n}\n",
         "s.nk: line 6: track \"a\": track_x and track_y key different frames"},
        {head + " { a {curve x1 1} {curve x2 2} }\n}\n}\n}\n",
         "s.nk: line 6: track \"a\": track_x and track_y key different frames"},
        {head + " { a 5 {curve x1 2} }\n}\n}\n}\n",
         "s.nk: line 6: track \"a\": track_x is not an animated curve"},
        {head + " { a {curve x1.5 1} {curve x1 2} }\n}\n}\n}\n",
         "s.nk: line 6: track \"a\": track_x: not a whole frame \"x1.5\""},
        {head + " { a {curve x1 [value y]} {curve x1 2} }\n}\n}\n}\n",
         "s.nk: line 6: track \"a\": track_x: unexpected \"[value\" in a curve"},
        {head + " { a {curve x1 1} }\n}\n}\n}\n",
         "s.nk: line 6: a row of the tracks table is short of columns"},
        {"Tracker4 {\n tracks { { 1 1 0 }\n{ { 3 1 75 name name 1 } }\n{ }\n}\n}\n",
         "s.nk: line 3: the tracks table has no \"track_x\" column"},
        {head + " { \"a\nb\" {curve x1 1} {curve x1 2} }\n}\n}\n}\n",
         "s.nk: line 6: a track's name holds a control character"},
        {std::string(300, '{'), "s.nk: line 1: braces nested too deep"},
    };
    for (const auto& c : cases)
        expectThrows<IllegalArgumentException>([&] { parseNukeTracks(c.text, "s.nk", frame()); },
                                               c.message);
}
