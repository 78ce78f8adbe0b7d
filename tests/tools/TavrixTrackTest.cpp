// Runs the built tavrix-track on image sequences written by the test, with
// known motion, and on bad input.

#include "image/Format.h"
#include "image/Image.h"
#include "image/ImageFile.h"
#include "tools/track/TrJson.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using Orvane::GenPoint;

namespace {

struct TempDir {
    TempDir() {
        char buf[] = "/tmp/tavrix-track-test-XXXXXX";
        path = mkdtemp(buf);
    }
    ~TempDir() { std::filesystem::remove_all(path); }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    std::string path;
};

// A band-limited texture: a sum of sinusoids with wavelengths of 8 to 20
// pixels, exact at any position, so a sub-pixel move is rendered without an
// interpolator.
struct Texture {
    struct Wave {
        double kx, ky, phase;
    };
    std::vector<Wave> waves;

    explicit Texture(unsigned seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> angle(0.0, 2.0 * M_PI);
        std::uniform_real_distribution<double> wavelength(8.0, 20.0);
        for (int i = 0; i < 8; ++i) {
            const double a = angle(rng), k = 2.0 * M_PI / wavelength(rng);
            waves.push_back({k * std::cos(a), k * std::sin(a), angle(rng)});
        }
    }
    double operator()(double x, double y) const {
        double v = 0.5;
        for (const Wave& w : waves)
            v += 0.06 * std::sin(w.kx * x + w.ky * y + w.phase);
        return v;
    }
};

// Frame `n` as an 8-bit RGB PNG: `plane(x, y)` gives the texture position
// seen at the pixel centre (x, y).
void writeFrame(const std::string& path, int width, int height,
                const std::function<GenPoint<double>(double, double)>& plane, const Texture& tex) {
    Orvane::Image img(Orvane::GenRect<int>(0, 0, width, height), Orvane::Format::getRGB());
    for (int y = 0; y < height; ++y) {
        unsigned char* row;
        img.getBuffer(row, GenPoint<int>(0, y));
        for (int x = 0; x < width; ++x) {
            const GenPoint<double> p = plane(x + 0.5, y + 0.5);
            const double v = tex(p.x, p.y);
            const auto b = static_cast<unsigned char>(std::lround(255 * v));
            row[3 * x] = b;
            row[3 * x + 1] = static_cast<unsigned char>(std::lround(200 * v));
            row[3 * x + 2] = static_cast<unsigned char>(255 - b);
        }
    }
    Orvane::saveToFile(dstring(path), img);
}

std::string frameName(const std::string& prefix, int n) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%04d.png", n);
    return prefix + buf;
}

std::string quote(const std::string& s) {
    std::string q = "'";
    for (char c : s)
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

Result run(const TempDir& dir, const std::vector<std::string>& args) {
    std::string cmd = quote(TAVRIX_TRACK_COMMAND);
    for (const std::string& a : args)
        cmd += " " + quote(a);
    cmd += " >" + quote(dir / "stdout.txt") + " 2>" + quote(dir / "stderr.txt");
    const int raw = std::system(cmd.c_str());
    Result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = readFile(dir / "stdout.txt");
    r.err = readFile(dir / "stderr.txt");
    return r;
}

struct Row {
    double x, y, score;
    bool keyed;
};

// CSV rows by track name and frame; checks the header.
std::map<std::pair<std::string, int>, Row> parseCsv(const std::string& text) {
    std::map<std::pair<std::string, int>, Row> rows;
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);
    EXPECT_EQ("track,frame,x,y,score,keyed,tx,ty,ro,sc,st0,st1", line);
    while (std::getline(in, line)) {
        std::vector<std::string> f;
        std::istringstream fields(line);
        for (std::string s; std::getline(fields, s, ',');)
            f.push_back(s);
        EXPECT_EQ(12u, f.size()) << line;
        if (f.size() != 12)
            continue;
        rows[{f[0], std::atoi(f[1].c_str())}] = {std::atof(f[2].c_str()), std::atof(f[3].c_str()),
                                                 std::atof(f[4].c_str()), f[5] == "1"};
    }
    return rows;
}

// The content of frame n moves by this much from frame 1: about (1.3, -0.7)
// a frame with a sub-pixel wobble.
GenPoint<double> shift(int n) {
    return {1.3 * (n - 1) + 0.45 * std::sin(n * 0.9), -0.7 * (n - 1) + 0.35 * std::cos(n * 1.3)};
}

void writeTranslated(const TempDir& dir, int frames) {
    const Texture tex(11);
    for (int n = 1; n <= frames; ++n) {
        const GenPoint<double> d = shift(n);
        writeFrame(
            dir / frameName("plate.", n), 200, 150,
            [&](double x, double y) { return GenPoint<double>(x - d.x, y - d.y); }, tex);
    }
}

