#!/usr/bin/env bash
# Installs what is missing, builds tavrix-track and tracks the built-in
# synthetic clip, whose motion is known: prints the tracked path against the
# true one and writes overlay images to out/demo. Extra arguments go to
# tavrix-track (e.g. --behavior stop, --color-mode red). It builds in a tree
# of its own, build/demo, so that it leaves build/release as scripts/test.sh
# and the README's benchmark commands expect it.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake -S . -B build/demo -DCMAKE_BUILD_TYPE=Release -DTAVRIX_BENCHMARKS=OFF > /dev/null
cmake --build build/demo --target tavrix-track -j "$(nproc)"
build/demo/tools/tavrix-track --demo --overlay out/demo "$@"
