#!/usr/bin/env python3
"""Checks that object instances draw exactly what their requests draw when
written out in place, inside an attribute block where each instance stands:
the same PostScript segments in the same order, and the same PNG picture
(so the same colours). The scene instances one object three times under
different transformations and colours; the object instances another one
twice (nested instances), and that one is defined before WorldBegin under a
string handle.

Usage: check_instances.py TRACERY
Prints one line per check and exits with status 1 if any fails.
"""
import os
import subprocess
import sys
import tempfile

CAMERA = 'Format 160 120 1\nProjection "perspective" "fov" [45]\n'

LEG = "Cylinder 0.1 0 1 360\n"
TABLE_TOP = 'Polygon "P" [-1 -1 0  1 -1 0  1 1 0  -1 1 0]\n'


def table(leg):
    return (TABLE_TOP + "TransformBegin Translate -0.8 -0.8 0 %sTransformEnd\n" % leg +
            "TransformBegin Translate 0.8 0.8 0 %sTransformEnd\n" % leg)


def scene(table_here, leg_definition):
    placements = ["Color [1 0 0]\n",
                  "Translate 2.2 0 0 Rotate 30 0 1 0 Color [0 1 0]\n",
                  "Translate -2.2 0 0 Scale 0.5 0.5 0.5 Color [0 0 1]\n"]
    body = "".join("AttributeBegin\n%s%sAttributeEnd\n" % (place, table_here)
                   for place in placements)
    return CAMERA + leg_definition + "Translate 0 -0.5 6\nRotate -60 1 0 0\nWorldBegin\n" + \
        body + "WorldEnd\n"


INSTANCED = scene("ObjectInstance 1\n",
                  'ObjectBegin "leg"\n' + LEG + "ObjectEnd\n").replace(
    "WorldBegin\n", "WorldBegin\nObjectBegin 1\n" + table('ObjectInstance "leg" ') +
    "ObjectEnd\n", 1)
IN_PLACE = scene("AttributeBegin\n" + table("AttributeBegin " + LEG + "AttributeEnd ") +
                 "AttributeEnd\n", "")


def draw(tracery, rib, work, name):
    """The segments of the PostScript page and the bytes of the picture."""
    path = os.path.join(work, name + ".rib")
    with open(path, "w") as f:
        f.write(rib)
    env = {"PATH": os.environ.get("PATH", ""), "HOME": work, "LC_ALL": "C"}
    for key in ("ASAN_OPTIONS", "UBSAN_OPTIONS"):
        if key in os.environ:
            env[key] = os.environ[key]
    page, picture = os.path.join(work, name + ".ps"), os.path.join(work, name + ".png")
    result = subprocess.run([tracery, "-nowait", "-ps", page, "-png", picture, path], env=env,
                            capture_output=True, text=True)
    with open(page) as f:
        segments = [line for line in f if line.endswith(" Li\n")]
    with open(picture, "rb") as f:
        return segments, f.read(), result.stderr


def main():
    tracery = sys.argv[1]
    with tempfile.TemporaryDirectory() as work:
        instanced, instanced_png, instanced_err = draw(tracery, INSTANCED, work, "instanced")
        in_place, in_place_png, _ = draw(tracery, IN_PLACE, work, "in_place")
    reports = [line for line in instanced_err.splitlines() if not line.startswith("Writing")]
    results = [
        ("three tables of two nested legs: %d segments, the same as in place" % len(instanced),
         len(instanced) > 100 and instanced == in_place),
        ("the same picture, colours included", instanced_png == in_place_png),
        ("no report", reports == []),
    ]
    for name, ok in results:
        print("%s  %s" % ("PASS" if ok else "FAIL", name))
    sys.exit(0 if all(ok for _, ok in results) else 1)


if __name__ == "__main__":
    main()
