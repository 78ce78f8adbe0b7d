#pragma once

#include "base/Array.h"
#include "base/dstring.h"
#include "image/GenRect.h"
#include "image/Image.h"
#include "track/Sequence/TrSequence.h"

struct TrFramePattern;

/// Numbered image files in one directory, served as frames through the
/// process-wide image cache. A pattern names the series, a run of "#"
/// standing for the frame number: "/shots/a/shot####.exr". With
/// setAllPatternForms, "@" runs and printf fields ("shot%04d.exr") name it
/// too (TrFramePattern).
class TrDiskSequence : public TrSequence {
public:
    /// No series yet: call setFilename before asking for frames.
    TrDiskSequence() = default;
    /// setFilename(pattern).
    explicit TrDiskSequence(const dstring& pattern);

    /// Scans the pattern's directory for the files that fit it and takes the
    /// lowest and highest frame numbers and the shortest digit count.
    /// Throws IllegalArgumentException "bad filename \"<directory>\"" when
    /// the directory cannot be resolved or opened, "not found" when no file
    /// fits, Exception "readdir_r error <errno>" when reading the directory
    /// fails, and the number conversion's exception when a fitting name
    /// holds no number. On failure the sequence is unchanged.
    /// With all pattern forms on, a name without "#" that holds "@" or "%"
    /// is read by TrFramePattern::parse, whose exception it throws for a
    /// malformed name; the scan then passes over files whose number part is
    /// not what the field writes for their number (TrFramePattern::match),
    /// and the width is the field's own.
    void setFilename(const dstring& pattern);
    /// The directory, a "/" (doubled after the directory's own), the prefix,
    /// one "#" per digit and the suffix; "@" or printf series write their
    /// field in their own form.
    dstring getFilename() const;

    /// Also reads "@" runs and printf fields ("%04d", "%d") as the frame
    /// number, in names without "#", from the next setFilename on. Off by
    /// default: such a name is then matched literally, as a suffix, the way
    /// a name without "#" always is. Costs nothing.
    void setAllPatternForms(bool on) { allForms = on; }
    bool getAllPatternForms() const { return allForms; }

    int getFirstFrame() override { return firstFrame; }
    int getLastFrame() override { return lastFrame; }
    /// Moving the first frame forgets the cached bounds, which it indexes.
    void setFirstFrame(int frame);
    void setLastFrame(int frame) { lastFrame = frame; }
    /// Digits to which frame numbers are padded.
    int getWidth() const { return width; }

    /// The file of frame `t` (rounded): directory, prefix, the number padded
    /// with zeros to the width (never shortened) and suffix. The "@" and
    /// printf forms count a minus sign towards the width, as printf does.
    /// A `t` that
    /// rounds past the range of int, or is not a number, throws
    /// IllegalArgumentException "frame <t> out of range", `t` in the shortest
    /// form that reads back ("frame 2147483648 out of range", "frame 3e+09
    /// out of range", "frame nan out of range").
    dstring getFramePath(float t) const;

    /// Frame `t` from the cache, or read from its file and cached. A file
    /// that cannot be read throws IllegalArgumentException naming the file
    /// and the reason, and nothing is cached.
    Orvane::Image getFrame(float t) override;
    /// The bounds of frame `t`, read once per frame and then remembered. A
    /// frame before the first throws BadIndexException "Array::operator[]";
    /// a `t` out of range throws as getFramePath does.
    Orvane::GenRect<int> getBounds(float t) override;

private:
    /// The series' name as a pattern, without directory.
    TrFramePattern form() const;

    /// Indexed by frame - first frame; an empty rectangle is not known yet.
    Array<Orvane::GenRect<int>> bounds;
    /// Resolved, with its trailing "/".
    dstring directory;
    dstring prefix;
    dstring suffix;
    int firstFrame = 0;
    int lastFrame = 0;
    int width = 0;
    /// '#', or the '@' or '%' of the other forms.
    char marker = '#';
    bool allForms = false;
};
