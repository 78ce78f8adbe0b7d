#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test twice: in the
# optimised build and under AddressSanitizer + UndefinedBehaviorSanitizer.
# Both trees treat warnings as errors, and clang-tidy checks every source.
# Where clang is installed, a third tree runs each fuzz target for a short
# while from its seeds. Each stage prints its time, so a slow stage shows.
set -euo pipefail
cd "$(dirname "$0")/.."

started=$SECONDS
stage_start=$SECONDS
stage() {
    echo "test.sh: $1 took $((SECONDS - stage_start)) s" >&2
    stage_start=$SECONDS
}

scripts/setup.sh
stage setup

# Formatting is part of the build's contract.
files=$(git ls-files '*.h' '*.cpp' 2>/dev/null || find . -name '*.h' -o -name '*.cpp')
if [ -n "$files" ]; then
    clang-format --dry-run --Werror $files
fi
stage "format check"

# Benchmarks are named explicitly: a tree configured without them keeps that
# setting in its cache.
scripts/build.sh build/release -DCMAKE_BUILD_TYPE=Release -DTAVRIX_BENCHMARKS=ON \
    -DTAVRIX_WERROR=ON
stage "release build"
(cd build/release && ctest --output-on-failure -j "$(nproc)")
stage "release tests"

scripts/tidy.sh
stage tidy

# The sanitizer tree leaves out the cases labelled long (the accuracy
# thresholds, the long stress runs), which the release tree has just run;
# a short case of each kind stays, so their code still runs under the
# sanitizers.
scripts/build.sh build/sanitize -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=address,undefined \
    -DTAVRIX_BENCHMARKS=OFF -DTAVRIX_WERROR=ON
stage "sanitizer build"
(cd build/sanitize && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --output-on-failure -j "$(nproc)" -LE long)
stage "sanitizer tests"

# libFuzzer comes with clang only; the other trees replay the fuzz corpora.
# The fuzz tree builds the fuzz targets alone.
if command -v clang++ > /dev/null; then
    CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTAVRIX_FUZZ=ON -DTAVRIX_FUZZ_SECONDS=10 -DTAVRIX_BENCHMARKS=OFF -DTAVRIX_PYTHON=OFF \
        -DTAVRIX_WERROR=ON > /dev/null
    cmake --build build/fuzz --target fuzzers -j "$(nproc)"
    stage "fuzz build"
    (cd build/fuzz && ctest --output-on-failure -j "$(nproc)")
    stage fuzzing
fi
echo "test.sh: all stages passed in $((SECONDS - started)) s" >&2
