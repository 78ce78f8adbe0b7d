#pragma once

#include <string>
#include <utility>
#include <vector>

/// A parsed JSON value with the line and column (1-based) at which it starts,
/// so that a reader of a schema can say where a value was wrong.
struct TrJsonValue {
    enum Kind { Null, Bool, Number, String, Array, Object };

    Kind kind = Null;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<TrJsonValue> items;
    /// Members in file order; keys are unique (the reader refuses repeats).
    std::vector<std::pair<std::string, TrJsonValue>> members;
    int line = 1;
    int column = 1;

    /// "null", "true or false", "a number", "a string", "an array", "an object".
    static const char* kindName(Kind kind);
};

/// A strict reader of RFC 8259 JSON: no comments, no trailing commas, no
/// NaN or infinities, no repeated keys, nothing after the value. Strings may
/// hold any \u escape (surrogate pairs combined) and come back as UTF-8.
///
/// Errors throw IllegalArgumentException "line L, column C: <what>", the
/// position being that of the offending character.
TrJsonValue parseJson(const std::string& text);

/// `text` as a JSON string literal, quotes included.
std::string jsonQuote(const std::string& text);

/// `v` as a JSON number: shortest round-trip form, "null" when not finite.
std::string jsonNumber(double v);
