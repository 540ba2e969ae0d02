#!/usr/bin/env python3
"""Surveys what tracery draws and reports for every file of the RIB corpus.

Usage: corpus_survey.py [--before BINARY] [--pictures DIR] [--only TEXT]
                        BINARY [CORPUS_DIR]

Every corpus file is drawn as a user would, `BINARY -nowait -png FILE.png
-ps FILE.ps FILE`, from the file's own folder (archive names are relative to
it), without an X display and without a start-up file. For each file the
survey prints the exit status, the lines drawn (the "Li" segments of the
PostScript page, and how many of them touch the page) and the reports on
standard error counted per kind; at the end, the report counts per kind over
the whole corpus. Files that hold no WorldBegin are fragments (archives read
by other files) and are listed apart.

With --before, a second program (the one before a change) is run on every
file too, and each line shows both: "before -> after". --pictures keeps the
PNG pictures (named after the file's path) in DIR to be looked at; --only
keeps the files whose path contains TEXT.

A report's kind is its severity, its title and its message with the numbers
replaced by N (a quoted name is kept: 'Geometry "bunny" is not drawn');
every "read character" line is one kind.
"""
import collections
import gzip
import os
import re
import subprocess
import sys
import tempfile

TIMEOUT_SECONDS = 900
REPO_ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DEFAULT_CORPUS = os.path.normpath(os.path.join(REPO_ROOT, "..", "shared", "corpus", "files"))
REPORT_HEAD = re.compile(r"^(SEVERE ERROR|ERROR|WARNING|INFO): (?:.* \(\d+\): )?(.*)$")
SEGMENT = re.compile(rb"^(-?\d+) (-?\d+) (-?\d+) (-?\d+) Li$", re.M)
BOUNDING_BOX = re.compile(rb"%%BoundingBox: 1 1 (\d+) (\d+)")


def corpus_files(corpus, only):
    for folder, _, names in sorted(os.walk(corpus)):
        for name in sorted(names):
            path = os.path.join(folder, name)
            if only is None or only in os.path.relpath(path, corpus):
                yield path


def holds_scene(path):
    with open(path, "rb") as f:
        data = f.read()
    if data[:2] == b"\x1f\x8b":
        try:
            data = gzip.decompress(data)
        except (OSError, EOFError):
            pass
    return b"WorldBegin" in data


def environment():
    env = {k: v for k, v in os.environ.items() if k != "DISPLAY"}
    env["HOME"] = "/nonexistent"
    env["LC_ALL"] = "C"
    return env


def report_kinds(stderr):
    """Counts the reports on standard error by kind."""
    kinds = collections.Counter()
    lines = stderr.decode(errors="replace").splitlines()
    i = 0
    while i < len(lines):
        line = lines[i]
        head = REPORT_HEAD.match(line)
        if head:
            message = ""
            if i + 1 < len(lines) and lines[i + 1].startswith("    --> "):
                message = lines[i + 1][8:]
                i += 1
            text = "%s %s: %s" % (head.group(1), head.group(2), message)
            kinds[re.sub(r"\d+(\.\d+)?", "N", text)[:100]] += 1
        elif line.startswith("read character"):
            kinds["read character"] += 1
            # A newline read as a character ends the line inside its quotes.
            if line.endswith(' "') and i + 1 < len(lines) and lines[i + 1] == '"':
                i += 1
        elif line.startswith("Writing file ("):
            pass
        elif line.strip():
            kinds["other: " + re.sub(r"\d+", "N", line)[:80]] += 1
        i += 1
    return kinds


def segments_drawn(ps_path):
    """Segments on the page, and how many touch the page's bounding box."""
    try:
        with open(ps_path, "rb") as f:
            page = f.read()
    except FileNotFoundError:
        return 0, 0
    box = BOUNDING_BOX.search(page)
    width, height = (int(box.group(1)), int(box.group(2))) if box else (0, 0)
    total = visible = 0
    for m in SEGMENT.finditer(page):
        x0, y0, x1, y1 = (int(v) for v in m.groups())
        total += 1
        if (0 <= x0 <= width and 0 <= y0 <= height) or (0 <= x1 <= width and 0 <= y1 <= height):
            visible += 1
    return total, visible


def run(binary, path, scratch, picture_name):
    png = os.path.join(scratch, picture_name + ".png")
    ps = os.path.join(scratch, "page.ps")
    if os.path.exists(ps):
        os.remove(ps)
    try:
        result = subprocess.run([binary, "-nowait", "-png", png, "-ps", ps, os.path.basename(path)],
                                cwd=os.path.dirname(path), stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                env=environment(), timeout=TIMEOUT_SECONDS)
        status, stderr = result.returncode, result.stderr
    except subprocess.TimeoutExpired:
        status, stderr = "timeout", b""
    total, visible = segments_drawn(ps)
    return {"status": status, "segments": total, "visible": visible,
            "kinds": report_kinds(stderr)}


def describe(result):
    kinds = ", ".join("%d %s" % (n, k) for k, n in result["kinds"].most_common(4))
    more = len(result["kinds"]) - 4
    if more > 0:
        kinds += ", and %d more kinds" % more
    return "status %s, %d segments (%d on the page)%s" % (
        result["status"], result["segments"], result["visible"], "; " + kinds if kinds else "")


def main(argv):
    args = argv[1:]
    options = {}
    for flag in ("--before", "--pictures", "--only"):
        if flag in args:
            at = args.index(flag)
            options[flag] = args[at + 1]
            del args[at:at + 2]
    if len(args) not in (1, 2):
        print(__doc__.strip(), file=sys.stderr)
        return 2
    after = os.path.abspath(args[0])
    before = os.path.abspath(options["--before"]) if "--before" in options else None
    corpus = os.path.abspath(args[1]) if len(args) == 2 else DEFAULT_CORPUS
    if not os.path.isdir(corpus):
        print("corpus not found at %s" % corpus)
        return 1
    keep = options.get("--pictures")
    scratch = tempfile.TemporaryDirectory()
    pictures = os.path.abspath(keep) if keep else scratch.name
    os.makedirs(pictures, exist_ok=True)
    totals = {"before": collections.Counter(), "after": collections.Counter()}
    fragments = []
    for path in corpus_files(corpus, options.get("--only")):
        name = os.path.relpath(path, corpus)
        if not holds_scene(path):
            fragments.append(name)
            continue
        stem = name.replace("/", "_")
        results = {"after": run(after, path, pictures, stem)}
        if before:
            results["before"] = run(before, path, scratch.name, "before")
        for side, result in results.items():
            totals[side].update(result["kinds"])
        print(name, flush=True)
        if before:
            print("    before: " + describe(results["before"]))
        print("    after:  " + describe(results["after"]), flush=True)
    print("\n%d fragments without WorldBegin (not run): %s" % (len(fragments), ", ".join(
        os.path.basename(f) for f in fragments)))
    print("\nReports per kind over the corpus" + (" (before -> after):" if before else ":"))
    kinds = set(totals["after"]) | set(totals["before"])
    for kind in sorted(kinds, key=lambda k: -max(totals["after"][k], totals["before"][k])):
        if before:
            print("%9d -> %-9d %s" % (totals["before"][kind], totals["after"][kind], kind))
        else:
            print("%9d  %s" % (totals["after"][kind], kind))
    scratch.cleanup()
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
