#!/usr/bin/env python3
"""Binary RIB read as its ASCII text: a scene is encoded with every binary
form (tools/rib_to_binary.py) and must dump (-dumprib) and draw (the lines of
-ps) exactly as the ASCII scene, also gzip-compressed, on standard input and
through ReadArchive; the binary files of the shared corpus must draw the
lines of their ASCII twins.

Usage: binary_rib_test.py BINARY CHECK
CHECK is one of the functions named in CHECKS below.
"""
import gzip
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "tools"))
import rib_to_binary  # noqa: E402

CORPUS = os.path.normpath(os.path.join(ROOT, "..", "shared", "corpus", "files"))

# Whole numbers of one to four bytes and with one to three fraction bytes,
# negative and inexact numbers (singles, doubles), short and long strings,
# strings met more than once (defined and referred to), float arrays and
# requests spread over lines.
SCENE = b"""Format 64 48 1
Projection "perspective" "fov" [40]
Translate 0 0 6.5
Declare "a_long_declared_name_past_fifteen" "uniform float"
WorldBegin
  Rotate 30 1 0 0
  Rotate 0.1 0 0 1
  Attribute "identifier" "name" "first"
  Surface "plastic" "a_long_declared_name_past_fifteen" 4000000000 "Kd" 0.5
    "Ks" 0.0001220703125 "Ka" 5.9604644775390625e-08
    "roughness" 200.000000059604644775390625 "Kr" 70000
  Sphere 1.2 -1.2 1.2 360
  Cylinder 0.25 -1 1.00390625 300.5
  Cone 1.5 0.75 65535.5
  Torus 1 0.25 0 360 16777216.75
  Attribute "identifier" "name" "second"
  Polygon "P" [-2.5 -1.8 0  2.5 -1.8 0  2.5 1.8 0  -2.5 1.8 0.3333333]
  PointsPolygons [3 3] [0 1 2 2 1 3]
    "P" [0 0 0  1 0 0  0 1 0  1 1 0.1]
  Patch "bilinear" "P" [0 0 0  1 0 0  0 1 0  1 1 1e-3]
  Translate 0 0 0
WorldEnd
"""


def encodings():
    """The scene in binary: each part of it with other forms; the second
    part with doubles (definitions start anew in it, as in a new stream)."""
    split = SCENE.index(b"  Attribute \"identifier\" \"name\" \"second\"")
    first, second = SCENE[:split], SCENE[split:]
    return {
        "plain": rib_to_binary.encode(SCENE),
        "every_form": rib_to_binary.encode(first, define_strings=True, mix=5)
        + rib_to_binary.encode(second, define_strings=True, doubles=True, mix=3),
    }


def fail(message):
    print("FAIL: " + message)
    sys.exit(1)


