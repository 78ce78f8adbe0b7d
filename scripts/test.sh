#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test twice: in the
# optimised build and under AddressSanitizer + UndefinedBehaviorSanitizer.
# Both trees treat warnings as errors, and clang-tidy checks every source.
# Where clang is installed, a third tree runs each fuzz target for a short
# while from its seeds.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh

# Formatting is part of the build's contract.
files=$(git ls-files '*.h' '*.cpp' 2>/dev/null || find . -name '*.h' -o -name '*.cpp')
if [ -n "$files" ]; then
    clang-format --dry-run --Werror $files
fi

# Benchmarks are named explicitly: a tree configured without them keeps that
# setting in its cache.
scripts/build.sh build/release -DCMAKE_BUILD_TYPE=Release -DTAVRIX_BENCHMARKS=ON \
    -DTAVRIX_WERROR=ON
(cd build/release && ctest --output-on-failure -j "$(nproc)")

scripts/tidy.sh

scripts/build.sh build/sanitize -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=address,undefined \
    -DTAVRIX_BENCHMARKS=OFF -DTAVRIX_WERROR=ON
(cd build/sanitize && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest --output-on-failure -j "$(nproc)")

# libFuzzer comes with clang only; the other trees replay the fuzz corpora.
if command -v clang++ > /dev/null; then
    CC=clang CXX=clang++ scripts/build.sh build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTAVRIX_FUZZ=ON -DTAVRIX_BENCHMARKS=OFF -DTAVRIX_PYTHON=OFF -DTAVRIX_WERROR=ON
    (cd build/fuzz && ctest --output-on-failure -j "$(nproc)")
fi
