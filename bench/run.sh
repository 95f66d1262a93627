#!/bin/sh
# Builds every benchmark in a Release build directory and runs each bench_*
# program found there, seven repetitions a run, printing for every benchmark
# its best CPU time and its ratio to the baseline of the same program (the
# benchmark whose name holds "Baseline"): baseline time / benchmark time, so
# 1.0 is as fast as the baseline and above 1 faster.
#
#   bench/run.sh [RUNS]          RUNS whole runs (default 1); with more than
#                                one, the range of each ratio is printed too
# Environment: BUILD_DIR (default build-bench), JOBS (default 2).
# The H.264 scan benchmark reads a 64 MB x264 stream with four slices a
# picture, made here once with Debian's ffmpeg (libx264) when it is missing.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build-bench}
runs=${1:-1}
reps=7

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DQRVUTIL_BUILD_BENCHMARKS=ON \
  -DQRVUTIL_BUILD_TESTS=OFF -DQRVUTIL_BUILD_EXAMPLES=OFF >/dev/null
targets=$(cd "$root/bench" && ls *.cpp | sed 's/^/bench_/; s/\.cpp$//')
# shellcheck disable=SC2086
cmake --build "$build" -j"${JOBS:-2}" --target $targets >/dev/null

stream="$build/slices4_64m.h264"
if [ ! -s "$stream" ] && command -v ffmpeg >/dev/null 2>&1; then
  echo "making $stream (x264, 1280x720, four slices a picture)" >&2
  nice -n 19 ffmpeg -loglevel error -y \
    -f lavfi -i "testsrc2=size=1280x720:rate=25,noise=alls=12:allf=t" -t 13 \
    -c:v libx264 -preset veryfast -x264-params slices=4 -crf 20 -f h264 "$stream"
fi
[ -s "$stream" ] && export QRV_BENCH_H264_STREAM="$stream"

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
for bin in "$build"/bench/bench_*; do
  [ -x "$bin" ] || continue
  name=$(basename "$bin")
  run=1
  while [ "$run" -le "$runs" ]; do
    if ! "$bin" --benchmark_repetitions=$reps --benchmark_out="$out/$name.$run.json" \
      --benchmark_out_format=json >/dev/null 2>"$out/$name.err"; then
      cat "$out/$name.err" >&2
      exit 1
    fi
    run=$((run + 1))
  done
done

python3 - "$out" "$runs" <<'PY'
import glob, json, os, sys
out, runs = sys.argv[1], int(sys.argv[2])
by_bin = {}
for path in sorted(glob.glob(os.path.join(out, "*.json"))):
    name, run, _ = os.path.basename(path).rsplit(".", 2)
    data = json.load(open(path))
    best = {}
    for b in data["benchmarks"]:
        if b.get("run_type") != "iteration":
            continue
        n = b.get("run_name", b["name"])
        t = b["cpu_time"]  # the machine is shared: CPU time, not wall time
        best[n] = min(best.get(n, t), t)
    by_bin.setdefault(name, []).append((best, data["benchmarks"][0]["time_unit"] if data["benchmarks"] else ""))
print("machine: %s, %s cores" % (os.uname().machine, os.cpu_count()))
for name, results in sorted(by_bin.items()):
    print(name)
    names = list(results[0][0])
    base = next((n for n in names if "Baseline" in n), None)
    for n in names:
        times = [r[0][n] for r in results]
        unit = results[0][1]
        line = "  %-36s best %10.3f %s" % (n, min(times), unit)
        if base and n != base:
            ratios = [r[0][base] / r[0][n] for r in results]
            line += "   ratio %.2f" % ratios[0] if runs == 1 else \
                "   ratio %.2f..%.2f" % (min(ratios), max(ratios))
        print(line)
PY
