#!/usr/bin/env bash
# Configures and builds everything, then runs all tests with ctest. The exit
# code is ctest's, and its summary is the last thing printed.
#
#   tools/run-tests.sh [build-dir] [extra cmake arguments...]
#
# build-dir defaults to build/ at the repository root; a relative build-dir
# is taken from the current directory. The build type defaults to
# RelWithDebInfo; extra arguments come later on the cmake line and win, e.g.
#   tools/run-tests.sh build-asan -DSTO_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

build="$root/build"
if [ "$#" -gt 0 ] && [[ "$1" != -* ]]; then
    build="$1"
    shift
fi

"$root/tools/setup.sh"

jobs="$(nproc)"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@"
cmake --build "$build" -j "$jobs"

# No test found means the test build is broken, not that all is well.
exec ctest --test-dir "$build" --output-on-failure --no-tests=error -j "$jobs"
