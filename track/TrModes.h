#pragma once

#include <string>

/// What the driver does when a match scores below the track's tolerance.
/// The order is the host's: a behaviour's code is its position in the table.
enum class TrBehavior { Default, Stop, Predict, PredictAndKey, DontPredict, UseExistingCurve };

/// The one channel a track is matched on.
enum class TrColorMode { Red, Green, Blue, Luminance, Saturation, Hue };

/// One row of a mode table: the mode, the name the system uses for it, and a
/// line of help for the tool's usage text.
template <class Mode> struct TrModeName {
    Mode mode;
    const char* name;
    const char* help;
};

/// The names of the failure behaviours and colour modes, written once: the
/// driver, the plug-in, the tool's options, its usage text and the track-file
/// reader all read them here.
namespace TrModes {

constexpr int behaviorCount = 6;
constexpr int colorModeCount = 6;

/// In code order: behaviors[code].
extern const TrModeName<TrBehavior> behaviors[behaviorCount];
extern const TrModeName<TrColorMode> colorModes[colorModeCount];

/// The row named exactly `name`, or null for an unknown or null name.
const TrModeName<TrBehavior>* findBehavior(const char* name);
const TrModeName<TrColorMode>* findColorMode(const char* name);

const char* name(TrBehavior behavior);
const char* name(TrColorMode mode);

/// The names in table order, separated by ", ".
std::string behaviorList();
std::string colorModeList();

} // namespace TrModes
