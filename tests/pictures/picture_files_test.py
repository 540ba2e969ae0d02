#!/usr/bin/env python3
"""Picture files read back: runs tracery with no X display and checks what
-png, -svg and -pdf wrote against the segments the PostScript file of the
same run names.

Usage: picture_files_test.py BINARY CHECK [--sanitized] [--reference TOOL]
CHECK is one of the functions named in CHECKS below; --sanitized says that
the binary was built with the sanitizers, whose memory is not judged;
TOOL is the test build's stroke_reference (tests/pictures/stroke_reference.cpp).
"""
import inspect
import math
import os
import re
import struct
import subprocess
import sys
import tempfile
import zlib

WIDTH, HEIGHT = 96, 72

SCENE = """Format %d %d 1
Projection "perspective" "fov" [40]
Translate 0 0 6
WorldBegin
  Rotate 30 1 0 0
  Sphere 1.2 -1.2 1.2 360
  Polygon "P" [-2.5 -1.8 0  2.5 -1.8 0  2.5 1.8 0  -2.5 1.8 0]
  Polygon "P" [-3 0 1  3 0 1]
WorldEnd
""" % (WIDTH, HEIGHT)

# Three frames of a world block each, of different sizes, colours changed
# by Color.
THREE_WORLDS = """Projection "orthographic"
Translate 0 0 1
FrameBegin 1
  Format 40 30 1
  WorldBegin
    Polygon "P" [-0.5 -0.5 0  0.5 -0.5 0  0.5 0.5 0  -0.5 0.5 0]
  WorldEnd
FrameEnd
FrameBegin 2
  Format 50 40 1
  WorldBegin
    Color [1 0 0]
    Polygon "P" [-0.5 -0.5 0  0.5 -0.5 0  0.5 0.5 0  -0.5 0.5 0]
  WorldEnd
FrameEnd
FrameBegin 3
  Format 60 50 1
  WorldBegin
    Color [0 1 0]
    Polygon "P" [-0.5 -0.5 0  0.5 -0.5 0  0.5 0.5 0  -0.5 0.5 0]
  WorldEnd
FrameEnd
"""


def fail(message):
    print("FAIL: " + message)
    sys.exit(1)


def run(binary, work, args, scene, display=None):
    """Runs the scene with DISPLAY unset (or set to display). Returns its
    standard error and its peak memory in MB."""
    path = os.path.join(work, "scene.rib")
    with open(path, "w") as f:
        f.write(scene)
    env = {k: v for k, v in os.environ.items() if k != "DISPLAY"}
    if display:
        env["DISPLAY"] = display
    env["HOME"] = work
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        program = subprocess.Popen([binary] + args + [path], cwd=work, env=env, stdout=out,
                                   stderr=err)
        # Waited for here, for the run's own peak memory.
        _, status, usage = os.wait4(program.pid, 0)
        program.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        err.seek(0)
        out, err = out.read(), err.read().decode()
    if program.returncode != 0:
        fail("exit status %d, stderr: %s" % (program.returncode, err))
    if out.strip() or "X11" in err:
        fail("unexpected output: %r %r" % (out, err))
    return err, usage.ru_maxrss / 1024


# ---- PNG, read with zlib alone ----

def paeth(a, b, c):
    p = a + b - c
    pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
    if pa <= pb and pa <= pc:
        return a
    return b if pb <= pc else c


