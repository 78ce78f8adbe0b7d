#pragma once

#include "tools/track/TrTrackFile.h"
#include "tools/track/TrTrackFormat.h"

#include <memory>
#include <string>
#include <vector>

/// A format of another package that results are exported to and tracks
/// imported from. The table of them is the one home of their names.
struct TrTrackFormat {
    /// The name --format takes.
    const char* name;
    /// The extension with its dot; formats may share one (".txt").
    const char* extension;
    /// Writes a file per track, named from the export's path, rather than
    /// one stream.
    bool filePerTrack;
    const char* help;
    std::unique_ptr<TrExportWriter> (*makeWriter)(const TrExportSetup& setup);
    TrTrackParser parse;
    /// Whether a text looks like this format, for a file whose extension
    /// several formats share; null where the extension is the format's own.
    bool (*looksLike)(const std::string& text);
};

namespace TrFormatTable {

/// Every format, in the order --help lists them.
const std::vector<TrTrackFormat>& formats();
/// The format named `name`, or null.
const TrTrackFormat* find(const std::string& name);
/// "nuke, ae, 3de, pftrack, syntheyes, chan".
std::string names();

/// The format an export writes: the one named (an unknown name is an
/// error), else the one `path`'s extension belongs to alone. Throws
/// IllegalArgumentException naming what is missing.
const TrTrackFormat& forExport(const std::string& name, const std::string& path);

/// The format of a track file other than our JSON: the one its extension
/// belongs to alone, else the one whose content it looks like among those
/// sharing the extension (or among all, for an unknown extension). Null for
/// ours: a ".json" file, or any whose text starts with "{". Throws IllegalArgumentException
/// "<path>: …" when none fits.
const TrTrackFormat* forImport(const std::string& path, const std::string& text);

/// One track to place per imported track: its name and its position at
/// `frame` when `atFrame`, else at its first point; sizes and colour mode
/// are left to the command's defaults. A track without that position is an
/// error "<source>: track \"<name>\" has no position at frame F" (or "has
/// no positions"), and so are an empty name, a name with a control character
/// and a name used twice.
std::vector<TrTrackSpec> startsOf(const std::vector<TrImportedTrack>& tracks,
                                  const std::string& source, bool atFrame, int frame);

} // namespace TrFormatTable
