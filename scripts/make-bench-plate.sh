#!/usr/bin/env bash
# Writes a 1920x1080 8-bit PNG sequence of 100 frames for timing tavrix-track:
# blurred noise panning by a few pixels a frame, cut from one larger image.
#   scripts/make-bench-plate.sh DIR [frames]
# It draws with oiiotool (Debian openimageio-tools; scripts/setup.sh installs it).
# Then, for example:
#   build/release/tools/tavrix-track DIR/plate.####.png --tracks DIR/tracks.json --out DIR/r.csv
set -euo pipefail
dir=${1:?usage: scripts/make-bench-plate.sh DIR [frames]}
frames=${2:-100}
mkdir -p "$dir"

width=1920 height=1080 stepx=3 stepy=2
oiiotool --pattern noise:type=uniform:min=0.1:max=0.9:seed=7 \
    "$((width + stepx * frames))x$((height + stepy * frames))" 3 \
    --blur 7x7 -d half -o "$dir/source.exr"
for ((n = 1; n <= frames; n++)); do
    x=$((stepx * (n - 1))) y=$((stepy * (n - 1)))
    oiiotool "$dir/source.exr" --cut "${width}x${height}+${x}+${y}" --origin +0+0 \
        -d uint8 -o "$(printf '%s/plate.%04d.png' "$dir" "$n")"
done
rm "$dir/source.exr"

# Sixteen tracks on a 4x4 grid; the content moves toward the top left, so
# the grid starts right of and below the middle.
{
    echo '{"tracks": ['
    sep=""
    for ((j = 0; j < 4; j++)); do
        for ((i = 0; i < 4; i++)); do
            printf '%s  {"position": [%d.5, %d.5]}' "$sep" $((600 + 300 * i)) $((300 + 180 * j))
            sep=$',\n'
        done
    done
    printf '\n]}\n'
} > "$dir/tracks.json"
echo "wrote $frames frames and tracks.json to $dir"