const double kStarts[4][2] = {{60.5, 50.5}, {140.5, 45.5}, {70.5, 100.5}, {130.5, 95.5}};

std::vector<std::string> trackArgs(const TempDir& dir, int count) {
    std::vector<std::string> args{dir / "plate.####.png", "--quiet"};
    for (int i = 0; i < count; ++i) {
        args.push_back("--track");
        args.push_back(std::to_string(kStarts[i][0]) + "," + std::to_string(kStarts[i][1]));
    }
    return args;
}

} // namespace

TEST(TavrixTrack, FollowsASubPixelTranslationWithinATenthOfAPixel) {
    TempDir dir;
    writeTranslated(dir, 12);
    for (int backward = 0; backward < 2; ++backward) {
        std::vector<std::string> args = trackArgs(dir, 4);
        const int from = backward ? 12 : 1, to = backward ? 1 : 12;
        if (backward) {
            // Start where the features are in frame 12.
            args = {dir / "plate.####.png", "--quiet", "--from", "12", "--to", "1"};
            for (const auto& s : kStarts) {
                const GenPoint<double> d = shift(12);
                args.push_back("--track=" + std::to_string(s[0] + d.x) + "," +
                               std::to_string(s[1] + d.y));
            }
        }
        const Result r = run(dir, args);
        ASSERT_EQ(0, r.status) << r.err;
        EXPECT_EQ("", r.err);
        const auto rows = parseCsv(r.out);
        EXPECT_EQ(48u, rows.size());
        for (int i = 0; i < 4; ++i)
            for (int n = 1; n <= 12; ++n) {
                const auto it = rows.find({std::to_string(i + 1), n});
                ASSERT_NE(rows.end(), it) << "track " << i + 1 << " frame " << n;
                const Row& row = it->second;
                const GenPoint<double> d = shift(n), d0 = shift(from);
                EXPECT_TRUE(row.keyed);
                EXPECT_GT(row.score, 0.8);
                const double x0 = kStarts[i][0] + (backward ? shift(12).x : 0);
                const double y0 = kStarts[i][1] + (backward ? shift(12).y : 0);
                EXPECT_NEAR(x0 + d.x - d0.x, row.x, 0.1) << "track " << i + 1 << " frame " << n;
                EXPECT_NEAR(y0 + d.y - d0.y, row.y, 0.1) << "track " << i + 1 << " frame " << n;
            }
        (void)to;
    }
}

TEST(TavrixTrack, JsonOutputHoldsTheSameSamplesAsCsv) {
    TempDir dir;
    writeTranslated(dir, 5);
    std::vector<std::string> args = trackArgs(dir, 2);
    const Result csv = run(dir, args);
    ASSERT_EQ(0, csv.status) << csv.err;
    args.push_back("--out");
    args.push_back(dir / "r.json");
    const Result json = run(dir, args);
    ASSERT_EQ(0, json.status) << json.err;
    EXPECT_EQ("", json.out);
    const auto rows = parseCsv(csv.out);
    const TrJsonValue doc = parseJson(readFile(dir / "r.json"));
    const TrJsonValue& samples = doc.members[3].second;
    ASSERT_EQ(rows.size(), samples.items.size());
    for (const TrJsonValue& s : samples.items) {
        const Row& row = rows.at({s.members[0].second.text, int(s.members[1].second.number)});
        // The CSV holds four decimals.
        EXPECT_NEAR(row.x, s.members[2].second.number, 0.5e-4);
        EXPECT_NEAR(row.y, s.members[3].second.number, 0.5e-4);
    }
    EXPECT_TRUE(doc.members[5].second.boolean);
}

