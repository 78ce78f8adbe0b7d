#pragma once

#include <string>

/// Strict readers of the numbers a user types on the command line. Each takes
/// the whole text (no leading or trailing blanks, nothing left over) and
/// throws IllegalArgumentException "<what>: <reason> \"<text>\"" otherwise,
/// so that the message names the option and the offending text.
namespace TrNumbers {

/// A finite decimal number.
double parseDouble(const std::string& text, const std::string& what);
/// A whole number in the range of int.
int parseInt(const std::string& text, const std::string& what);

/// Two finite numbers "X,Y".
struct Point {
    double x = 0;
    double y = 0;
};
Point parsePoint(const std::string& text, const std::string& what);

/// Two positive whole numbers "WxH".
struct Size {
    int width = 0;
    int height = 0;
};
Size parseSize(const std::string& text, const std::string& what);

/// `v` as %g writes it ("250", "60.5", "0.1"), with as many more digits as
/// it takes to read back the same double, so that messages show a number as
/// the user wrote it.
std::string text(double v);

} // namespace TrNumbers
