#!/usr/bin/env python3
"""Installation: installs a build into a temporary prefix, runs the
installed program, and lints the installed manual page, which must name
every option of the README's options table.

Usage: install_test.py BUILD_DIR
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def fail(message):
    print("FAIL: " + message)
    sys.exit(1)


def project_version():
    with open(os.path.join(ROOT, "CMakeLists.txt")) as f:
        match = re.search(r"project\(tracery VERSION ([0-9.]+)", f.read())
    if not match:
        fail("no version in CMakeLists.txt")
    return match.group(1)


def readme_options():
    """The option words of the README's options table (first column)."""
    with open(os.path.join(ROOT, "README.md")) as f:
        text = f.read()
    section = text.split("\n## Options\n", 1)[1].split("\n## ", 1)[0]
    rows = [line for line in section.splitlines() if line.startswith("| `")]
    words = [cell.split()[0] for row in rows for cell in re.findall(r"`([^`]*)`", row.split("|")[1])]
    if len(words) < 20:
        fail("the README's options table was not found")
    return words


def run(command, **kwargs):
    return subprocess.run(command, capture_output=True, timeout=120, **kwargs)


def check_installed_program(prefix):
    program = os.path.join(prefix, "bin", "tracery")
    result = run([program, "--version"])
    expected = ("tracery %s\n" % project_version()).encode()
    if (result.returncode, result.stdout) != (0, expected):
        fail("--version gave %d %r, expected %r" % (result.returncode, result.stdout, expected))
    env = {"PATH": os.environ.get("PATH", ""), "HOME": prefix}  # no DISPLAY: none is needed
    result = run([program, "-check"], input=b"WorldBegin\nsphere 1\nWorldEnd\n", env=env)
    if result.returncode != 1 or not result.stderr.endswith(b"tracery: 1 error, 0 warnings in 1 file\n"):
        fail("-check on standard input: %d %r" % (result.returncode, result.stderr))


def check_manual(page):
    with open(page) as f:
        source = f.read()
    text = source.replace("\\-", "-")
    missing = [w for w in readme_options()
               if not re.search(r"(?<![\w-])%s(?![\w-])" % re.escape(w), text)]
    if missing:
        fail("options of the README missing from the manual page: %s" % " ".join(missing))
    result = run(["groff", "-man", "-ww", "-z", page])
    if result.returncode != 0 or result.stderr:
        fail("groff -man -ww: %r" % result.stderr)
    if shutil.which("mandoc") is None:
        print("mandoc not installed (scripts/setup.sh installs it): lint with groff only")
        return
    result = run(["mandoc", "-Tlint", page])
    if result.returncode != 0 or result.stdout or result.stderr:
        fail("mandoc -Tlint: %r" % (result.stdout + result.stderr))


def main(argv):
    if len(argv) != 2:
        print(__doc__.strip())
        return 2
    with tempfile.TemporaryDirectory(prefix="tracery-install-") as prefix:
        result = run(["cmake", "--install", argv[1], "--prefix", prefix])
        if result.returncode != 0:
            fail("cmake --install: %r" % result.stderr)
        page = os.path.join(prefix, "share", "man", "man1", "tracery.1")
        for path in (os.path.join(prefix, "bin", "tracery"), page):
            if not os.path.isfile(path):
                fail("not installed: " + os.path.relpath(path, prefix))
        check_installed_program(prefix)
        check_manual(page)
    print("PASS install")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