TEST(TavrixTrack, HomographiesMatchAKnownPlanarMotion) {
    TempDir dir;
    const Texture tex(23);
    const int frames = 6;
    // Frame n shows the plane through H(n): a turn, growth, move and tilt
    // that grow with n. Pixels are rendered through the inverse.
    auto homography = [](int n, double h[9]) {
        const double k = n - 1, a = 0.01 * k, s = 1 + 0.006 * k, c = s * std::cos(a),
                     sn = s * std::sin(a), p = 1.5e-5 * k, q = -1e-5 * k;
        const double m[9] = {c,  -sn, 1.2 * k + 160 - c * 160 + sn * 120,
                             sn, c,   -0.8 * k + 120 - sn * 160 - c * 120,
                             p,  q,   1 - p * 160 - q * 120};
        for (int i = 0; i < 9; ++i)
            h[i] = m[i];
    };
    auto invert = [](const double a[9], double r[9]) {
        const double det = a[0] * (a[4] * a[8] - a[5] * a[7]) - a[1] * (a[3] * a[8] - a[5] * a[6]) +
                           a[2] * (a[3] * a[7] - a[4] * a[6]);
        const double m[9] = {
            a[4] * a[8] - a[5] * a[7], a[2] * a[7] - a[1] * a[8], a[1] * a[5] - a[2] * a[4],
            a[5] * a[6] - a[3] * a[8], a[0] * a[8] - a[2] * a[6], a[2] * a[3] - a[0] * a[5],
            a[3] * a[7] - a[4] * a[6], a[1] * a[6] - a[0] * a[7], a[0] * a[4] - a[1] * a[3]};
        for (int i = 0; i < 9; ++i)
            r[i] = m[i] / det;
    };
    auto apply = [](const double h[9], double x, double y) {
        const double w = h[6] * x + h[7] * y + h[8];
        return GenPoint<double>((h[0] * x + h[1] * y + h[2]) / w, (h[3] * x + h[4] * y + h[5]) / w);
    };
    for (int n = 1; n <= frames; ++n) {
        double h[9], inv[9];
        homography(n, h);
        invert(h, inv);
        writeFrame(
            dir / frameName("plane.", n), 320, 240,
            [&](double x, double y) { return apply(inv, x, y); }, tex);
    }
    std::vector<std::string> args{dir / "plane.####.png", "--quiet", "--scale", "--homography",
                                  dir / "h.json"};
    const double xs[] = {70.5, 160.5, 250.5};
    const double ys[] = {60.5, 120.5, 180.5};
    for (double x : xs)
        for (double y : ys)
            args.push_back("--track=" + std::to_string(x) + "," + std::to_string(y));
    const Result r = run(dir, args);
    ASSERT_EQ(0, r.status) << r.err;

    const TrJsonValue doc = parseJson(readFile(dir / "h.json"));
    EXPECT_EQ(1, doc.members[0].second.number);
    const TrJsonValue& list = doc.members[1].second;
    ASSERT_EQ(size_t(frames), list.items.size());
    double h1[9], h1inv[9];
    homography(1, h1);
    invert(h1, h1inv);
    for (const TrJsonValue& f : list.items) {
        const int n = int(f.members[0].second.number);
        EXPECT_EQ(9, f.members[1].second.number) << "tracks counted at frame " << n;
        EXPECT_TRUE(f.members[2].second.boolean);
        double got[9], hn[9];
        for (int i = 0; i < 9; ++i)
            got[i] = f.members[3].second.items[size_t(i / 3)].items[size_t(i % 3)].number;
        homography(n, hn);
        // Over the tracks' area the fitted map must carry frame 1's pixels
        // where the plane puts them: the tracker's 0.1 px, spread by the fit.
        for (double x = 70; x <= 250; x += 30)
            for (double y = 60; y <= 180; y += 30) {
                const GenPoint<double> plane = apply(h1inv, x, y);
                const GenPoint<double> truth = apply(hn, plane.x, plane.y);
                const GenPoint<double> fitted = apply(got, x, y);
                EXPECT_LT(std::hypot(fitted.x - truth.x, fitted.y - truth.y), 0.25)
                    << "frame " << n << " at " << x << "," << y;
            }
    }
}

TEST(TavrixTrack, BadInputGetsOneLineAndStatusTwo) {
    TempDir dir;
    writeTranslated(dir, 3);
    std::ofstream(dir / "broken.0001.png") << "not a png";
    std::ofstream(dir / "t.json") << "{\"tracks\": [{\"position\": [1, 2], \"size\": 3}]}";
    const std::string plate = dir / "plate.####.png";
    struct Case {
        std::vector<std::string> args;
        std::string error;
    };
    const std::vector<Case> cases = {
        {{"/nonexistent/a.####.png", "--track", "1,1"},
         "frame pattern \"/nonexistent/a.####.png\": bad filename \"/nonexistent\""},
        {{dir / "zz.####.png", "--track", "1,1"},
         "no file matches the frame pattern \"" + dir / "zz.####.png" + "\""},
        {{plate, "--track", "1,x"}, "--track: malformed number \"x\""},
        {{plate, "--track", "1,1", "--frobnicate"}, "unknown option \"--frobnicate\" (see --help)"},
        {{plate, "--track", "1,1", "--color-mode", "teal"},
         "unknown color mode \"teal\" (expected one of red, green, blue, luminance, saturation, "
         "hue)"},
        {{plate, "--track", "1,1", "--behavior", "guess"},
         "unknown failure behavior \"guess\" (expected one of default, stop, predict, "
         "predictAndKey, dontPredict, useExistingCurve)"},
        {{plate, "--tracks", dir / "t.json"},
         dir / "t.json" + ": line 1, column 42: unknown key \"size\" (expected name, position, "
                          "pattern, search, colorMode)"},
        {{plate, "--track", "250,20"},
         "track \"1\" at 250.000000,20.000000 lies outside frame 1 (0, 0, 200, 150)"},
        {{plate, "--track", "10,10", "--from", "0"},
         "frame 0 lies outside the sequence's frames 1 to 3"},
        {{plate, "--track", "10,10", "--track", "20,20", "--track", "30,30", "--homography",
          dir / "h.json"},
         "--homography needs at least four tracks, got 3"},
        {{plate, "--track", "10,10", "--out", dir / "no/such/dir/r.csv"},
         "cannot write \"" + dir / "no/such/dir/r.csv" + "\""},
    };
    for (const Case& c : cases) {
        const Result r = run(dir, c.args);
        EXPECT_EQ(2, r.status) << c.error;
        EXPECT_EQ("tavrix-track: " + c.error + "\n", r.err);
        EXPECT_EQ("", r.out) << c.error;
    }
    // An unreadable first frame names the file.
    const Result r = run(dir, {dir / "broken.####.png", "--track", "1,1"});
    EXPECT_EQ(2, r.status);
    EXPECT_EQ(0u, r.err.find("tavrix-track: cannot read \"" + dir / "broken.0001.png" + "\""))
        << r.err;
    EXPECT_EQ(1, std::count(r.err.begin(), r.err.end(), '\n'));
}

