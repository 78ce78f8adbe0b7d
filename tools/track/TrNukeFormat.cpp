#include "tools/track/TrNukeFormat.h"

#include "base/Exception.h"
#include "tools/track/TrHomography.h"

#include <cctype>
#include <cmath>
#include <cstdlib>

namespace {

using TrFormatText::fixed;

// A column of the tracks table: type, a flag, width and name as the node
// saves them; every label but the switch's repeats the name.
struct Column {
    int type;
    int flag;
    int width;
    const char* name;
};

const Column kColumns[] = {
    {5, 1, 20, "enable"},
    {3, 1, 75, "name"},
    {2, 1, 58, "track_x"},
    {2, 1, 58, "track_y"},
    {2, 1, 63, "offset_x"},
    {2, 1, 63, "offset_y"},
    {4, 1, 27, "T"},
    {4, 1, 27, "R"},
    {4, 1, 27, "S"},
    {2, 0, 45, "error"},
    {1, 1, 0, "error_min"},
    {1, 1, 0, "error_max"},
    {1, 1, 0, "pattern_x"},
    {1, 1, 0, "pattern_y"},
    {1, 1, 0, "pattern_r"},
    {1, 1, 0, "pattern_t"},
    {1, 1, 0, "search_x"},
    {1, 1, 0, "search_y"},
    {1, 1, 0, "search_r"},
    {1, 1, 0, "search_t"},
    {2, 1, 0, "key_track"},
    {2, 1, 0, "key_search_x"},
    {2, 1, 0, "key_search_y"},
    {2, 1, 0, "key_search_r"},
    {2, 1, 0, "key_search_t"},
    {2, 1, 0, "key_track_x"},
    {2, 1, 0, "key_track_y"},
    {2, 1, 0, "key_track_r"},
    {2, 1, 0, "key_track_t"},
    {2, 1, 0, "key_centre_offset_x"},
    {2, 1, 0, "key_centre_offset_y"},
};

// `text` quoted for the script's Tcl reader.
std::string quoted(const std::string& text) {
    std::string q = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\' || c == '[' || c == ']' || c == '$' || c == '{' || c == '}')
            q += '\\';
        q += c;
    }
    return q + "\"";
}

// "{curve x1 v1 x2 v2 …}", an "x" before every key so that gaps need no care.
template <class Value> std::string curve(const std::vector<TrSample>& samples, Value value) {
    std::string c = "{curve";
    for (const TrSample& s : samples)
        c += " x" + std::to_string(s.frame) + " " + fixed(value(s), 6);
    return c + "}";
}

std::string box(int w, int h) {
    return fixed(-0.5 * w, 1) + " " + fixed(-0.5 * h, 1) + " " + fixed(0.5 * w, 1) + " " +
           fixed(0.5 * h, 1);
}

std::string row(const TrTrackResult& r, double height) {
    const std::vector<TrSample> keyed = TrFormatText::keyedSamples(r);
    const TrTrackSpec& s = r.spec;
    std::string text =
        " { 1 " + quoted(s.name) + " " + curve(keyed, [](const TrSample& k) { return k.x; }) + " " +
        curve(keyed, [&](const TrSample& k) { return height - k.y; }) + " 0 0 1 0 0 " +
        curve(keyed, [](const TrSample& k) { return 1 - k.score; }) + " 0 1 " +
        box(s.patternWidth, s.patternHeight) + " " + box(s.searchWidth, s.searchHeight);
    for (int i = 0; i < 11; ++i)
        text += " {}";
    return text + " }\n";
}

std::string tracker(const std::vector<TrTrackResult>& tracks, double height, int from) {
    std::string text = "Tracker4 {\n tracks { { 1 31 " + std::to_string(tracks.size()) + " }\n{ ";
    for (const Column& c : kColumns)
        text += "{ " + std::to_string(c.type) + " " + std::to_string(c.flag) + " " +
                std::to_string(c.width) + " " + c.name + " " +
                (std::string(c.name) == "enable" ? "e" : c.name) + " 1 }\n";
    text += "}\n{\n";
    for (const TrTrackResult& r : tracks)
        text += row(r, height);
    return text + "}\n}\n reference_frame " + std::to_string(from) +
           "\n name TavrixTracker\n xpos 0\n ypos 0\n}\n";
}

