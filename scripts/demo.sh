#!/usr/bin/env bash
# Installs what is missing, builds tavrix-track and tracks the built-in
# synthetic clip, whose motion is known: prints the tracked path against the
# true one and writes overlay images to out/demo. Extra arguments go to
# tavrix-track (e.g. --behavior stop, --color-mode red).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release -DTAVRIX_BENCHMARKS=OFF > /dev/null
cmake --build build/release --target tavrix-track -j "$(nproc)"
build/release/tools/tavrix-track --demo --overlay out/demo "$@"
