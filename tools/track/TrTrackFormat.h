#pragma once

#include "tools/track/TrTrackRun.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

/// The frame a pass runs on, in pixels. Formats that count from the bottom
/// edge or scale to the frame need it both ways.
struct TrFrameSize {
    int width = 0;
    int height = 0;
};

/// One position of a track read from another package's file, in our pixels:
/// origin at the top-left corner, pixel centres at +0.5.
struct TrTrackPoint {
    int frame = 0;
    double x = 0;
    double y = 0;
};

/// A track read from another package's file, its points in file order.
struct TrImportedTrack {
    std::string name;
    std::vector<TrTrackPoint> points;
};

/// Reads one format from text already in memory; `source` (the file name)
/// prefixes the errors and, for one-track-per-file formats, gives the name.
/// Throws IllegalArgumentException "<source>: line N: <what>".
using TrTrackParser = std::vector<TrImportedTrack> (*)(const std::string& text,
                                                       const std::string& source,
                                                       const TrFrameSize& size);

/// What an export writer needs besides the results.
struct TrExportSetup {
    /// Where a single-file format writes; borrowed.
    std::ostream* out = nullptr;
    /// The export's path as given, from which a file-per-track format names
    /// its files.
    std::string path;
    TrFrameSize size;
    /// Also write the plane's corner pin, fitted from the tracks, where the
    /// format holds one.
    bool cornerPin = false;
};

/// One file of an export: `path` empty for the setup's stream.
struct TrExportFile {
    std::string path;
    std::string text;
};

/// Base of the writers of other packages' formats. These formats group the
/// samples by track, so nothing is written before `finish`, which receives
/// every sample; a failed pass still writes what was tracked.
class TrExportWriter : public TrRunSink {
public:
    explicit TrExportWriter(TrExportSetup setup) : setup(std::move(setup)) {}

    void begin(const std::vector<TrTrackResult>& tracks, int from, int to) override;
    void frame(int frame, const std::vector<TrTrackResult>& tracks) override;
    /// Renders and writes; IllegalArgumentException "cannot write \"<path>\""
    /// when a file cannot be written.
    void finish(const std::vector<TrTrackResult>& tracks, bool complete,
                const std::string& error) override;

    /// The export of `tracks` for the pass begun last.
    virtual std::vector<TrExportFile> render(const std::vector<TrTrackResult>& tracks) const = 0;

protected:
    TrExportSetup setup;
    int from = 0;
    int to = 0;
};

/// Helpers the format files share.
namespace TrFormatText {

/// `v` with `decimals` digits after the point, as printf's %.*f.
std::string fixed(double v, int decimals);

/// The samples a format writes under the keyed-only rule.
std::vector<TrSample> keyedSamples(const TrTrackResult& track);

/// The blank- or tab-separated words of `line`.
std::vector<std::string> words(const std::string& line);

/// Whether `word` is a whole finite decimal number.
bool isNumber(const std::string& word);

/// Walks a text line by line for a reader, numbering the lines from 1, and
/// words its errors as "<source>: line N: <what>".
class Lines {
public:
    Lines(const std::string& text, std::string source) : text(text), source(std::move(source)) {}

    /// The next line without its line end ("\n" or "\r\n"); false at the end.
    bool next(std::string& line);
    /// The next line that holds more than blanks; false at the end.
    bool nextFilled(std::string& line);
    /// As nextFilled, but the end of the text is an error naming `expected`.
    std::string require(const std::string& expected);
    int lineNumber() const { return line; }
    const std::string& getSource() const { return source; }

    [[noreturn]] void fail(const std::string& what) const;
    /// A finite number, else "<what> is not a number: \"<word>\"".
    double number(const std::string& word, const std::string& what) const;
    /// A whole number in int's range, else "<what> is not a whole number:
    /// \"<word>\"".
    int whole(const std::string& word, const std::string& what) const;

private:
    const std::string& text;
    std::string source;
    size_t at = 0;
    int line = 0;
};

} // namespace TrFormatText
