#pragma once

#include <string>

/// The path of a numbered file series, split around the one field of its
/// file name that stands for the frame number. The field takes one of three
/// forms:
///
///   "####"  "#" for the digits, however many (TrDiskSequence takes the
///           width from the files);
///   "@@@@"  one digit per "@": the number is padded with zeros to that
///           many digits and never shortened, like "%04d";
///   "%04d"  printf's zero-padded width ("%d" is unpadded, "%%" a plain "%").
///
/// "#" comes first: in a name with a "#", "%" and "@" are plain characters,
/// and in a name with a "%", "@" is. Names that held those characters before
/// the other forms existed keep their meaning that way. The directory is
/// taken as it is written.
struct TrFramePattern {
    /// Everything up to and including the last "/"; empty without one.
    std::string directory;
    /// The file name before and after the field, "%%" read as "%".
    std::string prefix;
    std::string suffix;
    /// '#', '@' or '%'.
    char marker = '#';
    /// Digits a number is padded to: the run's length, or printf's width.
    int width = 0;

    /// The widest printf field accepted; a frame number has at most ten
    /// digits, and a wider field would only make long runs of zeros.
    static const int maxWidth = 64;

    /// Splits `pattern`. Throws IllegalArgumentException with one line that
    /// quotes the pattern when the file name has no field, has two, or holds
    /// a "%" that is not "%d", "%0Nd" (N up to maxWidth) or "%%".
    static TrFramePattern parse(const std::string& pattern);

    /// The path of `frame`: directory, prefix, the number and suffix. The
    /// number is written as printf's "%0*d" writes it: a minus sign counts
    /// towards the width.
    std::string expand(int frame) const;

    /// When `name` (a file name without directory) is a file of the series:
    /// its frame number and the count of its digits. A file of the series has
    /// the prefix, only decimal digits, and the suffix, and its number fits
    /// an int. "@" and printf fields also want the name to be exactly what
    /// expand writes for that number, so "%04d" and "@@@@" take "0012" and
    /// "12345" but not "12" or "00012"; a run of "#" takes any count of
    /// digits.
    bool match(const std::string& name, int& frame, int& digits) const;

    /// The file name written back as a pattern: prefix, the field in its own
    /// form and `width` long, and suffix ("%" doubled in the printf form).
    std::string name() const;
};

/// TrFramePattern::parse(pattern).expand(frame): the one call a fuzzer needs.
std::string expandFramePattern(const std::string& pattern, int frame);
