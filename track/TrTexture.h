#pragma once

#include "image/Image.h"

/// How much texture a pattern holds for the matcher to lock onto: the
/// smaller eigenvalue of its gradient structure tensor. A flat patch has
/// none in any direction, an edge or a ramp none along itself; only a patch
/// that changes both ways pins a position down.
///
/// Gradients are central differences over the pattern's inner pixels, in
/// samples scaled to 0..1 (integer types by their maximum, float as it is),
/// and the tensor is their mean rather than their sum: the measure is in
/// (full scale per pixel)² whatever the sample type or the pattern size.
class TrTexture {
public:
    /// Below this the pattern has too little texture to be tracked. It is
    /// an RMS gradient of 0.01 of full scale per pixel across the weakest
    /// direction, 2.5 grey levels of 8 bits. Grain of up to two grey levels
    /// on flat sky measures under half of it; faint band-limited texture of
    /// a few grey levels per component, twice it or more.
    static constexpr double kMinimum = 1e-4;

    /// The smaller eigenvalue of the mean structure tensor of the first
    /// channel of `pattern`, any datatype; 0 for a pattern under 3x3, and
    /// NaN when a sample is not finite. Throws NullPointerException
    /// "Image::getFormat" for an empty handle.
    static double measure(const Orvane::Image& pattern);
    /// Whether `measure(pattern)` reaches kMinimum (a NaN does not).
    static bool isEnough(const Orvane::Image& pattern) { return measure(pattern) >= kMinimum; }
};
