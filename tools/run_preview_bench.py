#!/usr/bin/env python3
"""Benchmark of the whole preview: reading and drawing the standard benchmark
files, beside the reader-only figure.

Usage: tools/run_preview_bench.py [--scale F] [--repeats N]

Builds tracery in build-bench (Release) and the floor of RIB reading beside
it (../shared/bench/floor.cpp: it only splits tokens and converts numbers),
generates mesh.rib, many.rib and patches.rib there if they are missing
(--scale is handed to the generator; 0.01 gives ~1 MB files for a quick
run), and for each file prints, as the median of N runs:

  floor   MB/s of the floor reading the file
  reader  MB/s of `tracery_reader -nowait FILE`: the program with every
          primitive dropped after it is read and checked (the reader-only
          figure), and its ratio to the floor
  preview MB/s of `tracery -nowait FILE` reading and drawing into its window,
          its ratio to the floor, and its ratio to the reader (the goal is at
          least 0.75: drawing costs at most a third of the reading time)
  dumptri MB/s read by `tracery -nowait -dumptri FILE >/dev/null` and MB/s of
          diced RIB written (the goal is at least 100)

Times are the processes' own processor time (user + system), as the reader
benchmark (tools/run_bench.sh) takes them, so that other work on the machine
does not count; the X server's share of the drawing is not included. The program, the
reader and the floor run in turn, so a change of the machine's speed hits
them alike.

Without a DISPLAY the script runs itself again under xvfb-run, so the
window is a real one on a virtual X server. The machines are noisy:
compare ratios taken in one run, not absolute figures across runs.
"""
import os
import resource
import statistics
import subprocess
import sys

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


def environment():
    env = dict(os.environ)
    env["HOME"] = "/nonexistent"  # no start-up file
    return env


def children_seconds():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def timed_run(command, cwd, stdout):
    """Processor seconds (user + system) of one run."""
    start = children_seconds()
    subprocess.run(command, cwd=cwd, stdin=subprocess.DEVNULL, stdout=stdout,
                   stderr=subprocess.DEVNULL, env=environment(), check=False)
    return children_seconds() - start


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
    reader = os.path.join(build_dir, "tracery_reader")
    floor = os.path.join(build_dir, "floor")
    print("%-12s %7s %7s %5s %7s %5s %5s %7s %7s" % ("file", "floor", "reader", "÷fl",
                                                     "preview", "÷fl", "÷rd", "dumptri",
                                                     "written"))
    for name in FILES:
        megabytes = os.path.getsize(os.path.join(data, name)) / 1e6
        runs = {"floor": [], "reader": [], "preview": [], "dump": []}
        with open(os.devnull, "wb") as null:
            for _ in range(repeats):
                runs["floor"].append(timed_run([floor, name], data, null))
                runs["reader"].append(timed_run([reader, "-nowait", name], data, null))
                runs["preview"].append(timed_run([tracery, "-nowait", name], data, null))
                runs["dump"].append(timed_run([tracery, "-nowait", "-dumptri", name], data, null))
        rate = {k: megabytes / statistics.median(v) for k, v in runs.items()}
        written = dump_bytes(tracery, data, name) / 1e6
        print("%-12s %7.1f %7.1f %5.2f %7.1f %5.2f %5.2f %7.1f %7.1f   MB/s (%.1f MB read, "
              "%.1f MB dumped)" %
              (name, rate["floor"], rate["reader"], rate["reader"] / rate["floor"],
               rate["preview"], rate["preview"] / rate["floor"], rate["preview"] / rate["reader"],
               rate["dump"], written * rate["dump"] / megabytes, megabytes, written))
        sys.stdout.flush()


if __name__ == "__main__":
    main()
