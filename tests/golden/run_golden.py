#!/usr/bin/env python3
"""Runs one golden command-line case against the real tracery binary.

A case is a directory holding:
  cmd              one line: the words after `tracery`, split like a shell
                   would (may be empty); @CORPUS@ stands for the absolute path
                   of the shared RIB corpus (../shared/corpus/files)
  stdin            optional: fed to standard input (otherwise it is empty)
  home/            optional: becomes $HOME (otherwise an empty directory)
  env              optional: KEY=VALUE lines added to the environment
  cwd              optional: directory to run in (@CORPUS@ allowed); by
                   default the case's own copy
  expected_stdout, expected_stderr, expected_status
                   the exact expectations (missing: empty output, status 0)
  expected_files/  files the run must write, compared byte for byte
In the outputs, the paths of the temporary working and home directories are
replaced by @WORK@ and @HOME@ before they are compared.
  any other file   input; the whole case is copied to a fresh temporary
                   directory, which is the working directory of the run

Usage: run_golden.py BINARY CASEDIR [--update]
With --update the expectation files are rewritten from the actual run.
A case that names @CORPUS@ is skipped (exit status 77, one line saying why)
when the corpus is not there, as in a clone without ../shared beside it;
under CI (CI=true), which has the corpus, its absence is a failure instead.
"""
import difflib
import os
import shlex
import shutil
import subprocess
import sys
import tempfile

TIMEOUT_SECONDS = 60
EXPECTATIONS = ("expected_stdout", "expected_stderr", "expected_status")
REPO_ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
CORPUS = os.path.normpath(os.path.join(REPO_ROOT, "..", "shared", "corpus", "files"))


def read_bytes(path, default=b""):
    try:
        with open(path, "rb") as f:
            return f.read()
    except FileNotFoundError:
        return default


def expand(text):
    return text.replace("@CORPUS@", CORPUS)


def hide_paths(text, work, home):
    return text.replace(work.encode(), b"@WORK@").replace(home.encode(), b"@HOME@")


def build_environment(case_dir, home):
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": home, "LC_ALL": "C"}
    for name in ("DISPLAY", "XAUTHORITY", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
        if name in os.environ:
            env[name] = os.environ[name]
    for line in read_bytes(os.path.join(case_dir, "env")).decode().splitlines():
        if "=" in line:
            key, value = line.split("=", 1)
            env[key.strip()] = expand(value.strip())
    return env


def prepare_work_dir(case_dir, scratch):
    work = os.path.join(scratch, "work")
    ignore = shutil.ignore_patterns("expected_*", "home")
    shutil.copytree(case_dir, work, ignore=ignore, symlinks=True)
    home = os.path.join(scratch, "home")
    if os.path.isdir(os.path.join(case_dir, "home")):
        shutil.copytree(os.path.join(case_dir, "home"), home, symlinks=True)
    else:
        os.mkdir(home)
    return work, home


def run_case(binary, case_dir, scratch):
    work, home = prepare_work_dir(case_dir, scratch)
    words = shlex.split(expand(read_bytes(os.path.join(case_dir, "cmd")).decode()))
    cwd_text = read_bytes(os.path.join(case_dir, "cwd")).decode().strip()
    cwd = expand(cwd_text) if cwd_text else work
    stdin = read_bytes(os.path.join(case_dir, "stdin"))
    result = subprocess.run([binary] + words, input=stdin, capture_output=True, cwd=cwd,
                            env=build_environment(case_dir, home), timeout=TIMEOUT_SECONDS)
    status = result.returncode if result.returncode >= 0 else 128 - result.returncode
    stdout, stderr = (hide_paths(text, work, home) for text in (result.stdout, result.stderr))
    return work, {"expected_stdout": stdout, "expected_stderr": stderr,
                  "expected_status": ("%d\n" % status).encode()}


def show_difference(name, expected, actual):
    print("--- %s differs" % name)
    diff = difflib.unified_diff(expected.decode(errors="replace").splitlines(True),
                                actual.decode(errors="replace").splitlines(True),
                                "expected", "actual")
    sys.stdout.writelines(line if line.endswith("\n") else line + "\n" for line in diff)


def expected_status(case_dir):
    return read_bytes(os.path.join(case_dir, "expected_status"), b"0\n").strip() + b"\n"


def compare_outputs(case_dir, actual):
    ok = True
    for name in EXPECTATIONS:
        if name == "expected_status":
            expected = expected_status(case_dir)
        else:
            expected = read_bytes(os.path.join(case_dir, name))
        if expected != actual[name]:
            show_difference(name[len("expected_"):], expected, actual[name])
            ok = False
    return ok


def compare_written_files(case_dir, work):
    ok = True
    expected_root = os.path.join(case_dir, "expected_files")
    for root, _, files in os.walk(expected_root):
        for name in files:
            relative = os.path.relpath(os.path.join(root, name), expected_root)
            expected = read_bytes(os.path.join(expected_root, relative))
            written = os.path.join(work, relative)
            if not os.path.exists(written):
                print("--- file %s was not written" % relative)
                ok = False
            elif read_bytes(written) != expected:
                show_difference("file " + relative, expected, read_bytes(written))
                ok = False
    return ok


def update_case(case_dir, work, actual):
    for name in EXPECTATIONS:
        path = os.path.join(case_dir, name)
        if name == "expected_status" and actual[name] == b"0\n":
            if os.path.exists(path):
                os.remove(path)
        elif name != "expected_status" and actual[name] == b"":
            if os.path.exists(path):
                os.remove(path)
        else:
            with open(path, "wb") as f:
                f.write(actual[name])
    expected_root = os.path.join(case_dir, "expected_files")
    for root, _, files in os.walk(expected_root):
        for name in files:
            relative = os.path.relpath(os.path.join(root, name), expected_root)
            shutil.copyfile(os.path.join(work, relative), os.path.join(expected_root, relative))


# The exit status that tells ctest a test was skipped (SKIP_RETURN_CODE).
SKIPPED = 77


def needs_missing_corpus(case_dir):
    uses = any(b"@CORPUS@" in read_bytes(os.path.join(case_dir, name))
               for name in ("cmd", "cwd", "env"))
    return uses and not os.path.isdir(CORPUS)


def main(argv):
    if len(argv) < 3:
        print(__doc__)
        return 2
    binary, case_dir = os.path.abspath(argv[1]), os.path.abspath(argv[2])
    name = os.path.basename(case_dir.rstrip("/"))
    if needs_missing_corpus(case_dir):
        under_ci = os.environ.get("CI") == "true"
        print("%s %s: the shared RIB corpus is not at %s" %
              ("FAIL" if under_ci else "SKIP", name, CORPUS))
        return 1 if under_ci else SKIPPED
    with tempfile.TemporaryDirectory(prefix="golden-") as scratch:
        try:
            work, actual = run_case(binary, case_dir, scratch)
        except subprocess.TimeoutExpired:
            print("FAIL %s: no exit within %d seconds" % (name, TIMEOUT_SECONDS))
            return 1
        if "--update" in argv[3:]:
            update_case(case_dir, work, actual)
            print("updated %s" % name)
            return 0
        outputs_ok = compare_outputs(case_dir, actual)
        files_ok = compare_written_files(case_dir, work)
        ok = outputs_ok and files_ok
    print("%s %s" % ("PASS" if ok else "FAIL", name))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv))
