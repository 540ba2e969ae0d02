#!/usr/bin/env python3
"""Benchmark of the interactive window's redraw, and the peak memory of -i.

Usage: tools/run_redraw_bench.py [--scale F] [--repeats N] [--cpu C]
                                 [--memory-scale F]

Builds tracery and tracery_redraw_bench in build-bench (Release) and
generates mesh.rib and patches.rib at --scale (default 0.15: about 1.2 and
1.4 million segments a frame) in build-bench/redraw-F. Then, on a private
Xvfb pinned with the bench to processor C (default 0), each file is read and
its frame drawn again 40 times through a camera turning as a drag turns it,
each redraw waited for until the server has drawn it. Printed per file, as
the median over N runs (default 3):

  segments   the frame's segments, and the store's bytes a segment
  redraw     wall milliseconds a redraw (and redraws a second), with the X
             server's drawing; and the processor time the program and the
             server spend on it (on a machine that others share, the wall
             time is longer than the sum; on a quiet one it is about it)
  no cull    the same with the window's culling off (every segment sent)
  made       the program's own time to make the lines, none sent

Then the peak memory of `tracery -i FILE` (quit with q once its window
shows) beside `tracery -nowait FILE`, on mesh.rib, many.rib and patches.rib
at --memory-scale (default 1: the standard sizes).
"""
import os
import re
import shutil
import statistics
import subprocess
import sys
import time

import run_preview_bench  # the pinned virtual X server

ROOT = os.path.dirname(os.path.abspath(os.path.dirname(__file__)))
BUILD = os.path.join(ROOT, "build-bench")
GENERATOR = os.path.join(ROOT, "..", "shared", "bench", "genrib.py")


def arguments():
    options = {"--scale": "0.15", "--repeats": "3", "--cpu": "0", "--memory-scale": "1"}
    args = sys.argv[1:]
    while args:
        if args[0] in options and len(args) > 1:
            options[args[0]], args = args[1], args[2:]
        else:
            sys.exit(__doc__)
    return options


def build():
    subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, "-DCMAKE_BUILD_TYPE=Release",
                    "-DTRACERY_TESTS=OFF"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", BUILD, "--target", "tracery", "tracery_redraw_bench",
                    "-j2"], check=True, stdout=subprocess.DEVNULL)


def generate(scale, names):
    folder = os.path.join(BUILD, "redraw-" + scale)
    missing = [n for n in names if not os.path.exists(os.path.join(folder, n + ".rib"))]
    if missing:
        subprocess.run([sys.executable, GENERATOR, "--out", folder, "--scale", scale, "--only"] +
                       missing, check=True, stdout=subprocess.DEVNULL)
    return folder


def start_server(cpu):
    """A virtual X server pinned to the processor, and the environment that
    reaches it."""
    server, display = run_preview_bench.start_server(cpu)
    return server, dict(os.environ, DISPLAY=display, HOME="/nonexistent")


FIGURE = re.compile(r"^(redraw|redraw without cull|lines made, not sent)\s+wall median\s+([\d.]+)"
                    r" ms.*?processor\s+([\d.]+) ms here \+\s+([\d.]+) ms server")


def redraw_figures(path, server, env, cpu, repeats):
    runs = []
    for _ in range(repeats):
        out = subprocess.run(["taskset", "-c", cpu, os.path.join(BUILD, "tracery_redraw_bench"),
                              "-n", "40", "-server", str(server.pid), path], env=env,
                             capture_output=True, text=True, check=True).stdout
        if not runs:
            for line in out.splitlines():
                if line.startswith(("segments", "store")):
                    print("  " + line)
        runs.append({m.group(1): tuple(float(v) for v in m.group(2, 3, 4))
                     for m in map(FIGURE.match, out.splitlines()) if m})
    for label, name in (("redraw", "redraw"), ("no cull", "redraw without cull"),
                        ("made", "lines made, not sent")):
        wall = statistics.median(r[name][0] for r in runs)
        own = statistics.median(r[name][1] for r in runs)
        served = statistics.median(r[name][2] for r in runs)
        print("  %-8s wall %6.1f ms (%5.1f a second); processor %5.1f here + %5.1f server = "
              "%5.1f ms" % (label, wall, 1000.0 / wall, own, served, own + served))


def peak_memory(command, env, interactive):
    """Peak resident memory (MB) of command; an interactive one is ended
    with q once its window shows its frame."""
    p = subprocess.Popen(command, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    if interactive:
        deadline = time.monotonic() + 600
        while time.monotonic() < deadline:
            r = subprocess.run(["xdotool", "search", "--name", "^Pencil Test: "], env=env,
                               capture_output=True, text=True)
            if r.stdout.split():
                subprocess.run(["xdotool", "windowfocus", "--sync", r.stdout.split()[0], "key",
                                "q"], env=env, capture_output=True)
                break
            time.sleep(0.1)
    _, _, usage = os.wait4(p.pid, 0)
    return usage.ru_maxrss / 1024.0


def main():
    options = arguments()
    build()
    cpu = options["--cpu"]
    server, env = start_server(cpu)
    try:
        folder = generate(options["--scale"], ["mesh", "patches"])
        for name in ("mesh", "patches"):
            print("%s.rib at scale %s, pinned to processor %s:" % (name, options["--scale"], cpu))
            redraw_figures(os.path.join(folder, name + ".rib"), server, env, cpu,
                           max(1, int(options["--repeats"])))
        if shutil.which("xdotool") is None:
            print("xdotool is missing: no memory figures")
            return 0
        folder = generate(options["--memory-scale"], ["mesh", "many", "patches"])
        tracery = os.path.join(BUILD, "tracery")
        print("peak memory at scale %s (MB):" % options["--memory-scale"])
        for name in ("mesh", "many", "patches"):
            path = os.path.join(folder, name + ".rib")
            plain = peak_memory([tracery, "-nowait", path], env, False)
            kept = peak_memory([tracery, "-i", path], env, True)
            print("  %-12s -i %7.1f   without -i %7.1f" % (name + ".rib", kept, plain))
    finally:
        server.terminate()
        server.wait()
    return 0


if __name__ == "__main__":
    sys.exit(main())
