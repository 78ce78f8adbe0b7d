#pragma once

#include <string>
#include <vector>

/// One track to place before a pass: a name, the point and, optionally, its
/// own pattern and search sizes and colour mode (0 or empty: the command's
/// defaults). Positions are pixels with the origin at the top-left corner of
/// the frame and pixel centres at +0.5: the centre of the top-left pixel is
/// (0.5, 0.5).
struct TrTrackSpec {
    std::string name;
    double x = 0;
    double y = 0;
    int patternWidth = 0;
    int patternHeight = 0;
    int searchWidth = 0;
    int searchHeight = 0;
    std::string colorMode;
};

/// The colour modes a track may use, in the tracker's names.
bool isColorMode(const std::string& mode);
/// "red, green, blue, luminance, saturation, hue".
std::string colorModeList();

/// Reads a track file:
///
///     {"tracks": [{"name": "corner", "position": [812.5, 440.5],
///                  "pattern": [21, 21], "search": [61, 61],
///                  "colorMode": "luminance"}]}
///
/// "position" is required; the other keys are optional. Names default to the
/// track's number counted from `firstNumber` and must be unique. Unknown keys,
/// wrong types, non-positive or fractional sizes and unknown colour modes are
/// errors. Throws IllegalArgumentException "<path>: line L, column C: <what>"
/// (or "<path>: <reason>" when the file cannot be read).
std::vector<TrTrackSpec> readTrackFile(const std::string& path, int firstNumber = 1);

/// Track files of any format are read whole, up to this size: past it a
/// file is not one (a device such as /dev/zero would never end).
constexpr std::size_t trackTextLimit = std::size_t(256) << 20;

/// The whole file at `path`, or IllegalArgumentException "<path>: <reason>"
/// when it cannot be opened or read, or "<path>: larger than 256 MiB, too
/// large for a track file".
std::string readTrackText(const std::string& path);

/// As readTrackFile, from text already read; `source` prefixes the messages.
std::vector<TrTrackSpec> parseTrackFile(const std::string& text, const std::string& source,
                                        int firstNumber = 1);

/// `tracks` as a track file that readTrackFile reads back: every key
/// written, sizes and colour modes as given (filled in), positions in the
/// shortest form that reads back exactly.
std::string formatTrackFile(const std::vector<TrTrackSpec>& tracks);

/// Writes formatTrackFile(tracks) to `path`; throws IllegalArgumentException
/// "cannot write \"<path>\"" when it cannot.
void writeTrackFile(const std::string& path, const std::vector<TrTrackSpec>& tracks);
