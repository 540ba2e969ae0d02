#!/usr/bin/env python3
"""Tests of the interactive window (-i) against a real X server, driven with
real input events (xdotool: pointer moves, buttons, the wheel and keys go
through the server's input path, as a person's would).

Usage: interactive_test.py TRACERY XPROBE CASE   (CASE "list" prints the cases)

The pictures are compared with captures of the window without -i of the same
scene, the camera moved in the RIB instead: what the free camera shows must
be what the scene would show from there.
"""
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from window_test import Session, check, rgb_of, run_case, wait_exit  # noqa: E402

SECONDS = 20

# A wire cube and a square around the world origin (the centre of the bound,
# so the pivot), seen from 5 units away; the numbers keep points off pixel
# boundaries, so that a camera that differs in the last bit of a float gives
# the same pixels.
SCENE = """Format 240 160 1
Projection "perspective" "fov" [40]
Translate 0 0 5
%s
WorldBegin
Color [1 0.6 0.2]
Polygon "P" [-0.83 -0.83 -0.83  0.83 -0.83 -0.83  0.83 0.83 -0.83  -0.83 0.83 -0.83]
Polygon "P" [-0.83 -0.83 0.83  0.83 -0.83 0.83  0.83 0.83 0.83  -0.83 0.83 0.83]
Color [0.3 0.9 1]
Polygon "P" [-0.83 -0.83 -0.83  -0.83 -0.83 0.83  -0.83 0.83 0.83  -0.83 0.83 -0.83]
Polygon "P" [0.83 -0.83 -0.83  0.83 -0.83 0.83  0.83 0.83 0.83  0.83 0.83 -0.83]
Color [0.9 0.9 0.9]
Polygon "P" [-1.37 -0.41 0  1.37 -0.41 0  1.37 0.41 0  -1.37 0.41 0]
WorldEnd
"""


def xdotool(s, *words):
    r = subprocess.run(["xdotool"] + [str(w) for w in words], env=s.env, capture_output=True,
                       text=True, timeout=60)
    check(r.returncode == 0, "xdotool %s failed: %s" % (" ".join(map(str, words)), r.stderr))
    return r.stdout


def title_of(s, wid):
    r = subprocess.run(["xdotool", "getwindowname", str(wid)], env=s.env, capture_output=True,
                       text=True, timeout=60)
    return r.stdout.strip()


def start_interactive(s, scene, *options):
    """Starts tracery -i and waits for its view: returns (program, window)."""
    p = s.start(scene, "-i", *options)
    deadline = time.monotonic() + SECONDS
    while time.monotonic() < deadline:
        r = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^Pencil Test: "],
                           env=s.env, capture_output=True, text=True, timeout=60)
        if r.returncode == 0 and r.stdout.split():
            return p, int(r.stdout.split()[0])
        if p.poll() is not None:
            raise AssertionError("tracery -i ended: %s" % p.stderr.read().decode())
        time.sleep(0.05)
    raise AssertionError("no interactive window appeared")


def described(s, scene, *options):
    """The capture of the window without -i, then the program ended."""
    p = s.start(scene, *[str(o) for o in options])
    wid, _, _ = s.find_window()
    expected_title = "Pencil Test"
    pixels = settled(s, wid)
    check(title_of(s, wid) == expected_title, "the window without -i is titled %r" % title_of(s, wid))
    check(s.probe("key", wid).returncode == 0, "the key could not be sent")
    status, _, err = wait_exit(p)
    check(status == 0, "status %d; stderr: %s" % (status, err))
    return pixels


def settled(s, wid, want=None):
    """The window's picture once it stops changing (or equals want)."""
    deadline = time.monotonic() + SECONDS
    last = None
    while time.monotonic() < deadline:
        time.sleep(0.15)
        pixels = s.capture(wid)
        if pixels == want or (want is None and pixels == last and any_lines(pixels)):
            return pixels
        last = pixels
    return last


def any_lines(pixels):
    background = pixels[0][0]
    return any(p != background for row in pixels for p in row)


def differences(a, b):
    if len(a) != len(b) or len(a[0]) != len(b[0]):
        return -1
    return sum(1 for ra, rb in zip(a, b) for pa, pb in zip(ra, rb) if pa != pb)


def check_same(actual, expected, what):
    n = differences(actual, expected)
    check(n == 0, "%s: %d pixels differ" % (what, n))


def key(s, wid, name):
    xdotool(s, "windowfocus", "--sync", wid, "key", name)


def drag(s, wid, button, x0, y0, x1, y1):
    xdotool(s, "mousemove", "--window", wid, x0, y0, "mousedown", button,
            "mousemove", "--window", wid, (x0 + x1) // 2, (y0 + y1) // 2,
            "mousemove", "--window", wid, x1, y1, "mouseup", button)


