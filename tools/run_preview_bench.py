#!/usr/bin/env python3
"""Benchmark of the whole preview as the user waits for it: reading and
drawing the standard benchmark files into the window and into picture
files, beside the reader-only figure and the floor of RIB reading.

Usage: tools/run_preview_bench.py [--scale F] [--repeats N] [--cpu C]
                                  [--tracery PATH] [--reader PATH]

Builds tracery and tracery_reader in build-bench (Release) and the floor of
RIB reading beside them (../shared/bench/floor.cpp: it only splits tokens
and converts numbers), generates mesh.rib, many.rib and patches.rib there if
they are missing (--scale is handed to the generator; 0.01 gives ~1 MB
files for a quick run), and times, for each file, in turn and N times:

  floor   the floor reading the file
  reader  `tracery_reader -nowait FILE`: the program with every primitive
          dropped after it is read and checked
  window  `tracery -nowait FILE`, drawing into its window
  png, svg, pdf
          `tracery -png|-svg|-pdf OUT FILE`, drawing into a picture file
  dumptri `tracery -nowait -dumptri FILE`, printing the diced triangles

Every figure is wall time with the X server's work included: the script
starts its own Xvfb and pins it and every run to one processor (--cpu,
default the last one), so that the server's drawing is counted where the
user waits for it, and the program exits only once the server has drawn
(closing the display waits for it). It prints, per file, the MB/s read (the
median of the N runs) and the peak memory of each run (the largest of the
N), then the table of speed ratios (higher is better): reader / floor,
window / reader, and png, svg and pdf / reader.

--tracery and --reader time other builds of the two programs (for example
the programs before a change) instead of the ones built here.

The machines are noisy: compare ratios taken in one run, quote medians.
"""
import os
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FILES = ("mesh.rib", "many.rib", "patches.rib")
KINDS = ("floor", "reader", "window", "png", "svg", "pdf", "dumptri")


def arguments():
    options = {"scale": "1", "repeats": 3, "cpu": str(os.cpu_count() - 1), "tracery": None,
               "reader": None}
    args = sys.argv[1:]
    while args:
        name = args[0][2:] if args[0].startswith("--") else None
        if name not in options or len(args) < 2:
            sys.exit(__doc__)
        options[name] = max(1, int(args[1])) if name == "repeats" else args[1]
        args = args[2:]
    return options


def build(build_dir):
    subprocess.run(["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
                    "-DTRACERY_TESTS=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", build_dir, "--target", "tracery", "tracery_reader", "-j2"],
                   check=True, stdout=subprocess.DEVNULL)
    floor = os.path.join(build_dir, "floor")
    source = os.path.join(ROOT, "..", "shared", "bench", "floor.cpp")
    if not os.path.exists(floor) or os.path.getmtime(source) > os.path.getmtime(floor):
        subprocess.run([os.environ.get("CXX", "c++"), "-O2", "-std=c++17", source, "-o", floor],
                       check=True)


def generate(data, scale):
    if all(os.path.exists(os.path.join(data, f)) for f in FILES):
        return
    subprocess.run([sys.executable, os.path.join(ROOT, "..", "shared", "bench", "genrib.py"),
                    "--out", data, "--scale", scale], check=True)


def start_server(cpu):
    """A virtual X server pinned to the processor; returns it and its display."""
    read_end, write_end = os.pipe()
    server = subprocess.Popen(["taskset", "-c", cpu, "Xvfb", "-displayfd", str(write_end),
                               "-screen", "0", "1280x1024x24", "-nolisten", "tcp", "-noreset"],
                              pass_fds=(write_end,), stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL)
    os.close(write_end)
    with os.fdopen(read_end) as pipe:
        number = pipe.readline().strip()
    if not number:
        sys.exit("Xvfb did not start")
    return server, ":" + number


def timed_run(command, cwd, env, cpu):
    """Wall seconds and peak memory (MB) of one run pinned to the processor."""
    with open(os.devnull, "wb") as null:
        start = time.monotonic()
        program = subprocess.Popen(["taskset", "-c", cpu] + command, cwd=cwd, env=env,
                                   stdin=subprocess.DEVNULL, stdout=null, stderr=null)
        _, _, usage = os.wait4(program.pid, 0)
        seconds = time.monotonic() - start
    return seconds, usage.ru_maxrss / 1024


def commands(paths, name, out):
    tracery, reader, floor = paths
    return {"floor": [floor, name],
            "reader": [reader, "-nowait", name],
            "window": [tracery, "-nowait", name],
            "png": [tracery, "-png", os.path.join(out, "bench.png"), name],
            "svg": [tracery, "-svg", os.path.join(out, "bench.svg"), name],
            "pdf": [tracery, "-pdf", os.path.join(out, "bench.pdf"), name],
            "dumptri": [tracery, "-nowait", "-dumptri", name]}


def measure(paths, data, name, repeats, env, cpu):
    """Median wall seconds and largest peak of each kind of run."""
    runs = {k: [] for k in KINDS}
    with tempfile.TemporaryDirectory() as out:
        command_of = commands(paths, name, out)
        for _ in range(repeats):
            for kind in KINDS:
                runs[kind].append(timed_run(command_of[kind], data, env, cpu))
    return ({k: statistics.median(r[0] for r in v) for k, v in runs.items()},
            {k: max(r[1] for r in v) for k, v in runs.items()})


def main():
    options = arguments()
    build_dir = os.path.join(ROOT, "build-bench")
    scale = options["scale"]
    data = os.path.join(build_dir, "benchdata" if scale == "1" else "benchdata-" + scale)
    build(build_dir)
    generate(data, scale)
    paths = (os.path.abspath(options["tracery"] or os.path.join(build_dir, "tracery")),
             os.path.abspath(options["reader"] or os.path.join(build_dir, "tracery_reader")),
             os.path.join(build_dir, "floor"))
    cpu = options["cpu"]
    server, display = start_server(cpu)
    env = dict(os.environ, HOME="/nonexistent", DISPLAY=display)  # no start-up file
    print("wall time, X server included, all pinned to processor %s; median of %d runs"
          % (cpu, options["repeats"]))
    print("%-12s %6s  %s" % ("file", "MB", "  ".join("%7s" % k for k in KINDS)))
    ratios = {}
    try:
        for name in FILES:
            megabytes = os.path.getsize(os.path.join(data, name)) / 1e6
            seconds, peaks = measure(paths, data, name, options["repeats"], env, cpu)
            print("%-12s %6.1f  %s  MB/s" % (name, megabytes, "  ".join(
                "%7.1f" % (megabytes / seconds[k]) for k in KINDS)))
            print("%-12s %6s  %s  MB peak" % ("", "", "  ".join("%7.0f" % peaks[k]
                                                                 for k in KINDS)))
            sys.stdout.flush()
            ratios[name] = {"reader / floor": seconds["floor"] / seconds["reader"],
                            "window / reader": seconds["reader"] / seconds["window"]}
            for kind in ("png", "svg", "pdf"):
                ratios[name]["-%s / reader" % kind] = seconds["reader"] / seconds[kind]
    finally:
        server.terminate()
        server.wait()
    print("\nspeed ratios (wall, X server included; higher is better)")
    print("%-18s %s" % ("", "  ".join("%12s" % n for n in FILES)))
    for row in ratios[FILES[0]]:
        print("%-18s %s" % (row, "  ".join("%12.3f" % ratios[n][row] for n in FILES)))


if __name__ == "__main__":
    main()
