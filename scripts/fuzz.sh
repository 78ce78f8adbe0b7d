#!/usr/bin/env bash
# Fuzzes one target for longer than the test suite does:
#   scripts/fuzz.sh TARGET SECONDS [libFuzzer options...]
# TARGET is a name under tests/fuzz (TrTrackFile, TrCommandOptions,
# ColorDstring, TrDiskSequence, ImageFile). The fuzz tree build/fuzz is
# configured with clang and built first if needed. New inputs go to
# build/fuzz-corpus/TARGET, which later runs start from; the seeds in
# tests/fuzz/corpus/TARGET are only read. A crash, leak or timeout leaves its
# input in build/fuzz-findings/ and prints the command that reproduces it.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 2 ]; then
    echo "usage: scripts/fuzz.sh TARGET SECONDS [libFuzzer options...]" >&2
    exit 2
fi
target=$1
seconds=$2
shift 2
if [ ! -f "tests/fuzz/${target}Fuzz.cpp" ]; then
    echo "fuzz.sh: no target $target (tests/fuzz/${target}Fuzz.cpp)" >&2
    exit 2
fi

tree=build/fuzz
if [ ! -f "$tree/CMakeCache.txt" ]; then
    CC=clang CXX=clang++ cmake -S . -B "$tree" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVRIX_FUZZ=ON \
        -DTAVRIX_BENCHMARKS=OFF -DTAVRIX_WERROR=ON > /dev/null
fi
cmake --build "$tree" --target "fuzz_$target" -j "$(nproc)"

corpus=build/fuzz-corpus/$target
findings=build/fuzz-findings
mkdir -p "$corpus" "$findings"
program=$tree/tests/fuzz/fuzz_$target
# The target's own options, then the caller's, override the common ones.
options=()
if [ -f "tests/fuzz/$target.options" ]; then
    read -r -a options < "tests/fuzz/$target.options"
fi
set +e
"$program" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$findings/$target-" "${options[@]}" "$@" "$corpus" "tests/fuzz/corpus/$target"
status=$?
set -e
if [ "$status" -ne 0 ]; then
    echo "fuzz.sh: $target found a fault; reproduce with:" >&2
    for f in $(ls -t "$findings/$target-"* 2>/dev/null | head -n 1); do
        echo "    $program $f" >&2
    done
fi
echo "fuzz.sh: $(ls "$corpus" | wc -l) inputs in $corpus"
exit "$status"
