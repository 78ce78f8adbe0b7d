#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy over our C++ sources, using
# the compiler commands of the release tree (configured first if it has none).
#   scripts/tidy.sh            every source the release tree compiles
#   scripts/tidy.sh FILE...    those sources; a header is checked through the
#                              source of the same name
# Findings count as errors: the exit status is 1 if there is any.
set -euo pipefail
cd "$(dirname "$0")/.."

tree=build/release
if [ ! -f "$tree/compile_commands.json" ]; then
    cmake -S . -B "$tree" -DCMAKE_BUILD_TYPE=Release > /dev/null
fi

root=$(pwd)
sources=()
if [ $# -eq 0 ]; then
    # Every source the tree compiles, once each (a source built into several
    # programs is checked once), without what CMake generates in it.
    while IFS= read -r file; do
        case $file in "$root/build/"*) continue ;; esac
        sources+=("$file")
    done < <(sed -n 's/^ *"file": "\(.*\)"[,]*$/\1/p' "$tree/compile_commands.json" | sort -u)
else
    for file in "$@"; do
        case $file in *.h) file=${file%.h}.cpp ;; esac
        if [ ! -f "$file" ]; then
            echo "tidy.sh: no source $file" >&2
            exit 2
        fi
        sources+=("$(realpath "$file")")
    done
fi

# clang-tidy runs per source, as many at once as there are processors; the
# compiler's own "N warnings generated." lines say nothing the findings do not.
set +e
printf '%s\n' "${sources[@]}" |
    xargs -P "$(nproc)" -n 1 clang-tidy -p "$tree" --quiet --warnings-as-errors='*' 2>&1 |
    grep -v -E '^[0-9]+ (warning|error)s? (and [0-9]+ (warning|error)s? )?generated\.$'
status=${PIPESTATUS[1]}
set -e
if [ "$status" -ne 0 ]; then
    echo "tidy.sh: findings above" >&2
    exit 1
fi
echo "tidy.sh: ${#sources[@]} sources clean"
