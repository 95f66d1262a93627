#!/usr/bin/env python3
"""qrvtool over a 1 GB Annex B stream, as ratios against reference programs
run on the same file in the same run.

Usage: qrvtool_bench.py --tool PATH --clip CLIP --work DIR [--size-mb 1024] [--hd]

Makes the stream by repeating CLIP (it is removed afterwards; never
committed); with --hd also a second stream from a 1280x720 clip that ffmpeg
encodes at bench time, whose units are the size recorders write (the test
clips' units are a few hundred bytes, the worst case for per-unit work).
For each stream it times, best of three runs each, with the resident memory
of every qrvtool run:
  qrvtool h264 info            against  ffprobe -show_packets   (goal: <= 0.5)
  qrvtool h264 units --json    against  ffprobe -show_packets   (goal: <= 0.5)
  qrvtool h264 tolength        against  cp                      (goal: speed >= 0.5)
  qrvtool h264 toannexb        against  cp                      (goal: speed >= 0.5)
Resident memory goal: under 64 MB. Wall time is what is compared; CPU time
(user + system) is printed beside it, since a shared machine adds waiting.
"""
import argparse
import os
import subprocess
import sys
import time

MEMORY_GOAL_KB = 64 * 1024


def timed(args, stdout=subprocess.DEVNULL):
    """Wall seconds, CPU seconds and peak resident KB of one run."""
    start = time.monotonic()
    proc = subprocess.Popen(args, stdout=stdout, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(proc.pid, 0)
    wall = time.monotonic() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    err = proc.stderr.read().decode(errors="replace")
    proc.stderr.close()
    if proc.returncode != 0:
        sys.exit("%s failed: %s" % (" ".join(args), err.strip()))
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss


def best(args, runs=3):
    results = [timed(args) for _ in range(runs)]
    return min(r[0] for r in results), min(r[1] for r in results), max(r[2] for r in results)


def make_stream(clip, path, size_mb):
    with open(clip, "rb") as f:
        data = f.read()
    block = data * max(1, (8 << 20) // len(data))
    with open(path, "wb") as out:
        written = 0
        while written < size_mb << 20:
            out.write(block)
            written += len(block)
    return os.path.getsize(path)


def make_hd_clip(work):
    path = os.path.join(work, "hd720.h264")
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc=size=1280x720:rate=25",
                    "-frames:v", "50", "-c:v", "libx264", "-preset", "veryfast", "-b:v", "8M",
                    "-f", "h264", path], check=True)
    return path


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tool", required=True)
    parser.add_argument("--clip", required=True)
    parser.add_argument("--work", required=True)
    parser.add_argument("--size-mb", type=int, default=1024)
    parser.add_argument("--hd", action="store_true")
    ctx = parser.parse_args()
    os.makedirs(ctx.work, exist_ok=True)
    ok = bench_stream(ctx, ctx.clip)
    if ctx.hd:
        clip = make_hd_clip(ctx.work)
        ok = bench_stream(ctx, clip) and ok
        os.remove(clip)
    print("all goals met" if ok else "some goals missed")
    return 0 if ok else 1


def bench_stream(ctx, clip):
    stream = os.path.join(ctx.work, "bench.h264")
    length = os.path.join(ctx.work, "bench.len")
    back = os.path.join(ctx.work, "bench.back.h264")
    copy = os.path.join(ctx.work, "bench.copy")
    size = make_stream(clip, stream, ctx.size_mb)
    print("stream: %.0f MB, made from %s" % (size / 2**20, os.path.basename(clip)))
    ok = True
    try:
        probe = best(["ffprobe", "-v", "error", "-show_packets", stream], runs=1)
        cp = best(["cp", stream, copy])
        rows = [
            ("h264 info", best([ctx.tool, "h264", "info", stream]), probe, "ffprobe -show_packets"),
            ("h264 units --json", best([ctx.tool, "h264", "units", "--json", stream]), probe,
             "ffprobe -show_packets"),
            ("h264 tolength", best([ctx.tool, "h264", "tolength", stream, length]), cp, "cp"),
            ("h264 toannexb", best([ctx.tool, "h264", "toannexb", length, back]), cp, "cp"),
        ]
        print("%-20s %9s %9s %9s  %-22s %9s %9s  %s" % ("qrvtool", "wall s", "cpu s", "rss MB",
                                                         "reference", "wall s", "cpu s", "ratio"))
        for name, mine, ref, ref_name in rows:
            if ref_name == "cp":
                ratio = ref[0] / mine[0]  # speed relative to cp
                goal = ratio >= 0.5
                text = "speed %.2f x cp (goal >= 0.5)" % ratio
            else:
                ratio = mine[0] / ref[0]
                goal = ratio <= 0.5
                text = "time %.2f x ffprobe (goal <= 0.5)" % ratio
            memory_ok = mine[2] < MEMORY_GOAL_KB
            ok = ok and goal and memory_ok
            print("%-20s %9.2f %9.2f %9.1f  %-22s %9.2f %9.2f  %s%s" % (
                name, mine[0], mine[1], mine[2] / 1024, ref_name, ref[0], ref[1], text,
                "" if memory_ok else "  MEMORY OVER 64 MB"))
    finally:
        for path in (stream, length, back, copy):
            if os.path.exists(path):
                os.remove(path)
    return ok


if __name__ == "__main__":
    sys.exit(main())
