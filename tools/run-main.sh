#!/usr/bin/env bash
# Builds and runs the main job, the class-description example
# (examples/describe_classes.cpp), in a Release build under build/.
#
#   tools/run-main.sh [arguments for the program...]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build"

"$root/tools/setup.sh"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release
cmake --build "$build" --target sto_describe_classes -j "$(nproc)"
exec "$build/examples/sto_describe_classes" "$@"
