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
    /// At or above this the pattern has texture enough, whatever its
    /// noise. It is an RMS gradient of 0.01 of full scale per pixel across
    /// the weakest direction, 2.5 grey levels of 8 bits. Grain of up to two
    /// grey levels on flat sky measures under half of it.
    static constexpr double kMinimum = 1e-4;
    /// Below kMinimum a pattern still has texture enough when its measure
    /// reaches this floor and kNoiseRatio times its noise(). White noise
    /// alone measures half its variance (at most 0.8 of it on 21x21
    /// patches), so grain on flat sky fails at any level under kMinimum,
    /// while smooth texture, which the noise estimate barely sees, passes:
    /// blurred noise of 6 to 9 grey levels measures 6e-5 to 2e-4 at a ratio
    /// of 66 or more. The floor, an RMS gradient of 0.8 grey levels, keeps
    /// a noiseless flat or nearly flat pattern out.
    static constexpr double kFloor = 1e-5;
    static constexpr double kNoiseRatio = 8;

    /// The smaller eigenvalue of the mean structure tensor of the first
    /// channel of `pattern`, any datatype; 0 for a pattern under 3x3, and
    /// NaN when a sample is not finite. Throws NullPointerException
    /// "Image::getFormat" for an empty handle.
    static double measure(const Orvane::Image& pattern);
    /// The variance of white noise in the first channel of `pattern`, in
    /// the same units, estimated from the mean absolute response of a mask
    /// that cancels every linear ramp and most smooth texture (Immerkaer's
    /// [1 -2 1; -2 4 -2; 1 -2 1]); 0 for a pattern under 3x3, NaN when a
    /// sample is not finite. Sharp edges and fine detail raise it too.
    static double noise(const Orvane::Image& pattern);
    /// Whether `measure` reaches kMinimum, or reaches kFloor and
    /// kNoiseRatio times `noise` (a NaN reaches neither).
    static bool isEnough(const Orvane::Image& pattern);
};