TEST(TavrixTrack, AFrameThatCannotBeReadKeepsEverythingBefore) {
    TempDir dir;
    writeTranslated(dir, 8);
    std::ofstream(dir / frameName("plate.", 6), std::ios::trunc) << "truncated";
    for (const char* out : {"r.csv", "r.json"}) {
        std::vector<std::string> args = trackArgs(dir, 3);
        args.push_back("--out");
        args.push_back(dir / out);
        const Result r = run(dir, args);
        EXPECT_EQ(1, r.status);
        EXPECT_EQ(0u, r.err.find("tavrix-track: frame 6: cannot read \"" +
                                 dir / frameName("plate.", 6) + "\""))
            << r.err;
        EXPECT_NE(std::string::npos, r.err.find("\ntavrix-track: results up to frame 5 were "
                                                "written\n"))
            << r.err;
        if (std::string(out) == "r.csv") {
            const auto rows = parseCsv(readFile(dir / out));
            EXPECT_EQ(15u, rows.size());
            for (int i = 1; i <= 3; ++i)
                for (int n = 1; n <= 5; ++n)
                    EXPECT_EQ(1u, rows.count({std::to_string(i), n})) << i << " " << n;
        } else {
            const TrJsonValue doc = parseJson(readFile(dir / out));
            EXPECT_EQ(15u, doc.members[3].second.items.size());
            EXPECT_FALSE(doc.members[5].second.boolean);
            EXPECT_EQ("error", doc.members[6].first);
        }
    }
}

TEST(TavrixTrack, ATrackLeavingTheFrameIsLostAndTheOthersGoOn) {
    TempDir dir;
    writeTranslated(dir, 12);
    // The content moves up by about 0.7 px a frame: a track 4 px below the
    // top edge loses its pattern, one in the middle does not.
    const Result r =
        run(dir, {dir / "plate.####.png", "--track", "100.5,4.5", "--track", "100.5,75.5",
                  "--pattern", "15x15", "--search", "31x31", "--behavior", "stop"});
    ASSERT_EQ(0, r.status) << r.err;
    const auto rows = parseCsv(r.out);
    for (int n = 1; n <= 12; ++n)
        EXPECT_EQ(1u, rows.count({"2", n})) << n;
    int last = 0;
    for (int n = 1; n <= 12; ++n)
        if (rows.count({"1", n}))
            last = n;
    ASSERT_LT(last, 12) << r.out;
    EXPECT_NE(std::string::npos,
              r.err.find("tavrix-track: track \"1\" lost at frame " + std::to_string(last + 1)))
        << r.err;
    EXPECT_NE(std::string::npos, r.err.find("(1 lost)")) << r.err;
}

TEST(TavrixTrack, DemoFollowsTheKnownPathAndDrawsOverlays) {
    TempDir dir;
    const Result r = run(dir, {"--demo", "--quiet", "--overlay", dir / "ov"});
    ASSERT_EQ(0, r.status) << r.err;
    EXPECT_NE(std::string::npos, r.out.find("track \"centre\"     max error 0.")) << r.out;
    for (int n : {1, 15, 30}) {
        const Orvane::Image img =
            Orvane::readImage(dstring(dir / "ov/" + frameName("overlay.", n)));
        EXPECT_EQ(320, img.getBounds().w);
        EXPECT_EQ(240, img.getBounds().h);
    }
    EXPECT_TRUE(std::filesystem::exists(dir / "ov/path.png"));
}
