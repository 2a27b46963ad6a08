#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan, the whole library
# instrumented), writes the generated seeds, and runs each target for the
# given time with leak detection on. Exits non-zero on any crash, leak,
# timeout, out-of-memory or sanitizer report; the inputs that caused them
# are left in the work folder's artifacts/ (keep a minimised copy under
# tests/fuzz/regressions/ once fixed).
#
#   tools/run-fuzz.sh [seconds per target] [build-dir]
#
# seconds defaults to 60, build-dir to build-fuzz/ at the repository root;
# the work folder (corpora, artifacts, logs) is build-dir/fuzz-work unless
# STO_FUZZ_WORK names another. Corpora grow from run to run in the same
# work folder. STO_FUZZ_SEED fixes libFuzzer's random seed, so that a run
# from the same corpus explores the same inputs again (CI sets it; long
# searches for new faults leave it unset).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-60}"
build="${2:-$root/build-fuzz}"
work="${STO_FUZZ_WORK:-$build/fuzz-work}"

if ! [[ "$seconds" =~ ^[0-9]+$ ]]; then
    echo "usage: $0 [seconds per target] [build-dir]" >&2
    exit 2
fi

# libFuzzer and the sanitizer runtimes are in clang's runtime package.
"$root/tools/setup.sh" clang libclang-rt-dev

CC=clang CXX=clang++ cmake -S "$root" -B "$build" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DSTO_BUILD_FUZZERS=ON -DSTO_BUILD_TESTS=OFF -DSTO_BUILD_EXAMPLES=OFF
cmake --build "$build" -j "$(nproc)" --target sto_fuzz_reader sto_fuzz_literals sto_fuzz_seeds

fuzz="$build/tests/fuzz"
mkdir -p "$work/seeds" "$work/corpus-reader" "$work/corpus-literals" "$work/artifacts"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

"$fuzz/sto_fuzz_seeds" "$work/seeds"

seed=()
if [ -n "${STO_FUZZ_SEED:-}" ]; then
    seed=(-seed="$STO_FUZZ_SEED")
fi

status=0
summary=()
run_target() {
    local name="$1"
    shift
    local log="$work/$name.log"
    echo
    echo "== fuzzing $name for $seconds s"
    # The first corpus folder collects new inputs; the others are read only.
    if "$fuzz/sto_fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -detect_leaks=1 -print_final_stats=1 -artifact_prefix="$work/artifacts/$name-" "${seed[@]}" "$@" \
        >"$log" 2>&1; then
        rc=0
    else
        rc=$?
    fi
    tail -n 25 "$log"
    if [ "$rc" -ne 0 ] || grep -qE 'ERROR: (libFuzzer|AddressSanitizer|LeakSanitizer)|runtime error:' "$log"; then
        echo "run-fuzz: $name FAILED (exit $rc); see $log and $work/artifacts/" >&2
        status=1
        summary+=("$name failed")
    else
        runs="$(grep -oE '^Done [0-9]+ runs' "$log" | grep -oE '[0-9]+' | tail -n 1)"
        summary+=("$name ${runs:-?} runs clean")
    fi
}

run_target reader -dict="$root/tests/fuzz/reader.dict" \
    "$work/corpus-reader" "$work/seeds" "$root/tests/fuzz/seeds/reader" "$root/tests/fuzz/regressions"
run_target literals "$work/corpus-literals" "$root/tests/fuzz/seeds/literals"

echo
joined="$(printf '%s, ' "${summary[@]}")"
echo "fuzz: ${joined%, } (${seconds} s each)"
exit "$status"
