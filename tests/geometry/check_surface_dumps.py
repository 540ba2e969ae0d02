#!/usr/bin/env python3
"""Checks the diced surfaces that `tracery -dumprib` prints against the
surfaces themselves, evaluated here another way: implicit equations for the
quadrics and a rational NURBS sphere, de Casteljau for a Bezier patch, the
uniform B-spline blending functions for a periodic patch mesh, the
recursive definition of the B-spline basis for a cubic NURBS surface with
interior knots, the published control points of the teapot of
`Geometry "teapot"`, and the field of a Blobby at the points of its
triangles (`-dumptri`).

Usage: check_surface_dumps.py TRACERY
Prints one line per check and exits with status 1 if any fails.
"""
import math
import os
import subprocess
import sys
import tempfile

TOLERANCE = 2e-4


def dump(tracery, rib, *options, mode="-dumprib"):
    """The polygons printed for rib, each a list of points."""
    with tempfile.TemporaryDirectory() as work:
        path = os.path.join(work, "scene.rib")
        with open(path, "w") as f:
            f.write(rib)
        env = {"PATH": os.environ.get("PATH", ""), "HOME": work, "LC_ALL": "C"}
        for name in ("DISPLAY", "XAUTHORITY", "ASAN_OPTIONS", "UBSAN_OPTIONS"):
            if name in os.environ:
                env[name] = os.environ[name]
        out = subprocess.run([tracery, "-nowait", mode, *options, path], env=env,
                             capture_output=True, text=True, check=True).stdout
    quads = []
    for line in out.splitlines():
        assert line.startswith('Polygon "P" [') and line.endswith("]"), line
        values = [float(v) for v in line[len('Polygon "P" ['):-1].split()]
        quads.append([tuple(values[k:k + 3]) for k in range(0, len(values), 3)])
    return quads


def grid_of(quads, nu, nv):
    """Rows 0..nv of columns 0..nu from nu x nv quadrilaterals A B C D."""
    assert len(quads) == nu * nv, (len(quads), nu, nv)
    grid = [[None] * (nu + 1) for _ in range(nv + 1)]
    for j in range(nv):
        for i in range(nu):
            a, b, c, d = quads[j * nu + i]
            grid[j][i], grid[j][i + 1], grid[j + 1][i + 1], grid[j + 1][i] = a, b, c, d
    return grid


def close(p, q):
    return all(abs(x - y) <= TOLERANCE * max(1.0, abs(y)) for x, y in zip(p, q))


def basis(knots, i, k, t):
    """N(i, k)(t) by the recursive definition (order k)."""
    if k == 1:
        return 1.0 if knots[i] <= t < knots[i + 1] else 0.0
    value = 0.0
    if knots[i + k - 1] > knots[i]:
        value += (t - knots[i]) / (knots[i + k - 1] - knots[i]) * basis(knots, i, k - 1, t)
    if knots[i + k] > knots[i + 1]:
        value += (knots[i + k] - t) / (knots[i + k] - knots[i + 1]) * basis(knots, i + 1, k - 1, t)
    return value


def nurbs_point(points, nu, uorder, uknots, nv, vorder, vknots, u, v, rational):
    # Just below the top of the knot domain, where the recursion gives zero.
    u = min(u, uknots[nu] - 1e-9)
    v = min(v, vknots[nv] - 1e-9)
    total = [0.0] * 4
    for r in range(nv):
        bv = basis(vknots, r, vorder, v)
        if bv == 0.0:
            continue
        for c in range(nu):
            weight = bv * basis(uknots, c, uorder, u)
            cp = points[r * nu + c]
            for k in range(len(cp)):
                total[k] += weight * cp[k]
    w = total[3] if rational else 1.0
    return tuple(x / w for x in total[:3])


def lattice_params(knots, order, count, lo, hi, per_span):
    """min, then per_span even steps through each non-empty span in range, then max."""
    params = []
    for i in range(order - 1, count):
        a, b = max(knots[i], lo), min(knots[i + 1], hi)
        if a < b:
            params += [a + (b - a) * k / per_span for k in range(per_span)]
    return params + [hi]