// The frame's corners, bottom-left first and counter-clockwise as the node
// numbers them, carried to each solved frame.
std::string cornerPin(const std::vector<TrTrackResult>& tracks, int from, int to,
                      const TrFrameSize& size) {
    const double w = size.width, h = size.height;
    const std::vector<TrHomographyFrame> frames =
        solveHomographies(tracks, from, to, Orvane::GenRect<int>(0, 0, size.width, size.height));
    const double corners[4][2] = {{0, 0}, {w, 0}, {w, h}, {0, h}};
    std::string text = "CornerPin2D {\n";
    for (int c = 0; c < 4; ++c) {
        std::string xs = "{curve", ys = "{curve";
        for (const TrHomographyFrame& f : frames) {
            if (!f.solved)
                continue;
            // In our pixels the corner is (X, h - Y).
            const double x = corners[c][0], y = h - corners[c][1];
            const double d = f.h[6] * x + f.h[7] * y + f.h[8];
            const double px = (f.h[0] * x + f.h[1] * y + f.h[2]) / d;
            const double py = (f.h[3] * x + f.h[4] * y + f.h[5]) / d;
            const std::string key = " x" + std::to_string(f.frame) + " ";
            xs += key + fixed(px, 6);
            ys += key + fixed(h - py, 6);
        }
        text.append(" to" + std::to_string(c + 1) + " {").append(xs).append("} ").append(ys);
        text += "}}\n";
    }
    for (int c = 0; c < 4; ++c)
        text += " from" + std::to_string(c + 1) + " {" + fixed(corners[c][0], 0) + " " +
                fixed(corners[c][1], 0) + "}\n";
    return text + " name TavrixCornerPin\n xpos 0\n ypos 40\n}\n";
}

// A word of the script, or a brace group of them, with the line it starts on.
struct Node {
    bool group = false;
    std::string word;
    int line = 0;
    std::vector<Node> items;
};

// Deeper braces than this are no script of ours; the bound also keeps the
// tree's destruction off a deep stack.
const size_t kMaxDepth = 256;

[[noreturn]] void failAt(const std::string& source, int line, const std::string& what) {
    throw IllegalArgumentException(
        dstring(source + ": line " + std::to_string(line) + ": " + what));
}

// Splits the script into words, quoted strings and brace groups, the way its
// Tcl reader does for the parts a track table uses.
class ScriptReader {
public:
    ScriptReader(const std::string& text, const std::string& source) : text(text), source(source) {}

    Node read() {
        Node root;
        root.group = true;
        std::vector<Node*> open{&root};
        bool lineStart = true;
        while (at < text.size()) {
            const char c = text[at];
            if (c == '\n' || c == ' ' || c == '\t' || c == '\r') {
                lineStart = lineStart || c == '\n';
                line += c == '\n' ? 1 : 0;
                ++at;
            } else if (c == '#' && lineStart) {
                while (at < text.size() && text[at] != '\n')
                    ++at;
            } else if (c == '{') {
                if (open.size() > kMaxDepth)
                    failAt(source, line, "braces nested too deep");
                open.back()->items.push_back(Node{true, "", line, {}});
                open.push_back(&open.back()->items.back());
                ++at;
            } else if (c == '}') {
                if (open.size() == 1)
                    failAt(source, line, "a \"}\" closes no \"{\"");
                open.pop_back();
                ++at;
            } else {
                open.back()->items.push_back(Node{false, word(), line, {}});
            }
            lineStart = lineStart && (c == ' ' || c == '\t' || c == '\r' || c == '\n');
        }
        if (open.size() > 1)
            failAt(source, open.back()->line, "a \"{\" is never closed");
        return root;
    }

private:
    // A bare or quoted word; a backslash takes the next character as it is.
    std::string word() {
        const int first = line;
        const bool quote = text[at] == '"';
        at += quote ? 1 : 0;
        std::string w;
        while (at < text.size()) {
            const char c = text[at];
            if (quote ? c == '"'
                      : (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '{' || c == '}'))
                break;
            if (c == '\\' && at + 1 < text.size())
                ++at;
            line += text[at] == '\n' ? 1 : 0;
            w += text[at++];
        }
        if (quote && at >= text.size())
            failAt(source, first, "a quoted string is never closed");
        at += quote ? 1 : 0;
        return w;
    }

    const std::string& text;
    const std::string& source;
    size_t at = 0;
    int line = 1;
};

using Keys = std::vector<std::pair<int, double>>;

