#!/usr/bin/env python3
"""Benchmark of the whole preview: reading and drawing the standard benchmark
files, beside the reader-only figure.

Usage: tools/run_preview_bench.py [--scale F] [--repeats N]

Builds tracery and the reader benchmark in build-bench (Release), generates
mesh.rib, many.rib and patches.rib there if they are missing (--scale is
handed to the generator; 0.01 gives ~1 MB files for a quick run), and for
each file prints, as the median of N runs:

  read    MB/s of the reader alone (tracery_bench, primitives not drawn)
  preview MB/s of `tracery -nowait FILE` drawing into its window, and its
          ratio to the reader figure (the goal is at least 0.75)
  dumptri MB/s read by `tracery -dumptri FILE >/dev/null` and MB/s of
          diced RIB written (the goal is at least 100)

Without a DISPLAY the script runs itself again under xvfb-run, so the
window is a real one on a virtual X server. The machines are noisy:
compare ratios taken in one run, not absolute figures across runs.
"""
import os
import statistics
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FILES = ("mesh.rib", "many.rib", "patches.rib")


def arguments():
    scale, repeats = "1", 3
    args = sys.argv[1:]
    while args:
        if args[0] == "--scale" and len(args) > 1:
            scale, args = args[1], args[2:]
        elif args[0] == "--repeats" and len(args) > 1:
            repeats, args = max(1, int(args[1])), args[2:]
        else:
            sys.exit(__doc__)
    return scale, repeats


def build(build_dir):
    subprocess.run(["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
                    "-DTRACERY_TESTS=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build_dir, "--target", "tracery", "tracery_bench",
                    "-j2"], check=True, stdout=subprocess.DEVNULL)


def generate(data, scale):
    if all(os.path.exists(os.path.join(data, f)) for f in FILES):
        return
    subprocess.run([sys.executable, os.path.join(ROOT, "..", "shared", "bench", "genrib.py"),
                    "--out", data, "--scale", scale], check=True)


def environment():
    env = dict(os.environ)
    env["HOME"] = "/nonexistent"  # no start-up file
    return env


def timed_run(command, cwd, stdout):
    start = time.perf_counter()
    subprocess.run(command, cwd=cwd, stdin=subprocess.DEVNULL, stdout=stdout,
                   stderr=subprocess.DEVNULL, env=environment(), check=False)
    return time.perf_counter() - start


def reader_rate(bench, data, name, repeats):
    out = subprocess.run([bench, "-n", str(repeats), name], cwd=data, check=True,
                         capture_output=True, text=True, env=environment()).stdout
    return float(out.split()[1])


def dump_bytes(tracery, data, name):
    with subprocess.Popen([tracery, "-nowait", "-dumptri", name], cwd=data, stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL,
                          env=environment()) as proc:
        total = 0
        while True:
            chunk = proc.stdout.read(1 << 20)
            if not chunk:
                break
            total += len(chunk)
    return total


def main():
    if not os.environ.get("DISPLAY"):
        os.execvp("xvfb-run", ["xvfb-run", "-a", "-s", "-screen 0 1280x1024x24 -noreset", sys.executable] + sys.argv)
    scale, repeats = arguments()
    build_dir = os.path.join(ROOT, "build-bench")
    data = os.path.join(build_dir, "benchdata" if scale == "1" else "benchdata-" + scale)
    build(build_dir)
    generate(data, scale)
    tracery = os.path.join(build_dir, "tracery")
    bench = os.path.join(build_dir, "tracery_bench")
    print("%-12s %9s %9s %7s %9s %11s" % ("file", "read", "preview", "ratio", "dumptri",
                                          "written"))
    for name in FILES:
        megabytes = os.path.getsize(os.path.join(data, name)) / 1e6
        read = reader_rate(bench, data, name, repeats)
        preview = statistics.median(
            timed_run([tracery, "-nowait", name], data, subprocess.DEVNULL)
            for _ in range(repeats))
        with open(os.devnull, "wb") as null:
            dump = statistics.median(timed_run([tracery, "-nowait", "-dumptri", name], data, null)
                                     for _ in range(repeats))
        written = dump_bytes(tracery, data, name) / 1e6
        print("%-12s %9.1f %9.1f %7.2f %9.1f %11.1f   MB/s (%.1f MB read, %.1f MB dumped)" %
              (name, read, megabytes / preview, megabytes / preview / read, megabytes / dump,
               written / dump, megabytes, written))
        sys.stdout.flush()


if __name__ == "__main__":
    main()
