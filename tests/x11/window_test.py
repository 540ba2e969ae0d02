#!/usr/bin/env python3
"""Tests of what a person sees in the "Pencil Test" window, against a real X
server: a private Xvfb started for each case, so that parallel tests and
other windows never get in the way.

Usage: window_test.py TRACERY XPROBE CASE   (CASE "list" prints the cases)

xprobe (tests/x11/xprobe.cpp) finds the window, reads its pixels back with
XGetImage and sends it keys, buttons and the window manager's close message.
The expected pictures are worked out here from the scene's own numbers, not
from tracery's output.
"""
import math
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

TITLE = "Pencil Test"
FIND_SECONDS = 20
EXIT_SECONDS = 20

# An orthographic view of a 2 by 1 rectangle on a 200 by 100 raster: the
# screen window is (-2, 2, -1, 1), so one pixel is 0.02 units and the screen
# origin lands on (100, 50).
SQUARE_SCENE = """Format 200 100 1
Projection "orthographic"
WorldBegin
Translate 0 0 5
%s
Polygon "P" [-1 -0.5 0  1 -0.5 0  1 0.5 0  -1 0.5 0]
WorldEnd
"""


def raster(x, y):
    """Raster pixel of a screen-plane point of the square scene."""
    return round(100 + x / 0.02), round(50 - y / 0.02)


LEFT, TOP = raster(-1, 0.5)
RIGHT, BOTTOM = raster(1, -0.5)


def on_outline(x, y, slack):
    """Whether pixel (x, y) is within slack pixels of the rectangle's outline."""
    near_x = LEFT - slack <= x <= RIGHT + slack
    near_y = TOP - slack <= y <= BOTTOM + slack
    vertical = near_y and (abs(x - LEFT) <= slack or abs(x - RIGHT) <= slack)
    horizontal = near_x and (abs(y - TOP) <= slack or abs(y - BOTTOM) <= slack)
    return vertical or horizontal


def rgb_of(components):
    """The 8-bit-per-component pixel X gives for a colour of 0..1 floats."""
    return tuple(int(c * 65535.0) >> 8 for c in components)


def close_to(pixel, rgb):
    return all(abs(p - c) <= 1 for p, c in zip(pixel, rgb))


