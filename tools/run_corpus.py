#!/usr/bin/env python3
"""Runs tracery on every file of the shared RIB corpus and fails on a crash.

Usage: run_corpus.py [--display | --pictures] BINARY [CORPUS_DIR]

Each file is run as `BINARY -nowait FILE` from the file's own folder (archive
names in the corpus are relative to it), with standard input empty and a time
limit. The run fails, naming the file, when the program
is killed by a signal, runs out of time, or a sanitizer reports on standard
error. The exit status of the program is not judged: bad input is reported
and the program goes on. With --display the X display of the environment is
kept, so that every file is drawn into its window (run it under xvfb-run;
--draw is another name for it); without it the program stops at the first
world for want of a display.
Without a corpus (../shared/corpus/files from the
repository root) the run is skipped with one line and exit status 77 (what
ctest counts as skipped); under CI (CI=true), which has the corpus, its
absence is a failure instead.

With --pictures every file is drawn into a PNG file (-png) instead, which
needs no display, so every world block of every file is read and drawn
(compressed files included) rather than stopping where a window would open.
"""
import os
import subprocess
import sys
import tempfile

# A hang is what this catches, not slowness: one corpus file
# (many_teapots.rib) reads a delayed archive ten thousand times and, drawn
# into a picture, takes about two minutes of processor time under the
# sanitizers, more on a busy machine.
TIMEOUT_SECONDS = 600
SANITIZER_MARKS = (b"AddressSanitizer", b"runtime error:", b"LeakSanitizer")
REPO_ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DEFAULT_CORPUS = os.path.normpath(os.path.join(REPO_ROOT, "..", "shared", "corpus", "files"))


def corpus_files(corpus):
    for folder, _, names in sorted(os.walk(corpus)):
        for name in sorted(names):
            yield os.path.join(folder, name)


def environment(keep_display):
    env = {k: v for k, v in os.environ.items() if keep_display or k != "DISPLAY"}
    env["HOME"] = "/nonexistent"  # no start-up file
    env["LC_ALL"] = "C"
    return env


def run_one(binary, path, env, extra_args):
    """Returns None when the run is acceptable, else the reason."""
    try:
        result = subprocess.run([binary, "-nowait"] + extra_args + [os.path.basename(path)],
                                cwd=os.path.dirname(path), stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                env=env, timeout=TIMEOUT_SECONDS)
    except subprocess.TimeoutExpired:
        return "no result within %d s" % TIMEOUT_SECONDS
    for mark in SANITIZER_MARKS:
        if mark in result.stderr:
            lines = [l for l in result.stderr.splitlines() if mark in l]
            return "sanitizer report: " + lines[0].decode(errors="replace")
    if result.returncode < 0:
        return "killed by signal %d" % -result.returncode
    return None


def main(argv):
    flags = ("--display", "--draw", "--pictures")
    keep_display = "--display" in argv or "--draw" in argv
    pictures = "--pictures" in argv
    argv = [a for a in argv if a not in flags]
    if len(argv) not in (2, 3):
        print(__doc__.strip(), file=sys.stderr)
        return 2
    binary = os.path.abspath(argv[1])
    corpus = os.path.abspath(argv[2]) if len(argv) == 3 else DEFAULT_CORPUS
    if not os.path.isdir(corpus):
        if os.environ.get("CI") == "true":
            print("FAIL: corpus not found at %s" % corpus)
            return 1
        print("SKIP: corpus not found at %s" % corpus)
        return 77
    env = environment(keep_display)
    failures = []
    count = 0
    scratch = tempfile.TemporaryDirectory()
    extra_args = ["-png", os.path.join(scratch.name, "corpus.png")] if pictures else []
    for path in corpus_files(corpus):
        count += 1
        reason = run_one(binary, path, env, extra_args)
        if reason:
            failures.append((os.path.relpath(path, corpus), reason))
            print("FAIL %s: %s" % (os.path.relpath(path, corpus), reason), flush=True)
    scratch.cleanup()
    print("%d corpus files, %d failed" % (count, len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
