#include "tools/accuracy/TrAccuracyMode.h"

#include "base/Exception.h"

const std::vector<TrAccuracyMode>& TrAccuracyMode::all() {
    static const std::vector<TrAccuracyMode> modes = [] {
        TrAccuracyMode design;
        design.name = "design";
        TrAccuracyMode robust = design;
        robust.name = "robust";
        robust.robust = true;
        robust.preciseSums = true;
        return std::vector<TrAccuracyMode>{design, robust};
    }();
    return modes;
}

const TrAccuracyMode& TrAccuracyMode::find(const std::string& name) {
    for (const TrAccuracyMode& m : all())
        if (m.name == name)
            return m;
    throw IllegalArgumentException(dstring(("unknown accuracy mode \"" + name + "\"").c_str()));
}
