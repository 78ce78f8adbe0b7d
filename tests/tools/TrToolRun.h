#pragma once

// Runs the tavrix-track command in this process, its standard output and
// error caught in files, and checks what a failed run prints.

#include "tools/track/TrTrackCommand.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

namespace tooltest {

// The file's text, from its start.
inline std::string textOf(std::FILE* f) {
    std::fflush(f);
    std::rewind(f);
    std::string text;
    for (int c; (c = std::fgetc(f)) != EOF;)
        text += char(c);
    return text;
}

} // namespace tooltest

inline ToolRun runTool(const std::vector<std::string>& args) {
    std::cout.flush();
    std::fflush(stdout);
    std::fflush(stderr);
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    const int savedOut = dup(1), savedErr = dup(2);
    dup2(fileno(out), 1);
    dup2(fileno(err), 2);
    ToolRun r;
    r.status = runTrackCommand(args);
    std::cout.flush();
    std::fflush(stdout);
    std::fflush(stderr);
    dup2(savedOut, 1);
    dup2(savedErr, 2);
    close(savedOut);
    close(savedErr);
    r.out = tooltest::textOf(out);
    r.err = tooltest::textOf(err);
    std::fclose(out);
    std::fclose(err);
    return r;
}

/// A failed run printed exactly one line, "tavrix-track: <error>", which
/// after a failure part way (status 1) ends by saying how far the written
/// results go: nothing of a decoder's own, no second line.
template <class Result>
void expectOneError(const Result& r, int status, const std::string& error,
                    const std::string& kept = "") {
    EXPECT_EQ(status, r.status) << r.err;
    EXPECT_EQ("tavrix-track: " + error + (kept.empty() ? "" : "; " + kept) + "\n", r.err);
}