def check_sphere_and_torus(tracery):
    quads = dump(tracery, "WorldBegin\nSphere 2 -2 2 360\nWorldEnd\n", "-rd", "2")
    sphere = all(abs(math.dist(p, (0, 0, 0)) - 2) < TOLERANCE for q in quads for p in q)
    quads = dump(tracery, "WorldBegin\nTorus 3 1 0 360 360\nWorldEnd\n", "-rd", "8")
    on_torus = all(abs((math.hypot(x, y) - 3) ** 2 + z * z - 1) < 1e-3 for q in quads
                   for x, y, z in q)
    return [("sphere at detail 8 on its radius", sphere),
            ("torus at detail 32: 128 x 64 cells on the torus", on_torus and len(quads) == 8192)]


def check_bezier_patch(tracery):
    cp = [(c, r + 0.25 * c, math.sin(r * 4 + c)) for r in range(4) for c in range(4)]
    text = " ".join("%.6f %.6f %.6f" % p for p in cp)
    quads = dump(tracery, 'WorldBegin\nPatch "bicubic" "P" [%s]\nWorldEnd\n' % text)
    grid = grid_of(quads, 4, 4)

    def casteljau(points, t):
        while len(points) > 1:
            points = [tuple((1 - t) * a + t * b for a, b in zip(p, q))
                      for p, q in zip(points, points[1:])]
        return points[0]

    ok = True
    for j in range(5):
        for i in range(5):
            rows = [casteljau(cp[4 * r:4 * r + 4], i / 4) for r in range(4)]
            ok = ok and close(grid[j][i], casteljau(rows, j / 4))
    return [("Bezier patch lattice equals de Casteljau", ok)]


def check_bspline_mesh(tracery):
    # A ring of 6 points around the z axis, periodic in u, 4 rows up.
    ring = [(math.cos(a * math.pi / 3), math.sin(a * math.pi / 3)) for a in range(6)]
    cp = [(x, y, float(r)) for r in range(4) for x, y in ring]
    text = " ".join("%.6f %.6f %.6f" % p for p in cp)
    rib = ('WorldBegin\nBasis "b-spline" 1 "b-spline" 1\n'
           'PatchMesh "bicubic" 6 "periodic" 4 "nonperiodic" "P" [%s]\nWorldEnd\n' % text)
    quads = dump(tracery, rib)
    ok = len(quads) == 6 * 16

    def blend(t):
        s = 1 - t
        return [s ** 3 / 6, (3 * t ** 3 - 6 * t * t + 4) / 6, (-3 * t ** 3 + 3 * t * t + 3 * t + 1) / 6,
                t ** 3 / 6]

    for patch in range(6):
        grid = grid_of(quads[patch * 16:(patch + 1) * 16], 4, 4)
        for j in range(5):
            for i in range(5):
                bu, bv = blend(i / 4), blend(j / 4)
                expect = [sum(bv[r] * bu[c] * cp[r * 6 + (patch + c) % 6][k]
                              for r in range(4) for c in range(4)) for k in range(3)]
                ok = ok and close(grid[j][i], expect)
    return [("periodic B-spline mesh: 6 patches equal to the blending functions", ok)]


def check_cubic_nurbs(tracery):
    uknots = [0, 0, 0, 0, 0.3, 0.6, 1, 1, 1, 1]
    vknots = [0, 0, 0, 0.5, 1, 1, 1]
    cp = [(c, r, math.cos(c * r)) for r in range(4) for c in range(6)]
    text = " ".join("%.6f %.6f %.6f" % p for p in cp)
    rib = ("WorldBegin\nNuPatch 6 4 [%s] 0.1 0.95 4 3 [%s] 0 1 \"P\" [%s]\nWorldEnd\n" %
           (" ".join(map(str, uknots)), " ".join(map(str, vknots)), text))
    us = lattice_params(uknots, 4, 6, 0.1, 0.95, 2)
    vs = lattice_params(vknots, 3, 4, 0.0, 1.0, 2)
    quads = dump(tracery, rib)
    grid = grid_of(quads, len(us) - 1, len(vs) - 1)
    ok = all(close(grid[j][i], nurbs_point(cp, 6, 4, uknots, 4, 3, vknots, u, v, False))
             for j, v in enumerate(vs) for i, u in enumerate(us))
    return [("cubic NURBS with interior knots equals the recursive basis (%d x %d cells)" %
             (len(us) - 1, len(vs) - 1), ok)]


