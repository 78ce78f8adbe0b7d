#pragma once

#include "image/Color.h"
#include "image/GenRect.h"
#include "image/Image.h"

namespace Orvane {

/// Paints `c` over the whole image. The colour counts as premultiplied: each
/// byte becomes old × (255 − alpha) / 255, rounded, plus the colour's byte,
/// wrapping in 8 bits. Alpha 0 leaves the image alone and sends no
/// notification; alpha 255 replaces. UB1 only (IllegalArgumentException
/// "only UB1 supported yet").
void fill(const Image& img, const Color& c);
/// fill() restricted to `r` & the image bounds.
void fill(const Image& img, const GenRect<int>& r, const Color& c);
/// Writes `c` into every pixel, alpha included, whatever its alpha.
void clear(const Image& img, const Color& c);
/// Writes red, green, blue and alpha 0 into every pixel.
void clear(const Image& img);

/// The worker behind fill() and clear(): `replace` writes the colour's pixel,
/// otherwise it is blended as fill() describes. Reports `rect` & the bounds
/// through Image::changed.
void _fill(const Image& img, const GenRect<int>& rect, const Color& c, bool replace);

/// Writes one sample from `value` (bytes per sample of the image's format)
/// into the channel named by `channelLetter` of every pixel in `r` & the
/// bounds, then reports that region through Image::changed. The channel
/// position is taken as a byte offset within the pixel, so only UB1 images
/// get what the name promises; other datatypes get the bytes at that offset.
/// An absent channel writes nothing; an unknown letter throws as
/// Format::getChannel does. The unnamed argument is not used.
void _fillChannel(const Image& img, const GenRect<int>& r, void* value, int, int channelLetter);

} // namespace Orvane
