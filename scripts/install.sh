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

# The module's build picks Debian's interpreter itself and installs where it
# looks under the prefix.
cmake -S . -B build/install -DCMAKE_BUILD_TYPE=Release -DTAVRIX_BENCHMARKS=OFF \
    -DTAVRIX_TESTS=OFF -DCMAKE_INSTALL_PREFIX="$prefix" > /dev/null
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
module=$(grep -E '/(dist|site)-packages/tavrix[^/]*\.so$' build/install/install_manifest.txt || true)
if [ -n "$module" ]; then
    if (cd / && python3 -c "import tavrix" 2> /dev/null); then
        echo "python3 -c \"import tavrix\" works"
    else
        echo "the Python module is $module; python3 finds it with" \
            "PYTHONPATH=$(dirname "$module")" >&2
    fi
fi