def quit_with(s, p, wid, name):
    """Ends tracery with a key; returns what it printed and reported."""
    key(s, wid, name)
    status, out, err = wait_exit(p)
    check(status == 0, "status %d after %s; stderr: %s" % (status, name, err))
    return out, err


# ---- Cases ----

def case_camera_moves_match_the_camera_moved_in_the_rib(s):
    """Orbit, wheel, the scene camera back, and the view printed as RIB."""
    plain = described(s, SCENE % "")
    turned = described(s, SCENE % "Rotate 90 0 1 0")
    turned_tilted = described(s, SCENE % "Rotate -45 1 0 0\nRotate 90 0 1 0")
    nearer = described(s, (SCENE % "").replace("Translate 0 0 5", "Translate 0 0 3.645"))

    p, wid = start_interactive(s, SCENE % "")
    check(title_of(s, wid) == "Pencil Test: scene.rib (frame 1 of 1)", "title %r" % title_of(s, wid))
    check_same(settled(s, wid, plain), plain, "the first picture")
    # A quarter of the width to the left turns the scene a quarter about the
    # vertical axis: its front follows the pointer.
    drag(s, wid, 1, 150, 80, 90, 80)
    check_same(settled(s, wid, turned), turned, "a quarter-width drag to the left")
    key(s, wid, "c")
    check_same(settled(s, wid, plain), plain, "c after the drag")
    # Down a quarter of the height (and a quarter of the width left) tilts
    # the front down by 45 degrees after the turn.
    drag(s, wid, 1, 150, 60, 90, 100)
    check_same(settled(s, wid, turned_tilted), turned_tilted, "a diagonal drag")
    # The view printed as RIB gives the same picture without -i.
    key(s, wid, "i")
    key(s, wid, "c")
    for _ in range(3):
        xdotool(s, "mousemove", "--window", wid, 120, 80, "click", 4)
    check_same(settled(s, wid, nearer), nearer, "three wheel steps toward the pivot")
    key(s, wid, "c")
    check_same(settled(s, wid, plain), plain, "c after the wheel")
    out, _ = quit_with(s, p, wid, "q")
    printed = [line for line in out.splitlines() if not line.startswith("#")]
    check(len(printed) == 2 and printed[0].startswith("Projection") and
          printed[1].startswith("Transform"), "i printed %r" % out)
    pasted = SCENE.replace('Projection "perspective" "fov" [40]\nTranslate 0 0 5\n%s',
                           "\n".join(printed))
    check_same(described(s, pasted), turned_tilted, "the printed view, pasted into the scene")


def frames_scene():
    """Four frames, each four spheres of its own size: at detail 32 a frame
    keeps about 100 kB of points, so 150 kB keep only the last whole."""
    scene = 'Format 240 160 1\nProjection "perspective" "fov" [40]\n'
    for n in range(4):
        r = 0.45 + 0.2 * n
        scene += "FrameBegin %d\nTranslate 0 0 5\nWorldBegin\n" % n
        for x in (-0.9, 0.9):
            for y in (-0.6, 0.6):
                scene += ("TransformBegin\nTranslate %g %g 0\nSphere %g %g %g 360\n"
                          "TransformEnd\n" % (x, y, r, -r, r))
        scene += "WorldEnd\nFrameEnd\n"
    return scene


def case_frames_step_with_their_title(s):
    """Left, Right, Home and End step through the frames -frames selects;
    frames past the memory budget are read again when shown; a free camera
    stays as the user put it."""
    scene = frames_scene()
    frame = {k: described(s, scene, "-rd", "8", "-frames", k, k) for k in (1, 2, 3)}
    turned = described(s, scene.replace("Translate 0 0 5", "Translate 0 0 5 Rotate 90 0 1 0"),
                       "-rd", "8", "-frames", 2, 2)
    s.env["TRACERY_KEEP_KB"] = "150"
    p, wid = start_interactive(s, scene, "-rd", "8", "-frames", "1", "3")

    def shows(k, picture=None):
        check_same(settled(s, wid, picture or frame[k]), picture or frame[k], "frame %d" % k)
        want = "Pencil Test: scene.rib (frame %d of 3)" % k
        check(title_of(s, wid) == want, "title %r, not %r" % (title_of(s, wid), want))

    shows(3)
    key(s, wid, "Left")
    shows(2)
    key(s, wid, "Home")
    shows(1)
    key(s, wid, "Left")
    shows(1)
    key(s, wid, "Right")
    shows(2)
    key(s, wid, "End")
    shows(3)
    drag(s, wid, 1, 150, 80, 90, 80)
    key(s, wid, "Left")
    shows(2, turned)
    quit_with(s, p, wid, "Escape")


