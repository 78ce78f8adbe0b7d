#!/usr/bin/env bash
# Installs Tavrix: scripts/install.sh [PREFIX]   (default /usr/local)
# Installs the Debian packages that are missing, builds an optimised tree of
# its own, build/install, without tests or benchmarks, and installs it into
# PREFIX: the plug-in, the static library and its headers, tavrix-track and
# its man page, the CMake package and tavrix.pc, and the Python module when
# pybind11 is there to build it. Installs with sudo when not root and PREFIX
# is not writable.
set -euo pipefail
cd "$(dirname "$0")/.."

prefix=${1:-/usr/local}
case $prefix in
/*) ;;
*) prefix="$(pwd)/$prefix" ;;
esac

scripts/setup.sh

# The Debian interpreter is the one whose path the module is installed on,
# even where another python3 comes first on PATH.
python=()
if [ -x /usr/bin/python3 ]; then
    python=(-DPython_EXECUTABLE=/usr/bin/python3 -DPython3_EXECUTABLE=/usr/bin/python3)
fi
cmake -S . -B build/install --no-warn-unused-cli -DCMAKE_BUILD_TYPE=Release \
    -DTAVRIX_BENCHMARKS=OFF -DTAVRIX_TESTS=OFF -DCMAKE_INSTALL_PREFIX="$prefix" "${python[@]}" \
    > /dev/null
cmake --build build/install -j "$(nproc)"

# The nearest folder of the prefix that exists says whether we may write.
existing=$prefix
while [ ! -d "$existing" ]; do
    existing=$(dirname "$existing")
done
sudo=""
if [ "$(id -u)" -ne 0 ] && [ ! -w "$existing" ]; then
    sudo="sudo"
fi
$sudo cmake --install build/install

echo "installed into $prefix"
if grep -q '\.so$' build/install/install_manifest.txt &&
    grep -qi 'python\|site-packages\|dist-packages' build/install/install_manifest.txt; then
    if /usr/bin/python3 -c "import tavrix" 2> /dev/null; then
        echo "python3 -c \"import tavrix\" works"
    else
        echo "warning: the Python module was installed, but /usr/bin/python3 cannot import" \
            "tavrix from $prefix" >&2
    fi
fi
