#include "tools/track/TrResultWriter.h"

#include "base/Exception.h"
#include "tools/track/TrJson.h"

#include <cstdio>

namespace {

void checkStream(std::ostream& out) {
    if (!out)
        throw IllegalArgumentException("cannot write the results: output failed");
}

} // namespace

void lastPosition(const TrTrackResult& r, double& x, double& y) {
    x = r.samples.empty() ? r.spec.x : r.samples.back().x;
    y = r.samples.empty() ? r.spec.y : r.samples.back().y;
}

const char* TrCsvWriter::header(bool status) {
    return status ? "track,frame,x,y,score,keyed,status,tx,ty,ro,sc,st0,st1"
                  : "track,frame,x,y,score,keyed,tx,ty,ro,sc,st0,st1";
}

std::string TrCsvWriter::field(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string q = "\"";
    for (char c : text) {
        if (c == '"')
            q += '"';
        q += c;
    }
    return q + "\"";
}

std::string TrCsvWriter::row(const std::string& track, const TrSample& s, bool status) {
    const AffineTransform& t = s.transform;
    char buf[256];
    std::snprintf(buf, sizeof buf, ",%d,%.4f,%.4f,%.5f,%d%s%s,%.4f,%.4f,%.6f,%.6f,%.6f,%.6f",
                  s.frame, s.x, s.y, s.score, s.keyed ? 1 : 0, status ? "," : "",
                  status ? statusName(s.status) : "", double(t.tx), double(t.ty), double(t.ro),
                  double(t.sc), double(t.st0), double(t.st1));
    return field(track) + buf;
}

std::string TrCsvWriter::lostRow(const TrTrackResult& r) {
    double x = 0, y = 0;
    lastPosition(r, x, y);
    char buf[128];
    std::snprintf(buf, sizeof buf, ",%d,%.4f,%.4f,,0,lost,,,,,,", r.lostAt, x, y);
    return field(r.spec.name) + buf;
}

void TrCsvWriter::begin(const std::vector<TrTrackResult>&, int, int) {
    out << header(status) << '\n';
    out.flush();
    checkStream(out);
}

void TrCsvWriter::frame(int frame, const std::vector<TrTrackResult>& tracks) {
    for (const TrTrackResult& r : tracks)
        if (!r.samples.empty() && r.samples.back().frame == frame)
            out << row(r.spec.name, r.samples.back(), status) << '\n';
        else if (status && r.lost && r.lostAt == frame)
            out << lostRow(r) << '\n';
    out.flush();
    checkStream(out);
}

void TrCsvWriter::finish(const std::vector<TrTrackResult>&, bool, const std::string&) {
    out.flush();
}

void TrJsonWriter::begin(const std::vector<TrTrackResult>& tracks, int from, int to) {
    out << "{\"from\": " << from << ", \"to\": " << to << ",\n \"tracks\": [";
    for (size_t i = 0; i < tracks.size(); ++i) {
        const TrTrackSpec& s = tracks[i].spec;
        out << (i ? ",\n  " : "\n  ") << "{\"name\": " << jsonQuote(s.name) << ", \"position\": ["
            << jsonNumber(s.x) << ", " << jsonNumber(s.y) << "], \"pattern\": [" << s.patternWidth
            << ", " << s.patternHeight << "], \"search\": [" << s.searchWidth << ", "
            << s.searchHeight << "], \"colorMode\": " << jsonQuote(s.colorMode) << "}";
    }
    out << "],\n \"samples\": [";
    first = true;
    out.flush();
    checkStream(out);
}

void TrJsonWriter::sample(const std::string& track, const TrSample& s) {
    const AffineTransform& t = s.transform;
    out << (first ? "\n  " : ",\n  ") << "{\"track\": " << jsonQuote(track)
        << ", \"frame\": " << s.frame << ", \"x\": " << jsonNumber(s.x)
        << ", \"y\": " << jsonNumber(s.y) << ", \"score\": " << jsonNumber(s.score)
        << ", \"keyed\": " << (s.keyed ? "true" : "false");
    if (status)
        out << ", \"status\": " << jsonQuote(statusName(s.status));
    out << ", \"transform\": {\"tx\": " << jsonNumber(t.tx) << ", \"ty\": " << jsonNumber(t.ty)
        << ", \"ro\": " << jsonNumber(t.ro) << ", \"sc\": " << jsonNumber(t.sc)
        << ", \"st0\": " << jsonNumber(t.st0) << ", \"st1\": " << jsonNumber(t.st1) << "}}";
    first = false;
}

void TrJsonWriter::lostSample(const TrTrackResult& r) {
    double x = 0, y = 0;
    lastPosition(r, x, y);
    out << (first ? "\n  " : ",\n  ") << "{\"track\": " << jsonQuote(r.spec.name)
        << ", \"frame\": " << r.lostAt << ", \"x\": " << jsonNumber(x)
        << ", \"y\": " << jsonNumber(y)
        << ", \"score\": null, \"keyed\": false, \"status\": \"lost\", \"transform\": null}";
    first = false;
}

void TrJsonWriter::frame(int frame, const std::vector<TrTrackResult>& tracks) {
    for (const TrTrackResult& r : tracks)
        if (!r.samples.empty() && r.samples.back().frame == frame)
            sample(r.spec.name, r.samples.back());
        else if (status && r.lost && r.lostAt == frame)
            lostSample(r);
    out.flush();
    checkStream(out);
}

void TrJsonWriter::finish(const std::vector<TrTrackResult>& tracks, bool complete,
                          const std::string& error) {
    out << "],\n \"lost\": [";
    bool firstLost = true;
    for (const TrTrackResult& r : tracks) {
        if (!r.lost)
            continue;
        out << (firstLost ? "" : ", ") << "{\"track\": " << jsonQuote(r.spec.name)
            << ", \"frame\": " << r.lostAt;
        if (!r.reason.empty())
            out << ", \"reason\": " << jsonQuote(r.reason);
        out << "}";
        firstLost = false;
    }
    out << "],\n \"complete\": " << (complete ? "true" : "false");
    if (!complete)
        out << ",\n \"error\": " << jsonQuote(error);
    out << "}\n";
    out.flush();
    checkStream(out);
}
