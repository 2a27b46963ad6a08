#!/usr/bin/env bash
# Builds and runs the main job, the demo
# (examples/sample/demo.cpp: write a sample document, read it back), in a
# Release build under build/.
#
#   tools/run-main.sh [arguments for the program...]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build"

"$root/tools/setup.sh"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release
cmake --build "$build" --target sto_demo -j "$(nproc)"
cd "$build/examples/sample" && exec ./sto_demo "$@"