def check_rational_sphere(tracery):
    # Unit sphere: a rational quadratic half circle (5 points) swept round
    # by a rational quadratic full circle (9 points).
    h = math.sqrt(0.5)
    profile = [(0, -1, 1), (h, -h, h), (1, 0, 1), (h, h, h), (0, 1, 1)]  # (r w, z w, w)
    circle = [(1, 0, 1), (h, h, h), (0, 1, 1), (-h, h, h), (-1, 0, 1), (-h, -h, h), (0, -1, 1),
              (h, -h, h), (1, 0, 1)]  # (x w, y w, w)
    points = []
    for rw, zw, wv in profile:
        for xw, yw, wu in circle:
            points.append((rw * xw, rw * yw, zw * wu, wv * wu))
    text = " ".join("%.7f %.7f %.7f %.7f" % p for p in points)
    rib = ("WorldBegin\nNuPatch 9 3 [0 0 0 0.25 0.25 0.5 0.5 0.75 0.75 1 1 1] 0 1 "
           "5 3 [0 0 0 0.5 0.5 1 1 1] 0 1 \"Pw\" [%s]\nWorldEnd\n" % text)
    quads = dump(tracery, rib, "-rd", "2")
    ok = len(quads) == 16 * 8 and all(abs(math.dist(p, (0, 0, 0)) - 1) < TOLERANCE for q in quads
                                      for p in q)
    return [("rational NURBS sphere (\"Pw\"): every point on the unit radius", ok)]


def check_teapot(tracery):
    """At one cell a patch, each of the 32 quadrilaterals is the patch's
    corners: control points 0, 3, 15 and 12. The published data set, read
    here as rings of patches that turn about z, gives them."""
    def turned(corners, quarters):
        out = []
        for x, y, z in corners:
            for _ in range(quarters % 4):
                x, y = -y, x
            out.append((x, y, z))
        return out

    def ring(first, step):
        return [turned(first, step * k) for k in range(4)]

    rim = [(1.4, 0, 2.4), (0, -1.4, 2.4), (0, -1.5, 2.4), (1.5, 0, 2.4)]
    body_top = [(1.5, 0, 2.4), (0, -1.5, 2.4), (0, -2, 0.9), (2, 0, 0.9)]
    body_bottom = [(2, 0, 0.9), (0, -2, 0.9), (0, -1.5, 0.15), (1.5, 0, 0.15)]
    handle = [[(-1.6, 0, 2.025), (-1.5, 0, 2.25), (-3, 0, 1.8), (-2.7, 0, 1.8)],
              [(-1.5, 0, 2.25), (-1.6, 0, 2.025), (-2.7, 0, 1.8), (-3, 0, 1.8)],
              [(-2.7, 0, 1.8), (-3, 0, 1.8), (-1.9, 0, 0.6), (-2, 0, 0.9)],
              [(-3, 0, 1.8), (-2.7, 0, 1.8), (-2, 0, 0.9), (-1.9, 0, 0.6)]]
    spout = [[(1.7, 0, 1.425), (1.7, 0, 0.6), (3.3, 0, 2.4), (2.7, 0, 2.4)],
             [(1.7, 0, 0.6), (1.7, 0, 1.425), (2.7, 0, 2.4), (3.3, 0, 2.4)],
             [(2.7, 0, 2.4), (3.3, 0, 2.4), (3.2, 0, 2.4), (2.8, 0, 2.4)],
             [(3.3, 0, 2.4), (2.7, 0, 2.4), (2.8, 0, 2.4), (3.2, 0, 2.4)]]
    lid_top = [(0, 0, 3.15), (0, 0, 3.15), (0, -0.2, 2.7), (0.2, 0, 2.7)]
    lid_bottom = [(0.2, 0, 2.7), (0, -0.2, 2.7), (0, -1.3, 2.4), (1.3, 0, 2.4)]
    bottom = [(0, 0, 0), (0, 0, 0), (0, 1.5, 0.15), (1.5, 0, 0.15)]
    want = (ring(rim, -1) + ring(body_top, -1) + ring(body_bottom, -1) + handle + spout +
            ring(lid_top, -1) + ring(lid_bottom, -1) + ring(bottom, 1))
    quads = dump(tracery, 'WorldBegin\nGeometry "teapot"\nWorldEnd\n', "-rd", "0.25")
    ok = len(quads) == 32 and all(close(p, q) for got, corners in zip(quads, want)
                                  for p, q in zip(got, corners))
    return [("teapot: 32 patches with the published corner points", ok)]


