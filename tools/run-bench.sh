#!/usr/bin/env bash
# Installs what the benchmarks need (Google Benchmark, Boost.Serialization,
# cereal), builds them in a Release build, and runs the comparison of store
# files with Boost.Serialization's text archive and cereal's JSON archive
# (bench/file_bench.cpp).
#
#   tools/run-bench.sh [build-dir] [arguments for sto_bench_file_bench...]
#
# build-dir defaults to /tmp/sto-bench; a relative build-dir is taken from
# the current directory. Without arguments the program measures 10k, 100k
# and 1M items, best of 3, which takes several minutes; for a quick look:
#   tools/run-bench.sh /tmp/sto-bench --items 1000 --repeat 1
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

build="/tmp/sto-bench"
if [ "$#" -gt 0 ] && [[ "$1" != -* ]]; then
    build="$1"
    shift
fi

"$root/tools/setup.sh" libboost-serialization-dev libcereal-dev

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DSTO_BUILD_BENCHMARKS=ON \
    -DSTO_BUILD_TESTS=OFF -DSTO_BUILD_EXAMPLES=OFF
cmake --build "$build" -j "$(nproc)"
exec "$build/bench/sto_bench_file_bench" "$@"
