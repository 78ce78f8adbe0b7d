#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
set -euo pipefail

packages=(
    build-essential cmake pkg-config
    libgtest-dev libgmock-dev libbenchmark-dev
    liblapack-dev
    libopenimageio-dev openimageio-tools
    zlib1g-dev
    libgl-dev
    libopencv-dev # the comparison benchmark only
    opencv-doc # its sample photographs and footage, for the accuracy suite
    libegl-dev libgl1-mesa-dri
    clang-format clang-tidy
    pybind11-dev python3-pybind11 python3-dev python3-numpy python3-pytest # the Python module
    clang libclang-rt-14-dev # the fuzz targets: libFuzzer and the sanitizer runtimes
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
    echo "installing: ${missing[*]}"
    sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
fi
