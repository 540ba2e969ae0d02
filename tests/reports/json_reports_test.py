#!/usr/bin/env python3
"""Reports as JSON, read back with a JSON parser: runs tracery with
-report json and checks every line of standard error as an object, the
chain of archive reads, names that are not UTF-8, the report limit and the
summary of -check.

Usage: json_reports_test.py BINARY CHECK
CHECK is one of the functions named in CHECKS below.
"""
import json
import os
import subprocess
import sys
import tempfile


def fail(message):
    print("FAIL: " + message)
    sys.exit(1)


def run(binary, folder, args):
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": folder, "LC_ALL": "C",
           "DISPLAY": ":4077"}  # a display that does not exist: none may be opened
    for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
        if name in os.environ:
            env[name] = os.environ[name]
    result = subprocess.run([binary] + args, cwd=folder, stdin=subprocess.DEVNULL,
                            capture_output=True, env=env, timeout=60)
    objects = []
    for line in result.stderr.split(b"\n")[:-1]:
        try:
            objects.append(json.loads(line))
        except ValueError:
            fail("not a JSON object: %r" % line)
    if not result.stderr.endswith(b"\n"):
        fail("standard error does not end in a newline: %r" % result.stderr)
    return result.returncode, objects


def write(folder, name, text):
    with open(os.path.join(os.fsencode(folder), name), "wb") as f:
        f.write(text)


def as_bytes(text):
    """The bytes a JSON string stands for (escaped bytes come back)."""
    return text.encode("utf-8", "surrogateescape")


def expect_equal(what, actual, expected):
    if actual != expected:
        fail("%s: expected %r, got %r" % (what, expected, actual))


def chain_and_names(binary):
    """A report in the file named, and two in an archive two levels deep (a
    ReadArchive file that reads a delayed archive); the file named has a
    quote and a byte that is not UTF-8 in its name, the archive one such
    byte, and a message holds another."""
    outer = b'we"ird\xff.rib'
    with tempfile.TemporaryDirectory() as folder:
        write(folder, outer, b'bogus 1\nReadArchive "mid.rib"\n')
        write(folder, b"mid.rib",
              b'Sides 2\n\nProcedural "DelayedReadArchive" ["deep\xfe.rib"] [-1 1 -1 1 -1 1]\n')
        write(folder, b"deep\xfe.rib", b'Sides 1\nfrobnicate\nReadArchive "gone\xfd.rib"\n')
        status, objects = run(binary, folder, ["-report", "json", "-nowait",
                                               os.fsdecode(outer)])
    expect_equal("status", status, 0)
    chain = [{"file": outer, "line": 2}, {"file": b"mid.rib", "line": 3}]
    expected = [
        (outer, 1, "ERROR", 47, "Syntax error", b"Could not identify token bogus", []),
        (b"deep\xfe.rib", 2, "ERROR", 47, "Syntax error",
         b"Could not identify token frobnicate", chain),
        (b"deep\xfe.rib", 3, "WARNING", 3, "File not found", b"gone\xfd.rib", chain),
    ]
    expect_equal("number of reports", len(objects), len(expected))
    for report, (file, line, severity, code, name, message, origin) in zip(objects, expected):
        expect_equal("keys", sorted(report),
                     ["code", "file", "from", "line", "message", "name", "severity"])
        expect_equal("file", as_bytes(report["file"]), file)
        expect_equal("line", report["line"], line)
        expect_equal("severity", report["severity"], severity)
        expect_equal("code", report["code"], code)
        expect_equal("name", report["name"], name)
        expect_equal("message", as_bytes(report["message"]), message)
        expect_equal("from", [{"file": as_bytes(level["file"]), "line": level["line"]}
                              for level in report["from"]], origin)


def limit_and_check_summary(binary):
    """-check with -maxreports 1: one report shown, the rest (a report and a
    note about a stray character) counted in the not-shown object, then the
    summary object; a report outside any file has null position fields."""
    with tempfile.TemporaryDirectory() as folder:
        write(folder, b"broken.rib", b"one\ntwo\n]\n")
        write(folder, b"clean.rib", b"WorldBegin\nSphere 1 -1 1 360\nWorldEnd\n")
        status, objects = run(binary, folder, ["-check", "-report", "json", "-maxreports", "1",
                                               "broken.rib", "clean.rib", "missing.rib"])
    expect_equal("status", status, 2)
    expect_equal("number of lines", len(objects), 3)
    first, not_shown, summary = objects
    expect_equal("first report", (first["file"], first["line"], first["message"]),
                 ("broken.rib", 1, "Could not identify token one"))
    expect_equal("not shown", not_shown,
                 {"file": None, "line": None, "severity": "INFO", "code": 0, "name": None,
                  "message": "3 more reports not shown", "from": [], "not_shown": 3})
    expect_equal("summary", summary,
                 {"file": None, "line": None, "severity": "INFO", "code": 0, "name": None,
                  "message": "3 errors, 0 warnings in 3 files", "from": [], "errors": 3,
                  "warnings": 0, "files": 3})


CHECKS = {f.__name__: f for f in (chain_and_names, limit_and_check_summary)}


def main(argv):
    if len(argv) != 3 or argv[2] not in CHECKS:
        print(__doc__.strip())
        return 2
    CHECKS[argv[2]](os.path.abspath(argv[1]))
    print("PASS " + argv[2])
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