// The keys of "{curve …}": "x<frame>" sets the frame of the next value, each
// value is keyed and moves on a frame; flags and slopes are skipped.
Keys curveKeys(const std::string& source, const Node& cell, const std::string& what) {
    if (!cell.group || cell.items.empty() || cell.items[0].word != "curve")
        failAt(source, cell.line, what + " is not an animated curve");
    Keys keys;
    long frame = 0;
    for (size_t i = 1; i < cell.items.size(); ++i) {
        const Node& n = cell.items[i];
        const std::string& w = n.word;
        const auto bad = [&](const std::string& why) { failAt(source, n.line, what + why); };
        if (n.group)
            bad(": an expression in a curve");
        if (w.size() > 1 && w[0] == 'x') {
            const std::string f = w.substr(1);
            if (f.find_first_not_of("-0123456789") != std::string::npos ||
                !TrFormatText::isNumber(f) || std::abs(std::atof(f.c_str())) > 1e9)
                bad(": not a whole frame \"" + w + "\"");
            frame = std::atol(f.c_str());
        } else if (TrFormatText::isNumber(w)) {
            if (std::abs(frame) > 1000000000)
                bad(": frame out of range");
            keys.emplace_back(int(frame++), std::strtod(w.c_str(), nullptr));
        } else if (!std::isalpha(static_cast<unsigned char>(w[0]))) {
            bad(": unexpected \"" + w + "\" in a curve");
        }
    }
    return keys;
}

// Where each named column sits in the table's rows.
std::vector<size_t> columnsOf(const std::string& source, const Node& columns,
                              const std::vector<std::string>& names) {
    std::vector<size_t> at(names.size(), columns.items.size());
    for (size_t i = 0; i < columns.items.size(); ++i) {
        const Node& c = columns.items[i];
        if (!c.group || c.items.size() < 4)
            failAt(source, c.line, "a column of the tracks table without a name");
        for (size_t k = 0; k < names.size(); ++k)
            if (c.items[3].word == names[k])
                at[k] = i;
    }
    for (size_t k = 0; k < names.size(); ++k)
        if (at[k] == columns.items.size())
            failAt(source, columns.line, "the tracks table has no \"" + names[k] + "\" column");
    return at;
}

TrImportedTrack trackOf(const std::string& source, const Node& row,
                        const std::vector<size_t>& column, double height) {
    for (size_t c : column)
        if (!row.group || c >= row.items.size())
            failAt(source, row.line, "a row of the tracks table is short of columns");
    TrImportedTrack t;
    t.name = row.items[column[0]].word;
    if (row.items[column[0]].group || t.name.empty())
        failAt(source, row.line, "a track without a name");
    // A quoted name may span lines; our names, and our messages, may not.
    for (char c : t.name)
        if (static_cast<unsigned char>(c) < 0x20)
            failAt(source, row.line, "a track's name holds a control character");
    const Keys xs = curveKeys(source, row.items[column[1]], "track \"" + t.name + "\": track_x");
    const Keys ys = curveKeys(source, row.items[column[2]], "track \"" + t.name + "\": track_y");
    if (xs.size() != ys.size())
        failAt(source, row.line,
               "track \"" + t.name + "\": track_x and track_y key different frames");
    for (size_t i = 0; i < xs.size(); ++i) {
        if (xs[i].first != ys[i].first)
            failAt(source, row.line,
                   "track \"" + t.name + "\": track_x and track_y key different frames");
        t.points.push_back({xs[i].first, xs[i].second, height - ys[i].second});
    }
    return t;
}

void readTable(const std::string& source, const Node& table, double height,
               std::vector<TrImportedTrack>& tracks) {
    if (table.items.size() < 3 || !table.items[1].group || !table.items[2].group)
        failAt(source, table.line, "the \"tracks\" knob is not a table of columns and rows");
    const std::vector<size_t> column =
        columnsOf(source, table.items[1], {"name", "track_x", "track_y"});
    for (const Node& row : table.items[2].items)
        tracks.push_back(trackOf(source, row, column, height));
}

} // namespace

std::vector<TrExportFile> TrNukeWriter::render(const std::vector<TrTrackResult>& tracks) const {
    std::string text = "set cut_paste_input [stack 0]\npush $cut_paste_input\n" +
                       tracker(tracks, setup.size.height, from);
    if (setup.cornerPin)
        text += cornerPin(tracks, from, to, setup.size);
    return {{"", text}};
}

std::vector<TrImportedTrack> parseNukeTracks(const std::string& text, const std::string& source,
                                             const TrFrameSize& size) {
    const Node root = ScriptReader(text, source).read();
    std::vector<TrImportedTrack> tracks;
    bool found = false;
    for (size_t i = 0; i + 1 < root.items.size(); ++i) {
        const Node& node = root.items[i + 1];
        if (root.items[i].group || root.items[i].word != "Tracker4" || !node.group)
            continue;
        for (size_t k = 0; k + 1 < node.items.size(); ++k)
            if (!node.items[k].group && node.items[k].word == "tracks" && node.items[k + 1].group) {
                readTable(source, node.items[k + 1], size.height, tracks);
                found = true;
            }
    }
    if (!found)
        throw IllegalArgumentException(dstring(source + ": no Tracker4 node with a tracks table"));
    return tracks;
}
