#include "track/TrModes.h"

#include <cstring>

namespace TrModes {

const TrModeName<TrBehavior> behaviors[behaviorCount] = {
    {TrBehavior::Default, "default", "retry with a search area 10 % and 20 % larger, then predict"},
    {TrBehavior::Stop, "stop", "stop the track"},
    {TrBehavior::Predict, "predict", "predict the position for up to five frames, unkeyed"},
    {TrBehavior::PredictAndKey, "predictAndKey",
     "predict the position for up to five frames and key it"},
    {TrBehavior::DontPredict, "dontPredict", "keep the match unkeyed and forget the velocity"},
    {TrBehavior::UseExistingCurve, "useExistingCurve", "take the position from the existing curve"},
};

const TrModeName<TrColorMode> colorModes[colorModeCount] = {
    {TrColorMode::Red, "red", "the red channel"},
    {TrColorMode::Green, "green", "the green channel"},
    {TrColorMode::Blue, "blue", "the blue channel"},
    {TrColorMode::Luminance, "luminance", "the luminance"},
    {TrColorMode::Saturation, "saturation", "the saturation"},
    {TrColorMode::Hue, "hue", "the colour's first principal component over the pattern"},
};

namespace {

template <class Mode, int N>
const TrModeName<Mode>* find(const TrModeName<Mode> (&table)[N], const char* name) {
    if (name == nullptr)
        return nullptr;
    for (const TrModeName<Mode>& row : table)
        if (std::strcmp(row.name, name) == 0)
            return &row;
    return nullptr;
}

template <class Mode, int N> std::string list(const TrModeName<Mode> (&table)[N]) {
    std::string s;
    for (const TrModeName<Mode>& row : table)
        s += (s.empty() ? "" : ", ") + std::string(row.name);
    return s;
}

} // namespace

const TrModeName<TrBehavior>* findBehavior(const char* name) {
    return find(behaviors, name);
}

const TrModeName<TrColorMode>* findColorMode(const char* name) {
    return find(colorModes, name);
}

// The tables are in enum order, so a mode indexes its own row.
const char* name(TrBehavior behavior) {
    return behaviors[static_cast<int>(behavior)].name;
}

const char* name(TrColorMode mode) {
    return colorModes[static_cast<int>(mode)].name;
}

std::string behaviorList() {
    return list(behaviors);
}

std::string colorModeList() {
    return list(colorModes);
}

} // namespace TrModes