# An orthographic 240 by 160 raster: one pixel is 0.0125 units and the
# origin lands on (120, 80). The main file draws a square, reads an archive
# file that draws another, and replays an inline archive that draws a third.
PICK_SCENE = """Format 240 160 1
Projection "orthographic"
WorldBegin
Translate 0 0 5
# the left square
Polygon "P" [-1.3 -0.5 0  -0.7 -0.5 0  -0.7 0.5 0  -1.3 0.5 0]
ReadArchive "part.rib"
ArchiveBegin "right"
  Polygon "P" [0.7 -0.5 0  1.3 -0.5 0  1.3 0.5 0  0.7 0.5 0]
ArchiveEnd
ReadArchive "right"
WorldEnd
"""
PART = """# the middle square
AttributeBegin
Polygon "P" [-0.3 -0.5 0  0.3 -0.5 0  0.3 0.5 0  -0.3 0.5 0]
AttributeEnd
"""
HIGHLIGHT = rgb_of((1, 0.85, 0.1))


def case_click_names_the_request_behind_a_line(s):
    with open(os.path.join(s.folder, "part.rib"), "w") as f:
        f.write(PART)
    p, wid = start_interactive(s, PICK_SCENE)
    plain = settled(s, wid)
    clicks = [((17, 80), "scene.rib:6: Polygon"),
              ((120, 42), "part.rib:3: Polygon (from scene.rib:7)"),
              ((182, 119), "scene.rib:9: Polygon (from scene.rib:11)")]
    for (x, y), _ in clicks:
        xdotool(s, "mousemove", "--window", wid, x, y, "click", 1)
        lit = settled(s, wid)
        check(lit[y][x] == HIGHLIGHT or any(lit[y + d][x] == HIGHLIGHT for d in (-1, 1)),
              "the line at (%d, %d) is not highlighted: %s" % (x, y, lit[y][x]))
    # Empty space: nothing printed, the highlight goes.
    xdotool(s, "mousemove", "--window", wid, 60, 20, "click", 1)
    check_same(settled(s, wid, plain), plain, "a click on empty space")
    out, _ = quit_with(s, p, wid, "q")
    check(out.splitlines() == [text for _, text in clicks], "clicks printed %r" % out)


def write_in_place(path, text):
    with open(path, "w") as f:
        f.write(text)


def write_and_rename(path, text):
    with open(path + ".tmp", "w") as f:
        f.write(text)
    os.rename(path + ".tmp", path)


def case_edits_are_read_again_with_the_camera_kept(s):
    """A file saved as editors save it, renamed over or written in place,
    is read again and drawn through the camera the user had; an edit that
    breaks the file shows what could be read, with its report."""
    wide = SCENE.replace("-1.37 -0.41 0  1.37 -0.41 0  1.37 0.41 0  -1.37 0.41 0",
                         "-1.37 -0.61 0  1.37 -0.61 0  1.37 0.61 0  -1.37 0.61 0")
    broken = SCENE.replace('Color [0.9 0.9 0.9]\n', 'Color [0.9 0.9 0.9]\nPolygon "P" [1 2\n')
    versions = [(write_and_rename, wide), (write_in_place, SCENE), (write_in_place, broken)]
    expected = [described(s, text % "Rotate 90 0 1 0") for _, text in versions]
    p, wid = start_interactive(s, SCENE % "")
    settled(s, wid)
    drag(s, wid, 1, 150, 80, 90, 80)
    path = os.path.join(s.folder, "scene.rib")
    for (write, text), picture in zip(versions, expected):
        time.sleep(0.3)
        began = time.monotonic()
        write(path, text % "")
        while s.capture(wid) != picture and time.monotonic() - began < SECONDS:
            time.sleep(0.05)
        took = time.monotonic() - began
        check(took < 1.0, "the edit by %s was drawn after %.2f s" % (write.__name__, took))
    status = p.poll()
    check(status is None, "tracery ended after a broken edit (status %s)" % status)
    _, err = quit_with(s, p, wid, "q")
    check(err.count("ERROR") == 1 and "scene.rib" in err, "reports: %r" % err)


CASES = {name[len("case_"):]: f for name, f in sorted(globals().items())
         if name.startswith("case_")}


def main(argv):
    return run_case(argv, CASES, __doc__,
                    lambda tracery, xprobe, case: Session(tracery, xprobe, 24))


if __name__ == "__main__":
    sys.exit(main(sys.argv))