class Session:
    """A private X server, a scratch folder and the tools of one case."""

    def __init__(self, tracery, xprobe, depth, screen="640x480"):
        self.tracery, self.xprobe = tracery, xprobe
        self.folder = tempfile.mkdtemp(prefix="tracery-x11-")
        read_end, write_end = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(write_end), "-screen", "0", "%sx%d" % (screen, depth), "-nolisten",
             "tcp", "-noreset"], pass_fds=(write_end,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(write_end)
        with os.fdopen(read_end) as pipe:
            number = pipe.readline().strip()
        if not number:
            raise RuntimeError("Xvfb did not start")
        self.env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "HOME": self.folder,
                    "LC_ALL": "C", "DISPLAY": ":" + number}
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ:
                self.env[name] = os.environ[name]
        self.programs = []

    def close(self):
        for p in self.programs:
            if p.poll() is None:
                p.kill()
                p.wait()
        if self.server.poll() is None:
            self.server.terminate()
            self.server.wait()
        shutil.rmtree(self.folder, ignore_errors=True)

    def start(self, scene, *options, path=None, env=None):
        """Runs tracery on the scene text, or on the file at path (from its
        own folder)."""
        if path is None:
            path = os.path.join(self.folder, "scene.rib")
            with open(path, "w") as f:
                f.write(scene)
        p = subprocess.Popen([self.tracery] + list(options) + [os.path.basename(path)],
                             cwd=os.path.dirname(path), env=dict(self.env, **(env or {})),
                             stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE)
        self.programs.append(p)
        return p

    def probe(self, *words):
        return subprocess.run([self.xprobe] + [str(w) for w in words], env=self.env,
                              capture_output=True, text=True, timeout=60)

    def find_window(self):
        r = self.probe("find", TITLE, FIND_SECONDS)
        check(r.returncode == 0, "no window titled %r appeared" % TITLE)
        wid, width, height = (int(v) for v in r.stdout.split())
        return wid, width, height

    def capture(self, wid):
        r = self.probe("capture", wid)
        check(r.returncode == 0, "the window could not be read back")
        lines = r.stdout.splitlines()
        return [[tuple(bytes.fromhex(word)) for word in line.split()] for line in lines[1:]]

    def picture_with_outline(self, wid, colour):
        """Waits for the rectangle to be drawn in colour and returns the capture."""
        deadline = time.monotonic() + FIND_SECONDS
        while True:
            pixels = self.capture(wid)
            middle_of_top = pixels[TOP][(LEFT + RIGHT) // 2]
            if close_to(middle_of_top, colour) or time.monotonic() > deadline:
                return pixels
            time.sleep(0.05)


def check(condition, message):
    if not condition:
        raise AssertionError(message)


def wait_exit(program):
    try:
        out, err = program.communicate(timeout=EXIT_SECONDS)
    except subprocess.TimeoutExpired:
        program.kill()
        raise AssertionError("tracery did not end")
    return program.returncode, out.decode(errors="replace"), err.decode(errors="replace")


def check_picture(pixels, foreground, background):
    """The outline in the foreground colour, everything else background."""
    check(len(pixels) == 100 and len(pixels[0]) == 200, "capture is not 200 by 100")
    for x in range(LEFT + 2, RIGHT - 1):
        for y in (TOP, BOTTOM):
            check(close_to(pixels[y][x], foreground), "no line at (%d, %d): %s" % (
                x, y, pixels[y][x]))
    for y in range(TOP + 2, BOTTOM - 1):
        for x in (LEFT, RIGHT):
            check(close_to(pixels[y][x], foreground), "no line at (%d, %d): %s" % (
                x, y, pixels[y][x]))
    for y, row in enumerate(pixels):
        for x, pixel in enumerate(row):
            if not on_outline(x, y, 1):
                check(close_to(pixel, background), "stray colour %s at (%d, %d)" % (pixel, x, y))


def end_with_key(s, program, wid):
    check(s.probe("key", wid).returncode == 0, "the key could not be sent")
    status, _, err = wait_exit(program)
    check(status == 0, "status %d after a key; stderr: %s" % (status, err))


# ---- Cases ----

def case_default_colours_and_size(s):
    p = s.start(SQUARE_SCENE % "")
    wid, width, height = s.find_window()
    check((width, height) == (200, 100), "window is %d by %d" % (width, height))
    white, grey = rgb_of((1, 1, 1)), rgb_of((0.1, 0.1, 0.1))
    check_picture(s.picture_with_outline(wid, white), white, grey)
    end_with_key(s, p, wid)


def case_fg_and_bg_options(s):
    p = s.start(SQUARE_SCENE % "", "-fg", "1", "0", "0", "-bg", "0", "0", "1")
    wid, _, _ = s.find_window()
    red, blue = rgb_of((1, 0, 0)), rgb_of((0, 0, 1))
    check_picture(s.picture_with_outline(wid, red), red, blue)
    end_with_key(s, p, wid)


def case_color_request(s):
    p = s.start(SQUARE_SCENE % "Color [0 1 0.5]", "-bg", "0", "0", "0")
    wid, _, _ = s.find_window()
    green, black = rgb_of((0, 1, 0.5)), rgb_of((0, 0, 0))
    check_picture(s.picture_with_outline(wid, green), green, black)
    end_with_key(s, p, wid)


def case_nocolor_ignores_color(s):
    p = s.start(SQUARE_SCENE % "Color [0 1 0.5]", "-nocolor", "-fg", "1", "1", "0")
    wid, _, _ = s.find_window()
    yellow, grey = rgb_of((1, 1, 0)), rgb_of((0.1, 0.1, 0.1))
    check_picture(s.picture_with_outline(wid, yellow), yellow, grey)
    end_with_key(s, p, wid)


def case_button_reads_again_in_a_new_window(s):
    p = s.start(SQUARE_SCENE % "")
    first, _, _ = s.find_window()
    white, grey = rgb_of((1, 1, 1)), rgb_of((0.1, 0.1, 0.1))
    s.picture_with_outline(first, white)
    r = s.probe("button", first, FIND_SECONDS)
    check(r.returncode == 0, "no new window after a button press")
    second, width, height = (int(v) for v in r.stdout.split())
    check((width, height) == (200, 100), "second window is %d by %d" % (width, height))
    check_picture(s.picture_with_outline(second, white), white, grey)
    check(p.poll() is None, "tracery ended instead of reading again")
    end_with_key(s, p, second)


def case_close_ends_the_wait(s):
    p = s.start(SQUARE_SCENE % "")
    wid, _, _ = s.find_window()
    s.picture_with_outline(wid, rgb_of((1, 1, 1)))
    check(s.probe("close", wid).returncode == 0, "the close message could not be sent")
    status, _, err = wait_exit(p)
    check(status == 0, "status %d after close; stderr: %s" % (status, err))


def case_lost_connection_ends_the_wait(s):
    p = s.start(SQUARE_SCENE % "")
    wid, _, _ = s.find_window()
    s.picture_with_outline(wid, rgb_of((1, 1, 1)))
    s.server.kill()
    s.server.wait()
    status, _, err = wait_exit(p)
    check(status == 0, "status %d after the server went; stderr: %s" % (status, err))


def case_uncovered_window_is_redrawn(s):
    p = s.start(SQUARE_SCENE % "")
    wid, _, _ = s.find_window()
    white, grey = rgb_of((1, 1, 1)), rgb_of((0.1, 0.1, 0.1))
    s.picture_with_outline(wid, white)
    check(s.probe("cover", wid).returncode == 0, "the window could not be covered")
    check_picture(s.picture_with_outline(wid, white), white, grey)
    end_with_key(s, p, wid)


def case_later_frame_keeps_the_first_window(s):
    """A second frame at 100 by 50 draws into the first frame's 200 by 100
    window, cleared first: the rectangle appears at half the size, centred
    on the smaller raster's centre (50, 25)."""
    scene = "FrameBegin 1\n" + SQUARE_SCENE % "" + "FrameEnd\n"
    scene += "FrameBegin 2\n" + (SQUARE_SCENE % "").replace("Format 200 100", "Format 100 50")
    scene += "FrameEnd\n"
    p = s.start(scene)
    wid, width, height = s.find_window()
    check((width, height) == (200, 100), "window is %d by %d" % (width, height))
    white, grey = rgb_of((1, 1, 1)), rgb_of((0.1, 0.1, 0.1))
    # One pixel is now 0.04 units: x from 25 to 75, y from 12 to 37.
    deadline = time.monotonic() + FIND_SECONDS
    while True:
        pixels = s.capture(wid)
        if close_to(pixels[12][50], white) or time.monotonic() > deadline:
            break
        time.sleep(0.05)
    for x, y in ((50, 12), (50, 37), (25, 25), (75, 25)):
        check(close_to(pixels[y][x], white), "no line of the second frame at (%d, %d)" % (x, y))
    for x, y in ((100, 25), (150, 50), (100, 75), (50, 50)):
        check(close_to(pixels[y][x], grey), "the first frame's line left at (%d, %d)" % (x, y))
    end_with_key(s, p, wid)


def case_colour_fallback_when_the_colormap_is_full(s):
    """On an 8-bit colormapped screen whose free cells are all taken, a
    colour that cannot be allocated falls back to white or black, whichever
    is nearer (white and black themselves are always in the map)."""
    hog = subprocess.Popen([s.xprobe, "fill-colormap", "60"], env=s.env, stdout=subprocess.PIPE,
                           text=True)
    s.programs.append(hog)
    check(hog.stdout.readline().startswith("ready"), "the colormap could not be filled")
    p = s.start(SQUARE_SCENE % "", "-fg", "0.9", "0.8", "0.6", "-bg", "0.3", "0.2", "0.4")
    wid, _, _ = s.find_window()
    white, black = (255, 255, 255), (0, 0, 0)
    check_picture(s.picture_with_outline(wid, white), white, black)
    end_with_key(s, p, wid)


def case_sync_paces_frames(s):
    frames = 6
    scene = "Format 200 100 1\n"
    for n in range(frames):
        scene += ("FrameBegin %d\nWorldBegin\nTranslate 0 0 5\n"
                  "Polygon \"P\" [-1 -0.5 0  1 -0.5 0  1 0.5 0]\nWorldEnd\nFrameEnd\n" % n)
    began = time.monotonic()
    p = s.start(scene, "-nowait", "-sync", "10")
    status, _, err = wait_exit(p)
    per_frame = (time.monotonic() - began) / frames
    check(status == 0, "status %d; stderr: %s" % (status, err))
    # Each frame waits for its slot, 0.1 s after the one before: never
    # faster than that, and (loosely) not much slower.
    check(0.09 <= per_frame <= 1.0, "%.3f s a frame at -sync 10" % per_frame)


# A binary PPM header: magic, width, height and maximum, with "#" comments.
PPM_HEADER = re.compile(rb"P6(?:\s+|#[^\n]*\n)+(\d+)(?:\s+|#[^\n]*\n)+(\d+)"
                        rb"(?:\s+|#[^\n]*\n)+(\d+)\s")


def read_ppm(path):
    with open(path, "rb") as f:
        data = f.read()
    header = PPM_HEADER.match(data)
    check(header is not None, "ghostscript wrote no PPM")
    width, height = int(header.group(1)), int(header.group(2))
    pixels = data[header.end():]
    return [[tuple(pixels[3 * (y * width + x):3 * (y * width + x) + 3]) for x in range(width)]
            for y in range(height)]


def case_postscript_page_shows_the_outline(s):
    p = s.start(SQUARE_SCENE % "", "-nowait", "-ps", "page.ps")
    status, _, err = wait_exit(p)
    check(status == 0, "status %d; stderr: %s" % (status, err))
    picture = os.path.join(s.folder, "page.ppm")
    subprocess.run(["gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=ppmraw", "-r72",
                    "-g202x102", "-dFIXEDMEDIA", "-sOutputFile=" + picture,
                    os.path.join(s.folder, "page.ps")], check=True, timeout=60)
    page = read_ppm(picture)

    # A raster pixel (x, y) lies at page point (x + 1, 100 - y), which is
    # device pixel (x + 1, 102 - (100 - y)) on a 102 pixel high page.
    def dark_near(x, y):
        return any(sum(page[y + 2 + dy][x + 1 + dx]) < 384
                   for dx in (-1, 0, 1) for dy in (-1, 0, 1))

    for x in range(LEFT + 3, RIGHT - 2, 7):
        check(dark_near(x, TOP) and dark_near(x, BOTTOM), "no line on the page at x %d" % x)
    for y in range(TOP + 3, BOTTOM - 2, 7):
        check(dark_near(LEFT, y) and dark_near(RIGHT, y), "no line on the page at y %d" % y)
    for x, y in ((100, 50), (LEFT + 10, TOP + 10), (30, 50), (170, 15), (100, 90)):
        check(not dark_near(x, y), "stray ink on the page near (%d, %d)" % (x, y))


def case_lines_crossing_the_edges_are_drawn_to_them(s):
    """Lines reaching out of the window on both sides, or on one, are drawn
    across it; a polygon wholly outside leaves no pixel."""
    scene = """Format 200 100 1
Projection "orthographic"
WorldBegin
Translate 0 0 5
Polygon "P" [-3 -0.5 0  3 -0.5 0  3 0.5 0  -3 0.5 0]
Polygon "P" [-4 -1 0  4 1 0]
Polygon "P" [-9 -1 0  -5 -1 0  -5 1 0]
WorldEnd
"""
    p = s.start(scene, "-bg", "0", "0", "0")
    wid, _, _ = s.find_window()
    white, black = rgb_of((1, 1, 1)), rgb_of((0, 0, 0))
    pixels = s.picture_with_outline(wid, white)

    def on_diagonal(x, y, slack):  # the line y = x / 4, raster y = 50 - (x - 100) / 4
        return abs(y - (50 - (x - 100) / 4)) <= slack

    for x in range(200):
        for y in (TOP, BOTTOM):
            check(close_to(pixels[y][x], white), "no line at (%d, %d)" % (x, y))
        diagonal = [y for y in range(100) if on_diagonal(x, y, 1) and close_to(pixels[y][x], white)]
        check(diagonal, "no diagonal at x %d" % x)
    for y, row in enumerate(pixels):
        for x, pixel in enumerate(row):
            if abs(y - TOP) > 1 and abs(y - BOTTOM) > 1 and not on_diagonal(x, y, 2):
                check(close_to(pixel, black), "stray colour %s at (%d, %d)" % (pixel, x, y))
    end_with_key(s, p, wid)


# ---- Lines the window leaves out ----

REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SHARED = os.path.join(REPO, "..", "shared")

def culling_scene(detail, body):
    return """Format 320 240 1
Projection "perspective" "fov" [40]
RelativeDetail %g
Translate 0 0 6
WorldBegin
%sWorldEnd
""" % (detail, body)

def flat_patch(low, high):
    """A flat bicubic patch over the square from (low, low) to (high, high)."""
    steps = [low + (high - low) * k / 3 for k in range(4)]
    return 'Patch "bicubic" "P" [%s]\n' % " ".join("%g %g 0" % (x, y) for y in steps
                                                  for x in steps)


def wavy_mesh(nu, nv, wrap_v, scale=1.0, shift=(0.0, 0.0, 0.0)):
    """A PatchMesh of nu by nv control points over a wavy sheet about the
    origin, its rows wrapping round when wrap_v."""
    points = []
    for j in range(nv):
        for i in range(nu):
            x = (i / (nu - 1) - 0.5) * 2.4 * scale + shift[0]
            y = (j / (nv - 1) - 0.5) * 1.8 * scale + shift[1]
            z = 0.3 * math.sin(3 * x) * math.cos(2 * y) + shift[2]
            points.append("%.5f %.5f %.5f" % (x, y, z))
    return 'PatchMesh "bicubic" %d "nonperiodic" %d "%s" "P" [%s]\n' % (
        nu, nv, "periodic" if wrap_v else "nonperiodic", " ".join(points))


def flat_bezier_mesh(low, high, patches=2):
    """A flat mesh of patches by patches Bezier patches (step 3) over the
    square from (low, low) to (high, high)."""
    side = 3 * patches + 1
    steps = [low + (high - low) * k / (side - 1) for k in range(side)]
    return 'PatchMesh "bicubic" %d "nonperiodic" %d "nonperiodic" "P" [%s]\n' % (
        side, side, " ".join("%g %g 0" % (x, y) for y in steps for x in steps))


def grid_mesh(x0, x1, y0, y1, columns, rows):
    """A PointsPolygons of quadrilaterals over a grid of columns by rows
    vertices on the rectangle from (x0, y0) to (x1, y1), in the plane z = 0."""
    faces = []
    for j in range(rows - 1):
        for i in range(columns - 1):
            a = j * columns + i
            faces.append([a, a + 1, a + columns + 1, a + columns])
    points = ["%.5f %.5f 0" % (x0 + (x1 - x0) * i / (columns - 1),
                               y0 + (y1 - y0) * j / (rows - 1))
              for j in range(rows) for i in range(columns)]
    return "PointsPolygons [%s] [%s] \"P\" [%s]\n" % (
        " ".join("4" for _ in faces), " ".join(str(v) for f in faces for v in f), " ".join(points))


def jagged_mesh(x0, x1, y0, y1, columns, rows, jitter, seed):
    """A grid_mesh whose vertices are moved up or down by up to jitter, at
    random from seed: long lines crossing each other's pixels many times
    over, as in a dense scanned surface seen from afar."""
    state = seed
    points = []
    for j in range(rows):
        for i in range(columns):
            state = (state * 1103515245 + 12345) % 2 ** 31
            shift = jitter * (2.0 * state / 2 ** 31 - 1.0)
            points.append("%.5f %.5f 0" % (x0 + (x1 - x0) * i / (columns - 1),
                                           y0 + (y1 - y0) * j / (rows - 1) + shift))
    faces = [[j * columns + i, j * columns + i + 1, (j + 1) * columns + i + 1,
              (j + 1) * columns + i] for j in range(rows - 1) for i in range(columns - 1)]
    return "PointsPolygons [%s] [%s] \"P\" [%s]\n" % (
        " ".join("4" for _ in faces), " ".join(str(v) for f in faces for v in f), " ".join(points))


# Each scene draws lines again (shared patch edges, seams, instances) and
# short lines in plenty (high detail far away), some across a colour change.
CULLING_SCENES = {
    "quadrics": culling_scene(8, """Color [1 0.8 0.2]
Sphere 1 -1 1 360
Translate 1.5 0.5 0
Cone 1 0.5 360
Torus 0.8 0.2 0 360 360
Translate -3 -1 6
Sphere 1 -1 1 360
Cylinder 0.5 -1 1 270
Hyperboloid 0.3 0 -0.5 0.6 0.6 0.5 360
Paraboloid 0.6 0 0.9 360
Disk 0.2 0.9 360
"""),
    "patch_meshes": culling_scene(4, """Basis "b-spline" 1 "b-spline" 1
PatchMesh "bicubic" 6 "periodic" 5 "nonperiodic" "P" [""" + " ".join(
        "%g %g %g" % (math.cos(i * 1.047) * (1 + 0.3 * j), (j - 2) * 0.4, math.sin(i * 1.047))
        for j in range(5) for i in range(6)) + """]
Translate 0 0 8
Patch "bicubic" "P" [""" + " ".join(
        "%g %g 0" % (i - 1.5, j - 1.5) for j in range(4) for i in range(4)) + """]
"""),
    "polygons": culling_scene(1, """Color [0.3 1 0.3]
PointsPolygons [4 4 4 3] [0 1 2 3  1 4 5 2  3 2 6 7  2 5 6]
  "P" [-1 -1 0  0 -1 0  0 0 0  -1 0 0  1 -1 0  1 0 0  0 1 0  -1 1 0]
GeneralPolygon [4 3] "P" [-2 -2 0  2 -2 0  2 2 0  -2 2 0  -0.5 -0.5 0  0.5 -0.5 0  0 0.5 0]
Polygon "P" [-1 -1 0  0 -1 0  0 0 0  -1 0 0]
"""),
    # The same lines in red, then some in blue over them, then red again:
    # after a colour change a line drawn before must be drawn again.
    "colours_changing_between_lines": culling_scene(16, """Color [1 0 0]
Sphere 1 -1 1 360
Color [0 0 1]
Sphere 1 -1 1 180
Color [1 0 0]
Sphere 1 -1 1 90
Color [0 1 0]
Disk 0 1 360
Color [0 1 0]
Disk 0 1 360
"""),
    # Lattices of lines shorter than a pixel over pixels they drew before:
    # the same patch again and one inside it draw nothing new; one reaching
    # a pixel past them must still be drawn, and so must everything after a
    # colour change.
    "lattices_over_drawn_pixels": culling_scene(16, "".join(
        ("Color [%s]\n" % colour if colour else "") + flat_patch(*square)
        for colour, square in (("0.2 0.6 1", (-0.5, 0.5)), (None, (-0.5, 0.5)),
                               (None, (-0.3, 0.3)), (None, (-0.5, 0.52)),
                               ("1 0.2 0.2", (-0.3, 0.3)), ("1 0.2 0.2", (-0.2, 0.2)),
                               (None, (-0.2, 0.32))))),
    # Patch meshes over pixels they drew before, left out whole or patch by
    # patch from their control points alone: the same mesh again, a smaller
    # one inside it, one a little larger (must be drawn), Bezier steps (flat
    # meshes in a colour of their own, whose control points' box is their
    # lines' own, the last reaching one pixel past the square drawn), a
    # basis with negative weights (never left out so), rows wrapping round,
    # a colour change, and a mesh reaching behind the eye.
    "patch_meshes_over_drawn_pixels": culling_scene(16, "".join([
        'Basis "b-spline" 1 "b-spline" 1\nColor [0.9 0.9 0.3]\n',
        wavy_mesh(9, 8, False), wavy_mesh(9, 8, False), wavy_mesh(9, 8, False, 0.8),
        wavy_mesh(9, 8, False, 1.02), wavy_mesh(9, 8, True, 0.9),
        'Basis "bezier" 3 "bezier" 3\n', wavy_mesh(7, 7, False, 0.95),

        'Basis "catmull-rom" 1 "catmull-rom" 1\n', wavy_mesh(9, 8, False, 0.9),
        'Basis "b-spline" 1 "b-spline" 1\nColor [0.2 0.4 1]\n', wavy_mesh(9, 8, False, 0.7),
        wavy_mesh(9, 8, False, 0.7), wavy_mesh(9, 8, False, 3.0, (0.0, 0.0, -5.5)),
        wavy_mesh(9, 8, False, 3.0, (0.0, 0.0, -5.5)),
        'Basis "bezier" 3 "bezier" 3\nColor [1 0.3 0.3]\n', flat_bezier_mesh(-0.5, 0.5),
        flat_bezier_mesh(-0.5, 0.5), flat_bezier_mesh(-0.3, 0.3), flat_bezier_mesh(-0.5, 0.52)])),
    # Indexed meshes left out run by run: a mesh of faces under a pixel,
    # the same again and a smaller one (left out), one reaching a pixel past
    # the square drawn (must be drawn); a wide strip reaching
    # far off both sides of the picture, and one off to the left but for a
    # pixel's width; then a colour change, after which all must be drawn.
    # The picture's left edge is at x = -2.907 in the plane z = 0; a pixel is
    # 0.0182 wide there.
    "indexed_meshes_over_drawn_pixels": culling_scene(1, "".join([
        "Color [0.3 1 0.5]\n", grid_mesh(-0.5, 0.5, -0.5, 0.5, 70, 70),
        grid_mesh(-0.5, 0.5, -0.5, 0.5, 70, 70), grid_mesh(-0.3, 0.3, -0.3, 0.3, 50, 50),
        grid_mesh(-0.5, 0.52, -0.5, 0.52, 70, 70),
        grid_mesh(-12, 12, 0.8, 1.2, 400, 4), grid_mesh(-8, -2.9, -1.2, -0.8, 300, 3),
        "Color [1 0.4 0.2]\n", grid_mesh(-0.3, 0.3, -0.3, 0.3, 50, 50),
        grid_mesh(-12, 12, 0.8, 1.2, 400, 4)])),
    # Thousands of long lines in one colour, so that their pixels are known:
    # the mesh crosses the picture's left and top edges, is drawn over
    # itself, and is drawn again after a colour change.
    "dense_meshes_of_long_lines": culling_scene(1, "".join([
        "Color [0.9 0.9 0.3]\n", jagged_mesh(-4, 1.5, -1.2, 3, 90, 70, 0.35, 7),
        jagged_mesh(-1, 1, -1, 1, 40, 40, 0.5, 11), "Color [0.2 0.5 1]\n",
        jagged_mesh(-1.5, 0.5, -1.5, 0.5, 60, 60, 0.3, 5)])),
}


def standard_scenes(folder):
    """The benchmark files at a hundredth of their size, when the generator
    is at hand."""
    generator = os.path.join(SHARED, "bench", "genrib.py")
    if not os.path.exists(generator):
        return []
    subprocess.run([sys.executable, generator, "--out", folder, "--scale", "0.01"],
                   check=True, capture_output=True)
    return [os.path.join(folder, name) for name in ("mesh.rib", "many.rib", "patches.rib")]


def corpus_scenes():
    corpus = os.path.join(SHARED, "corpus", "files")
    names = ["ribtools/DistribSrc/base/TestScenes/Chair.rib",
             "ribtools/DistribSrc/base/TestScenes/Elephant.rib",
             "ribtools/DistribSrc/base/TestScenes/KillerooNURBS/killeroo.rib"]
    return [os.path.join(corpus, n) for n in names if os.path.exists(os.path.join(corpus, n))]


def settled_capture(s, program, wid, name):
    """The window once its one world block is shown: the capture that stays
    the same once the program has drawn something."""
    deadline = time.monotonic() + 3 * FIND_SECONDS
    last = None
    while time.monotonic() < deadline:
        pixels = s.capture(wid)
        drawn = len({p for row in pixels for p in row}) > 1
        if drawn and pixels == last:
            return pixels
        last = pixels
        time.sleep(0.3)
    raise AssertionError("%s: the window did not settle" % name)


def case_culling_keeps_every_pixel(s):
    """Every scene shows exactly the same pixels with the window's culling
    on (short lines sent as the points the server draws for them, pixels and
    lines already drawn in the foreground left out) as with every line sent
    (TRACERY_WINDOW_CULLING=off): a comparison within one program, so that
    it keeps its meaning whatever the program was before."""
    paths = []
    for name, text in sorted(CULLING_SCENES.items()):
        path = os.path.join(s.folder, name + ".rib")
        with open(path, "w") as f:
            f.write(text)
        paths.append(path)
    paths += standard_scenes(os.path.join(s.folder, "standard")) + corpus_scenes()
    for path in paths:
        captures = []
        for setting in ("off", "on"):
            p = s.start(None, path=path, env={"TRACERY_WINDOW_CULLING": setting})
            wid, _, _ = s.find_window()
            captures.append(settled_capture(s, p, wid, os.path.basename(path)))
            end_with_key(s, p, wid)
        off, on = captures
        differing = sum(a != b for row_a, row_b in zip(off, on) for a, b in zip(row_a, row_b))
        check(differing == 0, "%s: %d pixels differ with culling on" % (os.path.basename(path),
                                                                        differing))


CASES = {name[len("case_"):]: f for name, f in sorted(globals().items())
         if name.startswith("case_")}


def run_case(argv, cases, doc, session_for):
    """Runs the case named in argv (TRACERY XPROBE CASE) from cases, in a
    session made by session_for(tracery, xprobe, case); "list" lists them."""
    if len(argv) == 4 and argv[3] == "list":
        print("\n".join(cases))
        return 0
    if len(argv) != 4 or argv[3] not in cases:
        print(doc.strip(), file=sys.stderr)
        return 2
    session = session_for(os.path.abspath(argv[1]), os.path.abspath(argv[2]), argv[3])
    try:
        cases[argv[3]](session)
    except AssertionError as failure:
        print("FAIL %s: %s" % (argv[3], failure))
        return 1
    finally:
        session.close()
    print("PASS %s" % argv[3])
    return 0


def main(argv):
    def session_for(tracery, xprobe, case):
        depth = 8 if "colormap" in case else 24
        screen = "1280x1024" if "culling" in case else "640x480"
        return Session(tracery, xprobe, depth, screen)
    return run_case(argv, CASES, __doc__, session_for)


if __name__ == "__main__":
    sys.exit(main(sys.argv))