def check_blobby(tracery):
    """Every point of the triangles lies where the field is 0.5: for a lone
    ellipsoid (scaled 1.2 by 0.8, turned 30 degrees about z, moved), and for
    two unit spheres 0.9 apart whose fields add, which make one blended
    surface (points near x = 0, between the centres)."""
    def falloff(d2):
        return (1 - d2) ** 3 if d2 < 1 else 0.0

    c, s = math.cos(math.pi / 6), math.sin(math.pi / 6)
    matrix = [1.2 * c, 1.2 * s, 0, 0, -0.8 * s, 0.8 * c, 0, 0, 0, 0, 1, 0, 0.3, -0.2, 0.1, 1]

    def ellipsoid(p):
        d = (p[0] - 0.3, p[1] + 0.2, p[2] - 0.1)
        q = ((d[0] * c + d[1] * s) / 1.2, (-d[0] * s + d[1] * c) / 0.8, d[2])
        return falloff(sum(v * v for v in q))

    rib = ('WorldBegin\nBlobby 1 [1001 0] [%s] [""]\nWorldEnd\n' %
           " ".join("%.7f" % v for v in matrix))
    triangles = dump(tracery, rib, mode="-dumptri")
    lone = len(triangles) > 200 and all(abs(ellipsoid(p) - 0.5) < 0.02 for t in triangles
                                        for p in t)

    def pair(p):
        return sum(falloff((p[0] - x) ** 2 + p[1] ** 2 + p[2] ** 2) for x in (-0.45, 0.45))

    rib = ('WorldBegin\nBlobby 2 [1001 0 1001 16 0 2 0 1] [1 0 0 0 0 1 0 0 0 0 1 0 -0.45 0 0 1 '
           '1 0 0 0 0 1 0 0 0 0 1 0 0.45 0 0 1] [""]\nWorldEnd\n')
    triangles = dump(tracery, rib, mode="-dumptri")
    points = [p for t in triangles for p in t]
    blended = (len(triangles) > 200 and all(abs(pair(p) - 0.5) < 0.02 for p in points) and
               min(abs(p[0]) for p in points) < 0.05)
    return [("blobby ellipsoid: its triangles on the 0.5 level of its field", lone),
            ("blobby of two spheres: one blended surface on the 0.5 level of their sum", blended)]


def main():
    tracery = sys.argv[1]
    results = []
    for check in (check_sphere_and_torus, check_bezier_patch, check_bspline_mesh,
                  check_cubic_nurbs, check_rational_sphere, check_teapot, check_blobby):
        results += check(tracery)
    for name, ok in results:
        print("%s  %s" % ("PASS" if ok else "FAIL", name))
    sys.exit(0 if all(ok for _, ok in results) else 1)


if __name__ == "__main__":
    main()