def run(binary, args, cwd, stdin=b""):
    binary = os.path.abspath(binary)
    result = subprocess.run([binary, "-nowait"] + args, cwd=cwd, input=stdin,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
    return result.returncode, result.stdout, result.stderr


def lines_of(ps_path):
    with open(ps_path, "rb") as f:
        return [line for line in f.read().splitlines() if line.endswith(b" Li")]


def output_of(binary, name, cwd, stdin=b""):
    """(status, -dumprib output, errors, -ps lines) of reading name."""
    ps = os.path.join(cwd, "out.ps")
    status, dump, errors = run(binary, ["-dumprib", name], cwd, stdin)
    ps_status, _, _ = run(binary, ["-ps", ps, name], cwd, stdin)
    return status, dump, errors, lines_of(ps) if ps_status == 0 else None


def expect_same(binary, work, name, reference, stdin=b""):
    got = output_of(binary, name, work, stdin)
    if got[0] != 0 or got[2]:
        fail("%s: status %d, errors %r" % (name, got[0], got[2][:300]))
    if got[1] != reference[1]:
        fail("%s: the dump differs from the ASCII scene's" % name)
    if got[3] != reference[3]:
        fail("%s: the PostScript lines differ from the ASCII scene's" % name)


def scene_forms(binary):
    with tempfile.TemporaryDirectory() as work:
        with open(os.path.join(work, "scene.rib"), "wb") as f:
            f.write(SCENE)
        reference = output_of(binary, "scene.rib", work)
        if reference[0] != 0 or not reference[1] or len(reference[3]) < 100:
            fail("the ASCII scene does not draw: %r" % (reference[2][:300],))
        for label, data in encodings().items():
            name = label + ".rib"
            with open(os.path.join(work, name), "wb") as f:
                f.write(data)
            with gzip.open(os.path.join(work, label + ".rib.gz"), "wb") as f:
                f.write(data)
            expect_same(binary, work, name, reference)
            expect_same(binary, work, label + ".rib.gz", reference)
            # Standard input: no file named.
            got = subprocess.run([os.path.abspath(binary), "-nowait", "-dumprib"], cwd=work, input=data,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
            if got.returncode != 0 or got.stdout != reference[1] or got.stderr:
                fail("%s on standard input differs: %r" % (label, got.stderr[:300]))
        # A binary archive read from a binary file: the archive's definitions
        # are its own, and the outer file's are back after it (its tail uses
        # the code of Translate defined in its head, a code the archive
        # defines as another request).
        head_end = SCENE.index(b"WorldBegin\n") + len(b"WorldBegin\n")
        tail_start = SCENE.index(b"  Translate 0 0 0\n")
        outer = rib_to_binary.Encoder(define_strings=True, doubles=False, mix=0)
        with open(os.path.join(work, "outer.rib"), "wb") as f:
            f.write(rib_to_binary.encode_into(outer, SCENE[:head_end]))
            f.write(b'ReadArchive "body.rib"')
            f.write(rib_to_binary.encode_into(outer, SCENE[tail_start:]))
        with open(os.path.join(work, "body.rib"), "wb") as f:
            f.write(rib_to_binary.encode(SCENE[head_end:tail_start], define_strings=True, mix=4))
        expect_same(binary, work, "outer.rib", reference)


def corpus_twins(binary):
    """The corpus's binary files draw the lines of their ASCII twins."""
    processing = os.path.join(CORPUS, "aqsis", "testing", "regression", "RIBs", "RIBProcessing")
    ribfiles = os.path.join(CORPUS, "aqsis", "ribfiles")
    twins = [(processing, "binary.rib", "ascii_gzip.rib"),
             (processing, "binary_gzip.rib", "ascii_gzip.rib"),
             (ribfiles, "torus_bin.rib", "torus_gzip.rib.gz"),
             (ribfiles, "torus_bin_gzip.rib.gz", "torus_gzip.rib.gz")]
    with tempfile.TemporaryDirectory() as work:
        for folder, binary_name, ascii_name in twins:
            outputs = []
            for name in (binary_name, ascii_name):
                ps = os.path.join(work, name + ".ps")
                status, _, errors = run(binary, ["-ps", ps, name], folder)
                if status != 0 or errors.replace(b"Writing file (%s)\n" % ps.encode(), b""):
                    fail("%s: status %d, errors %r" % (name, status, errors[:300]))
                outputs.append(lines_of(ps))
            if len(outputs[0]) < 50 or outputs[0] != outputs[1]:
                fail("%s draws %d lines, not the %d of %s" % (binary_name, len(outputs[0]),
                                                              len(outputs[1]), ascii_name))
        folder = os.path.join(CORPUS, "ricpp", "ricpp2", "RibSamples")
        ps = os.path.join(work, "testbin.ps")
        status, _, errors = run(binary, ["-ps", ps, "testbin.rib"], folder)
        if status != 0 or b"ERROR" in errors or len(lines_of(ps)) < 50:
            fail("testbin.rib: status %d, %d lines, errors %r" % (status, len(lines_of(ps)),
                                                                  errors[:300]))


CHECKS = {"scene_forms": scene_forms, "corpus_twins": corpus_twins}

if __name__ == "__main__":
    if len(sys.argv) != 3 or sys.argv[2] not in CHECKS:
        print(__doc__)
        sys.exit(2)
    CHECKS[sys.argv[2]](sys.argv[1])
    print("ok")
