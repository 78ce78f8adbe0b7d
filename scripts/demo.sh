#!/usr/bin/env bash
# Installs what is missing, builds, and tracks a synthetic clip with known
# motion, printing the tracked path against the true one.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
scripts/build.sh build/release -DCMAKE_BUILD_TYPE=Release -DTAVRIX_BENCHMARKS=OFF
build/release/tools/tavrix-demo "$@"