def read_png(path):
    """Returns (width, height, rows), rows[y][x] = (r, g, b)."""
    data = open(path, "rb").read()
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        fail(path + " is not a PNG file")
    pos, idat = 8, b""
    while pos < len(data):
        length, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + length]
        if kind == b"IHDR":
            width, height, depth, colour_type = struct.unpack(">IIBB", body[:10])
            if depth != 8 or colour_type not in (2, 6) or body[12] != 0:
                fail("unexpected PNG format in " + path)
        elif kind == b"IDAT":
            idat += body
        pos += 12 + length
    channels = 3 if colour_type == 2 else 4
    raw = zlib.decompress(idat)
    stride = width * channels
    rows, previous = [], bytearray(stride)
    for y in range(height):
        start = y * (stride + 1)
        kind, line = raw[start], bytearray(raw[start + 1:start + 1 + stride])
        for i in range(stride):
            a = line[i - channels] if i >= channels else 0
            b = previous[i]
            c = previous[i - channels] if i >= channels else 0
            add = (0, a, b, (a + b) // 2, paeth(a, b, c))[kind]
            line[i] = (line[i] + add) & 0xff
        rows.append([tuple(line[x * channels:x * channels + 3]) for x in range(width)])
        previous = line
    return width, height, rows


# ---- Segments named by the PostScript file ----

def postscript_segments(path):
    """The "Li" lines as raster segments: x0 y0 x1 y1, x right, y down."""
    text = open(path).read()
    box = re.search(r"%%BoundingBox: 1 1 (\d+) (\d+)", text)
    height = int(box.group(2)) - 1
    segments = []
    for m in re.finditer(r"^(-?\d+) (-?\d+) (-?\d+) (-?\d+) Li$", text, re.M):
        x0, y0, x1, y1 = map(int, m.groups())
        segments.append((x0 - 1, height - y0, x1 - 1, height - y1))
    if not segments:
        fail("no Li lines in " + path)
    return segments


def lattice_points(segment):
    """The pixel centres the segment passes exactly through (its ends too)."""
    x0, y0, x1, y1 = segment
    steps = math.gcd(abs(x1 - x0), abs(y1 - y0)) or 1
    return [(x0 + (x1 - x0) * k // steps, y0 + (y1 - y0) * k // steps)
            for k in range(steps + 1)]


def near_segments(segments, width, height):
    """Pixels within about 1.5 pixels of some segment."""
    near = set()
    for x0, y0, x1, y1 in segments:
        length = max(abs(x1 - x0), abs(y1 - y0), 1)
        for k in range(4 * length + 1):
            x = x0 + (x1 - x0) * k / (4 * length)
            y = y0 + (y1 - y0) * k / (4 * length)
            for dx in (-1, 0, 1):
                for dy in (-1, 0, 1):
                    near.add((int(math.floor(x)) + dx, int(math.floor(y)) + dy))
    return near


def share_of(pixel, fg, bg):
    """How far the pixel is from the background toward the foreground, 0 to 1."""
    span = sum((f - b) ** 2 for f, b in zip(fg, bg))
    return sum((p - b) * (f - b) for p, f, b in zip(pixel, fg, bg)) / span


def check_png_against_segments(png_path, segments, fg, bg):
    width, height, rows = read_png(png_path)
    if (width, height) != (WIDTH, HEIGHT):
        fail("PNG is %dx%d" % (width, height))
    checked = 0
    for segment in segments:
        for x, y in lattice_points(segment):
            if 0 <= x < width and 0 <= y < height:
                share = share_of(rows[y][x], fg, bg)
                if share < 0.5:
                    fail("pixel %d,%d on segment %s is %s" % (x, y, segment, rows[y][x]))
                checked += 1
    near = near_segments(segments, width, height)
    away = 0
    for y in range(height):
        for x in range(width):
            if (x, y) not in near:
                if not same_colour(rows[y][x], bg):
                    fail("pixel %d,%d away from every segment is %s" % (x, y, rows[y][x]))
                away += 1
    if checked < 50 or away < 500:
        fail("too few pixels checked: %d on segments, %d away" % (checked, away))


def byte_colour(rgb):
    return tuple(int(round(c * 255)) for c in rgb)


def same_colour(a, b):
    """Equal but for the rounding of a colour component to a byte."""
    return all(abs(x - y) <= 1 for x, y in zip(a, b))


# ---- SVG and PDF paths ----

def path_midpoints(numbers_and_ops):
    """Midpoints of the move-line pairs of a path, as (x, y) rounded."""
    mids = []
    current = None
    for op, x, y in numbers_and_ops:
        if op == "M":
            current = (x, y)
        elif op == "L" and current:
            mids.append(((current[0] + x) / 2, (current[1] + y) / 2))
            current = None
    return mids


def expected_midpoints(segments):
    """Lines are drawn through pixel centres, half a pixel in from the corner."""
    return [((x0 + x1) / 2 + 0.5, (y0 + y1) / 2 + 0.5) for x0, y0, x1, y1 in segments]


def same_midpoints(found, expected):
    """Whether the two lists hold the same points, each within 0.01 of a
    partner (vector files round their coordinates). A line drawn twice in one
    stroke is held once, so repeats are not counted."""
    def distinct(points):
        kept = []
        for p in sorted(points):
            if not any(abs(p[0] - q[0]) <= 0.01 and abs(p[1] - q[1]) <= 0.01 for q in kept):
                kept.append(p)
        return kept
    left, right = distinct(found), distinct(expected)
    if len(left) != len(right):
        return False
    return all(abs(p[0] - q[0]) <= 0.01 and abs(p[1] - q[1]) <= 0.01 for p, q in zip(left, right))


def svg_midpoints(path):
    text = open(path).read()
    ops = []
    for d in re.findall(r'<path[^>]*\bd="([^"]*)"', text):
        for op, x, y in re.findall(r"([ML])\s+(-?[\d.]+)\s+(-?[\d.]+)", d):
            ops.append((op, float(x), float(y)))
    return path_midpoints(ops), text


def pdf_streams(path):
    data = open(path, "rb").read()
    for m in re.finditer(rb"stream\r?\n", data):
        end = data.find(b"endstream", m.end())
        try:
            yield zlib.decompress(data[m.end():end]).decode("latin-1")
        except zlib.error:
            continue


def pdf_midpoints(path):
    ops = []
    for text in pdf_streams(path):
        for x, y, op in re.findall(r"(-?[\d.]+)\s+(-?[\d.]+)\s+([ml])\b", text):
            ops.append(("M" if op == "m" else "L", float(x), float(y)))
    return path_midpoints(ops)


def pdfinfo(path):
    out = subprocess.run(["pdfinfo", path], capture_output=True, text=True).stdout
    pages = int(re.search(r"Pages:\s+(\d+)", out).group(1))
    size = re.search(r"Page size:\s+([\d.]+) x ([\d.]+) pts", out)
    return pages, (float(size.group(1)), float(size.group(2)))


# ---- Checks ----

def png_matches_postscript(binary, work):
    fg, bg = (1.0, 0.8, 0.2), (0.0, 0.0, 0.3)
    run(binary, work, ["-png", "scene.png", "-ps", "scene.ps",
                       "-fg"] + [str(c) for c in fg] + ["-bg"] + [str(c) for c in bg], SCENE)
    segments = postscript_segments(os.path.join(work, "scene.ps"))
    if not open(os.path.join(work, "scene.ps")).read().rstrip().endswith("showpage"):
        fail("PostScript file has no trailer")
    check_png_against_segments(os.path.join(work, "scene.png"), segments,
                               byte_colour(fg), byte_colour(bg))


def svg_and_pdf_hold_the_lines(binary, work):
    # A display that does not exist: pictures must not try to open one.
    run(binary, work, ["-svg", "scene.svg", "-pdf", "scene.pdf", "-ps", "scene.ps"], SCENE,
        display=":4093")
    expected = expected_midpoints(postscript_segments(os.path.join(work, "scene.ps")))
    mids, text = svg_midpoints(os.path.join(work, "scene.svg"))
    if not same_midpoints(mids, expected):
        fail("SVG lines differ: %d found, %d expected" % (len(mids), len(expected)))
    if not re.search(r'<svg[^>]*width="%dpt"[^>]*height="%dpt"' % (WIDTH, HEIGHT), text):
        fail("SVG size is not %dx%d" % (WIDTH, HEIGHT))
    if not same_midpoints(pdf_midpoints(os.path.join(work, "scene.pdf")), expected):
        fail("PDF lines differ from the PostScript file's")
    if len(expected) < 4:
        fail("too few lines to compare")
    if pdfinfo(os.path.join(work, "scene.pdf")) != (1, (WIDTH, HEIGHT)):
        fail("PDF pages: %s" % (pdfinfo(os.path.join(work, "scene.pdf")),))


def numbered_files_one_per_world(binary, work):
    run(binary, work, ["-png", "f%04d.png", "-svg", "f%d.svg", "-pdf", "all.pdf"], THREE_WORLDS)
    sizes = [(40, 30), (50, 40), (60, 50)]
    for n, size in enumerate(sizes):
        width, height, _ = read_png(os.path.join(work, "f%04d.png" % n))
        if (width, height) != size:
            fail("f%04d.png is %dx%d" % (n, width, height))
        if not os.path.exists(os.path.join(work, "f%d.svg" % n)):
            fail("f%d.svg missing" % n)
    if os.path.exists(os.path.join(work, "f0003.png")):
        fail("a fourth picture was written")
    pages, first_size = pdfinfo(os.path.join(work, "all.pdf"))
    if pages != 3 or first_size != (40, 30):
        fail("all.pdf has %d pages, first %s" % (pages, first_size))
    # A numbered PDF name gives one file per world block.
    run(binary, work, ["-pdf", "p%02d.pdf", "-png", "last.png"], THREE_WORLDS)
    for n, size in enumerate(sizes):
        if pdfinfo(os.path.join(work, "p%02d.pdf" % n)) != (1, size):
            fail("p%02d.pdf is wrong" % n)
    if read_png(os.path.join(work, "last.png"))[:2] != (60, 50):
        fail("last.png is not the last world block")


def frames_skipped_make_no_picture(binary, work):
    scene = "Format 20 20 1\n" + "".join(
        "FrameBegin %d\nWorldBegin\nSphere 1 -1 1 360\nWorldEnd\nFrameEnd\n" % n for n in range(4))
    run(binary, work, ["-frames", "1", "2", "-png", "fr%d.png"], scene)
    names = sorted(n for n in os.listdir(work) if n.startswith("fr"))
    if names != ["fr0.png", "fr1.png"]:
        fail("pictures of frames 1 and 2 expected, got %s" % names)


def colours_in_pictures(binary, work):
    bg = (0.1, 0.1, 0.1)

    def line_colour(png):
        """The commonest colour of the pixels that are not background."""
        width, height, rows = read_png(os.path.join(work, png))
        counts = {}
        for x in range(width):
            for y in range(height):
                if not same_colour(rows[y][x], byte_colour(bg)):
                    counts[rows[y][x]] = counts.get(rows[y][x], 0) + 1
        if not counts:
            fail(png + " holds only background")
        return max(counts, key=counts.get)

    run(binary, work, ["-png", "c%d.png"], THREE_WORLDS)
    if not same_colour(line_colour("c1.png"), (255, 0, 0)):
        fail("Color [1 0 0] draws %s" % (line_colour("c1.png"),))
    if not same_colour(line_colour("c0.png"), (255, 255, 255)):
        fail("default foreground draws %s" % (line_colour("c0.png"),))
    run(binary, work, ["-nocolor", "-fg", "0", "0.6", "1", "-png", "n%d.png"], THREE_WORLDS)
    for n in range(3):
        if not same_colour(line_colour("n%d.png" % n), byte_colour((0, 0.6, 1))):
            fail("-nocolor -fg draws %s" % (line_colour("n%d.png" % n),))


def many_spheres(count, detail=7):
    """One world block of count spheres, some 3300 lines each at this
    detail, spread over a 640 by 480 picture."""
    lines = ['Format 640 480 1', 'Projection "perspective" "fov" [40]',
             'RelativeDetail %d' % detail, 'Translate 0 0 30', 'WorldBegin']
    for k in range(count):
        radius = 0.5 + (k * 0.37) % 1.5
        lines.append("TransformBegin Translate %.3f %.3f %.3f Sphere %.2f %.2f %.2f 360 "
                     "TransformEnd" % ((k * 7.3) % 18 - 9, (k * 3.1) % 12 - 6, (k * 1.7) % 10 - 5,
                                       radius, -radius, radius))
    return "\n".join(lines + ["WorldEnd", ""])


def svg_and_pdf_memory_is_bounded(binary, work, sanitized=False):
    """A world block of 2.6 million lines: SVG and PDF pictures take at most
    64 MB more than the PNG picture (cairo alone would hold every line of
    the page, some 140 MB more for the SVG), and the pictures are whole."""
    scene = many_spheres(800)
    limit = "more than 250000 lines in one world block"
    _, png_peak = run(binary, work, ["-png", "m.png"], scene)
    for kind in ("svg", "pdf"):
        err, peak = run(binary, work, ["-" + kind, "m." + kind], scene)
        # Under the sanitizers memory is counted with their own bookkeeping.
        if not sanitized and peak > png_peak + 64:
            fail("-%s took %.0f MB at its peak, -png %.0f MB" % (kind, peak, png_peak))
        if err.count(limit) != 1:
            fail("the %s picture's limit was reported %d times" % (kind, err.count(limit)))
    if pdfinfo(os.path.join(work, "m.pdf")) != (1, (640, 480)):
        fail("m.pdf is not one 640 by 480 page")
    text = open(os.path.join(work, "m.svg")).read()
    if not text.rstrip().endswith("</svg>") or "<image" not in text or "<path" not in text:
        fail("m.svg is not lines with an image over them")


STROKE_REFERENCE = None
REPO = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SHARED = os.path.join(REPO, "..", "shared")
# Shares of a picture's pixels allowed to differ from cairo's strokes by more
# than 8 and more than 32 of 255 in a channel. cairo's scan converter
# samples a pixel's rows 15 times and its stroke of one object covers a
# pixel once where lines cross; ours is exact and composites each line.
MOST_OVER_8, MOST_OVER_32 = 0.08, 0.015


def pictures_look_as_cairo_stroked_them(binary, work, sanitized=False):
    """The PNG pictures of the benchmark files (at a hundredth of their
    size) and of some corpus scenes, compared pixel by pixel with the same
    lines stroked by cairo."""
    scenes = [os.path.join(work, "scene.rib")]
    with open(scenes[0], "w") as f:
        f.write(SCENE)
    generator = os.path.join(SHARED, "bench", "genrib.py")
    if os.path.exists(generator):
        subprocess.run([sys.executable, generator, "--out", work, "--scale", "0.01"],
                       check=True, capture_output=True)
        scenes += [os.path.join(work, n) for n in ("mesh.rib", "many.rib", "patches.rib")]
    corpus = os.path.join(SHARED, "corpus", "files", "ribtools", "DistribSrc", "base",
                          "TestScenes")
    scenes += [os.path.join(corpus, n) for n in ("Elephant.rib", "Chair.rib")
               if os.path.exists(os.path.join(corpus, n))]
    for scene in scenes:
        picture, reference = os.path.join(work, "new.png"), os.path.join(work, "ref.png")
        subprocess.run([binary, "-png", picture, os.path.basename(scene)],
                       cwd=os.path.dirname(scene), capture_output=True, check=True,
                       env=dict(os.environ, HOME=work))
        out = subprocess.run([STROKE_REFERENCE, scene, picture, reference], capture_output=True,
                             text=True, check=True, env=dict(os.environ, HOME=work)).stdout
        words = out.split()
        pixels, over8, over32 = int(words[1]), int(words[5]), int(words[7])
        print("%s: %s" % (os.path.basename(scene), out.strip()))
        if over8 > MOST_OVER_8 * pixels or over32 > MOST_OVER_32 * pixels:
            fail("%s: %d pixels differ by more than 8, %d by more than 32, of %d"
                 % (os.path.basename(scene), over8, over32, pixels))


CHECKS = {f.__name__: f for f in (png_matches_postscript, svg_and_pdf_hold_the_lines,
                                  numbered_files_one_per_world, frames_skipped_make_no_picture,
                                  colours_in_pictures, svg_and_pdf_memory_is_bounded,
                                  pictures_look_as_cairo_stroked_them)}


def main():
    binary, check = sys.argv[1], sys.argv[2]
    options = {"sanitized": True} if "--sanitized" in sys.argv[3:] else {}
    if "--reference" in sys.argv[3:-1]:
        global STROKE_REFERENCE
        STROKE_REFERENCE = os.path.abspath(sys.argv[sys.argv.index("--reference") + 1])
    if "sanitized" not in inspect.signature(CHECKS[check]).parameters:
        options = {}
    with tempfile.TemporaryDirectory() as work:
        CHECKS[check](os.path.abspath(binary), work, **options)
    print("ok")


if __name__ == "__main__":
    main()
