#!/usr/bin/env bash
# Builds the libFuzzer targets (Clang, AddressSanitizer + UndefinedBehavior-
# Sanitizer) in build-fuzz/ and runs them.
#   scripts/fuzz.sh [SECONDS]   runs every target for SECONDS each (default 60),
#                               seeded from the test media, and prints the
#                               executions and coverage each reached
#   scripts/fuzz.sh replay      runs every file under fuzz/regressions/<target>/
#                               once through its target
#   scripts/fuzz.sh smoke       a short run of each target with a fixed seed
#                               and a fixed number of inputs (FUZZ_SMOKE_RUNS,
#                               default 20000), from the seeds alone; what CI
#                               runs
# FUZZ_TARGETS="fuzz_sps fuzz_pps" limits either mode to those targets.
# Findings land in build-fuzz/artifacts/<target>/; the grown corpus stays in
# build-fuzz/corpus/<target>/ for the next run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
. "$root/scripts/deps.sh"
ensure_packages $QRV_FUZZ_PACKAGES

mode=${1:-60}
build="$root/build-fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQRVUTIL_BUILD_FUZZERS=ON -DQRVUTIL_BUILD_TESTS=OFF -DQRVUTIL_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target fuzzers

targets=${FUZZ_TARGETS:-$(cd "$build/fuzz" && ls fuzz_* | grep -v '\.' | sort)}
# Leaks are reported by the unit tests' sanitizer build; a slow input is a
# finding only well beyond a normal run.
common=(-detect_leaks=0 -timeout=25 -rss_limit_mb=2048)

dictionary_for() {
    case "$1" in
        fuzz_sps* | fuzz_pps* | fuzz_slice_header | fuzz_nal_units | fuzz_avcc_* | fuzz_framing | fuzz_add_nal_units)
            echo "$root/fuzz/h264.dict" ;;
        *) [ -f "$root/fuzz/$1.dict" ] && echo "$root/fuzz/$1.dict" ;;
    esac
    return 0
}

if [ "$mode" = replay ]; then
    status=0
    for t in $targets; do
        dir="$root/fuzz/regressions/$t"
        [ -d "$dir" ] || continue
        files=$(find "$dir" -type f ! -name '*.md' | sort)
        [ -n "$files" ] || continue
        echo "== $t: replaying $(echo "$files" | wc -l) input(s)"
        # shellcheck disable=SC2086
        "$build/fuzz/$t" "${common[@]}" $files || { echo "FAILED: $t" >&2; status=1; }
    done
    exit $status
fi

case "$mode" in
    smoke) ;;
    '' | *[!0-9]*) echo "usage: $0 [SECONDS | replay | smoke]" >&2; exit 2 ;;
esac

python3 "$root/fuzz/make_corpus.py" "$build/seeds"
status=0
summary=()
for t in $targets; do
    corpus="$build/corpus/$t"
    artifacts="$build/artifacts/$t/"
    if [ "$mode" = smoke ]; then
        # A corpus of its own, emptied each time, so the run starts from the
        # seeds alone.
        corpus="$build/smoke-corpus/$t"
        rm -rf "$corpus"
        limit=(-seed=1 -runs="${FUZZ_SMOKE_RUNS:-20000}")
    else
        limit=(-max_total_time="$mode")
    fi
    mkdir -p "$corpus" "$artifacts"
    args=("${common[@]}" "${limit[@]}" -print_final_stats=1 -artifact_prefix="$artifacts")
    dict=$(dictionary_for "$t")
    [ -n "$dict" ] && args+=(-dict="$dict")
    seeds=("$build/seeds/$t")
    [ -d "$root/fuzz/corpus/$t" ] && seeds+=("$root/fuzz/corpus/$t")
    log="$build/artifacts/$t.log"
    echo "== $t: $mode"
    if ! "$build/fuzz/$t" "${args[@]}" "$corpus" "${seeds[@]}" >"$log" 2>&1; then
        echo "FAILED: $t (see $log and $artifacts)" >&2
        tail -n 30 "$log" >&2
        status=1
    fi
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1 || true)
    cov=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$log" | tail -n 1 || true)
    summary+=("$(printf '%-20s execs %-10s %s' "$t" "${execs:-?}" "${cov:-?}")")
done
printf '%s\n' "${summary[@]}"
exit $status
